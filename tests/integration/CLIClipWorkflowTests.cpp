// The clip, pinboard, Trash, rule, paste-stack, stats, sync and app commands through the real
// marlune tool and a real headless marlune-app on a temporary library, including restarts and
// a crash of the application in the middle of a stream of writes.
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/ContentKeyProvider.h"
#include "MarluneCore/MainActor.h"
#include "MarluneCore/MarluneStore.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <csignal>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <set>
#include <sqlite3.h>
#include <sstream>
#include <sys/stat.h>
#include <thread>

namespace marlune {
namespace {

namespace fs = std::filesystem;
using test::BackgroundProcess;
using test::ProcessResult;
using test::runProcess;
using json = nlohmann::json;

const std::string appPath = MARLUNE_APP_PATH;
const std::string toolPath = MARLUNE_TOOL_PATH;

class ClipWorkflow : public ::testing::Test {
protected:
    ClipWorkflow() {
        MainActor::adoptCurrentThread();
        home = dir.path() / "home";
        fs::create_directories(home);
        ::chmod(home.c_str(), 0700);
    }

    // Clips captured before the application starts, `minutesAgo` before now each, written
    // straight into the library with the key the application will load.
    std::vector<std::string> seed(const std::vector<std::pair<std::string, double>>& clips) {
        const auto keys = ContentKeyProvider(nullptr, home).load(std::chrono::system_clock::now());
        auto container =
            MarluneStore::makeContainer({}, home, ClipCrypto(keys.current, keys.retired), "seed");
        ClipStore store(container->mainContext(), {});
        std::vector<std::string> ids;
        for (const auto& [text, minutesAgo] : clips) {
            NewClip clip;
            clip.previewText = text;
            Representation plain;
            plain.utTypeIdentifier = "public.utf8-plain-text";
            plain.text = text;
            clip.representations.push_back(plain);
            clip.sourceAppBundleID = "firefox";
            ids.push_back(
                store.record(clip, addSeconds(dateNow(), -minutesAgo * 60.0)).id.string());
        }
        return ids;
    }

