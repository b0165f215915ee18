// The real marlune-app (headless, on a temporary library) driven by the real marlune tool and
// by raw socket clients.
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/CLIToken.h"
#include "MarluneCLIProtocol/CLIWire.h"
#include "MarluneCLIProtocol/CommonRecords.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace marlune {
namespace {

namespace fs = std::filesystem;
using test::BackgroundProcess;
using test::ProcessResult;
using test::runProcess;

const std::string appPath = MARLUNE_APP_PATH;
const std::string toolPath = MARLUNE_TOOL_PATH;

class EndToEnd : public ::testing::Test {
protected:
    // `settings` is written before the application starts (e.g. to allow raw clients).
    void startApp(const std::string& settings = "") {
        home = dir.path() / "home";
        fs::create_directories(home);
        ::chmod(home.c_str(), 0700);
        if (!settings.empty()) {
            std::ofstream(home / "settings.json") << settings;
        }
        app = std::make_unique<BackgroundProcess>(std::vector<std::string>{appPath, "--headless"},
                                                  environment(), dir / "app.log");
        for (int i = 0; i < 250; ++i) {
            if (tool({"ping"}).exitStatus == 0) {
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        FAIL() << "marlune-app did not answer; its log:\n" << app->log();
    }

    std::map<std::string, std::string> environment() const {
        return {{"MARLUNE_HOME", home.string()}, {"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}};
    }

    ProcessResult tool(std::vector<std::string> args, bool launch = false) {
        args.insert(args.begin(), toolPath);
        if (!launch) {
            args.push_back("--no-launch");
        }
        return runProcess(args, environment());
    }

    nlohmann::json json(std::vector<std::string> args) {
        args.push_back("--json");
        const auto result = tool(args);
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        return nlohmann::json::parse(result.out, nullptr, false);
    }

    test::TempDir dir;
    fs::path home;
    std::unique_ptr<BackgroundProcess> app;
};

TEST_F(EndToEnd, SnippetLifecycleThroughTheTool) {
    startApp();
    auto created = json(
        {"snippet", "create", "Signature", "-k", ";sig", "-c", "Best regards,{@cursor@}\nAda"});
    EXPECT_EQ(created["keyword"], "sig"); // stored without the prefix
    EXPECT_EQ(created["keywordTrigger"], ";sig");
    const std::string id = created["id"];

    // The rendered text alone, as typed into a pipe.
    const auto expanded = tool({"snippet", "expand", "sig"});
    EXPECT_EQ(expanded.exitStatus, 0) << expanded.err;
    EXPECT_EQ(expanded.out.substr(0, expanded.out.find('\n')), "Best regards,");

    const auto listed = json({"snippet", "list"});
    ASSERT_EQ(listed["items"].size(), 1U);
    EXPECT_EQ(listed["page"]["total"], 1);

    auto updated = json({"snippet", "update", id, "--title", "Sign-off"});
    EXPECT_EQ(updated["title"], "Sign-off");

    const auto deleted = json({"snippet", "delete", "sig"});
    EXPECT_EQ(deleted["deletedCount"], 1);
    EXPECT_TRUE(json({"snippet", "list"})["items"].empty());
    EXPECT_EQ(json({"snippet", "list", "--trashed"})["items"].size(), 1U);
}

// Every command of the snippet, group, tag, profile and config nouns (and the clip reads), in
// a realistic order,
// each through the real tool; the JSON field checked is the one the command is about.
TEST_F(EndToEnd, EveryCommandAnswersThroughTheTool) {
    startApp();
    struct Step {
        std::vector<std::string> args;
        std::string field;
        nlohmann::json expected;
    };
    const std::vector<Step> steps = {
        {{"ping"}, "protocolVersion", 1},
        {{"group", "create", "Mail"}, "name", "Mail"},
        {{"group", "create", "Archive", "--parent", "Mail"}, "parent", {{"name", "Mail"}}},
        {{"group", "update", "Archive", "--name", "Old mail"}, "name", "Old mail"},
        {{"tag", "create", "work"}, "name", "work"},
        {{"tag", "update", "work", "--name", "office"}, "name", "office"},
        {{"snippet", "create", "Address", "-k", "addr", "-c", "1 Harbour Lane", "-t", "office"},
         "keyword",
         "addr"},
        {{"snippet", "update", "addr", "--content", "2 Harbour Lane"}, "content", "2 Harbour Lane"},
        {{"snippet", "favorite", "addr"}, "isFavorite", true},
        {{"snippet", "favorite", "addr", "--off"}, "isFavorite", false},
        {{"snippet", "move", "addr", "-g", "Mail"}, "group", {{"name", "Mail"}}},
        {{"snippet", "duplicate", "addr"}, "title", "Address copy"},
        {{"snippet", "search", "Harbour"}, "", nullptr},
        {{"snippet", "get", "addr"}, "title", "Address"},
        {{"snippet", "expand", "addr"}, "text", "2 Harbour Lane"},
        {{"snippet", "list"}, "", nullptr},
        {{"group", "list"}, "", nullptr},
        {{"group", "get", "Mail"}, "snippetCount", 2},
        {{"tag", "list"}, "", nullptr},
        {{"tag", "get", "office"}, "snippetCount", 2},
        {{"profile", "set", "city", "Lisbon"}, "value", "Lisbon"},
        {{"profile", "list"}, "", nullptr},
        {{"profile", "get", "city"}, "value", "Lisbon"},
        {{"profile", "unset", "city"}, "deletedCount", 1},
        {{"config", "list"}, "", nullptr},
        {{"config", "set", "clipRetentionDays", "30"}, "value", 30},
        {{"config", "get", "clipRetentionDays"}, "value", 30},
        {{"config", "unset", "clipRetentionDays"}, "value", 0},
        {{"clip", "list"}, "", nullptr},
        {{"clip", "search", "Harbour"}, "", nullptr},
        {{"snippet", "delete", "Address copy"}, "deletedCount", 1},
        {{"tag", "delete", "office"}, "deletedCount", 1},
        {{"group", "delete", "Old mail"}, "deletedCount", 1},
    };
    for (const auto& step : steps) {
        auto args = step.args;
        args.push_back("--json");
        const auto result = tool(args);
        const std::string what = step.args[0] + " " + (step.args.size() > 1 ? step.args[1] : "");
        ASSERT_EQ(result.exitStatus, 0) << what << ": " << result.err;
        const auto json = nlohmann::json::parse(result.out, nullptr, false);
        ASSERT_FALSE(json.is_discarded()) << what << " printed no JSON: " << result.out;
        if (step.field.empty()) {
            continue;
        }
        ASSERT_TRUE(json.is_object() && json.contains(step.field)) << what << ": " << result.out;
        if (step.expected.is_object()) {
            for (const auto& [key, value] : step.expected.items()) {
                EXPECT_EQ(json[step.field][key], value) << what;
            }
        } else {
            EXPECT_EQ(json[step.field], step.expected) << what;
        }
    }
    // The human-readable list is an aligned table naming the snippet.
    const auto table = tool({"snippet", "list"});
    EXPECT_NE(table.out.find("addr"), std::string::npos) << table.out;
}

struct ToolFailure {
    const char* name;
    std::vector<std::string> args;
    int exitStatus;
    const char* message;
};

class EndToEndFailures : public EndToEnd, public ::testing::WithParamInterface<ToolFailure> {};

TEST_P(EndToEndFailures, ExitStatusAndMessageComeFromTheErrorCode) {
    startApp();
    json({"snippet", "create", "Invoice reply", "-k", ";inv1", "-c", "one"});
    json({"snippet", "create", "Invoice reminder", "-k", ";inv2", "-c", "two"});
    const auto result = tool(GetParam().args);
    EXPECT_EQ(result.exitStatus, GetParam().exitStatus) << result.out << result.err;
    EXPECT_NE(result.err.find(GetParam().message), std::string::npos) << result.err;
}

INSTANTIATE_TEST_SUITE_P(
    Codes, EndToEndFailures,
    ::testing::Values(
        ToolFailure{"NotFound",
                    {"snippet", "get", "nothing-like-it"},
                    3,
                    "No snippet matches 'nothing-like-it'."},
        ToolFailure{"Ambiguous", {"snippet", "get", "Invoice"}, 5, "'Invoice' matches 2 snippets."},
        ToolFailure{"KeywordInUse",
                    {"snippet", "create", "Again", "-k", ";inv1", "-c", "x"},
                    8,
                    "already used"},
        ToolFailure{"CopyNeedsADisplay", {"snippet", "expand", "inv1", "--copy"}, 7, ""},
        ToolFailure{"UnknownGroup", {"group", "get", "Nowhere"}, 3, "No group matches 'Nowhere'."}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST_F(EndToEnd, PagingPastTheEndIsEmptyWithTheTotalKept) {
    startApp();
    for (int i = 0; i < 3; ++i) {
        json({"snippet", "create", "S" + std::to_string(i), "-k", ";s" + std::to_string(i), "-c",
              "x"});
    }
    const auto first = json({"snippet", "list", "--limit", "2"});
    EXPECT_EQ(first["items"].size(), 2U);
    EXPECT_EQ(first["page"]["nextOffset"], 2);
    const auto last = json({"snippet", "list", "--limit", "2", "--offset", "2"});
    EXPECT_EQ(last["items"].size(), 1U);
    EXPECT_FALSE(last["page"].contains("nextOffset"));
    const auto past = json({"snippet", "list", "--offset", "10"});
    EXPECT_TRUE(past["items"].empty());
    EXPECT_EQ(past["page"]["total"], 3);
    EXPECT_FALSE(past["page"].contains("nextOffset"));
}

TEST_F(EndToEnd, GroupsTagsProfileAndConfigRoundTrip) {
    startApp();
    json({"group", "create", "Mail"});
    json({"tag", "create", "work"});
    json({"snippet", "create", "Hello", "-k", ";hi", "-c", "Hi {@var|name=first@}", "-g", "Mail",
          "-t", "work"});
    EXPECT_EQ(json({"group", "get", "Mail"})["snippetCount"], 1);
    EXPECT_EQ(json({"tag", "get", "work"})["snippetCount"], 1);
    json({"profile", "set", "first", "Ada"});
    EXPECT_EQ(json({"profile", "get", "first"})["value"], "Ada");
    const auto set = json({"config", "set", "maxUnpinnedHistory", "250"});
    EXPECT_EQ(set["value"], 250);
    const auto refused = tool({"config", "set", "maxUnpinnedHistory", "0"});
    EXPECT_EQ(refused.exitStatus, 6) << refused.err;
    EXPECT_EQ(json({"config", "get", "maxUnpinnedHistory"})["value"], 250);
}

TEST_F(EndToEnd, ToolWithoutARunningAppSaysSoOrStartsIt) {
    home = dir.path() / "home";
    fs::create_directories(home);
    const auto refused = tool({"ping"});
    EXPECT_EQ(refused.exitStatus, 4);
    EXPECT_NE(refused.err.find("Marlune isn't running (no CLI token)."), std::string::npos)
        << refused.err;

    // Without --no-launch the tool starts the application beside it and waits for it.
    const auto launched = tool({"ping", "--json"}, /*launch=*/true);
    ASSERT_EQ(launched.exitStatus, 0) << launched.err;
    const auto pid = nlohmann::json::parse(launched.out)["pid"].get<int>();
    ASSERT_GT(pid, 0);
    ::kill(pid, SIGTERM);
    for (int i = 0; i < 250 && ::kill(pid, 0) == 0; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_NE(::kill(pid, 0), 0) << "the launched application did not stop";
}

// Raw clients speak the protocol directly; the application allows them only when the
// bundled-tool requirement is off.
std::optional<CLIResponse> rawRequest(const fs::path& home, const std::string& command) {
    std::stringstream tokenText;
    tokenText << std::ifstream(home / "cli-token").rdbuf();
    const std::string token(trimWhitespaceAndNewlines(tokenText.str()));
    const auto payload = makeRequest(command, EmptyArgs{}, token).encode();
    const auto frame = std::get<std::string>(CLIWire::encodeFrame(payload));
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, (home / "marlune.sock").c_str(), sizeof address.sun_path - 1);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        ::close(fd);
        return std::nullopt;
    }
    ::send(fd, frame.data(), frame.size(), MSG_NOSIGNAL);
    std::string answer;
    char buffer[4096];
    for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;) {
        answer.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return answer.size() < 4 ? std::nullopt
                             : CLIResponse::decode(std::string_view(answer).substr(4));
}

TEST_F(EndToEnd, OtherProgramsAreRefusedUnlessTheRequirementIsOff) {
    startApp();
    const auto refused = rawRequest(home, "ping");
    ASSERT_TRUE(refused);
    ASSERT_TRUE(refused->error);
    EXPECT_EQ(refused->error->message, "Rejected peer.");
    app->stop();

    startApp(R"({"cliRequireBundledTool": false})");
    const auto served = rawRequest(home, "ping");
    ASSERT_TRUE(served);
    EXPECT_TRUE(served->ok);
    // A malformed frame is answered and the next client is served.
    {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, (home / "marlune.sock").c_str(),
                     sizeof address.sun_path - 1);
        ASSERT_EQ(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::send(fd, "\0\0\0", 3, MSG_NOSIGNAL);
        ::shutdown(fd, SHUT_WR);
        std::string answer;
        char buffer[4096];
        for (ssize_t n; (n = ::recv(fd, buffer, sizeof buffer, 0)) > 0;) {
            answer.append(buffer, static_cast<std::size_t>(n));
        }
        ::close(fd);
        ASSERT_GT(answer.size(), 4U);
        const auto malformed = CLIResponse::decode(std::string_view(answer).substr(4));
        ASSERT_TRUE(malformed && malformed->error);
        EXPECT_EQ(malformed->error->message, "Malformed request.");
    }
    EXPECT_TRUE(rawRequest(home, "ping")->ok);
    const auto wrongCase = rawRequest(home, "Ping");
    ASSERT_TRUE(wrongCase && wrongCase->error);
    EXPECT_EQ(wrongCase->error->message, "Unknown command 'Ping'.");
}

TEST_F(EndToEnd, SocketAndTokenArePrivate) {
    startApp();
    struct stat st {};
    ASSERT_EQ(::stat(home.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700U);
    ASSERT_EQ(::stat((home / "marlune.sock").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600U);
    ASSERT_EQ(::stat((home / "cli-token").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0600U);
}

} // namespace
} // namespace marlune
