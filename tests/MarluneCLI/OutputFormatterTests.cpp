#include "MarluneCLI/OutputFormatter.h"
#include "MarluneCLIProtocol/CLIArgs.h"
#include "MarluneCLIProtocol/DataRecords.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/Paging.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

SnippetDTO snippet(std::string id, std::string keyword, std::string title) {
    SnippetDTO s;
    s.id = std::move(id);
    s.keyword = std::move(keyword);
    s.title = std::move(title);
    s.content = "Best,\nJo";
    s.contentType = "plainText";
    s.createdAt = "2026-03-04T05:06:07Z";
    s.updatedAt = "2026-03-05T05:06:07Z";
    return s;
}

TEST(OutputFormatter, PageIsAnAlignedTableWithShortIdsAndANextPageNote) {
    Page<SnippetDTO> page;
    page.items.push_back(snippet("0F1E2D3C-AAAA-BBBB-CCCC-000000000001", ";sig", "Signature"));
    page.items.back().group = GroupRefDTO{"g", "Mail"};
    page.items.back().tags = {{"t1", "work"}, {"t2", "home"}};
    page.items.back().usageCount = 12;
    page.items.back().isFavorite = true;
    page.items.push_back(
        snippet("99999999-AAAA-BBBB-CCCC-000000000002", ";addr", "Äddress\nsecond line"));
    page.page = PageInfo::of(5, 2, 0);

    const auto output = OutputFormatter::format("snippet.list", successResponse(page), {});
    EXPECT_EQ(output.out, "ID        KEYWORD  TITLE                GROUP  TAGS        USES  FAV\n"
                          "0F1E2D3C  ;sig     Signature            Mail   work, home  12    *\n"
                          "99999999  ;addr    Äddress second line                     0\n"
                          "Showing 1-2 of 5; more with --offset 2.\n");
    EXPECT_EQ(output.err, "");
    EXPECT_EQ(output.exitStatus, 0);
}

TEST(OutputFormatter, LongCellsAreCutAndEmptyPagesSaySo) {
    Page<SnippetDTO> page;
    page.items.push_back(snippet("id", "k", std::string(60, 'x')));
    page.page = PageInfo::of(1, 50, 0);
    const auto cut = OutputFormatter::format("snippet.search", successResponse(page), {});
    EXPECT_NE(cut.out.find(std::string(47, 'x') + "…"), std::string::npos) << cut.out;
    EXPECT_EQ(cut.out.find(std::string(48, 'x')), std::string::npos);

    Page<SnippetDTO> empty;
    empty.page = PageInfo::of(3, 50, 10);
    EXPECT_EQ(OutputFormatter::format("snippet.list", successResponse(empty), {}).out,
              "No snippets at offset 10 of 3.\n");
    empty.page = PageInfo::of(0, 50, 0);
    EXPECT_EQ(OutputFormatter::format("group.list", successResponse(Page<GroupDTO>{}), {}).out,
              "No groups.\n");
}

TEST(OutputFormatter, SingleRecordIsKeyValueLinesThenTheContent) {
    auto s = snippet("ID-1", ";sig", "Signature");
    s.group = GroupRefDTO{"g", "Mail"};
    const auto output = OutputFormatter::format("snippet.get", successResponse(s), {});
    EXPECT_EQ(output.out, "id:       ID-1\n"
                          "title:    Signature\n"
                          "keyword:  ;sig\n"
                          "type:     plainText\n"
                          "group:    Mail\n"
                          "favorite: no\n"
                          "fill-ins: 0\n"
                          "uses:     0\n"
                          "created:  2026-03-04T05:06:07Z\n"
                          "updated:  2026-03-05T05:06:07Z\n"
                          "\n"
                          "Best,\nJo\n");
}

