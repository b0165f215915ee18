#include "ImportFixtures.h"
#include "LibraryImport/LibraryImporter.h"
#include "LibraryImport/StableID.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using namespace testing;

ImportConversion converted(ImportOutcome outcome) {
    if (const auto* error = std::get_if<ImportError>(&outcome)) {
        ADD_FAILURE() << error->message();
        ImportConversion empty;
        empty.document.snippets.emplace();
        empty.document.groups.emplace();
        return empty;
    }
    return std::get<ImportConversion>(std::move(outcome));
}

const SnippetDTO* byKeyword(const ImportConversion& c, std::string_view keyword) {
    for (const auto& s : *c.document.snippets) {
        if (s.keyword == keyword) {
            return &s;
        }
    }
    return nullptr;
}

bool hasNote(const ImportConversion& c, std::string_view note) {
    return std::find(c.warnings.begin(), c.warnings.end(), note) != c.warnings.end();
}

struct Expected {
    std::string keyword;
    std::string content;
    std::int64_t fillInCount = 0;
};

void expectSnippets(const ImportConversion& c, const std::vector<Expected>& expected) {
    for (const auto& e : expected) {
        SCOPED_TRACE(e.keyword);
        const auto* s = byKeyword(c, e.keyword);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(s->content, e.content);
        EXPECT_EQ(s->fillInCount, e.fillInCount);
    }
}

void expectNotes(const ImportConversion& c, const std::vector<std::string>& notes) {
    for (const auto& note : notes) {
        EXPECT_TRUE(hasNote(c, note)) << "missing note: " << note;
    }
}

ImportOutcome convertFixture(const std::string& file, std::optional<ImportFormat> format = {},
                             bool fromCLI = false) {
    const auto text = readFixture(file);
    const auto name = std::filesystem::path(file).filename().string();
    return LibraryImporter::convert(name, bytesOf(text), fixtureOptions(name), format, fromCLI);
}

TEST(StableID, IsTheNameBasedUUIDOfTheNamespaceAndSourceID) {
    // Cross-checked against an independent version 5 implementation over the URL namespace.
    EXPECT_EQ(StableID::make(StableID::alfred, "A1B2C3D4-0000-4000-8000-000000000001"),
              "2FA9F94F-BB29-5F23-B244-76EC66A1782C");
    EXPECT_EQ(StableID::make(StableID::textexpanderCSV, ";thx"),
              "DF28FA75-9D08-5F1A-BFBB-0BF409F920CF");
    EXPECT_NE(StableID::make(StableID::textexpander, "x"), StableID::make(StableID::raycast, "x"));
}

TEST(TextExpanderImporter, CSVMacrosBecomePlaceholdersOrAreNoted) {
    const auto c = converted(convertFixture("textexpander/Customer Replies.csv"));
    expectSnippets(
        c, {
               {"thx",
                "Thanks for getting in touch, {@text|name=First Name|default=there@}!\n\nI'll look "
                "into it and reply by {@date|format=EEEE@}.{@cursor@}",
                1},
               {"date", "{@date|format=MMMM d yyyy@}"},
               {"size", "Size: {@select|name=Size|options=Medium,Small,Large@}", 1},
               {"arrow", "Name%key:tab% done"},
               {"later", "Due {@date|format=MM/dd/yyyy@}"},
               {"notes", "Notes: {@text|name=Notes@}", 1},
               {"opt", "Hello PS: see you"},
               {"pipe", "{@text|name=Cost ¦ Tax꞊|default=5@｝@}", 1},
               {"ref", "See {@snippet|keyword=addr@}"},
               {"pct", "Save 50% today"},
               {"odd", "%key:tab%Done %foo% 100%"},
               {"xsig", "Best,\nAda"},
           });
    expectNotes(
        c,
        {
            "“Key macros”: the %key:tab% key macro isn't supported — left as typed.",
            "“Key macros”: the %v cursor-key macro was dropped (Marlune types text, not keys).",
            "“Due next week”: the date adjustment %@+7D was dropped — the date shows today.",
            "“Call notes”: a multi-line fill-in (%fillarea%) became a single-line field.",
            "“Optional PS”: an optional section (%fillpart%) was imported as always-on text.",
            "“Odd field”: a fill-in's name or value contained | , = or @} — swapped for "
            "look-alikes Marlune can store.",
            "“Literal brace”: the text contains “{@”, which Marlune reads as the start of a "
            "placeholder.",
            "“Unknown macros”: the %foo% macro isn't supported — left as typed.",
            "A row with only “;empty” and no snippet text was skipped.",
            "“Duplicate” appears twice in the file — only the first one is imported.",
            "“xsig” doesn't start with your keyword prefix “;”, so you'll type it in front of it "
            "(;xsig).",
        });
    EXPECT_EQ(c.skippedCount, 2);
    ASSERT_EQ(c.document.groups->size(), 1U);
    EXPECT_EQ(c.document.groups->front().name, "TextExpander Snippets");
    EXPECT_EQ(c.document.groups->front().snippetCount, 14);
    EXPECT_EQ(byKeyword(c, "thx")->keywordTrigger, ";thx");
    EXPECT_EQ(byKeyword(c, "thx")->createdAt, "2026-03-04T05:00:00Z");
}

