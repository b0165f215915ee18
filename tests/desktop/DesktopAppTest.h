#pragma once

// The real marlune-app in GUI mode on the test display, on a library of its own, with the
// command-line tool and xclip at hand. Test files that include this define MARLUNE_APP_PATH and
// MARLUNE_TOOL_PATH.
#include "support/Desktop.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <vector>

namespace marlune::test {

class DesktopAppTest : public ::testing::Test {
protected:
    // Starts the application with `settings` as its settings file (none when empty) and waits
    // until it expands; skips the test where there is no display, xdotool or xclip.
    void start(const std::string& settings = {}) {
        using namespace std::chrono_literals;
        xdotool = findProgram("xdotool");
        xclip = findProgram("xclip");
        if (!hasDisplay() || xdotool.empty() || xclip.empty()) {
            GTEST_SKIP()
                << "needs a display, xdotool and xclip (run through scripts/test-session.sh)";
        }
        home = dir.path() / "home";
        std::filesystem::create_directories(home);
        ::chmod(home.c_str(), 0700);
        if (!settings.empty()) {
            std::ofstream(home / "settings.json") << settings;
        }
        app = std::make_unique<BackgroundProcess>(std::vector<std::string>{MARLUNE_APP_PATH},
                                                  environment(), dir / "app.log");
        ASSERT_TRUE(waitUntil([&] { return tool({"ping"}).exitStatus == 0; }, 10s))
            << "marlune-app did not answer; its log:\n"
            << app->log();
        ASSERT_TRUE(waitUntil([&] {
            return app->log().find("Text expansion: on") != std::string::npos;
        })) << app->log();
    }

    void TearDown() override {
        window.reset();
        if (app) {
            app->stop();
        }
    }

    std::map<std::string, std::string> environment() const {
        return {{"MARLUNE_HOME", home.string()}, {"WAYLAND_DISPLAY", ""}, {"TZ", "UTC"}};
    }

    ProcessResult tool(std::vector<std::string> args) {
        args.insert(args.begin(), MARLUNE_TOOL_PATH);
        args.push_back("--no-launch");
        return runProcess(args, environment());
    }

    void snippet(const std::string& keyword, const std::string& content) {
        const auto made =
            tool({"snippet", "create", keyword, "--keyword", keyword, "--content", content});
        ASSERT_EQ(made.exitStatus, 0) << made.err;
    }

    // Another application owns the clipboard with these bytes under `type`.
    void copyWithXclip(const std::string& type, const std::string& bytes) {
        const auto file = dir / "clip.bin";
        std::ofstream(file, std::ios::binary) << bytes;
        // xclip stays behind to serve the selection; its output must not hold our pipes open.
        const auto copied = runProcess({"/bin/sh", "-c",
                                        "\"$0\" -selection clipboard -t \"$1\" -i \"$2\" "
                                        ">/dev/null 2>&1",
                                        xclip, type, file.string()});
        ASSERT_EQ(copied.exitStatus, 0) << copied.err;
    }

    std::string clipboardAs(const std::string& type) {
        return runProcess({xclip, "-selection", "clipboard", "-o", "-t", type}).out;
    }

    TempDir dir;
    std::filesystem::path home;
    std::string xdotool;
    std::string xclip;
    std::unique_ptr<BackgroundProcess> app;
    // The window the test types into, closed before the application stops.
    std::unique_ptr<BackgroundProcess> window;
};

} // namespace marlune::test
