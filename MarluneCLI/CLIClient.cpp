#include "MarluneCLI/CLIClient.h"

#include "MarluneCLI/AppLauncher.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"
#include "MarluneCLIProtocol/CLIToken.h"
#include "MarluneCLIProtocol/CLIWire.h"
#include "MarluneCore/ContentLimits.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace marlune {

static_assert(sizeof(sockaddr_un::sun_path) == CLIEndpoint::socketPathCapacity);

namespace {

using Clock = std::chrono::steady_clock;

class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) {
            ::close(fd_);
        }
    }
    Descriptor(Descriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        if (this != &other) {
            if (fd_ >= 0) {
                ::close(fd_);
            }
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }

private:
    int fd_;
};

enum class ConnectFailure {
    nobodyListening, // no socket file, or a stale one
    queueFull,
    other,
};

struct Refused {
    ConnectFailure failure;
    int error;
};

std::variant<Descriptor, Refused> connectTo(const std::string& path,
                                            std::chrono::milliseconds timeout) {
    Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (socket.get() < 0) {
        return Refused{ConnectFailure::other, errno};
    }
    // Linux bounds a Unix-domain connect that waits on a full listen queue by the send
    // timeout.
    timeval limit{};
    limit.tv_sec = static_cast<time_t>(timeout.count() / 1000);
    limit.tv_usec = static_cast<suseconds_t>((timeout.count() % 1000) * 1000);
    ::setsockopt(socket.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);

    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    int result = 0;
    do {
        result =
            ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address);
    } while (result != 0 && errno == EINTR);
    if (result == 0) {
        return socket;
    }
    const int error = errno;
    if (error == ENOENT || error == ECONNREFUSED) {
        return Refused{ConnectFailure::nobodyListening, error};
    }
    if (error == EAGAIN || error == ETIMEDOUT) {
        return Refused{ConnectFailure::queueFull, error};
    }
    return Refused{ConnectFailure::other, error};
}

std::optional<std::string> readTokenFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        return std::nullopt;
    }
    std::ostringstream contents;
    contents << file.rdbuf();
    return contents.str();
}

CLIErrorPayload unavailable(std::string message) {
    return {std::string(CLIErrorCode::appUnavailable), std::move(message),
            "Start Marlune, or run without --no-launch."};
}

std::string seconds(std::chrono::milliseconds duration) {
    const auto whole = duration.count() / 1000;
    if (duration.count() % 1000 == 0) {
        return std::to_string(whole) + (whole == 1 ? " second" : " seconds");
    }
    std::ostringstream text;
    text << static_cast<double>(duration.count()) / 1000.0 << " seconds";
    return text.str();
}

// The application reads no frame over the limit: it would hang up on such a request unread.
std::optional<CLIErrorPayload> refuseOversized(std::size_t payloadBytes) {
    auto refusal = ContentLimits::refusal("request", payloadBytes, CLIWire::maxPayloadBytes);
    if (!refusal) {
        return std::nullopt;
    }
    return CLIErrorPayload{std::string(CLIErrorCode::validation), std::move(*refusal),
                           "Send less at once, for example by splitting the file into smaller "
                           "ones."};
}

// The payload's size once a token of `tokenBytes` is filled in, without encoding the arguments
// a second time: they travel as Base64, and neither the token nor Base64 needs escaping.
std::size_t payloadBytes(const CLIRequest& request, std::size_t tokenBytes) {
    const CLIRequest shell{
        request.v,         std::string(tokenBytes, '0'), request.command, {}, request.id,
        request.clientPID, request.clientBundleID};
    return shell.encode().size() + (request.argsJSON.size() + 2) / 3 * 4;
}

} // namespace