TEST(TextExpanderImporter, SettingsListSkipsSuggestionsScriptsAndSnippetsWithoutText) {
    const auto plist = readFixture("textexpander/Settings.xml");
    const struct {
        const char* layout;
        std::vector<std::uint8_t> bytes;
    } layouts[] = {
        {"bare property list", bytesOf(plist)},
        {"zipped", buildZip({file("Settings.textexpander/Settings.plist", plist)}).bytes},
    };
    for (const auto& layout : layouts) {
        SCOPED_TRACE(layout.layout);
        const auto c = converted(LibraryImporter::convert("Settings.textexpander", layout.bytes,
                                                          fixtureOptions("Settings.textexpander")));
        ASSERT_EQ(c.document.snippets->size(), 3U);
        expectSnippets(c, {{"sig", "Best regards,\n{@text|name=Sender|default=Ada@}", 1},
                           {"rich", "Analytical Engines Ltd"},
                           {"today", "{@date|format=yyyy-MM-dd@}"}});
        EXPECT_EQ(byKeyword(c, "sig")->group->name, "Work");
        EXPECT_EQ(byKeyword(c, "today")->group->name, "TextExpander Snippets");
        EXPECT_EQ(byKeyword(c, "password1"), nullptr);
        expectNotes(c, {"Skipped the Suggested Snippets group (2) — TextExpander fills it with "
                        "text it saw you type, which can include passwords.",
                        "“Logo only” has no plain text — skipped.",
                        "“My IP” is a shell script snippet — skipped. Marlune never runs scripts.",
                        "“Picture” is a kind of TextExpander snippet Marlune can't import — "
                        "skipped."});
        EXPECT_EQ(c.skippedCount, 5);
    }
}

