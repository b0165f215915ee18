// Command-line server figures, printed as text. Goals:
//   - whole-process `marlune ping`: median under 5 ms;
//   - 10,000 sequential requests, a new connection each: at least 5,000 requests per second;
//   - 50 client processes at once, 200 requests each: every request answered correctly.
// Usage: CLIBench <marlune-app> <marlune>   (starts its own headless app on a temporary library)

#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLIToken.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "MarluneCLIProtocol/CLIWire.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double millis(Clock::duration d) { return std::chrono::duration<double, std::milli>(d).count(); }

bool roundTrip(const std::string& socketPath, const std::string& frame) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, socketPath.c_str(), sizeof address.sun_path - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return false;
    }
    std::size_t sent = 0;
    while (sent < frame.size()) {
        const auto n = ::send(fd, frame.data() + sent, frame.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) {
            ::close(fd);
            return false;
        }
        sent += static_cast<std::size_t>(n);
    }
    std::string answer;
    char buffer[8192];
    for (;;) {
        const auto n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0) {
            break;
        }
        answer.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    if (answer.size() < 4) {
        return false;
    }
    const auto response = marlune::CLIResponse::decode(std::string_view(answer).substr(4));
    return response && response->ok;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1))];
}

int runTool(const std::string& tool, const std::string& home) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::setenv("MARLUNE_HOME", home.c_str(), 1);
        const int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, 0);
        ::dup2(null, 1);
        ::dup2(null, 2);
        ::execl(tool.c_str(), tool.c_str(), "ping", "--no-launch", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s <marlune-app> <marlune>\n", argv[0]);
        return 64;
    }
    const std::string app = fs::absolute(argv[1]).string();
    const std::string tool = fs::absolute(argv[2]).string();
    std::string pattern = (fs::temp_directory_path() / "marlune-clibench.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        return 1;
    }
    const fs::path home = pattern;
    // Raw clients below are not the bundled tool; the tool itself is still checked in part one.
    std::ofstream(home / "settings.json") << R"({"cliRequireBundledTool": false})";

    const pid_t appPID = ::fork();
    if (appPID == 0) {
        ::setenv("MARLUNE_HOME", home.c_str(), 1);
        ::unsetenv("DISPLAY");
        const int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, 1);
        ::dup2(null, 2);
        ::execl(app.c_str(), app.c_str(), "--headless", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    const std::string socketPath = (home / "marlune.sock").string();
    const fs::path tokenPath = home / "cli-token";
    for (int i = 0; i < 500 && !(fs::exists(socketPath) && fs::exists(tokenPath)); ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    std::stringstream tokenText;
    tokenText << std::ifstream(tokenPath).rdbuf();
    const std::string token(marlune::trimWhitespaceAndNewlines(tokenText.str()));
    const auto payload = marlune::makeRequest("ping", marlune::PingArgs{}, token).encode();
    const std::string frame = std::get<std::string>(marlune::CLIWire::encodeFrame(payload));
    int status = 0;

    // 1. Whole-process `marlune ping`.
    std::vector<double> pings;
    int pingFailures = 0;
    for (int i = 0; i < 100; ++i) {
        const auto start = Clock::now();
        pingFailures += runTool(tool, home.string()) != 0 ? 1 : 0;
        pings.push_back(millis(Clock::now() - start));
    }
    std::printf("marlune ping (whole process, 100 runs): median %.2f ms, p90 %.2f ms, "
                "failures %d  [goal: median < 5 ms]\n",
                median(pings), percentile(pings, 0.9), pingFailures);
    status |= (median(pings) < 5.0 && pingFailures == 0) ? 0 : 1;

    // 2. Sequential requests, a new connection each.
    constexpr int sequential = 10'000;
    int failures = 0;
    const auto seqStart = Clock::now();
    for (int i = 0; i < sequential; ++i) {
        failures += roundTrip(socketPath, frame) ? 0 : 1;
    }
    const double seqSeconds = millis(Clock::now() - seqStart) / 1000.0;
    std::printf("sequential: %d requests in %.2f s = %.0f requests/s, failures %d  "
                "[goal: >= 5,000/s]\n",
                sequential, seqSeconds, sequential / seqSeconds, failures);
    status |= (sequential / seqSeconds >= 5000.0 && failures == 0) ? 0 : 1;

    // 3. 50 client processes at once, 200 requests each.
    constexpr int clients = 50;
    constexpr int perClient = 200;
    const auto parStart = Clock::now();
    std::vector<pid_t> children;
    for (int c = 0; c < clients; ++c) {
        const pid_t child = ::fork();
        if (child == 0) {
            int answered = 0;
            for (int i = 0; i < perClient; ++i) {
                // A full backlog refuses a connection; a client retries rather than losing it.
                for (int attempt = 0; attempt < 100; ++attempt) {
                    if (roundTrip(socketPath, frame)) {
                        ++answered;
                        break;
                    }
                    std::this_thread::sleep_for(std::chrono::milliseconds(2));
                }
            }
            ::_exit(answered == perClient ? 0 : 1);
        }
        children.push_back(child);
    }
    int failedClients = 0;
    for (const pid_t child : children) {
        int childStatus = 0;
        ::waitpid(child, &childStatus, 0);
        failedClients += (WIFEXITED(childStatus) && WEXITSTATUS(childStatus) == 0) ? 0 : 1;
    }
    const double parSeconds = millis(Clock::now() - parStart) / 1000.0;
    std::printf("concurrent: %d processes x %d requests in %.2f s = %.0f requests/s, clients "
                "with a lost request: %d  [goal: 0]\n",
                clients, perClient, parSeconds, clients * perClient / parSeconds, failedClients);
    status |= failedClients == 0 ? 0 : 1;

    ::kill(appPID, SIGTERM);
    ::waitpid(appPID, nullptr, 0);
    std::error_code ignored;
    fs::remove_all(home, ignored);
    return status;
}