std::variant<CLIResponse, CLIErrorPayload> CLIClient::send(CLIRequest request) const {
    request.clientPID = static_cast<std::int32_t>(::getpid());
    // Before connecting, so that a request that cannot go does not start the application.
    if (auto refusal = refuseOversized(payloadBytes(request, 2 * CLIToken::randomBytes))) {
        return std::move(*refusal);
    }

    std::string path;
    try {
        path = settings_.endpoint.clientSocketPath();
    } catch (const CLIError& error) {
        return error.payload();
    }

    auto connected = connectTo(path, settings_.connectTimeout);
    if (auto* refused = std::get_if<Refused>(&connected)) {
        if (refused->failure == ConnectFailure::queueFull) {
            return CLIErrorPayload{std::string(CLIErrorCode::busy),
                                   "Marlune is busy with other requests.",
                                   "Try again in a moment."};
        }
        if (refused->failure == ConnectFailure::other) {
            return unavailable("Cannot reach Marlune at " + path + ": " +
                               std::strerror(refused->error) + ".");
        }
        if (settings_.noLaunch) {
            auto token = CLIToken::forClient(readTokenFile(settings_.endpoint.tokenPath()));
            if (auto* error = std::get_if<CLIErrorPayload>(&token)) {
                return std::move(*error);
            }
            return unavailable("Marlune isn't running (nothing answers at " + path + ").");
        }
        auto launched = AppLauncher::start(settings_.appExecutable, settings_.headless);
        if (auto* error = std::get_if<CLIErrorPayload>(&launched)) {
            return std::move(*error);
        }
        const pid_t pid = std::get<pid_t>(launched);
        const auto deadline = Clock::now() + settings_.launchWait;
        while (std::holds_alternative<Refused>(connected)) {
            if (auto status = AppLauncher::endedStatus(pid)) {
                return CLIErrorPayload{std::string(CLIErrorCode::appUnavailable),
                                       "Marlune stopped during start-up (exit status " +
                                           std::to_string(*status) + ").",
                                       "Run `" + settings_.appExecutable.string() +
                                           " --headless` to see why."};
            }
            if (Clock::now() >= deadline) {
                return CLIErrorPayload{std::string(CLIErrorCode::appUnavailable),
                                       "Marlune did not start answering within " +
                                           seconds(settings_.launchWait) + ".",
                                       "Try again in a moment, or start Marlune yourself."};
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            connected = connectTo(path, settings_.connectTimeout);
        }
    }
    const Descriptor socket = std::move(std::get<Descriptor>(connected));

    auto token = CLIToken::forClient(readTokenFile(settings_.endpoint.tokenPath()));
    if (auto* error = std::get_if<CLIErrorPayload>(&token)) {
        return std::move(*error);
    }
    request.token = std::move(std::get<std::string>(token));
    const std::string payload = request.encode();
    // A token file edited by hand may hold a longer token than the one counted above.
    if (auto refusal = refuseOversized(payload.size())) {
        return std::move(*refusal);
    }

    const int fd = socket.get();
    const auto written = CLIWire::writeFrame(
        [fd](std::span<const std::uint8_t> bytes) {
            // A vanished application must not kill the tool with SIGPIPE.
            const ssize_t n = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (n >= 0) {
                return CLIWireIO{CLIWireIO::Status::transferred, static_cast<std::size_t>(n)};
            }
            if (errno == EINTR) {
                return CLIWireIO{CLIWireIO::Status::interrupted, 0};
            }
            return CLIWireIO{errno == EPIPE ? CLIWireIO::Status::closed : CLIWireIO::Status::failed,
                             0};
        },
        payload);
    if (written) {
        return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                               "Marlune closed the connection before the request was sent.",
                               std::nullopt};
    }

    const auto deadline = Clock::now() + settings_.replyTimeout;
    bool timedOut = false;
    const auto frame =
        CLIWire::readFrame([fd, deadline, &timedOut](std::span<std::uint8_t> buffer) {
            const auto left =
                std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd ready{fd, POLLIN, 0};
            const int polled =
                ::poll(&ready, 1, static_cast<int>(std::max<std::int64_t>(left.count(), 0)));
            if (polled < 0) {
                return CLIWireIO{
                    errno == EINTR ? CLIWireIO::Status::interrupted : CLIWireIO::Status::failed, 0};
            }
            if (polled == 0) {
                timedOut = true;
                return CLIWireIO{CLIWireIO::Status::failed, 0};
            }
            const ssize_t n = ::recv(fd, buffer.data(), buffer.size(), 0);
            if (n > 0) {
                return CLIWireIO{CLIWireIO::Status::transferred, static_cast<std::size_t>(n)};
            }
            if (n == 0) {
                return CLIWireIO{CLIWireIO::Status::closed, 0};
            }
            return CLIWireIO{
                errno == EINTR ? CLIWireIO::Status::interrupted : CLIWireIO::Status::failed, 0};
        });
    if (timedOut) {
        return CLIErrorPayload{std::string(CLIErrorCode::timeout),
                               "Marlune did not answer within " + seconds(settings_.replyTimeout) +
                                   ".",
                               "Try again, or raise the limit with --timeout SECONDS."};
    }
    if (const auto* error = std::get_if<CLIWireError>(&frame)) {
        if (error->message == "peer closed") {
            return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                                   "Marlune closed the connection without answering.",
                                   std::nullopt};
        }
        std::string detail = error->message;
        if (detail.ends_with('.')) {
            detail.pop_back();
        }
        return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                               "Marlune's answer could not be read: " + detail + ".", std::nullopt};
    }
    auto response = CLIResponse::decode(std::get<std::string>(frame));
    if (!response) {
        return CLIErrorPayload{std::string(CLIErrorCode::runtime),
                               "Marlune's answer could not be read.",
                               "Check that the tool and the application come from the same "
                               "release."};
    }
    return std::move(*response);
}

} // namespace marlune