TEST(RaycastImporter, PlaceholdersArgumentsAndReferences) {
    const auto c = converted(convertFixture("raycast/snippets.json"));
    expectSnippets(c, {
                          {"!hi", "Hello {@text|name=Name|default=there@}, {@cursor@}", 1},
                          {"!shout", "{@clipboard|transform=uppercase@}"},
                          {"!stamp", "{@date|format=yyyy-MM-dd@} {@time@}"},
                          {"!tmr", "{@date@}"},
                          {"!size", "{@select|name=Size|options=Small,Medium,Large@}", 1},
                          {"!foot", "-- Hello {@text|name=Name|default=there@}, {@cursor@}", 1},
                          {"!lost", "{snippet name=\"Nowhere\"} and {snippet}"},
                          {"!broken", "{date format=yyyy}"},
                          {"!pipe", "{@text|name=a¦b@}", 1},
                      });
    expectNotes(
        c,
        {"An entry without snippet text was skipped.",
         "“Tomorrow”: the offset=\"+1d\" setting was dropped — the date shows today, in your "
         "language.",
         "“Size”: the default “Huge” isn't one of the options — the first option is the default.",
         "“Footer”: the snippet “Greeting” was copied in — later edits to it won't carry over.",
         "“Lost”: {snippet name=\"Nowhere\"} refers to a snippet that isn't in this file — left "
         "as typed.",
         "“Lost”: {snippet} doesn't name a snippet — left as typed.",
         "“Math”: {=2*21} (a calculation) has no Marlune equivalent — left as typed.",
         "“Math”: the “trim” setting can't apply to a fill-in — dropped.",
         "“Broken”: {date format=yyyy} couldn't be read — left as typed.",
         "“Pipe”: a value contained | , = or @} — swapped for look-alikes Marlune can store.",
         "10 keywords don't start with your keyword prefix “;”, so you'll type it in front of "
         "them (for example ;!hi). To keep typing them as before, set the keyword prefix to “!” "
         "in Marlune's Settings, then import again."});
    EXPECT_EQ(c.document.groups->front().name, "Raycast Snippets");
}

TEST(AlfredImporter, CollectionPrefixReferencesAndAutoExpansion) {
    const auto bytes = zipFolder("alfred/Work Replies");
    const auto c = converted(LibraryImporter::convert(
        "Work Replies.alfredsnippets", bytes, fixtureOptions("Work Replies.alfredsnippets")));
    expectSnippets(
        c, {
               {"sig", "Kind regards,\nAda{@cursor@}"},
               {"reply", "Hi,\nKind regards,\nAda{@cursor@}\n{snippet:missing}"},
               {"loop", "again {snippet:loop}"},
               {"stamp", "{@date|format=yyyy-MM-dd@} {@time|format=short@} {@date@} {clipboard:1} "
                         "{@clipboard|transform=uppercase@} {@random|min=1|max=6@} "
                         "{random:red,green}"},
           });
    EXPECT_EQ(byKeyword(c, "sig2"), nullptr) << "a second file with the same uid is dropped";
    EXPECT_EQ(byKeyword(c, "sig")->id, "2FA9F94F-BB29-5F23-B244-76EC66A1782C");
    EXPECT_EQ(byKeyword(c, "sig")->group->name, "Work Replies");
    expectNotes(
        c,
        {"“Blank” has no snippet text — skipped.",
         "“Damaged.json” isn't a readable snippet — skipped.",
         "“Copy of Signature” appears twice in the file — only the first one is imported.",
         "“Loop”: {snippet:loop} refers back to itself — left as typed.",
         "“Loop”: formatting was dropped — imported as plain text.",
         "“Reply”: {snippet:sig} was copied in — later edits to it won't carry over.",
         "“Reply”: {snippet:missing} refers to a snippet that isn't in this collection — left as "
         "typed.",
         "“Stamp”: the date math (+1d) was dropped — it shows the current date and time.",
         "“Stamp”: {clipboard:1} pastes an older clipboard item — Marlune only has the current "
         "one; left as typed.",
         "“Stamp”: {random:red,green} has no Marlune equivalent (only number ranges like "
         "{random:1..5} do) — left as typed.",
         "2 snippets were set not to expand automatically in Alfred — in Marlune, typing their "
         "keyword expands them (for example “Reply”, “Stamp”).",
         "Alfred's keyword prefix “\\” is replaced by your Marlune prefix “;” (for example "
         ";loop)."});
    EXPECT_EQ(c.skippedCount, 3);
}

