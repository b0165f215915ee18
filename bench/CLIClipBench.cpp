// Whole-process figures for the clip commands on a large history, printed as text. Goals:
//   - `marlune clip list` (50 items) from a library of 100,000 clips: median under 20 ms;
//   - `marlune clip search` over 100,000 sealed clips: median under 300 ms.
// Each run is the tool's whole life: start, connect, the application's answer, output, exit.
// Usage: CLIClipBench <marlune-app> <marlune> [clips]   (seeds a temporary library, starts a
// headless application on it)

#include "MarluneCore/ClipStore.h"
#include "MarluneCore/ContentKeyProvider.h"
#include "MarluneCore/MainActor.h"
#include "MarluneCore/MarluneStore.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

double millis(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

double percentile(std::vector<double> values, double p) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(p * static_cast<double>(values.size() - 1))];
}

void setEnvironment(const fs::path& home) {
    ::setenv("MARLUNE_HOME", home.c_str(), 1);
    ::unsetenv("DISPLAY");
    ::unsetenv("WAYLAND_DISPLAY");
    // No Secret Service: the key stays in the library's key file, as seeded.
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
}

// CPU seconds (user + system) a process has used so far.
double cpuSeconds(pid_t pid) {
    std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    double ticks = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
        if (i == 14 || i == 15) {
            ticks += std::stod(field);
        }
    }
    return ticks / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

double toolCPU = 0; // CPU seconds of the tool processes run so far

int runTool(const std::string& tool, const fs::path& home, std::vector<std::string> args) {
    const pid_t pid = ::fork();
    if (pid == 0) {
        setEnvironment(home);
        const int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, 0);
        ::dup2(null, 1);
        ::dup2(null, 2);
        std::vector<char*> argv{const_cast<char*>(tool.c_str())};
        for (auto& arg : args) {
            argv.push_back(arg.data());
        }
        argv.push_back(nullptr);
        ::execv(tool.c_str(), argv.data());
        ::_exit(127);
    }
    int status = 0;
    rusage usage{};
    ::wait4(pid, &status, 0, &usage);
    toolCPU += static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// One transaction of direct inserts: ~90-character previews and one plain-text flavour each,
// both sealed, as captures leave them. Every 10,000th clip holds the word searched for.
void seed(const fs::path& home, int count) {
    const auto keys =
        marlune::ContentKeyProvider(nullptr, home).load(std::chrono::system_clock::now());
    auto container = marlune::MarluneStore::makeContainer(
        {}, home, marlune::ClipCrypto(keys.current, keys.retired), "bench");
    auto& context = container->mainContext();
    marlune::ClipStoreSettings settings;
    settings.unlimitedHistory = true;
    marlune::ClipStore store(context, settings);
    marlune::Database::Transaction tx(context.db());
    const auto start = marlune::dateNow() - std::chrono::hours(24 * 200);
    for (int i = 0; i < count; ++i) {
        marlune::NewClip clip;
        std::string text = "Clip number " + std::to_string(i) +
                           " with an ordinary sentence of history text, copied from a browser";
        if (i % 10'000 == 0) {
            text += " marigold";
        }
        clip.previewText = text;
        marlune::Representation plain;
        plain.utTypeIdentifier = "public.utf8-plain-text";
        plain.text = text + " and a little more text in the flavour itself.";
        clip.representations.push_back(plain);
        clip.sourceAppBundleID = "firefox";
        store.record(clip, start + std::chrono::seconds(i * 60));
    }
    tx.commit();
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: %s <marlune-app> <marlune> [clips]\n", argv[0]);
        return 64;
    }
    const std::string app = fs::absolute(argv[1]).string();
    const std::string tool = fs::absolute(argv[2]).string();
    const int count = argc > 3 ? std::atoi(argv[3]) : 100'000;
    std::string pattern = (fs::temp_directory_path() / "marlune-clipbench.XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        return 1;
    }
    const fs::path home = pattern;
    marlune::MainActor::adoptCurrentThread();
    const auto seedStart = Clock::now();
    seed(home, count);
    std::printf("seeded %d clips in %.1f s\n", count, millis(Clock::now() - seedStart) / 1000.0);

    const pid_t appPID = ::fork();
    if (appPID == 0) {
        setEnvironment(home);
        const int null = ::open("/dev/null", O_RDWR);
        ::dup2(null, 1);
        ::dup2(null, 2);
        ::execl(app.c_str(), app.c_str(), "--headless", static_cast<char*>(nullptr));
        ::_exit(127);
    }
    bool up = false;
    for (int i = 0; i < 1'000 && !up; ++i) {
        up = runTool(tool, home, {"ping", "--no-launch"}) == 0;
        if (!up) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    int status = up ? 0 : 1;

    const auto measure = [&](const char* name, std::vector<std::string> args, int runs,
                             double goal) {
        args.push_back("--no-launch");
        runTool(tool, home, args); // warm the page cache and the application's statements
        std::vector<double> times;
        int failures = 0;
        const double appBefore = cpuSeconds(appPID);
        toolCPU = 0;
        for (int i = 0; i < runs; ++i) {
            const auto start = Clock::now();
            failures += runTool(tool, home, args) != 0 ? 1 : 0;
            times.push_back(millis(Clock::now() - start));
        }
        // CPU per run does not depend on how busy the machine is; the wall time does.
        const double appCPU = (cpuSeconds(appPID) - appBefore) * 1000.0 / runs;
        std::printf(
            "%s (whole process, %d runs, %d clips): median %.2f ms, p90 %.2f ms, "
            "failures %d  [goal: median < %.0f ms]; CPU per run: app %.1f ms, tool %.1f ms\n",
            name, runs, count, median(times), percentile(times, 0.9), failures, goal, appCPU,
            toolCPU * 1000.0 / runs);
        status |= (median(times) < goal && failures == 0) ? 0 : 1;
    };
    measure("marlune ping (for comparison)", {"ping"}, 50, 5.0);
    measure("marlune clip list --limit 50", {"clip", "list", "--limit", "50"}, 50, 20.0);
    measure("marlune clip list --limit 50 --offset 50000",
            {"clip", "list", "--limit", "50", "--offset", "50000"}, 20, 20.0);
    measure("marlune clip search marigold", {"clip", "search", "marigold"}, 20, 300.0);
    measure("marlune clip search (no match)", {"clip", "search", "zzz-nothing"}, 20, 300.0);

    if (std::getenv("MARLUNE_BENCH_PAUSE") != nullptr) {
        // Leaves the application running for a profiler: MARLUNE_HOME and the pid to attach to.
        std::printf("home %s, app pid %d; press Enter to finish\n", home.c_str(), appPID);
        std::fflush(stdout);
        std::getchar();
    }
    ::kill(appPID, SIGTERM);
    ::waitpid(appPID, nullptr, 0);
    std::error_code ignored;
    fs::remove_all(home, ignored);
    return status;
}
