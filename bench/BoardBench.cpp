// Whole-process listing of a large Board section, printed as text. Goal:
//   - `marlune board list` of a section of 5,000 items, tool start to exit: median under 20 ms.
// Usage: BoardBench <marlune-app> <marlune> [library-dir]
//   Starts its own headless app on a temporary library, or on `library-dir`, which is then kept
//   (to profile the listing afterwards).

#include "MarluneCLIProtocol/BoardRecords.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "bench/support/HeadlessApp.h"

#include <cstdio>
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
    int status = 0;
    {
        // The items are added by a raw client, which is not the bundled tool.
        const HeadlessApp headless(app, home);
        const std::string socketPath = headless.socketPath();
        const std::string& token = headless.token();

        constexpr int items = 5'000;
        int addFailures = 0;
        const auto fillStart = Clock::now();
        for (int i = 0; i < items; ++i) {
            marlune::BoardAddArgs args;
            args.text =
                "Board item number " + std::to_string(i) + ": follow up on the quarterly notes";
            const auto payload = marlune::makeRequest("board.add", args, token).encode();
            addFailures += roundTrip(socketPath, payload) ? 0 : 1;
        }
        std::printf("filled one section with %d items in %.1f s (%d failures)\n", items,
                    millis(Clock::now() - fillStart) / 1000.0, addFailures);

        status |= addFailures == 0 ? 0 : 1;
        for (const bool json : {false, true}) {
            int failures = 0;
            std::vector<const char*> args{"board", "list"};
            if (json) {
                args.push_back("--json");
            }
            const auto times = timeTool(tool, home.string(), args, 50, failures);
            const double middle = median(times);
            std::printf("marlune board list%s, %d items (whole process, 50 runs): median %.2f ms, "
                        "p90 %.2f ms, failures %d  [goal: median < 20 ms]\n",
                        json ? " --json" : "", items, middle, percentile(times, 0.9), failures);
            status |= (middle < 20.0 && failures == 0) ? 0 : 1;
        }
    }
    if (!keep) {
        fs::remove_all(home);
    }
    return status;
}