TEST(EspansoImporter, MatchesVariablesAndFormsFromTheCommandLine) {
    EXPECT_EQ(std::get<ImportError>(convertFixture("espanso/base.yml")).message(),
              "espanso libraries import from Terminal: marlune data import <file> --format "
              "espanso");
    const auto c = converted(convertFixture("espanso/base.yml", std::nullopt, true));
    expectSnippets(c, {
                          {":sig", "Best,\nAda{@cursor@}"},
                          {":hello", "Hello friend, it is {@date|format=yyyy-MM-dd@}"},
                          {":hi", "Hello friend, it is {@date|format=yyyy-MM-dd@}"},
                          {":clip", "Pasted: {@clipboard@}"},
                          {":when", "{{week}} {{missing}} {{form1.name}}"},
                          {":form",
                           "Dear {@text|name=name@}, choose {@select|name=size|options=Small,"
                           "Large@} and say {@text|name=note@}",
                           3},
                      });
    EXPECT_EQ(byKeyword(c, ":md")->contentType, "markdown");
    EXPECT_EQ(byKeyword(c, ":hello")->title, "Greeting");
    expectNotes(c,
                {"Match ':when': variable 'week' uses strftime tokens with no clean mapping — "
                 "left verbatim.",
                 "Match ':when': '{{missing}}' has no matching var — left verbatim.",
                 "Match ':when': '{{form1.name}}' — inline form references aren't portable; left "
                 "verbatim.",
                 "Match ':sh': variable 'out' (shell) — its {{…}} references are left verbatim.",
                 "Match ':form': field 'size': espanso default 'Large' isn't the first choice — "
                 "Marlune choices always default to the first option.",
                 "Match ':form': field 'note' is multiline — imported as a single-line fill-in.",
                 "Match ':md': word — no Marlune equivalent, imported without it.",
                 "Match '=(?P<num>\\d+)' skipped — Marlune has no regex triggers.",
                 "A match with no trigger was skipped.",
                 "Match ':empty' has no replace/markdown/form content — skipped."});
}

TEST(LibraryImporter, ASnippetOverTheBodyLimitIsSkippedByNameAndTheRestImported) {
    const std::string json = R"([{"name": "Huge", "keyword": ";huge", "text": ")" +
                             std::string(2'000'000, 'x') +
                             R"("}, {"name": "Small", "keyword": ";s", "text": "hi"}])";
    const auto c = converted(
        LibraryImporter::convert("big.json", bytesOf(json), fixtureOptions("big.json"), {}, false));
    ASSERT_EQ(c.document.snippets->size(), 1U);
    EXPECT_EQ(c.document.snippets->front().title, "Small");
    EXPECT_EQ(c.skippedCount, 1);
    expectNotes(c, {"“Huge” was skipped. The snippet body is 2.0 MB, over the 1 MiB limit for a "
                    "snippet body."});
}

TEST(LibraryImporter, ConvertingTheSameFileTwiceGivesTheSameIDs) {
    for (const char* file : {"textexpander/Customer Replies.csv", "raycast/snippets.json"}) {
        SCOPED_TRACE(file);
        const auto first = converted(convertFixture(file));
        const auto second = converted(convertFixture(file));
        EXPECT_EQ(first.document, second.document);
    }
}

