// Whole-process listing of a large Board section, printed as text. Goal:
//   - `marlune board list` of a section of 5,000 items, tool start to exit: median under 20 ms.
// Usage: BoardBench <marlune-app> <marlune> [library-dir]
//   Starts its own headless app on a temporary library, or on `library-dir`, which is then kept
//   (to profile the listing afterwards).

#include "MarluneCLIProtocol/BoardRecords.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLIToken.h"
#include "MarluneCLIProtocol/CLIWire.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
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
    char buffer[8192];
    std::string answer;
    for (;;) {
        const auto n = ::recv(fd, buffer, sizeof buffer, 0);
        if (n <= 0) {
            break;
        }
        answer.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return answer.find("\"ok\":true") != std::string::npos;
}

std::vector<double> timeTool(const std::string& tool, const std::string& home,
                             std::vector<const char*> args, int runs, int& failures) {
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
            args.insert(args.begin(), tool.c_str());
            args.push_back("--no-launch");
            args.push_back(nullptr);
            ::execv(tool.c_str(), const_cast<char* const*>(args.data()));
            ::_exit(127);
        }
        int status = 0;
        ::waitpid(pid, &status, 0);
        times.push_back(millis(Clock::now() - start));
        failures += WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : 1;
    }
    std::sort(times.begin(), times.end());
    return times;
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s <marlune-app> <marlune>\n", argv[0]);
        return 64;
    }
    const std::string app = fs::absolute(argv[1]).string();
    const std::string tool = fs::absolute(argv[2]).string();
    std::string pattern = (fs::temp_directory_path() / "marlune-boardbench.XXXXXX").string();
    const bool keep = argc > 3;
    if (keep) {
        pattern = fs::absolute(argv[3]).string();
        fs::create_directories(pattern);
        fs::permissions(pattern, fs::perms::owner_all, fs::perm_options::replace);
    } else if (::mkdtemp(pattern.data()) == nullptr) {
        return 1;
    }
    const fs::path home = pattern;
    // The items are added by a raw client, which is not the bundled tool.
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

    constexpr int items = 5'000;
    int addFailures = 0;
    const auto fillStart = Clock::now();
    for (int i = 0; i < items; ++i) {
        marlune::BoardAddArgs args;
        args.text = "Board item number " + std::to_string(i) + ": follow up on the quarterly notes";
        const auto payload = marlune::makeRequest("board.add", args, token).encode();
        addFailures +=
            roundTrip(socketPath, std::get<std::string>(marlune::CLIWire::encodeFrame(payload)))
                ? 0
                : 1;
    }
    std::printf("filled one section with %d items in %.1f s (%d failures)\n", items,
                millis(Clock::now() - fillStart) / 1000.0, addFailures);

    int status = addFailures == 0 ? 0 : 1;
    for (const bool json : {false, true}) {
        int failures = 0;
        std::vector<const char*> args{"board", "list"};
        if (json) {
            args.push_back("--json");
        }
        const auto times = timeTool(tool, home.string(), args, 50, failures);
        const double median = times[times.size() / 2];
        const double p90 = times[static_cast<std::size_t>(0.9 * static_cast<double>(times.size() - 1))];
        std::printf("marlune board list%s, %d items (whole process, 50 runs): median %.2f ms, "
                    "p90 %.2f ms, failures %d  [goal: median < 20 ms]\n",
                    json ? " --json" : "", items, median, p90, failures);
        status |= (median < 20.0 && failures == 0) ? 0 : 1;
    }
    ::kill(appPID, SIGTERM);
    ::waitpid(appPID, nullptr, 0);
    if (!keep) {
        fs::remove_all(home);
    }
    return status;
}
