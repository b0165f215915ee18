#include "MarluneCLI/CommandLine.h"
#include "MarluneCLIProtocol/CLIErrorCode.h"

#include <functional>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace marlune {
namespace {

using Args = std::vector<std::string>;

CLIInvocation invocation(const Args& arguments) {
    auto outcome = CommandLine::parse(arguments);
    if (auto* error = std::get_if<CLIErrorPayload>(&outcome)) {
        ADD_FAILURE() << "usage error: " << error->message;
        return {};
    }
    if (!std::holds_alternative<CLIInvocation>(outcome)) {
        ADD_FAILURE() << "no request was built";
        return {};
    }
    return std::get<CLIInvocation>(outcome);
}

TEST(CommandLine, EveryCommandBuildsItsArgumentRecord) {
    struct Case {
        Args arguments;
        std::string command;
        std::string args;
    };
    const Case cases[] = {
        {{"ping"}, "ping", "{}"},
        {{"snippet", "list"}, "snippet.list", R"({"limit":50,"offset":0})"},
        {{"snippet", "list", "sig", "--group", "Work", "--tag", "mail", "--favorites", "--order",
          "desc", "--sort", "title", "--trashed", "--limit", "10", "--offset", "20"},
         "snippet.list",
         R"({"query":"sig","groupRef":"Work","tagRef":"mail","favoriteOnly":true,"sort":"title",
             "order":"desc","trashed":true,"limit":10,"offset":20})"},
        {{"snippet", "get", ";sig", "--by", "keyword", "--raw"},
         "snippet.get",
         R"({"ref":";sig","by":"keyword","raw":true})"},
        {{"snippet", "search", "thanks", "--semantic", "--threshold", "0.5", "--limit", "5"},
         "snippet.search",
         R"({"query":"thanks","semantic":true,"threshold":0.5,"limit":5,"offset":0})"},
        {{"snippet", "create", "Signature", "-k", ";sig", "-c", "Best,\nJo", "--content-type",
          "markdown", "-g", "Mail", "-t", "work", "--tag", "home", "--favorite", "--validate",
          "--unique"},
         "snippet.create",
         R"({"title":"Signature","keyword":";sig","content":"Best,\nJo","contentType":"markdown",
             "groupRef":"Mail","tagRefs":["work","home"],"favorite":true,"validate":true,
             "unique":true})"},
        {{"snippet", "create", "Bare"},
         "snippet.create",
         R"({"title":"Bare","tagRefs":[],"favorite":false,"validate":false,"unique":false})"},
        {{"snippet", "update", "sig", "--title", "New", "--ungroup", "--add-tag", "a", "--add-tag",
          "b", "--remove-tag", "c", "--no-favorite"},
         "snippet.update",
         R"({"ref":"sig","title":"New","ungroup":true,"addTagRefs":["a","b"],
             "removeTagRefs":["c"],"favorite":false,"validate":false})"},
        {{"snippet", "update", "sig", "--favorite", "-g", "Work", "--validate"},
         "snippet.update",
         R"({"ref":"sig","groupRef":"Work","ungroup":false,"addTagRefs":[],"removeTagRefs":[],
             "favorite":true,"validate":true})"},
        {{"snippet", "duplicate", "sig", "--title", "Copy"},
         "snippet.duplicate",
         R"({"ref":"sig","title":"Copy"})"},
        {{"snippet", "favorite", "sig"}, "snippet.favorite", R"({"ref":"sig","favorite":true})"},
        {{"snippet", "favorite", "sig", "--off", "--by", "title"},
         "snippet.favorite",
         R"({"ref":"sig","by":"title","favorite":false})"},
        {{"snippet", "move", "sig", "--group", "Work"},
         "snippet.move",
         R"({"ref":"sig","groupRef":"Work","ungroup":false})"},
        {{"snippet", "move", "sig", "--ungroup"},
         "snippet.move",
         R"({"ref":"sig","ungroup":true})"},
        {{"snippet", "delete", "sig"}, "snippet.delete", R"({"ref":"sig","dryRun":false})"},
        {{"snippet", "delete", "sig", "--dry-run", "--now"},
         "snippet.delete",
         R"({"ref":"sig","dryRun":true,"now":true})"},
        {{"snippet", "expand", "sig"},
         "snippet.expand",
         R"({"ref":"sig","fills":{},"vars":{},"noClipboard":false,"noAI":false,"strictAI":false,
             "strictFills":false,"listFills":false,"paste":false,"copy":false})"},
        {{"snippet",
          "expand",
          "sig",
          "--by",
          "title",
          "--fill",
          "name=Jo",
          "--fill",
          "greeting=a=b",
          "--fill",
          "empty=",
          "--var",
          "city=Lyon",
          "--clipboard",
          "clip",
          "--selection",
          "sel",
          "--now",
          "2026-03-04T05:06:07Z",
          "--timezone",
          "Europe/Paris",
          "--locale",
          "fr_FR",
          "--seed",
          "42",
          "--counter-start",
          "-3",
          "--no-ai",
          "--strict-fills",
          "--list-fills",
          "--paste",
          "--copy",
          "--into",
          "Editor",
          "--record-usage"},
         "snippet.expand",
         R"({"ref":"sig","by":"title","fills":{"empty":"","greeting":"a=b","name":"Jo"},
             "vars":{"city":"Lyon"},"clipboard":"clip","noClipboard":false,"selection":"sel",
             "now":"2026-03-04T05:06:07Z","timezone":"Europe/Paris","locale":"fr_FR","seed":42,
             "counterStart":-3,"noAI":true,"strictAI":false,"strictFills":true,
             "listFills":true,"paste":true,"copy":true,"into":"Editor","recordUsage":true})"},
        {{"snippet", "expand", "sig", "--no-clipboard", "--strict-ai", "--no-record-usage"},
         "snippet.expand",
         R"({"ref":"sig","fills":{},"vars":{},"noClipboard":true,"noAI":false,"strictAI":true,
             "strictFills":false,"listFills":false,"paste":false,"copy":false,
             "recordUsage":false})"},
        {{"group", "list", "--limit", "3"}, "group.list", R"({"limit":3,"offset":0})"},
        {{"group", "get", "Mail"}, "group.get", R"({"ref":"Mail","raw":false})"},
        {{"group", "create", "Mail", "--icon", "envelope", "--color", "blue", "--parent", "Work",
          "--sort-index", "2"},
         "group.create",
         R"({"name":"Mail","iconSymbol":"envelope","colorRole":"blue","parentRef":"Work",
             "sortIndex":2})"},
        {{"group", "update", "Mail", "--name", "Post"},
         "group.update",
         R"({"ref":"Mail","name":"Post"})"},
        {{"group", "delete", "Mail", "--dry-run"},
         "group.delete",
         R"({"ref":"Mail","dryRun":true})"},
        {{"tag", "list"}, "tag.list", R"({"limit":50,"offset":0})"},
        {{"tag", "get", "work"}, "tag.get", R"({"ref":"work","raw":false})"},
        {{"tag", "create", "work", "--color", "red"},
         "tag.create",
         R"({"name":"work","colorRole":"red"})"},
        {{"tag", "update", "work", "--name", "job", "--color", "green"},
         "tag.update",
         R"({"ref":"work","name":"job","colorRole":"green"})"},
        {{"tag", "delete", "work", "--now"},
         "tag.delete",
         R"({"ref":"work","dryRun":false,"now":true})"},
        {{"profile", "list"}, "profile.list", "{}"},
        {{"profile", "get", "name"}, "profile.get", R"({"key":"name"})"},
        {{"profile", "set", "name", "Jo Doe"}, "profile.set", R"({"key":"name","value":"Jo Doe"})"},
        {{"profile", "unset", "name"}, "profile.unset", R"({"key":"name"})"},
        {{"config", "list"}, "config.list", R"({"includeInternal":false})"},
        {{"config", "list", "--internal"}, "config.list", R"({"includeInternal":true})"},
        {{"config", "get", "keywordPrefix"},
         "config.get",
         R"({"key":"keywordPrefix","includeInternal":false})"},
        {{"config", "set", "maxUnpinnedHistory", "500"},
         "config.set",
         R"({"key":"maxUnpinnedHistory","value":"500"})"},
        {{"config", "unset", "maxUnpinnedHistory"},
         "config.unset",
         R"({"key":"maxUnpinnedHistory"})"},
        {{"data", "import", "backup.json"},
         "data.import",
         R"({"document":"","merge":true,"replace":false,"dryRun":false,"applySettings":false})"},
        {{"data", "import", "backup.json", "--replace", "--apply-settings"},
         "data.import",
         R"({"document":"","merge":false,"replace":true,"dryRun":false,"applySettings":true})"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.command + " " + c.args);
        const auto built = invocation(c.arguments);
        EXPECT_EQ(built.request.command, c.command);
        EXPECT_EQ(nlohmann::json::parse(built.request.argsJSON), nlohmann::json::parse(c.args));
        EXPECT_TRUE(built.request.token.empty());
        EXPECT_FALSE(built.json);
        EXPECT_FALSE(built.noLaunch);
    }
}

