// The real marlune-app in GUI mode on the test display, a real Qt text field, xdotool as the
// typist and xclip as the other application.
#include "DesktopAppTest.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace marlune {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::BackgroundProcess;
using test::runProcess;

const std::string fieldPath = MARLUNE_TEST_FIELD;

struct FieldState {
    long caret = -1;
    std::string text;
};

class DesktopExpansion : public test::DesktopAppTest {
protected:
    void SetUp() override { start(""); }

    void start(const std::string& settings) {
        DesktopAppTest::start(settings);
        if (IsSkipped() || HasFatalFailure()) {
            return;
        }
        snippet("sig", "Kind regards");
        snippet("addr", "Dear {@cursor@}, thanks");
        snippet("greet", "Hi {@text|name=Name|default=there@}!");
    }

    void openField(bool grab = false) { openField(std::string(grab ? "--grab" : "")); }

    void openField(const std::string& mode) {
        const bool grab = mode == "--grab";
        window.reset();
        report = dir / "field.txt";
        fs::remove(report);
        std::vector<std::string> argv{fieldPath, report.string()};
        if (!mode.empty()) {
            argv.push_back(mode);
        }
        window = std::make_unique<BackgroundProcess>(argv, std::map<std::string, std::string>{},
                                                    dir / "field.log");
        std::string id;
        ASSERT_TRUE(test::waitUntil([&] {
            id = test::windowIdIn(window->log()).value_or("");
            return !id.empty();
        })) << window->log();
        if (!grab) {
            const auto focused = runProcess({xdotool, "windowfocus", "--sync", id});
            ASSERT_EQ(focused.exitStatus, 0) << focused.err;
        }
        ASSERT_TRUE(test::waitUntil([&] { return fs::exists(report); }));
    }

    FieldState state() {
        std::ifstream in(report, std::ios::binary);
        FieldState s;
        std::string caret;
        if (!std::getline(in, caret) || caret.empty()) {
            return s;
        }
        s.caret = std::stol(caret);
        s.text.assign(std::istreambuf_iterator<char>(in), {});
        return s;
    }

    // Waits for the field to show `text`; returns what it shows in the end.
    std::string waitForText(const std::string& text, std::chrono::milliseconds timeout = 6s) {
        test::waitUntil([&] { return state().text == text; }, timeout);
        return state().text;
    }

    void type(const std::string& text) {
        const auto typed = runProcess({xdotool, "type", "--delay", "30", text});
        ASSERT_EQ(typed.exitStatus, 0) << typed.err;
    }

    void key(const std::string& name) {
        const auto pressed = runProcess({xdotool, "key", name});
        ASSERT_EQ(pressed.exitStatus, 0) << pressed.err;
    }

    bool formIsOpen() {
        return runProcess({xdotool, "search", "--onlyvisible", "--name", "Fill in"}).exitStatus == 0;
    }

    fs::path report;
};

struct ClipboardCase {
    const char* name;
    std::string type;
    std::string bytes;
};

