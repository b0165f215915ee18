// Command-line server figures, printed as text. Goals:
//   - whole-process `marlune ping`: median under 5 ms;
//   - 10,000 sequential requests, a new connection each: at least 5,000 requests per second;
//   - 50 client processes at once, 200 requests each: every request answered correctly.
// Usage: CLIBench <marlune-app> <marlune>   (starts its own headless app on a temporary library)

#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "bench/support/HeadlessApp.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace fs = std::filesystem;
using namespace marlune::bench;

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
    int status = 0;
    {
        // Raw clients below are not the bundled tool; the tool itself is still checked in part one.
        const HeadlessApp headless(app, home);
        const std::string socketPath = headless.socketPath();
        const std::string& token = headless.token();
        const auto payload = marlune::makeRequest("ping", marlune::PingArgs{}, token).encode();

        // 1. Whole-process `marlune ping`.
        int pingFailures = 0;
        const auto pings = timeTool(tool, home.string(), {"ping"}, 100, pingFailures);
        std::printf("marlune ping (whole process, 100 runs): median %.2f ms, p90 %.2f ms, "
                    "failures %d  [goal: median < 5 ms]\n",
                    median(pings), percentile(pings, 0.9), pingFailures);
        status |= (median(pings) < 5.0 && pingFailures == 0) ? 0 : 1;

        // 2. Sequential requests, a new connection each.
        constexpr int sequential = 10'000;
        int failures = 0;
        const auto seqStart = Clock::now();
        for (int i = 0; i < sequential; ++i) {
            failures += roundTrip(socketPath, payload) ? 0 : 1;
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
                        if (roundTrip(socketPath, payload)) {
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
                    clients, perClient, parSeconds, clients * perClient / parSeconds,
                    failedClients);
        status |= failedClients == 0 ? 0 : 1;
    }
    std::error_code ignored;
    fs::remove_all(home, ignored);
    return status;
}