TEST(CommandLine, GlobalOptionsAreTakenBeforeOrAfterTheCommand) {
    const Args forms[] = {
        {"--json", "--no-launch", "--timeout", "5", "snippet", "get", "sig"},
        {"snippet", "get", "sig", "--json", "--no-launch", "--timeout", "5"},
        {"snippet", "--json", "get", "--timeout=5", "sig", "--no-launch"},
    };
    for (const auto& arguments : forms) {
        const auto built = invocation(arguments);
        EXPECT_EQ(built.request.command, "snippet.get");
        EXPECT_TRUE(built.json);
        EXPECT_TRUE(built.noLaunch);
        EXPECT_EQ(built.replyTimeout, std::chrono::seconds(5));
    }
}

TEST(CommandLine, ContentFileIsLeftForTheRunnerToRead) {
    const auto built = invocation({"snippet", "update", "sig", "--content-file", "-"});
    EXPECT_EQ(built.contentFile, std::optional<std::string>("-"));
    EXPECT_EQ(invocation({"snippet", "update", "sig"}).contentFile, std::nullopt);
}

TEST(CommandLine, BadUsageIsAUsageErrorNamingTheProblem) {
    struct Case {
        Args arguments;
        std::string message; // a part of it
        std::string hint;
    };
    const Case cases[] = {
        {{"snippet", "frobnicate"}, "frobnicate", "marlune snippet --help"},
        {{"bogus"}, "bogus", "marlune --help"},
        {{"snippet"}, "Missing a command after 'marlune snippet'.", "marlune snippet --help"},
        {{"snippet", "get"}, "The ref argument is required.", "marlune snippet get --help"},
        {{"profile", "set", "name"},
         "The value argument is required.",
         "marlune profile set --help"},
        {{"snippet", "expand", "sig", "--fill", "name"},
         "--fill takes name=value, not 'name'.",
         "marlune snippet expand --help"},
        {{"snippet", "expand", "sig", "--var", "=Lyon"},
         "--var takes name=value, not '=Lyon'.",
         "marlune snippet expand --help"},
        {{"snippet", "expand", "sig", "--now", "yesterday"},
         "not a date such as",
         "marlune snippet expand --help"},
        {{"snippet", "expand", "sig", "--seed", "many"}, "--seed", "marlune snippet expand --help"},
        {{"snippet", "expand", "sig", "--clipboard", "x", "--no-clipboard"},
         "excludes",
         "marlune snippet expand --help"},
        {{"snippet", "expand", "sig", "--no-ai", "--strict-ai"},
         "excludes",
         "marlune snippet expand --help"},
        {{"snippet", "move", "sig"}, "--group REF or --ungroup", "marlune snippet move --help"},
        {{"snippet", "move", "sig", "-g", "Work", "--ungroup"},
         "excludes",
         "marlune snippet move --help"},
        {{"snippet", "create", "T", "-c", "x", "--content-file", "f"},
         "excludes",
         "marlune snippet create --help"},
        {{"snippet", "update", "sig", "--favorite", "--no-favorite"},
         "excludes",
         "marlune snippet update --help"},
        {{"snippet", "get", "sig", "--by", "colour"}, "colour", "marlune snippet get --help"},
        {{"snippet", "list", "--limit", "0"}, "--limit", "marlune snippet list --help"},
        {{"snippet", "list", "--order", "sideways"}, "sideways", "marlune snippet list --help"},
        {{"snippet", "search", "x", "--threshold", "2"},
         "--threshold",
         "marlune snippet search --help"},
        {{"ping", "--timeout", "0"}, "--timeout", "marlune ping --help"},
        {{"snippet", "get", "a", "b"}, "b", "marlune snippet get --help"},
    };
    for (const auto& c : cases) {
        std::string line;
        for (const auto& word : c.arguments) {
            line += word + " ";
        }
        SCOPED_TRACE(line);
        auto outcome = CommandLine::parse(c.arguments);
        ASSERT_TRUE(std::holds_alternative<CLIErrorPayload>(outcome));
        const auto& error = std::get<CLIErrorPayload>(outcome);
        EXPECT_EQ(CLIErrorCode::exitStatus(error.code), 2);
        EXPECT_NE(error.message.find(c.message), std::string::npos) << error.message;
        EXPECT_TRUE(error.message.ends_with('.')) << error.message;
        ASSERT_TRUE(error.hint.has_value());
        EXPECT_NE(error.hint->find(c.hint), std::string::npos) << *error.hint;
    }
}

