// People type on without pausing after a keyword. The real marlune-app on the test display,
// xdotool as the typist at several speeds, and the fields of real toolkits and terminals: what
// comes out must be exactly what was typed with each keyword replaced, and the user's
// clipboard must be what it was, byte for byte.
#include "DesktopAppTest.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace marlune {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::BackgroundProcess;
using test::runProcess;

const std::string fieldPath = MARLUNE_TEST_FIELD;
const std::string tkFieldPath = MARLUNE_TK_FIELD;
const std::string screenshotPath = MARLUNE_SCREENSHOT;

// A window with one line to type into. `argv` starts it titled `title`; on Return it writes
// the line to `result` (the Qt field instead reports every change, and takes no Return).
struct Target {
    const char* name;
    const char* program; // must be on PATH, or the target is left out
    std::function<std::vector<std::string>(const fs::path& result, const std::string& title,
                                           const fs::path& readLine)>
        argv;
    bool reportsContinuously = false;
};

struct ClipboardContent {
    const char* name;
    std::string type;
    std::string bytes;
};

std::vector<ClipboardContent> userClipboards() {
    std::string big;
    big.reserve(9u << 20);
    for (int line = 0; big.size() < (9u << 20); ++line) {
        big += "line " + std::to_string(line) + " of a long log that someone copied\n";
    }
    return {
        {"plain text", "UTF8_STRING", "the user's own text, ünïcode included"},
        {"PNG image", "image/png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\x01", 18)},
        {"GIF image", "image/gif",
         std::string("GIF89a\x01\0\x01\0\x80\0\0\xff\xff\xff\0\0\0!", 19)},
        {"URI list", "text/uri-list", "file:///home/ada/report.pdf\r\nfile:///home/ada/b.txt\r\n"},
        {"9 MB text", "UTF8_STRING", big},
    };
}

class DesktopTyping : public test::DesktopAppTest {
protected:
    void SetUp() override {
        start();
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        readLine = dir.path() / "read-line.sh";
        std::ofstream(readLine) << "IFS= read -r line\nprintf '%s' \"$line\" > \"$1.part\" && "
                                   "mv \"$1.part\" \"$1\"\n";
        snippet("sig", "Kind regards");
        snippet("addr", "12 Harbour Road");
    }

    // Starts the target's window and gives it the keyboard focus (there is no window manager).
    bool open(const Target& target, const fs::path& result, const std::string& title) {
        window.reset();
        fs::remove(result);
        window = std::make_unique<BackgroundProcess>(target.argv(result, title, readLine),
                                                     std::map<std::string, std::string>{},
                                                     dir / (std::string(target.name) + ".log"));
        std::string id;
        const bool shown = test::waitUntil(
            [&] {
                if (target.reportsContinuously) {
                    // The Qt field prints its window id.
                    id = test::windowIdIn(window->log()).value_or("");
                    return !id.empty();
                }
                const auto found =
                    runProcess({xdotool, "search", "--onlyvisible", "--name", "^" + title + "$"});
                id = found.out.substr(0, found.out.find('\n'));
                return found.exitStatus == 0 && !id.empty();
            },
            15s, 100ms);
        if (!shown) {
            return false;
        }
        // Gives the toolkit a moment to finish mapping before it is handed the focus.
        std::this_thread::sleep_for(300ms);
        return runProcess({xdotool, "windowfocus", "--sync", id}).exitStatus == 0;
    }

    // Another application owns the clipboard, and it reads back as given.
    void copyAndCheck(const std::string& type, const std::string& bytes) {
        copyWithXclip(type, bytes);
        ASSERT_TRUE(test::waitUntil([&] { return clipboardAs(type) == bytes; }));
    }

    // What the target's field holds once it shows `expected` or gives up waiting; a one-line
    // field is read after Return (and `screenshotName`, when given, is taken before it).
    std::string fieldText(const Target& target, const fs::path& result, const std::string& expected,
                          const std::string& screenshotName = {}) {
        if (target.reportsContinuously) {
            test::waitUntil([&] { return test::fieldTextIn(result) == expected; }, 8s);
            if (!screenshotName.empty()) {
                screenshot(screenshotName);
            }
            return test::fieldTextIn(result);
        }
        // What stands in the field before Return takes it.
        std::this_thread::sleep_for(400ms);
        if (!screenshotName.empty()) {
            screenshot(screenshotName);
        }
        runProcess({xdotool, "key", "Return"});
        test::waitUntil([&] { return fs::exists(result); }, 8s);
        std::string got = test::readFile(result);
        // zenity ends the line it prints.
        if (!got.empty() && got.back() == '\n') {
            got.pop_back();
        }
        return got;
    }

    void screenshot(const std::string& name) {
        const char* folder = std::getenv("MARLUNE_SCREENSHOT_DIR");
        if (folder == nullptr || *folder == '\0') {
            return;
        }
        fs::create_directories(folder);
        runProcess({screenshotPath, (fs::path(folder) / (name + ".png")).string()});
    }

