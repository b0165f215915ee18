// The data noun through the real binaries: the tool reads and converts library files itself,
// the application applies the document.
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

const std::string appPath = MARLUNE_APP_PATH;
const std::string toolPath = MARLUNE_TOOL_PATH;
const fs::path fixtures = MARLUNE_IMPORT_DATA;

class CLIData : public ::testing::Test {
protected:
    void SetUp() override {
        home = dir.path() / "home";
        fs::create_directories(home);
        ::chmod(home.c_str(), 0700);
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

    ProcessResult tool(std::vector<std::string> args,
                       const std::optional<std::string>& input = std::nullopt) {
        args.insert(args.begin(), toolPath);
        args.push_back("--no-launch");
        return runProcess(args, environment(), input);
    }

    ProcessResult ok(std::vector<std::string> args) {
        auto result = tool(std::move(args));
        EXPECT_EQ(result.exitStatus, 0) << result.err;
        return result;
    }

    nlohmann::json json(std::vector<std::string> args) {
        args.push_back("--json");
        return nlohmann::json::parse(ok(std::move(args)).out, nullptr, false);
    }

    fs::path write(const std::string& name, const std::string& text) {
        const auto path = dir.path() / name;
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }

    test::TempDir dir;
    fs::path home;
    std::unique_ptr<BackgroundProcess> app;
};

nlohmann::json withoutExportTime(nlohmann::json document) {
    document.erase("exportedAt");
    return document;
}

TEST_F(CLIData, ExportToAFileImportsBackIntoAnEmptyLibrary) {
    ok({"group", "create", "Mail"});
    ok({"tag", "create", "work/home"});
    ok({"snippet", "create", "Signature", "-k", "sig", "-c", "Best,\n{@cursor@}", "-g", "Mail",
        "-t", "work/home"});
    ok({"profile", "set", "name", "Ada"});
    const auto exported = ok({"data", "export"});
    const auto document = nlohmann::json::parse(exported.out);
    EXPECT_EQ(document["schemaVersion"], 2);
    EXPECT_NE(exported.out.find("\"work/home\""), std::string::npos) << "slashes as written";
    const auto file = write("library.json", exported.out);

    // A second application on an empty library takes the file.
    app->stop();
    fs::remove_all(home);
    SetUp();
    const auto dry = ok({"data", "import", file.string(), "--dry-run"});
    EXPECT_NE(dry.out.find("Would import 1 snippet: 1 new, 0 updated, 0 restored"),
              std::string::npos)
        << dry.out;
    EXPECT_NE(dry.out.find("Nothing was changed (dry run)."), std::string::npos);
    EXPECT_TRUE(json({"snippet", "list"})["items"].empty());

    const auto imported = ok({"data", "import", file.string()});
    EXPECT_NE(imported.out.find("Imported 1 snippet: 1 new"), std::string::npos) << imported.out;
    const auto again = nlohmann::json::parse(ok({"data", "export"}).out);
    EXPECT_EQ(withoutExportTime(again), withoutExportTime(document));
}

TEST_F(CLIData, ReimportingAForeignFileUpdatesTheSameSnippets) {
    const auto csv = (fixtures / "textexpander" / "Customer Replies.csv").string();
    const auto first = json({"data", "import", csv});
    EXPECT_EQ(first["createdSnippets"], 14);
    const auto firstRun = tool({"data", "import", csv});
    EXPECT_EQ(firstRun.exitStatus, 0) << firstRun.err;
    EXPECT_NE(firstRun.out.find("Imported 14 snippets: 0 new, 14 updated"), std::string::npos)
        << firstRun.out;
    // Every note of the conversion reaches the user.
    EXPECT_NE(firstRun.err.find("marlune: warning: “Key macros”: the %v cursor-key macro was "
                                "dropped (Marlune types text, not keys)."),
              std::string::npos)
        << firstRun.err;
    EXPECT_EQ(json({"snippet", "list", "--limit", "100"})["page"]["total"], 14);
}

TEST_F(CLIData, DryRunOfAForeignFileGivesTheRealFigures) {
    const auto archive = (fixtures / "raycast" / "snippets.json").string();
    auto dry = json({"data", "import", archive, "--dry-run"});
    auto real = json({"data", "import", archive});
    EXPECT_EQ(dry["dryRun"], true);
    dry["dryRun"] = false;
    EXPECT_EQ(dry, real);
    EXPECT_EQ(real["snippets"], 11);
}

TEST_F(CLIData, EspansoFilesAndStandardInputNeedTheFormatOrItsExtension) {
    const auto yaml = fixtures / "espanso" / "base.yml";
    const auto result = json({"data", "import", yaml.string()});
    EXPECT_EQ(result["createdSnippets"], 8);
    EXPECT_EQ(json({"snippet", "get", ":sig", "--raw"})["content"], "Best,\nAda{@cursor@}");

    std::ifstream in(yaml);
    std::stringstream text;
    text << in.rdbuf();
    const auto piped = tool({"data", "import", "-", "--format", "espanso", "--json"}, text.str());
    ASSERT_EQ(piped.exitStatus, 0) << piped.err;
    EXPECT_EQ(nlohmann::json::parse(piped.out)["createdSnippets"], 0);
}

TEST_F(CLIData, UnusableFilesAreRefusedWithTheirReason) {
    const struct {
        std::string name;
        std::string content;
        std::vector<std::string> extra;
        std::string message;
    } cases[] = {
        {"notes.txt",
         "nothing to see",
         {},
         "marlune: Marlune doesn't recognize that file. It imports Marlune backups, TextExpander "
         "(.csv or .textexpander), Raycast (.json) and Alfred (.alfredsnippets) snippets.\n"},
        {"broken.csv",
         ";a,\"open",
         {},
         "marlune: That isn't a valid TextExpander file: a quoted field that starts on line 1.\n"},
        {"backup.json",
         "{\"schemaVersion\": 2, \"tags\": []}",
         {"--replace"},
         "marlune: Replacing needs a file with at least one snippet — otherwise every snippet "
         "would move to the Trash.\n"},
        {"old.json", "{\"snippets\": 5}", {}, "marlune: That file isn't a valid Marlune export.\n"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<std::string> args = {"data", "import", write(c.name, c.content).string()};
        args.insert(args.end(), c.extra.begin(), c.extra.end());
        const auto result = tool(args);
        EXPECT_NE(result.exitStatus, 0);
        EXPECT_EQ(result.err.substr(0, result.err.find("hint:")), c.message);
    }
    const auto missing = tool({"data", "import", (dir.path() / "absent.csv").string()});
    EXPECT_EQ(missing.err, "marlune: Cannot read " + (dir.path() / "absent.csv").string() + ".\n");
}

TEST_F(CLIData, ClipsImportFromAFileAndTheirOwnListingComesBackAsTheSameClips) {
    const fs::path file = dir.path() / "clips.json";
    std::ofstream(file) << R"([
        {"primaryKind": "text", "representations": [
            {"utType": "public.utf8-plain-text", "hasText": true, "text": "first imported"}]},
        {"primaryKind": "url", "representations": [
            {"utType": "public.url", "hasText": true, "text": "https://example.org/a"}]}
    ])";
    ok({"clip", "import", file.string(), "--dry-run"});
    EXPECT_EQ(json({"clip", "list"})["items"].size(), 0U);
    ok({"clip", "import", file.string()});
    const auto listed = json({"clip", "list"});
    ASSERT_EQ(listed["items"].size(), 2U) << listed.dump();