TEST(LibraryImporter, EveryRefusalHasItsMessage) {
    const auto alfredOf = [](std::vector<FixtureEntry> entries) { return buildZip(entries).bytes; };
    const struct {
        const char* fault;
        std::string fileName;
        std::vector<std::uint8_t> bytes;
        bool fromCLI;
        std::string message;
    } cases[] = {
        {"unknown extension and content", "notes.txt", bytesOf("just some notes"), false,
         "Marlune doesn't recognize that file. It imports Marlune backups, TextExpander (.csv or "
         ".textexpander), Raycast (.json) and Alfred (.alfredsnippets) snippets."},
        {"not UTF-8", "x.csv", bytesOf("\xff\xfe;a,b"), false,
         "That file isn't readable text (UTF-8)."},
        {"unterminated quote", "unterminated.csv",
         bytesOf(readFixture("textexpander/unterminated.csv")), false,
         "That isn't a valid TextExpander file: a quoted field that starts on line 3."},
        {"CSV of empty rows", "x.csv", bytesOf(",\n,\n"), false,
         "No snippets to import in that TextExpander file."},
        {"Raycast not JSON", "x.json", bytesOf("[oops"), false,
         "That isn't a valid Raycast file: the JSON can't be read."},
        {"Raycast not a list", "x.json", bytesOf("\"text\""), false,
         "That isn't a valid Raycast file: expected a list of snippets."},
        {"plist unreadable", "x.textexpander", bytesOf("<?xml this is not a plist"), false,
         "That isn't a valid TextExpander file: the property list can't be read."},
        {"plist without snippet list", "x.textexpander",
         bytesOf("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict/></plist>"), false,
         "That isn't a valid TextExpander file: there's no snippet list (snippetsTE2) in it."},
        {"plist with empty list", "x.textexpander",
         bytesOf("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>snippetsTE2</key>"
                 "<array/></dict></plist>"),
         false, "That isn't a valid TextExpander file: the property list has no snippets."},
        {"archive that isn't a ZIP", "x.alfredsnippets", bytesOf("not a zip at all, sorry"), false,
         "That isn't a valid Alfred file: it isn't a ZIP archive."},
        {"archive with a traversal name", "x.alfredsnippets",
         alfredOf({file("../evil.json", "{}")}), false,
         "That isn't a valid Alfred file: collection with an unsafe name (a folder path or “..”)."},
        {"archive with nothing readable", "x.alfredsnippets", alfredOf({file("a.json", "[]")}),
         false, "No snippets to import in that Alfred file."},
        {"Marlune document that isn't one", "backup.json", bytesOf("{\"schemaVersion\": \"two\"}"),
         false, "That file isn't a valid Marlune export."},
        {"espanso YAML that doesn't parse", "base.yml", bytesOf("matches: [unclosed"), true, ""},
        {"espanso without matches", "base.yml", bytesOf("matches: []\n"), true,
         "No importable matches found (empty `matches:` list, or all skipped)."},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fault);
        const auto outcome = LibraryImporter::convert(
            c.fileName, c.bytes, fixtureOptions(c.fileName), std::nullopt, c.fromCLI);
        ASSERT_TRUE(std::holds_alternative<ImportError>(outcome));
        const auto message = std::get<ImportError>(outcome).message();
        if (c.message.empty()) {
            EXPECT_TRUE(message.starts_with("Not a valid espanso YAML file: ")) << message;
        } else {
            EXPECT_EQ(message, c.message);
        }
    }
}

TEST(LibraryImporter, DetectsByExtensionThenContent) {
    const auto zipWith = [](const char* name) { return buildZip({file(name, "x")}).bytes; };
    const struct {
        const char* fileName;
        std::vector<std::uint8_t> bytes;
        ImportFormat format;
    } cases[] = {
        {"a.CSV", bytesOf(";a,b"), ImportFormat::textexpander},
        {"a.textexpander", zipWith("Settings.plist"), ImportFormat::textexpander},
        {"a.alfredsnippets", zipWith("info.plist"), ImportFormat::alfred},
        {"a.json", bytesOf("  [ ]"), ImportFormat::raycast},
        {"a.json", bytesOf("\xEF\xBB\xBF{\"schemaVersion\": 2}"), ImportFormat::marlune},
        {"a.yaml", bytesOf("matches:"), ImportFormat::espanso},
        {"download", zipWith("x [1].json"), ImportFormat::alfred},
        {"download", zipWith("Settings.plist"), ImportFormat::textexpander},
        {"download", bytesOf("bplist00"), ImportFormat::textexpander},
        {"download", bytesOf("{\"schemaVersion\": 2}"), ImportFormat::marlune},
        {"download", bytesOf("# mine\nmatches:\n"), ImportFormat::espanso},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.fileName);
        const auto detected = LibraryImporter::detect(c.fileName, c.bytes, true);
        ASSERT_TRUE(std::holds_alternative<ImportFormat>(detected));
        EXPECT_EQ(std::get<ImportFormat>(detected), c.format);
    }
}

} // namespace
} // namespace marlune
