// Whole-application figures on a real X display (run it through scripts/bench-desktop.sh,
// which provides one, a session bus and a keyring):
//   - keyword to text: from the last key of ";sig" (sent by xdotool) to the expanded text in a
//     Qt text field, median of 50 (goal: the fixed pauses of a commit plus a little);
//   - typing on: the keyword's last key followed by more keys 30 ms apart; how long after the
//     expanded text the held keys show (goal: within 50 ms);
//   - copy to history: from an xclip copy to the clip being listed by `marlune clip list`,
//     median of 50 (goal: under 350 ms);
//   - resident memory of marlune-app in GUI mode with 10,000 clips and 1,000 snippets (goal:
//     under 60 MB).
//   DesktopBench APP TOOL TEST_FIELD
#include "Marlune/ExpansionService.h"
#include "Marlune/LibraryBootstrap.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/Database.h"
#include "MarluneCore/SnippetStore.h"
#include "Platform/SecretServiceKeyring.h"
#include "support/Desktop.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using namespace marlune;
using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

double milliseconds(Clock::duration d) {
    return std::chrono::duration<double, std::milli>(d).count();
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

long residentKilobytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::stol(line.substr(6));
        }
    }
    return -1;
}

// 10,000 clips and 1,000 snippets, written by the library code itself before the application
// starts, sealed with the same content key the application will find.
void seed(const fs::path& home) {
    ::setenv("MARLUNE_HOME", home.c_str(), 1);
    SecretServiceKeyring keyring;
    auto library = openLibrary(LibraryPaths::processEnvironment(), &keyring,
                               std::chrono::system_clock::now());
    ModelContext& context = library.container->mainContext();
    const Date now = dateNow();
    {
        Database::Transaction tx(context.db());
        ClipStore clips(context, ClipStoreSettings::read(*library.settings));
        for (int i = 0; i < 10'000; ++i) {
            NewClip clip;
            clip.previewText = "Copied line number " + std::to_string(i) +
                               " with a sentence of ordinary length, as most copies are.";
            Representation rep;
            rep.utTypeIdentifier = "public.utf8-plain-text";
            rep.text = clip.previewText;
            clip.representations.push_back(std::move(rep));
            clips.record(clip, addSeconds(now, -20'000.0 + i));
        }
        tx.commit();
    }
    SnippetStore snippets(context);
    for (int i = 0; i < 1'000; ++i) {
        auto snippet = Snippet::make(now);
        snippet.title = "Snippet " + std::to_string(i);
        snippet.keyword = "kw" + std::to_string(i);
        snippet.content = "Body of snippet " + std::to_string(i) + ", with {@date@} in it.";
        snippets.create(snippet, now);
    }
    auto sig = Snippet::make(now);
    sig.title = "Signature";
    sig.keyword = "sig";
    sig.content = "Kind regards";
    snippets.create(sig, now);
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 4) {
        std::fprintf(stderr, "usage: DesktopBench APP TOOL TEST_FIELD\n");
        return 64;
    }
    const std::string app = argv[1];
    const std::string tool = argv[2];
    const std::string fieldProgram = argv[3];
    const std::string xdotool = test::findProgram("xdotool");
    const std::string xclip = test::findProgram("xclip");
    if (std::getenv("DISPLAY") == nullptr || xdotool.empty() || xclip.empty()) {
        std::fprintf(stderr, "needs a display, xdotool and xclip\n");
        return 1;
    }
    test::TempDir dir;
    const fs::path home = dir.path() / "home";
    fs::create_directories(home);
    ::chmod(home.c_str(), 0700);
    std::ofstream(home / "settings.json") << R"({"unlimitedHistory": true})";
    const auto seedStart = Clock::now();
    seed(home);
    std::printf("seeded 10,000 clips and 1,001 snippets in %.0f ms\n",
                milliseconds(Clock::now() - seedStart));

    const std::map<std::string, std::string> env{{"MARLUNE_HOME", home.string()}};
    test::BackgroundProcess application({app}, env, dir / "app.log");
    const auto toolRun = [&](std::vector<std::string> args) {
        args.insert(args.begin(), tool);
        args.push_back("--no-launch");
        return test::runProcess(args, env);
    };
    if (!test::waitUntil([&] { return application.log().find("Text expansion: on") != std::string::npos; },
                   20s)) {
        std::fprintf(stderr, "marlune-app did not start its services:\n%s\n",
                     application.log().c_str());
        return 1;
    }
    std::this_thread::sleep_for(2s);
    const long rssIdle = residentKilobytes(application.pid());
    toolRun({"clip", "list", "--limit", "50"});
    toolRun({"snippet", "list", "--limit", "50"});

    // Keyword to text.
    const fs::path report = dir.path() / "field.txt";
    test::BackgroundProcess field({fieldProgram, report.string()}, {}, dir / "field.log");
    std::string window;
    test::waitUntil([&] {
        window = test::windowIdIn(field.log()).value_or("");
        return !window.empty();
    });
    test::runProcess({xdotool, "windowfocus", "--sync", window});
    std::vector<double> expansions;
    for (int i = 0; i < 50; ++i) {
        test::runProcess({xdotool, "type", "--delay", "20", ";si"});
        test::waitUntil([&] { return test::fieldTextIn(report) == ";si"; });
        test::runProcess({xdotool, "key", "--delay", "0", "g"});
        const auto sent = Clock::now();
        // Polled finely: this wait is the figure.
        if (!test::waitUntil([&] { return test::fieldTextIn(report) == "Kind regards"; }, 5s,
                             200us)) {
            std::fprintf(stderr, "expansion %d did not arrive (field: '%s')\n", i,
                         test::fieldTextIn(report).c_str());
            return 1;
        }
        expansions.push_back(milliseconds(Clock::now() - sent));
        // Past the undo window's reach: select all and delete forward.
        test::runProcess({xdotool, "key", "ctrl+a", "Delete"});
        test::waitUntil([&] { return test::fieldTextIn(report).empty(); });
        std::this_thread::sleep_for(150ms);
    }
    // Typing on: the keyword's last key and then " ok", 30 ms a key. The keys typed during the
    // commit are held and sent on once the text and caret are in place; the figure is how long
    // after the expanded text they show in the field (goal: within 50 ms).
    std::vector<double> heldLags;
    std::vector<double> heldInsertions;
    for (int i = 0; i < 50; ++i) {
        test::runProcess({xdotool, "type", "--delay", "20", ";si"});
        test::waitUntil([&] { return test::fieldTextIn(report) == ";si"; });
        const auto sent = Clock::now();
        test::BackgroundProcess typist({xdotool, "type", "--delay", "30", "g ok"}, {},
                                       dir / "typist.log");
        std::optional<Clock::time_point> inserted;
        const bool whole = test::waitUntil(
            [&] {
                const auto text = test::fieldTextIn(report);
                if (!inserted && text.rfind("Kind regards", 0) == 0) {
                    inserted = Clock::now();
                }
                return text == "Kind regards ok";
            },
            5s, 200us);
        if (!whole || !inserted) {
            std::fprintf(stderr, "typing on %d did not arrive (field: '%s')\n", i,
                         test::fieldTextIn(report).c_str());
            return 1;
        }
        heldInsertions.push_back(milliseconds(*inserted - sent));
        heldLags.push_back(milliseconds(Clock::now() - *inserted));
        test::runProcess({xdotool, "key", "ctrl+a", "Delete"});
        test::waitUntil([&] { return test::fieldTextIn(report).empty(); });
        std::this_thread::sleep_for(150ms);
    }
    const double fixed = std::chrono::duration<double, std::milli>(
                             ExpansionService::kSettleDelay + ExpansionService::kPasteChordDelay)
                             .count();

    // Copy to history.
    std::vector<double> copies;
    const fs::path copied = dir.path() / "copied.txt";
    for (int i = 0; i < 50; ++i) {
        const std::string text = "bench copy " + std::to_string(i) + " " +
                                 std::to_string(Clock::now().time_since_epoch().count());
        std::ofstream(copied, std::ios::trunc) << text;
        const auto start = Clock::now();
        test::runProcess({"/bin/sh", "-c", "\"$0\" -selection clipboard -i \"$1\" >/dev/null 2>&1",
                          xclip, copied.string()});
        const bool listed = test::waitUntil(
            [&] {
                const auto result = toolRun({"clip", "list", "--limit", "1", "--json"});
                const auto json = nlohmann::json::parse(result.out, nullptr, false);
                return json.is_object() && json.contains("items") && !json["items"].empty() &&
                       json["items"][0].value("previewText", "") == text;
            },
            5s, 200us);
        if (!listed) {
            std::fprintf(stderr, "copy %d never listed\n", i);
            return 1;
        }
        copies.push_back(milliseconds(Clock::now() - start));
    }
    const long rssAfter = residentKilobytes(application.pid());

    std::printf("keyword to text, median of 50: %.1f ms (of which %.0f ms are the commit's fixed "
                "pauses), min %.1f ms, max %.1f ms\n",
                median(expansions), fixed, *std::min_element(expansions.begin(), expansions.end()),
                *std::max_element(expansions.begin(), expansions.end()));
    std::printf("typing on 30 ms a key after the keyword: text in the field after a median of "
                "%.1f ms; the held keys follow it after a median of %.1f ms, max %.1f ms "
                "(goal < 50 ms)\n",
                median(heldInsertions), median(heldLags),
                *std::max_element(heldLags.begin(), heldLags.end()));
    std::printf("copy to history (xclip to `marlune clip list`), median of 50: %.1f ms, max %.1f ms "
                "(goal < 350 ms)\n",
                median(copies), *std::max_element(copies.begin(), copies.end()));
    std::printf("marlune-app resident memory, GUI mode, 10,000 clips and 1,001 snippets: %.1f MB "
                "idle after start, %.1f MB after the runs (goal < 60 MB)\n",
                static_cast<double>(rssIdle) / 1024.0, static_cast<double>(rssAfter) / 1024.0);
    return 0;
}
