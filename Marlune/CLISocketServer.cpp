#include "Marlune/CLISocketServer.h"

#include "MarluneCLIProtocol/CLIEndpoint.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIRequestGate.h"
#include "MarluneCLIProtocol/CLIWire.h"
#include "MarluneCore/ContentLimits.h"
#include "MarluneCore/Log.h"

#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace marlune {

static_assert(sizeof(sockaddr_un::sun_path) == CLIEndpoint::socketPathCapacity,
              "the wire module's socket path limit must match this system's");

namespace {

sockaddr_un addressFor(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return address;
}

using Clock = std::chrono::steady_clock;

// Waits until `fd` is ready for `events` or `deadline` passes; the transfer itself never
// blocks. `timedOut` is set when the deadline ended the wait.
template <class Transfer>
CLIWireIO transferBefore(int fd, short events, Clock::time_point deadline, bool& timedOut,
                         const Transfer& transfer) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) {
        timedOut = true;
        return {CLIWireIO::Status::failed, 0};
    }
    pollfd ready{fd, events, 0};
    const int polled = ::poll(&ready, 1, static_cast<int>(left.count()));
    if (polled < 0) {
        return {errno == EINTR ? CLIWireIO::Status::interrupted : CLIWireIO::Status::failed, 0};
    }
    if (polled == 0) {
        timedOut = true;
        return {CLIWireIO::Status::failed, 0};
    }
    const ssize_t n = transfer();
    if (n > 0) {
        return {CLIWireIO::Status::transferred, static_cast<std::size_t>(n)};
    }
    if (n == 0) {
        return {CLIWireIO::Status::closed, 0};
    }
    // Woken without room or data after all: wait again.
    const bool retry = errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK;
    return {retry ? CLIWireIO::Status::interrupted : CLIWireIO::Status::failed, 0};
}

// Sends the payload unless `deadline` passes first; a client that went away loses its answer
// (MSG_NOSIGNAL keeps that from raising SIGPIPE).
void writePayload(int fd, std::string_view payload, Clock::time_point deadline) {
    bool timedOut = false;
    CLIWire::writeFrame(
        [&](std::span<const std::uint8_t> bytes) {
            return transferBefore(fd, POLLOUT, deadline, timedOut, [&] {
                return ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
            });
        },
        payload);
    if (timedOut) {
        logs::app.warning("CLI: a client did not take its answer in time; closed the connection.");
    }
}

std::string seconds(std::chrono::milliseconds duration) {
    if (duration.count() % 1000 == 0) {
        const auto whole = duration.count() / 1000;
        return std::to_string(whole) + (whole == 1 ? " second" : " seconds");
    }
    return std::to_string(duration.count()) + " milliseconds";
}

// The command as the tool's user types it: "board.clearCompleted" is "board clear-completed".
std::string typedCommand(std::string_view command) {
    std::string typed;
    for (const char c : command) {
        if (c == '.') {
            typed += ' ';
        } else if (c >= 'A' && c <= 'Z') {
            typed += '-';
            typed += static_cast<char>(c - 'A' + 'a');
        } else {
            typed += c;
        }
    }
    return typed;
}

// What is sent instead of an answer that no frame can carry.
CLIResponse answerTooLarge(std::string_view command, std::size_t size) {
    const std::string typed = typedCommand(command);
    const std::uint64_t tenths = (size + 50'000) / 100'000;
    return CLIResponse::failure(
        CLIErrorCode::runtime,
        "The answer to `marlune " + typed + "` is " + std::to_string(tenths / 10) + "." +
            std::to_string(tenths % 10) + " MB, over the " +
            ContentLimits::describe(CLIWire::maxPayloadBytes) + " limit for one answer.",
        "Ask for less at once, for example fewer items with --limit, or a narrower selection.");
}

bool sameFile(const std::filesystem::path& a, const std::filesystem::path& b) {
    struct stat sa {};
    struct stat sb {};
    return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

} // namespace

CLISocketServer::CLISocketServer(std::string path, std::string token, Handler handler,
                                 CLIPeerPolicy policy)
    : path_(std::move(path)), token_(std::move(token)), handler_(std::move(handler)),
      policy_(std::move(policy)) {}

CLISocketServer::~CLISocketServer() {
    stop();
}

void CLISocketServer::start() {
    if (!CLIEndpoint::socketPathFits(path_)) {
        throw CLISocketServerError(CLIEndpoint::serverPathTooLongMessage());
    }
    const sockaddr_un address = addressFor(path_);

    // Another instance answering on the socket owns it; a stale file nobody listens on does not.
    const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (probe >= 0) {
        const bool answered =
            ::connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        ::close(probe);
        if (answered) {
            throw CLISocketServerError("Another Marlune instance is already serving " + path_ +
                                       "; not starting a second CLI listener.");
        }
    }

    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        throw CLISocketServerError("socket() failed");
    }
    ::unlink(path_.c_str());
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const std::string reason = std::strerror(errno);
        ::close(fd);
        throw CLISocketServerError("bind() failed: " + reason);
    }
    ::chmod(path_.c_str(), 0600);
    if (::listen(fd, 16) != 0) {
        ::close(fd);
        throw CLISocketServerError("listen() failed");
    }
    listenFD_ = fd;
    stopping_ = false;
    acceptor_ = std::thread([this] { acceptLoop(); });
}

