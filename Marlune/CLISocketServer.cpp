#include "Marlune/CLISocketServer.h"

#include "MarluneCLIProtocol/CLIEndpoint.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIRequestGate.h"
#include "MarluneCLIProtocol/CLIWire.h"
#include "MarluneCore/Log.h"

#include <cerrno>
#include <cstring>
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

void setTimeouts(int fd, std::chrono::milliseconds timeout) {
    timeval tv{};
    tv.tv_sec = static_cast<time_t>(timeout.count() / 1000);
    tv.tv_usec = static_cast<suseconds_t>((timeout.count() % 1000) * 1000);
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
}

CLIWireIO fromErrno(ssize_t n) {
    if (n > 0) {
        return {CLIWireIO::Status::transferred, static_cast<std::size_t>(n)};
    }
    if (n == 0) {
        return {CLIWireIO::Status::closed, 0};
    }
    return {errno == EINTR ? CLIWireIO::Status::interrupted : CLIWireIO::Status::failed, 0};
}

void writeResponse(int fd, const CLIResponse& response) {
    // A client that went away loses its answer; MSG_NOSIGNAL keeps that from raising SIGPIPE.
    CLIWire::writeFrame(
        [fd](std::span<const std::uint8_t> bytes) {
            return fromErrno(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL));
        },
        response.encode());
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

CLISocketServer::~CLISocketServer() { stop(); }

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
    queue_ = std::thread([this] { acceptLoop(); });
}

void CLISocketServer::stop() {
    if (listenFD_ < 0) {
        return;
    }
    stopping_ = true;
    // Wakes the accept loop: accept() on a shut-down listening socket fails at once.
    ::shutdown(listenFD_, SHUT_RDWR);
    if (queue_.joinable()) {
        queue_.join();
    }
    ::close(listenFD_);
    listenFD_ = -1;
}

void CLISocketServer::acceptLoop() {
    for (;;) {
        const int fd = ::accept4(listenFD_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            if (errno == EINTR && !stopping_) {
                continue;
            }
            return;
        }
        if (stopping_) {
            ::close(fd);
            return;
        }
        serve(fd);
        ::close(fd);
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
        writeResponse(fd, CLIRequestGate::rejectedPeer());
        return;
    }
    setTimeouts(fd, ioTimeout);
    const auto frame = CLIWire::readFrame([fd](std::span<std::uint8_t> buffer) {
        return fromErrno(::recv(fd, buffer.data(), buffer.size(), 0));
    });
    auto outcome = CLIRequestGate::admitRead(frame, token_);
    if (auto* refusal = std::get_if<CLIResponse>(&outcome)) {
        if (refusal->error && refusal->error->code == CLIErrorCode::unauthorized) {
            logs::app.warning("CLI: rejected connection with an invalid token.");
        }
        writeResponse(fd, *refusal);
        return;
    }
    writeResponse(fd, handler_(std::get<CLIRequest>(outcome)));
}

} // namespace marlune
