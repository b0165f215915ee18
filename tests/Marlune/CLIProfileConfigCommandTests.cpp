#include "CLIHarness.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/SystemRecords.h"

#include <unistd.h>

namespace marlune::test {
namespace {

namespace N = CLICommandName;

using ProfileCommandTest = CLIHarness;
using ConfigCommandTest = CLIHarness;
using PingTest = CLIHarness;

TEST_F(PingTest, ReportsThisProcessAndVersions) {
    const auto pong = ok<PingResult>(N::ping, PingArgs{});
    EXPECT_EQ(pong, (PingResult{"9.8.7", static_cast<std::int32_t>(::getpid()), 1, "1.0", true}));
}

TEST_F(ProfileCommandTest, SetGetListUnset) {
    ok<ProfileVarDTO>(N::profileSet, ProfileSetArgs{"name", "Ada"});
    ok<ProfileVarDTO>(N::profileSet, ProfileSetArgs{"email", "ada@example.org"});
    ok<ProfileVarDTO>(N::profileSet, ProfileSetArgs{"name", "Ada L."});
    EXPECT_EQ(ok<ProfileVarDTO>(N::profileGet, KeyArgs{"name"}).value, "Ada L.");
    EXPECT_EQ(ok<std::vector<ProfileVarDTO>>(N::profileList, EmptyArgs{}),
              (std::vector<ProfileVarDTO>{{"email", "ada@example.org"}, {"name", "Ada L."}}));

    EXPECT_EQ(ok<DeleteResultDTO>(N::profileUnset, KeyArgs{"email"}).affected,
              std::vector<std::string>{"email"});
    const auto missing = fails(N::profileGet, KeyArgs{"email"});
    EXPECT_EQ(missing.code, "E_NOT_FOUND");
    EXPECT_EQ(missing.hint, "List them with `marlune profile list`.");
    EXPECT_EQ(fails(N::profileUnset, KeyArgs{"email"}).code, "E_NOT_FOUND");
    EXPECT_EQ(fails(N::profileSet, ProfileSetArgs{" ", "x"}).code, "E_USAGE");
}

TEST_F(ConfigCommandTest, SetConvertsValidatesAndReportsThePrevious) {
    struct Row {
        std::string key, value;
        std::string code; // empty on success
        CLIJSONValue stored;
    };
    const std::vector<Row> rows = {
        {"maxUnpinnedHistory", "250", "", CLIJSONValue::integer(250)},
        {"maxUnpinnedHistory", "0", "E_VALIDATION", {}},
        {"maxUnpinnedHistory", "12abc", "E_VALIDATION", {}},
        {"keywordPrefix", "!", "", CLIJSONValue::string("!")},
        {"keywordPrefix", "§", "", CLIJSONValue::string("§")},
        {"keywordPrefix", "a", "E_VALIDATION", {}},
        {"keywordPrefix", ";;", "E_VALIDATION", {}},
        {"keywordPrefix", " ", "E_VALIDATION", {}},
        {"unlimitedHistory", "yes", "", CLIJSONValue::boolean(true)},
        {"unlimitedHistory", "maybe", "E_VALIDATION", {}},
        {"board.captureSound", "tink", "", CLIJSONValue::string("tink")},
        {"board.captureSound", "boom", "E_VALIDATION", {}},
        {"pasteShortcutOverrides", R"({"*term*":"Ctrl+Shift+V"})", "",
         CLIJSONValue::string(R"({"*term*":"Ctrl+Shift+V"})")},
        {"pasteShortcutOverrides", "[1]", "E_VALIDATION", {}},
        {"ai.endpoint", "http://example.org:8080", "E_VALIDATION", {}},
        {"mainWindowWasOpen", "true", "E_VALIDATION", {}},
        {"noSuchKey", "1", "E_NOT_FOUND", {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.key + "=" + row.value);
        const ConfigSetArgs args{row.key, row.value};
        if (row.code.empty()) {
            const auto result = ok<ConfigSetResultDTO>(N::configSet, args);
            EXPECT_EQ(result.value, row.stored);
            EXPECT_EQ(ok<ConfigEntryDTO>(N::configGet, ConfigGetArgs{row.key, false}).value,
                      row.stored);
        } else {
            const auto error = fails(N::configSet, args);
            EXPECT_EQ(error.code, row.code);
            EXPECT_TRUE(error.message.ends_with(".")) << error.message;
        }
    }
    EXPECT_EQ(fails(N::configSet, ConfigSetArgs{"keywordPrefix", "a"}).message,
              "keywordPrefix must be a single non-alphanumeric character.");
    EXPECT_EQ(fails(N::configSet, ConfigSetArgs{"maxUnpinnedHistory", "0"}).message,
              "maxUnpinnedHistory must be at least 1.");
    EXPECT_EQ(fails(N::configGet, ConfigGetArgs{"nope", false}).hint,
              "List keys with `marlune config list`.");
}

TEST_F(ConfigCommandTest, UnsetReturnsToTheDefault) {
    ok<ConfigSetResultDTO>(N::configSet, ConfigSetArgs{"iCloudSyncEnabled", "on"});
    const auto result = ok<ConfigSetResultDTO>(N::configUnset, KeyArgs{"iCloudSyncEnabled"});
    EXPECT_EQ(result.previous, CLIJSONValue::boolean(true));
    EXPECT_EQ(result.value, CLIJSONValue::boolean(false));
    EXPECT_TRUE(result.requiresRelaunch);
    EXPECT_FALSE(settings->contains("iCloudSyncEnabled"));
}

TEST_F(ConfigCommandTest, StoredValuesTheApplicationWouldRejectShowTheDefault) {
    settings->setInteger("maxUnpinnedHistory", 0);
    settings->setString("keywordPrefix", "ab");
    settings->setString("unlimitedHistory", "not a Boolean");
    EXPECT_EQ(ok<ConfigEntryDTO>(N::configGet, ConfigGetArgs{"maxUnpinnedHistory", false}).value,
              CLIJSONValue::integer(1000));
    EXPECT_EQ(ok<ConfigEntryDTO>(N::configGet, ConfigGetArgs{"keywordPrefix", false}).value,
              CLIJSONValue::string(";"));
    EXPECT_EQ(ok<ConfigEntryDTO>(N::configGet, ConfigGetArgs{"unlimitedHistory", false}).value,
              CLIJSONValue::boolean(false));
}

TEST_F(ConfigCommandTest, ListHidesInternalKeysUnlessAsked) {
    auto keys = [&](bool internal) {
        std::vector<std::string> out;
        for (const auto& entry :
             ok<std::vector<ConfigEntryDTO>>(N::configList, ConfigGetArgs{{}, internal})) {
            out.push_back(entry.key);
        }
        return out;
    };
    const auto visible = keys(false);
    const auto all = keys(true);
    EXPECT_NE(std::find(visible.begin(), visible.end(), "keywordPrefix"), visible.end());
    EXPECT_EQ(std::find(visible.begin(), visible.end(), "mainWindowWasOpen"), visible.end());
    EXPECT_NE(std::find(all.begin(), all.end(), "mainWindowWasOpen"), all.end());
    EXPECT_EQ(ok<ConfigEntryDTO>(N::configGet, ConfigGetArgs{"mainWindowWasOpen", false}).type,
              "boolean");
}

} // namespace
} // namespace marlune::test