    // What `clip get --json` prints imports again as the same clip: bumped, not duplicated.
    const auto id = listed["items"][0]["id"].get<std::string>();
    const auto shown = ok({"clip", "get", id, "--json"}).out;
    const auto again = tool({"clip", "import", "-", "--json"}, "[" + shown + "]");
    EXPECT_EQ(again.exitStatus, 0) << again.err;
    EXPECT_EQ(json({"clip", "list"})["items"].size(), 2U);

    const fs::path bad = dir.path() / "bad.json";
    std::ofstream(bad) << R"({"snippets": []})";
    const auto refused = tool({"clip", "import", bad.string()});
    EXPECT_EQ(refused.exitStatus, 2) << refused.err;
    EXPECT_NE(refused.err.find("is not a list of clips."), std::string::npos) << refused.err;
}

TEST_F(CLIData, ImportsKeepProtectionsAndSizeLimitsThatEveryOtherPathKeeps) {
    // A shared backup that would turn secret skipping off is applied only when asked.
    ok({"config", "set", "skipLikelySecrets", "false"});
    const auto backup = write("backup.json", ok({"data", "export", "--settings"}).out);
    ok({"config", "set", "skipLikelySecrets", "true"});
    const auto unasked = ok({"data", "import", backup.string()});
    EXPECT_NE(unasked.out.find("Pass --apply-settings to apply them too."), std::string::npos)
        << unasked.out;
    EXPECT_EQ(json({"config", "get", "skipLikelySecrets"})["value"], true);

    const auto clips = write("clips.json", R"([
        {"primaryKind": "text", "representations": [{"utType": "public.utf8-plain-text",
            "text": "aws_secret_access_key = wJalrXUtnFEMI/K7MDENG/bPxRfiCYEXAMPLEKEYab"}]},
        {"primaryKind": "text", "representations": [{"utType": "public.utf8-plain-text",
            "text": "Order 90210 ships in 2024"}]}
    ])");
    const auto imported = ok({"clip", "import", clips.string()});
    EXPECT_EQ(imported.out, "Imported 1 clip into the history.\n");
    EXPECT_EQ(imported.err, "marlune: warning: Skipped 1 likely secret: 1 API key.\n");

    ok({"data", "import", backup.string(), "--apply-settings"});
    EXPECT_EQ(json({"config", "get", "skipLikelySecrets"})["value"], false);

    // Through the real socket: the body fits in a frame, and the application refuses it.
    const auto body = write("body.txt", std::string(11'000'000, 'x'));
    const auto huge = tool({"snippet", "create", "Huge", "--content-file", body.string()});
    EXPECT_EQ(huge.exitStatus, 6) << huge.err;
    EXPECT_EQ(huge.err.substr(0, huge.err.find("hint:")),
              "marlune: The snippet body is 11.0 MB, over the 1 MiB limit for a snippet body.\n");
}

} // namespace
} // namespace marlune