TEST(OutputFormatter, ExpansionPrintsTheRenderedTextAlone) {
    struct Case {
        std::string text;
        bool terminal;
        std::string expected;
    };
    const Case cases[] = {
        {"Hello Jo", false, "Hello Jo"},
        {"Hello Jo", true, "Hello Jo\n"},
        {"Two\nlines\n", true, "Two\nlines\n"},
        {"Two\nlines\n", false, "Two\nlines\n"},
        {"", true, ""},
    };
    for (const auto& c : cases) {
        ExpandResultDTO result;
        result.text = c.text;
        result.actions.stdOut = true;
        const auto output = OutputFormatter::format("snippet.expand", successResponse(result),
                                                    {.json = false, .terminal = c.terminal});
        EXPECT_EQ(output.out, c.expected);
        EXPECT_EQ(output.err, "");
    }
}

TEST(OutputFormatter, ExpansionReportsCopyPasteAndUnfilledFieldsOnStandardError) {
    ExpandResultDTO result;
    result.text = "Dear ";
    result.actions.copied = true;
    result.actions.pasted = true;
    result.actions.pasteTarget = PasteTargetDTO{"Editor", std::nullopt};
    result.unresolvedFills = {"name", "city"};
    const auto output = OutputFormatter::format("snippet.expand", successResponse(result), {});
    EXPECT_EQ(output.out, "");
    EXPECT_EQ(output.err, "Copied to the clipboard.\nPasted into Editor.\n"
                          "marlune: left unfilled: name, city. Answer them with --fill "
                          "name=value.\n");

    ExpandResultDTO listing;
    listing.fills.push_back({"name", "text", std::nullopt, std::string("Jo"), std::nullopt, false});
    listing.fills.push_back(
        {"tone", "popup", std::vector<std::string>{"warm", "dry"}, std::nullopt, "dry", true});
    EXPECT_EQ(OutputFormatter::format("snippet.expand", successResponse(listing), {}).out,
              "NAME  KIND   FILLED  VALUE  DEFAULT  OPTIONS\n"
              "name  text   no             Jo\n"
              "tone  popup  yes     dry             warm, dry\n");
}

TEST(OutputFormatter, JsonPrintsTheResultRecordInTheApplicationsKeyOrder) {
    const auto response = CLIResponse::success(R"({"zeta":1,"alpha":{"b":true,"a":null}})");
    const auto output =
        OutputFormatter::format("snippet.get", response, {.json = true, .terminal = false});
    EXPECT_EQ(output.out, "{\n  \"zeta\": 1,\n  \"alpha\": {\n    \"b\": true,\n    \"a\": null\n"
                          "  }\n}\n");
    EXPECT_EQ(output.exitStatus, 0);
}

TEST(OutputFormatter, ErrorsGoToStandardErrorWithHintAndTheCodesExitStatus) {
    struct Case {
        std::string code;
        int status;
    };
    const Case cases[] = {
        {"E_RUNTIME", 1},         {"E_USAGE", 2},          {"E_NOT_FOUND", 3},
        {"E_APP_UNAVAILABLE", 4}, {"E_AMBIGUOUS", 5},      {"E_VALIDATION", 6},
        {"E_CAPABILITY", 7},      {"E_CONFLICT", 8},       {"E_UNAUTHORIZED", 9},
        {"E_BUSY", 10},           {"E_LIKELY_SECRET", 11}, {"E_TIMEOUT", 124},
        {"E_FROM_THE_FUTURE", 1},
    };
    for (const auto& c : cases) {
        const auto response = CLIResponse::failure(c.code, "No snippet matches 'x'.",
                                                   "List them with `marlune snippet list`.");
        const auto output = OutputFormatter::format("snippet.get", response, {});
        EXPECT_EQ(output.exitStatus, c.status) << c.code;
        EXPECT_EQ(output.out, "");
        EXPECT_EQ(output.err, "marlune: No snippet matches 'x'.\n"
                              "hint: List them with `marlune snippet list`.\n");
    }
    EXPECT_EQ(OutputFormatter::error({"E_CONFLICT", "Keyword in use.", std::nullopt}).err,
              "marlune: Keyword in use.\n");
}