    void startApp() {
        app = std::make_unique<BackgroundProcess>(std::vector<std::string>{appPath, "--headless"},
                                                  environment(), dir / "app.log");
        for (int i = 0; i < 500; ++i) {
            if (tool({"ping"}).exitStatus == 0) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        FAIL() << "marlune-app did not answer; its log:\n" << app->log();
    }

    std::map<std::string, std::string> environment() const {
        // No Secret Service: the content key stays in the library's key file, as seeded.
        return {{"MARLUNE_HOME", home.string()},
                {"DISPLAY", ""},
                {"WAYLAND_DISPLAY", ""},
                {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent"}};
    }

    ProcessResult tool(std::vector<std::string> args) {
        args.insert(args.begin(), toolPath);
        args.push_back("--no-launch");
        return runProcess(args, environment());
    }

    json run(std::vector<std::string> args) {
        args.push_back("--json");
        const auto result = tool(args);
        EXPECT_EQ(result.exitStatus, 0) << args[0] << " " << args[1] << ": " << result.err;
        return json::parse(result.out, nullptr, false);
    }

    test::TempDir dir;
    fs::path home;
    std::unique_ptr<BackgroundProcess> app;
};

TEST_F(ClipWorkflow, EveryCommandAnswersThroughTheTool) {
    const auto ids = seed({{"alpha report", 30}, {"beta notes", 20}, {"gamma link", 10}});
    startApp();
    const std::string alpha = ids[0].substr(0, 8);
    const std::string beta = ids[1].substr(0, 8);
    struct Step {
        std::vector<std::string> args;
        int exitStatus;
        std::string field;
        json expected;
    };
    const std::vector<Step> steps = {
        {{"clip", "list", "--sort", "created", "--order", "asc"}, 0, "page", {{"total", 3}}},
        {{"clip", "list", "--from", "FIREFOX", "report"}, 0, "page", {{"total", 1}}},
        {{"clip", "get", alpha, "--raw"}, 0, "bestText", "alpha report"},
        {{"clip", "search", "notes"}, 0, "page", {{"total", 1}}},
        {{"clip", "copy", alpha, "--transform", "uppercase"}, 0, "text", "ALPHA REPORT"},
        {{"clip", "paste", alpha}, 7, "", nullptr},
        {{"clip", "paste-stack", alpha, beta}, 7, "", nullptr},
        {{"clip", "pin", alpha}, 0, "isPinned", true},
        {{"clip", "unpin", alpha}, 0, "isPinned", false},
        {{"clip", "promote", beta, "-k", "bn"}, 0, "keyword", "bn"},
        {{"pinboard", "create", "Work", "--color", "teal"}, 0, "colorRole", "teal"},
        {{"pinboard", "update", "Work", "--name", "Office"}, 0, "name", "Office"},
        {{"pinboard", "add-clip", "Office", alpha, beta}, 0, "clipCount", 2},
        {{"pinboard", "remove-clip", "Office", beta}, 0, "clipCount", 1},
        {{"pinboard", "get", "office"}, 0, "clipCount", 1},
        {{"pinboard", "list"}, 0, "page", {{"total", 1}}},
        {{"clip", "list", "--pinboard", "Office"}, 0, "page", {{"total", 1}}},
        {{"rule", "add", "keepassxc", "--name", "KeePassXC"}, 0, "isEnabled", true},
        {{"rule", "list"}, 0, "page", {{"total", 1}}},
        {{"rule", "remove", "KeePassXC"}, 0, "deletedCount", 1},
        {{"stack", "push", alpha, beta}, 0, "count", 2},
        {{"stack", "push", "--snippet", "bn"}, 0, "count", 3},
        {{"stack", "list"}, 0, "capacity", 20},
        {{"stack", "pop"}, 0, "remaining", 2},
        {{"stack", "paste"}, 7, "", nullptr},
        {{"stack", "clear"}, 0, "cleared", 2},
        {{"snippet", "expand", "bn", "--record-usage"}, 0, "usageRecorded", true},
        {{"stats", "show"}, 0, "totalExpansions", 1},
        {{"sync", "status"}, 0, "state", "disabled"},
        {{"sync", "doctor"}, 0, "mirror", "none"},
        {{"app", "open"}, 7, "", nullptr},
        {{"app", "quick-paste"}, 7, "", nullptr},
        {{"app", "palette"}, 7, "", nullptr},
        {{"app", "cheat-sheet"}, 7, "", nullptr},
        {{"clip", "delete", "--dry-run", beta}, 0, "dryRun", true},
        {{"clip", "delete", beta}, 0, "deletedCount", 1},
        {{"trash", "list"}, 0, "page", {{"total", 1}}},
        {{"trash", "restore", beta}, 0, "id", ids[1]},
        {{"clip", "delete", beta}, 0, "deletedCount", 1},
        {{"trash", "empty", "--dry-run"}, 0, "deletedCount", 1},
        {{"trash", "empty"}, 0, "deletedCount", 1},
        {{"clip", "purge", "--keep-last", "0", "--dry-run"}, 0, "deletedCount", 1},
        {{"pinboard", "delete", "Office"}, 0, "deletedCount", 1},
    };
    for (const auto& step : steps) {
        auto args = step.args;
        args.push_back("--json");
        const auto result = tool(args);
        const std::string what = step.args[0] + " " + step.args[1];
        ASSERT_EQ(result.exitStatus, step.exitStatus) << what << ": " << result.out << result.err;
        if (step.field.empty()) {
            continue;
        }
        const auto answer = json::parse(result.out, nullptr, false);
        ASSERT_TRUE(answer.is_object() && answer.contains(step.field))
            << what << ": " << result.out;
        if (step.expected.is_object()) {
            for (const auto& [key, value] : step.expected.items()) {
                EXPECT_EQ(answer[step.field][key], value) << what;
            }
        } else {
            EXPECT_EQ(answer[step.field], step.expected) << what;
        }
    }
    // Readable output: the Trash is empty, the stack says how to fill it, copy prints the text.
    EXPECT_EQ(tool({"trash", "list"}).out, "The Trash is empty.\n");
    EXPECT_NE(tool({"stack", "list"}).out.find("marlune stack push"), std::string::npos);
    EXPECT_EQ(tool({"clip", "copy", alpha}).out, "alpha report");

    // Quitting answers first, then the application ends cleanly.
    EXPECT_EQ(run({"app", "quit"})["ok"], true);
    bool ended = false;
    for (int i = 0; i < 250 && !ended; ++i) {
        ended = !app->running();
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_TRUE(ended) << app->log();
}

TEST_F(ClipWorkflow, TrashRoundTripShowsDaysLeftAndRestores) {
    const auto ids = seed({{"first", 3}, {"second", 2}});
    startApp();
    run({"snippet", "create", "Reply", "-k", "rp", "-c", "Thanks!"});
    run({"snippet", "delete", "rp"});
    run({"clip", "delete", ids[0]});
    const auto listed = run({"trash", "list"});
    ASSERT_EQ(listed["items"].size(), 2U);
    for (const auto& item : listed["items"]) {
        EXPECT_EQ(item["daysLeft"], 30);
    }
    EXPECT_EQ(listed["items"][0]["kind"], "clip"); // trashed last, listed first
    const auto readable = tool({"trash", "list"}).out;
    EXPECT_NE(readable.find("30 days"), std::string::npos) << readable;

    EXPECT_EQ(run({"trash", "restore", "Reply"})["title"], "Reply");
    EXPECT_EQ(run({"snippet", "get", "rp"})["content"], "Thanks!");
    EXPECT_EQ(run({"trash", "empty"})["affected"], json::array({ids[0]}));
    EXPECT_EQ(run({"trash", "list"})["page"]["total"], 0);
    EXPECT_EQ(tool({"clip", "get", ids[0]}).exitStatus, 3);
    EXPECT_EQ(run({"clip", "list"})["page"]["total"], 1);
}

TEST_F(ClipWorkflow, PasteStackKeepsCapacityAndOrderAcrossARestart) {
    std::vector<std::pair<std::string, double>> clips;
    for (int i = 0; i < 21; ++i) {
        clips.emplace_back("item " + std::to_string(i), 100 - i);
    }
    const auto ids = seed(clips);
    startApp();
    std::vector<std::string> refs = {"stack", "push"};
    refs.insert(refs.end(), ids.begin(), ids.end());
    refs.push_back("--json");
    const auto pushed = tool(refs);
    ASSERT_EQ(pushed.exitStatus, 0) << pushed.err;
    const auto answer = json::parse(pushed.out);
    EXPECT_EQ(answer["count"], 20);
    EXPECT_EQ(answer["dropped"], 1);
    EXPECT_NE(pushed.err.find("at most 20"), std::string::npos) << pushed.err;

    EXPECT_EQ(app->stop(), 0);
    startApp();
    const auto listed = run({"stack", "list"});
    ASSERT_EQ(listed["items"].size(), 20U);
    for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(listed["items"][i]["id"], ids[static_cast<std::size_t>(i)]);
        EXPECT_EQ(listed["items"][i]["preview"], "item " + std::to_string(i));
    }
    EXPECT_EQ(run({"stack", "pop"})["item"]["id"], ids[0]);
    EXPECT_EQ(app->stop(), 0);
    startApp();
    EXPECT_EQ(run({"stack", "list"})["items"][0]["id"], ids[1]);
}

TEST_F(ClipWorkflow, PurgeDryRunNamesWhatTheRealRunDeletes) {
    std::vector<std::pair<std::string, double>> clips;
    for (int i = 0; i < 30; ++i) {
        clips.emplace_back("clip " + std::to_string(i), (30 - i) * 24 * 60.0); // 30..1 days old
    }
    const auto ids = seed(clips);
    startApp();
    run({"clip", "pin", ids[0]});
    const auto dry =
        run({"clip", "purge", "--keep-last", "20", "--older-than", "+25d", "--dry-run"});
    EXPECT_EQ(dry["dryRun"], true);
    EXPECT_EQ(run({"clip", "list"})["page"]["total"], 30);
    const auto real = run({"clip", "purge", "--keep-last", "20", "--older-than", "+25d"});
    EXPECT_EQ(real["affected"], dry["affected"]);
    // The 20 most recent stay, and the pinned oldest one.
    EXPECT_EQ(real["deletedCount"], 9);
    EXPECT_EQ(run({"clip", "list"})["page"]["total"], 21);
}

// Writes answered as successful survive SIGKILL of the application: the store commits with a
// full sync before it answers, and SQLite recovers the write-ahead log on the next open.
TEST_F(ClipWorkflow, EveryAnsweredWriteSurvivesSigkill) {
    startApp();
    constexpr int total = 2'000;
    constexpr int workers = 4;
    std::vector<std::unique_ptr<BackgroundProcess>> running;
    std::vector<fs::path> logs;
    for (int w = 0; w < workers; ++w) {
        const int first = w * (total / workers);
        const int last = first + total / workers - 1;
        const std::string script = "for i in $(seq " + std::to_string(first) + " " +
                                   std::to_string(last) + "); do \"" + toolPath +
                                   "\" pinboard create \"board $i\" --no-launch >/dev/null 2>&1 "
                                   "&& echo \"ok $i\"; done";
        logs.push_back(dir / ("worker" + std::to_string(w) + ".log"));
        running.push_back(std::make_unique<BackgroundProcess>(
            std::vector<std::string>{"/bin/bash", "-c", script}, environment(), logs.back()));
    }
    const auto answered = [&logs] {
        std::set<int> ok;
        for (const auto& log : logs) {
            std::ifstream in(log);
            std::string word;
            int n = 0;
            while (in >> word >> n) {
                if (word == "ok") {
                    ok.insert(n);
                }
            }
        }
        return ok;
    };
    // Generous: a sanitizer build answers several times slower.
    for (int i = 0; i < 15'000 && answered().size() < total / 2; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_GE(answered().size(), static_cast<std::size_t>(total / 2)) << app->log();
    ASSERT_EQ(::kill(app->pid(), SIGKILL), 0);
    for (auto& worker : running) {
        for (int i = 0; i < 6'000 && worker->running(); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        ASSERT_FALSE(worker->running());
    }
    const auto ok = answered();
    ASSERT_LT(ok.size(), static_cast<std::size_t>(total)) << "the kill came after the last write";

    // Read the store with SQLite itself, not with the application.
    sqlite3* db = nullptr;
    ASSERT_EQ(
        sqlite3_open_v2((home / "Marlune.store").c_str(), &db, SQLITE_OPEN_READWRITE, nullptr),
        SQLITE_OK);
    const auto column = [db](const char* sql) {
        std::vector<std::string> out;
        sqlite3_stmt* stmt = nullptr;
        EXPECT_EQ(sqlite3_prepare_v2(db, sql, -1, &stmt, nullptr), SQLITE_OK) << sqlite3_errmsg(db);
        while (sqlite3_step(stmt) == SQLITE_ROW) {
            out.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(stmt, 0)));
        }
        sqlite3_finalize(stmt);
        return out;
    };
    EXPECT_EQ(column("PRAGMA integrity_check"), std::vector<std::string>{"ok"});
    const auto stored = column("SELECT name FROM Pinboard");
    const std::set<std::string> names(stored.begin(), stored.end());
    sqlite3_close(db);
    std::size_t missing = 0;
    for (const int n : ok) {
        missing += names.contains("board " + std::to_string(n)) ? 0 : 1;
    }
    EXPECT_EQ(missing, 0U) << "of " << ok.size() << " answered writes";

    app->stop();
    startApp();
    const auto listed = run({"pinboard", "list", "--limit", "10000"});
    EXPECT_GE(listed["page"]["total"].get<std::size_t>(), ok.size());
}

} // namespace
} // namespace marlune
