// A realistic Board session through the real marlune tool against the real marlune-app
// (headless, on a temporary library).
#include "support/Process.h"
#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace marlune {
namespace {

namespace fs = std::filesystem;
using test::BackgroundProcess;
using test::ProcessResult;
using test::runProcess;

class BoardSession : public ::testing::Test {
protected:
    void SetUp() override {
        home = dir.path() / "home";
        fs::create_directories(home);
        ::chmod(home.c_str(), 0700);
        app = std::make_unique<BackgroundProcess>(
            std::vector<std::string>{MARLUNE_APP_PATH, "--headless"}, environment(),
            dir / "app.log");
        for (int i = 0; i < 250; ++i) {
            if (tool({"ping"}).exitStatus == 0) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        FAIL() << "marlune-app did not answer; its log:\n" << app->log();
    }

    std::map<std::string, std::string> environment() const {
        return {{"MARLUNE_HOME", home.string()}, {"HOME", home.string()},
                {"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}, {"TZ", "UTC"}};
    }
    ProcessResult tool(std::vector<std::string> args) {
        args.insert(args.begin(), MARLUNE_TOOL_PATH);
        args.push_back("--no-launch");
        return runProcess(args, environment());
    }
    nlohmann::json json(std::vector<std::string> args) {
        args.push_back("--json");
        const auto result = tool(args);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        return nlohmann::json::parse(result.out, nullptr, false);
    }
    std::vector<std::string> texts(std::vector<std::string> args) {
        std::vector<std::string> out;
        for (const auto& item : json(std::move(args))) {
            out.push_back(item["text"]);
        }
        return out;
    }

    test::TempDir dir;
    fs::path home;
    std::unique_ptr<BackgroundProcess> app;
};

TEST_F(BoardSession, AWorkingDayThroughTheTool) {
    // Two sections, items in each.
    const std::string milk = json({"board", "add", "Buy", "milk"})["id"];
    const std::string rent = json({"board", "add", "Pay rent", "--from", "planner"})["id"];
    EXPECT_EQ(json({"board", "list"})[0]["sourceApp"], "Agent: planner");
    EXPECT_TRUE(json({"board", "use", "Work", "--create"})["isActive"]);
    const std::string report = json({"board", "add", "Draft the report"})["id"];
    const std::string slides = json({"board", "add", "Make slides"})["id"];
    const std::string invoice = json({"board", "add", "Send invoice"})["id"];
    EXPECT_EQ(texts({"board", "list"}),
              (std::vector<std::string>{"Send invoice", "Make slides", "Draft the report"}));
    EXPECT_EQ(texts({"board", "list", "Inbox"}), (std::vector<std::string>{"Pay rent", "Buy milk"}));

    // Reorder and pin.
    json({"board", "move", report.substr(0, 8), "--position", "top"});
    json({"board", "move", invoice, "--after", "Make slides"});
    EXPECT_EQ(texts({"board", "list"}),
              (std::vector<std::string>{"Draft the report", "Make slides", "Send invoice"}));
    json({"board", "pin", "Send invoice"});
    EXPECT_EQ(texts({"board", "list"}).front(), "Send invoice");

    // Snooze, due dates.
    json({"board", "snooze", slides, "--until", "+2h"});
    EXPECT_EQ(texts({"board", "list"}), (std::vector<std::string>{"Send invoice", "Draft the report"}));
    EXPECT_EQ(texts({"board", "list", "--snoozed"}), std::vector<std::string>{"Make slides"});
    const auto due = json({"board", "due", report, "--at", "2030-01-02T09:00:00Z"});
    EXPECT_EQ(due["count"], 1);
    EXPECT_EQ(json({"board", "list"})[1]["dueAt"], "2030-01-02T09:00:00Z");
    const auto badDate = tool({"board", "due", report, "--at", "soonish"});
    EXPECT_NE(badDate.exitStatus, 0);
    EXPECT_NE(badDate.err.find("'soonish' is not a date."), std::string::npos);

    // The readable list shows sections, done marks, pins and due dates.
    json({"board", "check", invoice});
    const auto readable = tool({"board", "list", "--all"});
    EXPECT_EQ(readable.exitStatus, 0) << readable.err;
    EXPECT_NE(readable.out.find("Inbox\n"), std::string::npos) << readable.out;
    EXPECT_NE(readable.out.find("Work\n"), std::string::npos);
    EXPECT_NE(readable.out.find("[x] " + invoice.substr(0, 8) + "  Send invoice"),
              std::string::npos)
        << readable.out;
    EXPECT_NE(readable.out.find("due 2030-01-02 09:00"), std::string::npos) << readable.out;

    // Next and copy answer the text without a display.
    EXPECT_EQ(tool({"board", "next"}).out, "Draft the report");
    EXPECT_EQ(tool({"board", "copy", "--markdown"}).out,
              "- [ ] Draft the report\n- [x] Send invoice\n");

    // Export both sections; a second export without --force is refused.
    const auto exported = json({"board", "export", "--all", "--dir", (dir / "export").string()});
    ASSERT_EQ(exported["files"].size(), 2U);
    std::ifstream work(exported["files"][1].get<std::string>());
    std::stringstream markdown;
    markdown << work.rdbuf();
    EXPECT_NE(markdown.str().find("source: Marlune Board\nsection: Work\n"), std::string::npos);
    EXPECT_NE(markdown.str().find("- [x] Send invoice\n"), std::string::npos);
    const auto again = tool({"board", "export", "--all", "--dir", (dir / "export").string()});
    EXPECT_NE(again.exitStatus, 0);
    EXPECT_NE(again.err.find("already exists."), std::string::npos) << again.err;

    // Archive: done items filed into the Board Archive pinboard leave the Board.
    const auto filed = json({"board", "file", invoice, "--to", "Board Archive"});
    EXPECT_EQ(filed["count"], 1);
    EXPECT_EQ(texts({"board", "list", "--done"}).size(), 0U);
    const auto hits = json({"board", "search", "invoice", "--history"});
    ASSERT_EQ(hits.size(), 1U);
    EXPECT_FALSE(hits[0]["onBoard"]);
    const auto refused = tool({"board", "file", milk, "--to", "Work"});
    EXPECT_NE(refused.err.find("'Work' is a Board, not an archive."), std::string::npos);
    (void)rent;
}

} // namespace
} // namespace marlune