TEST(OutputFormatter, UnreadableOrMissingResultsAreRuntimeFailures) {
    CLIResponse noResult;
    noResult.ok = true;
    const auto missing = OutputFormatter::format("ping", noResult, {});
    EXPECT_EQ(missing.exitStatus, 1);
    EXPECT_EQ(missing.err, "marlune: Response had no result payload.\n");

    const auto wrongShape =
        OutputFormatter::format("ping", CLIResponse::success(R"({"version":3})"), {});
    EXPECT_EQ(wrongShape.exitStatus, 1);
    EXPECT_TRUE(wrongShape.err.starts_with("marlune: The application's result could not be read"))
        << wrongShape.err;

    const auto notJSON = OutputFormatter::format("ping", CLIResponse::success("{"), {.json = true});
    EXPECT_EQ(notJSON.exitStatus, 1);
}

TEST(OutputFormatter, WarningsAccompanyTheResultOnStandardError) {
    auto response = successResponse(snippet("ID", "k", "t"),
                                    {{"W_DUPLICATE_KEYWORD", "Another snippet uses ;sig."}});
    for (bool json : {false, true}) {
        const auto output = OutputFormatter::format("snippet.create", response, {.json = json});
        EXPECT_EQ(output.err, "marlune: warning: Another snippet uses ;sig.\n");
        EXPECT_EQ(output.exitStatus, 0);
        EXPECT_FALSE(output.out.empty());
    }
}

TEST(OutputFormatter, SettingsAndDeletionsReadAsSentences) {
    ConfigSetResultDTO set{"iCloudSyncEnabled", CLIJSONValue::boolean(true), CLIJSONValue::null(),
                           "bool", true};
    EXPECT_EQ(OutputFormatter::format("config.set", successResponse(set), {}).out,
              "key:      iCloudSyncEnabled\n"
              "value:    true\n"
              "previous: null\n"
              "type:     bool\n"
              "Quit and reopen Marlune for this to take effect.\n");

    std::vector<ConfigEntryDTO> entries{
        {"keywordPrefix", CLIJSONValue::string(";"), "string", false},
        {"maxUnpinnedHistory", CLIJSONValue::integer(500), "int", true}};
    EXPECT_EQ(OutputFormatter::format("config.list", successResponse(entries), {}).out,
              "KEY                 VALUE  TYPE    APPLIES\n"
              "keywordPrefix       ;      string\n"
              "maxUnpinnedHistory  500    int     relaunch\n");

    DeleteResultDTO dry{2, true, {"Signature", "Address"}};
    EXPECT_EQ(OutputFormatter::format("snippet.delete", successResponse(dry), {}).out,
              "Would delete 2 snippets:\n  Signature\n  Address\n");
    DeleteResultDTO one{1, false, {}};
    EXPECT_EQ(OutputFormatter::format("profile.unset", successResponse(one), {}).out,
              "Deleted 1 profile variable.\n");
}

TEST(OutputFormatter, ImportsNameTheSettingsLeftAloneAndCountTheClips) {
    DataImportResultDTO unasked;
    unasked.unappliedSettingKeys = {"skipLikelySecrets", "cliRequireBundledTool"};
    EXPECT_NE(OutputFormatter::format("data.import", successResponse(unasked), {})
                  .out.find("Left your settings as they are; the file also carries "
                            "skipLikelySecrets, cliRequireBundledTool. Pass --apply-settings to "
                            "apply them too.\n"),
              std::string::npos);
    DataImportResultDTO asked;
    asked.settingsApplied = 1;
    asked.appliedSettingKeys = {"keywordPrefix"};
    asked.dryRun = true;
    const auto dry = OutputFormatter::format("data.import", successResponse(asked), {}).out;
    EXPECT_NE(dry.find("Would apply the file's settings: keywordPrefix.\n"), std::string::npos);
    EXPECT_EQ(dry.find("--apply-settings"), std::string::npos) << dry;

    DataImportResultDTO clips;
    clips.clips = 2;
    EXPECT_EQ(OutputFormatter::format("clip.import", successResponse(clips), {}).out,
              "Imported 2 clips into the history.\n");
    clips.dryRun = true;
    clips.clips = 1;
    EXPECT_EQ(OutputFormatter::format("clip.import", successResponse(clips), {}).out,
              "Would import 1 clip; nothing was changed (dry run).\n");
}

} // namespace
} // namespace marlune
