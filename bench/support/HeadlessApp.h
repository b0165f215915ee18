#pragma once
// What the whole-process benches share: a headless application of their own on a library
// directory, raw requests to its socket, timed runs of the tool, and the figures printed.

#include "MarluneCLIProtocol/CLIResponse.h"
#include "MarluneCLIProtocol/CLIToken.h"
#include "MarluneCLIProtocol/CLIWire.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <span>
#include <sstream>
#include <string>
#include <string_view>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace marlune::bench {

using Clock = std::chrono::steady_clock;

inline double millis(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

// Sorts `values`; the median and a percentile of them.
inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

inline double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1))];
}

// Sends one request payload on a new connection, framed as the tool frames it; true when
// the answer says ok.
inline bool roundTrip(const std::string& socketPath, std::string_view payload) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return false;
    }
    const auto status = [](ssize_t n) {
        return n > 0 ? CLIWireIO{CLIWireIO::Status::transferred, static_cast<std::size_t>(n)}
                     : CLIWireIO{n == 0 ? CLIWireIO::Status::closed : CLIWireIO::Status::failed, 0};
    };
    const auto sent = CLIWire::writeFrame(
        [&](std::span<const std::uint8_t> bytes) {
            return status(::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL));
        },
        payload);
    auto answer = sent ? std::variant<std::string, CLIWireError>(*sent)
                       : CLIWire::readFrame([&](std::span<std::uint8_t> buffer) {
                             return status(::recv(fd, buffer.data(), buffer.size(), 0));
                         });
    ::close(fd);
    const auto* text = std::get_if<std::string>(&answer);
    const auto response = text ? CLIResponse::decode(*text) : std::nullopt;
    return response && response->ok;
}

// Runs the tool `runs` times with `args` (and --no-launch) against the library in `home`;
// the wall time of each run, start to exit, in milliseconds. Runs that fail are counted.
inline std::vector<double> timeTool(const std::string& tool, const std::string& home,
                                    std::vector<const char*> args, int runs, int& failures) {
    args.insert(args.begin(), tool.c_str());
    args.push_back("--no-launch");
    args.push_back(nullptr);
    std::vector<double> times;
    for (int i = 0; i < runs; ++i) {
        const auto start = Clock::now();
        const pid_t pid = ::fork();
        if (pid == 0) {
            ::setenv("MARLUNE_HOME", home.c_str(), 1);
            const int null = ::open("/dev/null", O_RDWR);
            ::dup2(null, 0);
            ::dup2(null, 1);
            ::dup2(null, 2);
            ::execv(tool.c_str(), const_cast<char* const*>(args.data()));
            ::_exit(127);
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        times.push_back(millis(Clock::now() - start));
        failures += WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
    }
    return times;
}

// A headless application of the bench's own on the library in `home`, which lets raw
// clients in; ended (SIGTERM, then waited for) when this goes.
class HeadlessApp {
public:
    HeadlessApp(const std::string& app, const std::filesystem::path& home) : home_(home) {
        std::ofstream(home / "settings.json") << R"({"cliRequireBundledTool": false})";
        pid_ = ::fork();
        if (pid_ == 0) {
            ::setenv("MARLUNE_HOME", home.c_str(), 1);
            ::unsetenv("DISPLAY");
            const int null = ::open("/dev/null", O_RDWR);
            ::dup2(null, 1);
            ::dup2(null, 2);
            ::execl(app.c_str(), app.c_str(), "--headless", static_cast<char*>(nullptr));
            ::_exit(127);
        }
        const auto tokenPath = home / "cli-token";
        for (int i = 0; i < 500 && !(std::filesystem::exists(socketPath()) &&
                                     std::filesystem::exists(tokenPath));
             ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        std::stringstream tokenText;
        tokenText << std::ifstream(tokenPath).rdbuf();
        token_ = std::string(trimWhitespaceAndNewlines(tokenText.str()));
    }
    HeadlessApp(const HeadlessApp&) = delete;
    HeadlessApp& operator=(const HeadlessApp&) = delete;
    ~HeadlessApp() {
        ::kill(pid_, SIGTERM);
        ::waitpid(pid_, nullptr, 0);
    }

    std::string socketPath() const { return (home_ / "marlune.sock").string(); }
    const std::string& token() const { return token_; }
    pid_t pid() const { return pid_; }

private:
    std::filesystem::path home_;
    pid_t pid_ = -1;
    std::string token_;
};

} // namespace marlune::bench