void CLISocketServer::stop() {
    if (listenFD_ < 0) {
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    connectionEnded_.notify_all();
    // Wakes the accept loop: accept() on a shut-down listening socket fails at once.
    ::shutdown(listenFD_, SHUT_RDWR);
    if (acceptor_.joinable()) {
        acceptor_.join();
    }
    // No connection is added any more. Shutting each one's reading side wakes its thread out
    // of a wait for the request; an answer already on its way (the one to "app.quit" among
    // them) is still written, within its own deadline. The descriptor itself is closed by that
    // thread, so it cannot be reused under us.
    std::list<Connection> ending;
    {
        const std::lock_guard lock(mutex_);
        for (const auto& connection : connections_) {
            if (connection.fd >= 0) {
                ::shutdown(connection.fd, SHUT_RD);
            }
        }
        ending.splice(ending.end(), connections_);
    }
    for (auto& connection : ending) {
        connection.thread.join();
    }
    ::close(listenFD_);
    listenFD_ = -1;
}

void CLISocketServer::reapFinished() {
    for (auto it = connections_.begin(); it != connections_.end();) {
        if (it->done) {
            it->thread.join();
            it = connections_.erase(it);
        } else {
            ++it;
        }
    }
}

void CLISocketServer::acceptLoop() {
    for (;;) {
        {
            std::unique_lock lock(mutex_);
            reapFinished();
            connectionEnded_.wait(lock, [this] {
                reapFinished();
                return stopping_ || connections_.size() < maxConnections;
            });
            if (stopping_) {
                return;
            }
        }
        const int fd = ::accept4(listenFD_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            // A client that gave up while queued costs only its own connection.
            if ((errno == EINTR || errno == ECONNABORTED) && !stopping_) {
                continue;
            }
            return;
        }
        const std::lock_guard lock(mutex_);
        if (stopping_) {
            ::close(fd);
            return;
        }
        Connection& connection = connections_.emplace_back();
        connection.fd = fd;
        connection.thread = std::thread([this, &connection, fd] {
            serve(fd);
            const std::lock_guard ended(mutex_);
            ::close(fd);
            connection.fd = -1;
            connection.done = true;
            connectionEnded_.notify_all();
        });
    }
}

bool CLISocketServer::peerAllowed(int fd) const {
    ucred peer{};
    socklen_t length = sizeof peer;
    if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) != 0 || peer.uid != ::getuid()) {
        return false;
    }
    if (!policy_.requireBundledTool) {
        return true;
    }
    // In place of a code signature: the peer's executable must be the very file installed
    // beside the application.
    return sameFile("/proc/" + std::to_string(peer.pid) + "/exe", policy_.bundledTool);
}

void CLISocketServer::serve(int fd) {
    if (!peerAllowed(fd)) {
        logs::app.warning("CLI: rejected unauthorized peer (uid or code-signature mismatch).");
        writePayload(fd, CLIRequestGate::rejectedPeer().encode(), Clock::now() + requestTimeout);
        return;
    }
    // The whole frame must arrive by then, however it is split: a deadline per read would let
    // a client that sends a byte now and then hold its connection for ever.
    const auto deadline = Clock::now() + requestTimeout;
    bool timedOut = false;
    const auto frame = CLIWire::readFrame([&](std::span<std::uint8_t> buffer) {
        return transferBefore(fd, POLLIN, deadline, timedOut, [&] {
            return ::recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT);
        });
    });
    if (timedOut) {
        // Answered below as any frame that could not be read whole.
        logs::app.warning("CLI: a request did not arrive whole within " + seconds(requestTimeout) +
                          "; cut the client off.");
    }
    auto outcome = CLIRequestGate::admitRead(frame, token_);
    if (std::holds_alternative<CLIResponse>(outcome) && stopping_) {
        // Cut off by the stop, not by the client: nothing was asked, so nothing is answered.
        return;
    }
    if (auto* refusal = std::get_if<CLIResponse>(&outcome)) {
        if (refusal->error && refusal->error->code == CLIErrorCode::unauthorized) {
            logs::app.warning("CLI: rejected connection with an invalid token.");
        }
        writePayload(fd, refusal->encode(), Clock::now() + requestTimeout);
        return;
    }
    const auto& request = std::get<CLIRequest>(outcome);
    std::string payload = handler_(request).encode();
    if (payload.size() > CLIWire::maxPayloadBytes) {
        // Sent as it is, the answer would be dropped and the tool left guessing why.
        logs::app.warning("CLI: the answer to " + request.command + " is " +
                          std::to_string(payload.size()) + " bytes, over the frame limit of " +
                          std::to_string(CLIWire::maxPayloadBytes) + "; sent a failure instead.");
        payload = answerTooLarge(request.command, payload.size()).encode();
    }
    writePayload(fd, payload, Clock::now() + requestTimeout);
}

} // namespace marlune