TEST(CommandLine, EveryLevelAnswersHelpWithItsOwnUsage) {
    std::vector<std::string> paths;
    std::function<void(const CommandNode&, const std::string&)> walk =
        [&](const CommandNode& node, const std::string& path) {
            paths.push_back(path);
            for (const auto& child : node.children) {
                walk(child, path.empty() ? child.name : path + " " + child.name);
            }
        };
    walk(CommandLine::tree(), "");
    EXPECT_GT(paths.size(), 30u);
    for (const auto& path : paths) {
        SCOPED_TRACE(path);
        Args arguments;
        for (std::size_t start = 0; start < path.size();) {
            const auto end = std::min(path.find(' ', start), path.size());
            arguments.push_back(path.substr(start, end - start));
            start = end + 1;
        }
        arguments.push_back("--help");
        auto outcome = CommandLine::parse(arguments);
        ASSERT_TRUE(std::holds_alternative<LocalOutput>(outcome));
        const auto& help = std::get<LocalOutput>(outcome);
        EXPECT_EQ(help.exitStatus, 0);
        const std::string usage = "Usage: marlune" + (path.empty() ? "" : " " + path) + " ";
        EXPECT_NE(help.text.find(usage), std::string::npos) << help.text;
    }
}

TEST(CommandLine, BareToolPrintsHelpAndVersionIsAnsweredLocally) {
    auto bare = CommandLine::parse({});
    ASSERT_TRUE(std::holds_alternative<LocalOutput>(bare));
    EXPECT_NE(std::get<LocalOutput>(bare).text.find("snippet"), std::string::npos);

    auto version = CommandLine::parse({"--version"});
    ASSERT_TRUE(std::holds_alternative<LocalOutput>(version));
    EXPECT_TRUE(std::get<LocalOutput>(version).text.starts_with("marlune "));
}

} // namespace
} // namespace marlune