    fs::path readLine;
};

std::vector<Target> targets() {
    const auto shellIn = [](std::string program, std::string titleFlag) {
        return [program, titleFlag](const fs::path& result, const std::string& title,
                                    const fs::path& readLine) {
            return std::vector<std::string>{
                test::findProgram(program), titleFlag,      title, "-e", "sh",
                readLine.string(),          result.string()};
        };
    };
    return {
        {"Qt field", nullptr,
         [](const fs::path& result, const std::string&, const fs::path&) {
             return std::vector<std::string>{fieldPath, result.string()};
         },
         true},
        {"GTK entry", "zenity",
         [](const fs::path& result, const std::string& title, const fs::path&) {
             return std::vector<std::string>{
                 "/bin/sh", "-c",
                 "zenity --entry --title=\"$1\" --text=\"$1\" > \"$0.part\" && mv \"$0.part\" "
                 "\"$0\"",
                 result.string(), title};
         }},
        {"Tk entry", "python3",
         [](const fs::path& result, const std::string& title, const fs::path&) {
             return std::vector<std::string>{test::findProgram("python3"), tkFieldPath,
                                             result.string(), title};
         }},
        {"xterm", "xterm", shellIn("xterm", "-T")},
        {"rxvt-unicode", "urxvt", shellIn("urxvt", "-title")},
        {"lxterminal", "lxterminal",
         [](const fs::path& result, const std::string& title, const fs::path& readLine) {
             return std::vector<std::string>{
                 test::findProgram("lxterminal"), "--no-remote", "-t", title,
                 "--command=sh " + readLine.string() + " " + result.string()};
         }},
    };
}

TEST_F(DesktopTyping, TypingOnAfterAKeywordKeepsEveryKeyInEveryToolkitAndTheClipboardIntact) {
    const std::string typed = "see ;addr below, and ;sig.";
    const std::string expected = "see 12 Harbour Road below, and Kind regards.";
    const auto clipboards = userClipboards();
    std::size_t run = 0;
    for (const auto& target : targets()) {
        if (target.program != nullptr && test::findProgram(target.program).empty()) {
            ADD_FAILURE() << target.program << " is not installed (scripts/install-deps.sh)";
            continue;
        }
        for (const int delay : {30, 60, 120, 250}) {
            const auto& clipboard = clipboards[run++ % clipboards.size()];
            SCOPED_TRACE(std::string(target.name) + ", " + std::to_string(delay) +
                         " ms a key, clipboard: " + clipboard.name);
            copyAndCheck(clipboard.type, clipboard.bytes);
            const fs::path result = dir / "result.txt";
            const std::string title = "Marlune typing " + std::to_string(run);
            ASSERT_TRUE(open(target, result, title)) << window->log();
            const auto typedOut =
                runProcess({xdotool, "type", "--delay", std::to_string(delay), typed});
            ASSERT_EQ(typedOut.exitStatus, 0) << typedOut.err;
            const std::string got = fieldText(
                target, result, expected, delay == 30 ? std::string("typing-") + target.name : "");
            EXPECT_EQ(got, expected) << app->log();
            EXPECT_TRUE(
                test::waitUntil([&] { return clipboardAs(clipboard.type) == clipboard.bytes; }, 4s))
                << "clipboard now has " << clipboardAs(clipboard.type).size() << " bytes";
            window.reset();
        }
    }
    EXPECT_EQ(app->log().find("keys-not-held"), std::string::npos) << app->log();
}

// Keys that type an emoji, a skin tone and a joiner, as a user's own layout may have them.
class EmojiKeys {
public:
    explicit EmojiKeys(std::string xmodmap) : xmodmap_(std::move(xmodmap)) {
        ok_ = runProcess({xmodmap_, "-e", "keycode 200 = U1F44D", "-e", "keycode 201 = U1F3FD",
                          "-e", "keycode 202 = U1F469", "-e", "keycode 203 = U200D", "-e",
                          "keycode 204 = U1F4BB"})
                  .exitStatus == 0;
    }
    ~EmojiKeys() {
        for (const char* keycode : {"200", "201", "202", "203", "204"}) {
            runProcess({xmodmap_, "-e", std::string("keycode ") + keycode + " ="});
        }
    }
    bool ok() const { return ok_; }

private:
    std::string xmodmap_;
    bool ok_ = false;
};