TEST_F(DesktopExpansion, KeywordExpandsInTheFieldAndTheClipboardComesBackExactly) {
    const std::vector<ClipboardCase> cases{
        {"text", "UTF8_STRING", "the user's own text"},
        {"image", "image/png", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR\xff\x01", 18)},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        openField();
        copyWithXclip(c.type, c.bytes);
        type("hello ;sig");
        EXPECT_EQ(waitForText("hello Kind regards"), "hello Kind regards") << app->log();
        type(" ");
        EXPECT_EQ(waitForText("hello Kind regards "), "hello Kind regards ");
        // Back once the target has pulled our text, or after the timeout.
        EXPECT_TRUE(test::waitUntil([&] { return clipboardAs(c.type) == c.bytes; }, 4s))
            << "clipboard now: " << clipboardAs(c.type) << "\n" << app->log();
    }
}

TEST_F(DesktopExpansion, CaretLandsOnTheCursorMark) {
    openField();
    type(";addr");
    EXPECT_EQ(waitForText("Dear , thanks"), "Dear , thanks") << app->log();
    EXPECT_TRUE(test::waitUntil([&] { return state().caret == 5; })) << state().caret;
    type("Ann");
    EXPECT_EQ(waitForText("Dear Ann, thanks"), "Dear Ann, thanks");
}

TEST_F(DesktopExpansion, FillInFormAnswersAreInsertedAndEscapeLeavesTheKeyword) {
    openField();
    type(";greet");
    ASSERT_TRUE(test::waitUntil([&] { return formIsOpen(); })) << app->log();
    type("Ann");
    key("Return");
    EXPECT_EQ(waitForText("Hi Ann!"), "Hi Ann!") << app->log();

    type(" ;greet");
    ASSERT_TRUE(test::waitUntil([&] { return formIsOpen(); })) << app->log();
    key("Escape");
    ASSERT_TRUE(test::waitUntil([&] { return !formIsOpen(); }));
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(state().text, "Hi Ann! ;greet");
}

TEST_F(DesktopExpansion, BackspaceRightAfterAnExpansionPutsTheKeywordBack) {
    openField();
    type(";sig");
    ASSERT_EQ(waitForText("Kind regards"), "Kind regards") << app->log();
    key("BackSpace");
    EXPECT_EQ(waitForText(";sig"), ";sig") << app->log();
    // The keyword put back does not expand again at once.
    std::this_thread::sleep_for(500ms);
    EXPECT_EQ(state().text, ";sig");
}

TEST_F(DesktopExpansion, CopiesReachTheHistoryButExpansionsAndRestoresDoNot) {
    const auto listed = [&] {
        const auto result = tool({"clip", "list", "--json"});
        return nlohmann::json::parse(result.out, nullptr, false);
    };
    copyWithXclip("UTF8_STRING", "copied in another application");
    ASSERT_TRUE(test::waitUntil([&] {
        const auto page = listed();
        return page.is_object() && page["items"].size() == 1 &&
               page["items"][0].value("previewText", "") == "copied in another application";
    })) << listed().dump() << app->log();
    EXPECT_EQ(listed()["items"][0].value("primaryKind", ""), "text");

    openField();
    type(";sig");
    ASSERT_EQ(waitForText("Kind regards"), "Kind regards") << app->log();
    ASSERT_TRUE(test::waitUntil([&] { return clipboardAs("UTF8_STRING") == "copied in another application"; }));
    // Past the capture's settle time and its next poll.
    std::this_thread::sleep_for(1s);
    const auto page = listed();
    ASSERT_EQ(page["items"].size(), 1U) << page.dump();
    EXPECT_EQ(page["items"][0].value("recopyCount", -1), 0);
}

TEST_F(DesktopExpansion, BoardCaptureTakesTheSelectionOnceAndRefusesNothingAndSecrets) {
    const auto toasted = [&](const std::string& text) {
        return test::waitUntil([&] { return app->log().find("Board: " + text) != std::string::npos; });
    };
    openField();
    type("Call the plumber");
    key("ctrl+a");
    key("ctrl+alt+b");
    ASSERT_TRUE(toasted("Captured — Inbox")) << app->log();
    key("ctrl+alt+b");
    EXPECT_TRUE(toasted("Already on Inbox")) << app->log();

    key("End"); // nothing selected now
    const auto before = std::chrono::steady_clock::now();
    key("ctrl+alt+b");
    EXPECT_TRUE(toasted("Nothing selected — There was nothing to add.")) << app->log();
    EXPECT_GE(std::chrono::steady_clock::now() - before, 700ms);

    key("ctrl+a");
    type(std::string("AKIA") + "IOSFODNN7" + "EXAMPLE");
    key("ctrl+a");
    key("ctrl+alt+b");
    EXPECT_TRUE(toasted("Looks like a secret — not saved")) << app->log();

    const auto listed = tool({"board", "list", "--json"});
    ASSERT_EQ(listed.exitStatus, 0) << listed.err;
    EXPECT_NE(listed.out.find("Call the plumber"), std::string::npos) << listed.out;
    EXPECT_EQ(listed.out.find("AKIA"), std::string::npos) << listed.out;
}

TEST_F(DesktopExpansion, CopiesWhileAnExcludedApplicationIsActiveAreNotCaptured) {
    const auto listed = [&] {
        return nlohmann::json::parse(tool({"clip", "list", "--json"}).out, nullptr, false);
    };
    openField();
    copyWithXclip("UTF8_STRING", "copied in the field's window");
    ASSERT_TRUE(test::waitUntil([&] { return listed()["items"].size() == 1; })) << app->log();
    // The active window's class is what a rule names; take it from the clip just captured.
    const auto source = listed()["items"][0]["sourceApp"];
    ASSERT_TRUE(source.is_object() && source.contains("bundleID")) << listed().dump();
    const auto windowClass = source["bundleID"].get<std::string>();
    const auto added = tool({"rule", "add", windowClass});
    ASSERT_EQ(added.exitStatus, 0) << added.err;

    copyWithXclip("UTF8_STRING", "copied after the rule");
    std::this_thread::sleep_for(1200ms);
    const auto page = listed();
    ASSERT_EQ(page["items"].size(), 1U) << page.dump();
    EXPECT_EQ(page["items"][0].value("previewText", ""), "copied in the field's window");
}

struct NoExpansionCase {
    const char* name;
    bool grab;
    std::string typed;
};

TEST_F(DesktopExpansion, DoubledPrefixAndAKeyboardGrabDoNotExpand) {
    const std::vector<NoExpansionCase> cases{
        {"doubled prefix", false, ";;sig"},
        {"another client holds the keyboard grab", true, ";sig"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        openField(c.grab);
        type(c.typed);
        ASSERT_EQ(waitForText(c.typed), c.typed);
        std::this_thread::sleep_for(700ms);
        EXPECT_EQ(state().text, c.typed) << app->log();
    }
}

// With smart field detection the accessibility bus tells password fields apart, and supplies
// the text before the caret that an ordinary field must agree with.
class SmartFieldDetection : public DesktopExpansion {
protected:
    void SetUp() override { start(R"({"smartFieldDetection": true})"); }
};

TEST_F(SmartFieldDetection, PasswordFieldsDoNotExpandAndOrdinaryFieldsStillDo) {
    if (::testing::Test::IsSkipped()) {
        return;
    }
    if (app->log().find("Password fields: recognised") == std::string::npos) {
        GTEST_SKIP() << "no accessibility bus in this session:\n" << app->log();
    }
    openField("--password");
    type(";sig");
    ASSERT_EQ(waitForText(";sig"), ";sig");
    std::this_thread::sleep_for(700ms);
    EXPECT_EQ(state().text, ";sig") << app->log();

    openField();
    type("hi ;sig");
    EXPECT_EQ(waitForText("hi Kind regards"), "hi Kind regards") << app->log();
}

} // namespace
} // namespace marlune