TEST_F(DesktopTyping, KeywordsEndingInEmojiOfSeveralCodePointsAreDeletedWholeInQtAndGtk) {
    // GTK deletes such a character with one BackSpace, Qt one code point at a time.
    const auto xmodmap = test::findProgram("xmodmap");
    ASSERT_FALSE(xmodmap.empty()) << "xmodmap is not installed (scripts/install-deps.sh)";
    const EmojiKeys keys(xmodmap);
    ASSERT_TRUE(keys.ok());
    snippet("ok👍🏽", "fine by me");
    snippet("dev👩‍💻", "developer");
    const auto typeOn = [&] {
        const auto keysAt = [&](std::vector<std::string> args) {
            args.insert(args.begin(), {xdotool, "key", "--delay", "60"});
            runProcess(args);
        };
        runProcess({xdotool, "type", "--delay", "60", "x ;ok"});
        keysAt({"U1F44D", "U1F3FD"});
        runProcess({xdotool, "type", "--delay", "60", " and ;dev"});
        keysAt({"U1F469", "U200D", "U1F4BB"});
        runProcess({xdotool, "type", "--delay", "60", " y"});
    };
    const std::string expected = "x fine by me and developer y";
    for (const auto& target : targets()) {
        if (std::string(target.name) != "Qt field" && std::string(target.name) != "GTK entry") {
            continue;
        }
        SCOPED_TRACE(target.name);
        const fs::path result = dir / "emoji.txt";
        ASSERT_TRUE(open(target, result, "Marlune emoji")) << window->log();
        typeOn();
        const std::string got = fieldText(target, result, expected);
        EXPECT_EQ(got, expected) << app->log();
        window.reset();
    }
}

TEST_F(DesktopTyping, CommandLineCopiesAreReadableAsEveryClassicTextTarget) {
    // Tk, xclip, rxvt-unicode and Emacs ask for UTF8_STRING, STRING or TEXT, never for a MIME
    // type.
    copyAndCheck("UTF8_STRING", "Copied once in another application");
    std::string id;
    ASSERT_TRUE(test::waitUntil([&] {
        const auto listed =
            nlohmann::json::parse(tool({"clip", "list", "--json"}).out, nullptr, false);
        if (!listed.is_object() || listed["items"].empty()) {
            return false;
        }
        id = listed["items"][0].value("id", "");
        return !id.empty();
    })) << app->log();
    const auto wanted = [&](const std::string& text) {
        for (const char* target : {"UTF8_STRING", "STRING", "TEXT", "text/plain"}) {
            EXPECT_TRUE(test::waitUntil([&] { return clipboardAs(target) == text; }, 3s))
                << target << ": " << clipboardAs(target);
        }
    };
    copyAndCheck("UTF8_STRING", "something else");
    const auto clipCopied = tool({"clip", "copy", id});
    ASSERT_EQ(clipCopied.exitStatus, 0) << clipCopied.err << clipCopied.out;
    wanted("Copied once in another application");
    const auto expanded = tool({"snippet", "expand", "addr", "--copy"});
    ASSERT_EQ(expanded.exitStatus, 0) << expanded.err;
    wanted("12 Harbour Road");
}

TEST_F(DesktopTyping, BoardCaptureInXtermTakesTheSelectionWithoutInterruptingTheShell) {
    if (test::findProgram("xterm").empty()) {
        GTEST_FAIL() << "xterm is not installed (scripts/install-deps.sh)";
    }
    const fs::path result = dir / "after.txt";
    const fs::path script = dir / "capture.sh";
    std::ofstream(script) << "echo plumber\nIFS= read -r line\nprintf '%s' \"$line\" > \"$1\"\n";
    const Target xterm{
        "xterm", "xterm", [&](const fs::path& out, const std::string& title, const fs::path&) {
            return std::vector<std::string>{
                test::findProgram("xterm"), "-T", title, "-e", "sh", script.string(), out.string()};
        }};
    ASSERT_TRUE(open(xterm, result, "Marlune capture")) << window->log();
    const auto id = runProcess({xdotool, "search", "--onlyvisible", "--name", "^Marlune capture$"})
                        .out.substr(0, 20);
    // A double click on the first word of the first line selects it (PRIMARY).
    std::this_thread::sleep_for(300ms);
    runProcess({xdotool, "mousemove", "--window", id.substr(0, id.find('\n')), "12", "8", "click",
                "--repeat", "2", "--delay", "80", "1"});
    ASSERT_TRUE(test::waitUntil([&] {
        return runProcess({xclip, "-selection", "primary", "-o"}).out == "plumber";
    })) << runProcess({xclip, "-selection", "primary", "-o"}).out;
    runProcess({xdotool, "key", "ctrl+alt+b"});
    ASSERT_TRUE(test::waitUntil([&] {
        return app->log().find("Board: Captured") != std::string::npos;
    })) << app->log();
    screenshot("board-capture-xterm");
    // The shell is still reading its line: a Ctrl+C would have ended it.
    runProcess({xdotool, "type", "--delay", "30", "still here"});
    runProcess({xdotool, "key", "Return"});
    ASSERT_TRUE(test::waitUntil([&] { return fs::exists(result); }, 6s));
    EXPECT_EQ(test::readFile(result), "still here");
    const auto listed = tool({"board", "list", "--json"});
    EXPECT_NE(listed.out.find("plumber"), std::string::npos) << listed.out;
}

} // namespace
} // namespace marlune
