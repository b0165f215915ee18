#include "Marlune/ConfigRegistry.h"
#include "Marlune/LibraryPortability.h"
#include "MarluneCore/ProfileStore.h"
#include "MarluneCore/SnippetStore.h"
#include "support/LibraryFixture.h"

#include <gtest/gtest.h>
#include <memory>

namespace marlune {
namespace {

using test::testNow;

// A library with its own settings file, as the application has them.
struct Workspace {
    Workspace()
        : settings(Settings::load(library.dir.path() / "settings.json",
                                  std::chrono::system_clock::time_point(testNow()))) {}

    LibraryPortability portability() { return {library.context(), settings}; }
    SnippetStore store() { return SnippetStore(library.context()); }
    std::int64_t count(const char* sql) {
        auto stmt = library.context().db().prepare(sql);
        stmt.step();
        return stmt.int64(0);
    }

    test::Library library;
    Settings settings;
};

Snippet makeSnippet(std::string title, std::string keyword, std::string content) {
    Snippet s = Snippet::make(testNow());
    s.title = std::move(title);
    s.keyword = std::move(keyword);
    s.content = std::move(content);
    return s;
}

// A thousand snippets over nested groups, tags, pinboards, a profile and changed settings.
void fillLibrary(Workspace& w) {
    auto store = w.store();
    std::vector<SnippetGroup> groups;
    for (int i = 0; i < 10; ++i) {
        SnippetGroup g = SnippetGroup::make(test::daysAfter(testNow(), -i));
        g.name = "Group " + std::to_string(i);
        g.sortIndex = i;
        g.colorRole = i % 2 == 0 ? std::optional<std::string>("blue") : std::nullopt;
        if (i > 5) {
            g.parentID = groups[1].id;
        }
        groups.push_back(store.createGroup(g, g.createdAt));
    }
    std::vector<Tag> tags;
    for (int i = 0; i < 5; ++i) {
        Tag t = Tag::make(testNow());
        t.name = "tag/" + std::to_string(i);
        tags.push_back(store.createTag(t, testNow()));
    }
    for (int i = 0; i < 1000; ++i) {
        Snippet s = makeSnippet("Snippet " + std::to_string(i), "kw" + std::to_string(i),
                                "Hello {@text|name=Who@} number " + std::to_string(i) +
                                    " — https://example.org/a/b");
        s.contentType = i % 7 == 0 ? SnippetContentType::markdown : SnippetContentType::plainText;
        s.isFavorite = i % 5 == 0;
        if (i % 3 != 0) {
            s.groupID = groups[static_cast<std::size_t>(i % 10)].id;
        }
        s.tagIDs = {tags[static_cast<std::size_t>(i % 5)].id};
        if (i % 4 == 0) {
            s.tagIDs.push_back(tags[static_cast<std::size_t>((i + 1) % 5)].id);
        }
        const Date created = test::daysAfter(testNow(), -1000 + i);
        auto made = store.create(s, created);
        if (i % 2 == 0) {
            store.recordUse(made.id, test::daysAfter(created, 1));
        }
    }
    for (int i = 0; i < 3; ++i) {
        w.library.context()
            .db()
            .prepare("INSERT INTO Pinboard (id, name, iconSymbol, sortIndex, createdAt, isBoard) "
                     "VALUES (?1, ?2, 'pin', ?3, ?4, ?5)")
            .bind(1, Uuid::random().string())
            .bind(2, "Board " + std::to_string(i))
            .bind(3, i)
            .bind(4, toStorage(testNow()))
            .bind(5, i == 2 ? std::optional<std::int64_t>(1) : std::nullopt)
            .run();
    }
    ProfileStore(w.library.context()).setValues({{"name", "Ada"}, {"email", "ada@example.org"}});
    w.settings.setInteger("maxUnpinnedHistory", 250);
    w.settings.setBoolean("cliRequireBundledTool", false);
}

DataDocumentDTO withoutExportTime(DataDocumentDTO document) {
    document.exportedAt.reset();
    return document;
}

TEST(LibraryPortability, ExportImportExportRoundTripsAThousandSnippets) {
    Workspace source;
    fillLibrary(source);
    const auto first =
        source.portability().exportDocument(LibraryPortability::Scope::everything, testNow());
    ASSERT_EQ(first.snippets->size(), 1000U);
    EXPECT_EQ(first.pinboards->size(), 2U) << "Board sections stay out of the document";
    const std::string text = LibraryPortability::encode(first);
    EXPECT_NE(text.find("https://example.org/a/b"), std::string::npos) << "slashes as they are";
    EXPECT_LT(text.find("\"content\""), text.find("\"contentType\"")) << "keys sorted";

    Workspace target;
    LibraryPortability::ApplyOptions options;
    options.applySettings = true;
    const auto result =
        target.portability().importText(text, options, test::daysAfter(testNow(), 3));
    EXPECT_EQ(result.createdSnippets, 1000);
    EXPECT_EQ(result.groups, 10);
    EXPECT_EQ(result.tags, 5);
    EXPECT_EQ(result.pinboards, 2);
    EXPECT_EQ(result.profileVars, 2);
    EXPECT_EQ(result.settingsRequiringRelaunch, std::vector<std::string>{"cliRequireBundledTool"});

    const auto second = target.portability().exportDocument(LibraryPortability::Scope::everything,
                                                            test::daysAfter(testNow(), 4));
    EXPECT_NE(first.exportedAt, second.exportedAt);
    EXPECT_EQ(withoutExportTime(first), withoutExportTime(second));
}

TEST(LibraryPortability, ImportingTheSameExportAgainCreatesNothing) {
    Workspace w;
    fillLibrary(w);
    const auto document =
        w.portability().exportDocument(LibraryPortability::Scope::snippets, testNow());
    const auto result = w.portability().apply(document, {}, testNow());
    EXPECT_EQ(result.createdSnippets, 0);
    EXPECT_EQ(result.snippets, 1000);
    EXPECT_TRUE(result.duplicateKeywords.empty());
    EXPECT_EQ(w.count("SELECT count(*) FROM Snippet"), 1000);
}

// A library with one snippet in the Trash and one whose keyword the document also uses.
struct MergeCase : Workspace {
    MergeCase() {
        auto s = store();
        trashed = s.create(makeSnippet("Old sig", "sig", "old"), testNow());
        s.moveToTrash(trashed.id, testNow());
        kept = s.create(makeSnippet("Address", "addr", "12 Square"), testNow());
        other = s.create(makeSnippet("Other", "other", "x"), testNow());

        DataDocumentDTO doc;
        doc.schemaVersion = 2;
        doc.snippets.emplace();
        const auto dto = [](const Snippet& from, std::string keyword) {
            SnippetDTO d;
            d.id = from.id.string();
            d.title = from.title;
            d.keyword = std::move(keyword);
            d.content = "from the file";
            d.contentType = "plainText";
            d.createdAt = d.updatedAt = "2026-01-02T03:04:05Z";
            return d;
        };
        doc.snippets->push_back(dto(trashed, "sig"));
        SnippetDTO fresh = dto(makeSnippet("New", "", ""), "addr");
        fresh.group = GroupRefDTO{Uuid::random().string(), "Made on the way"};
        fresh.tags = {TagRefDTO{Uuid::random().string(), "new tag"}};
        doc.snippets->push_back(fresh);
        SnippetDTO twin = dto(makeSnippet("Twin", "", ""), "addr");
        doc.snippets->push_back(twin);
        doc.profile = std::vector<ProfileVarDTO>{{"name", "Ada"}};
        document = doc;
    }
    Snippet trashed, kept, other;
    DataDocumentDTO document;
};

TEST(LibraryPortability, DryRunGivesTheFiguresOfTheRealRunAndChangesNothing) {
    for (const bool replace : {false, true}) {
        SCOPED_TRACE(replace ? "replace" : "merge");
        MergeCase w;
        LibraryPortability::ApplyOptions options;
        options.replace = replace;
        options.dryRun = true;
        const auto dry = w.portability().apply(w.document, options, testNow());
        EXPECT_TRUE(dry.dryRun);
        EXPECT_EQ(w.count("SELECT count(*) FROM Snippet"), 3);
        EXPECT_EQ(w.count("SELECT count(*) FROM Snippet WHERE deletedAt IS NULL"), 2);
        EXPECT_EQ(w.count("SELECT count(*) FROM SnippetGroup"), 0);
        EXPECT_FALSE(w.library.context().undoManager().canUndo() &&
                     w.library.context().undoManager().undoActionName() == "Import Library");

        options.dryRun = false;
        auto real = w.portability().apply(w.document, options, testNow());
        EXPECT_FALSE(real.dryRun);
        real.dryRun = true;
        EXPECT_EQ(dry, real);
        EXPECT_EQ(real.createdSnippets, 2);
        EXPECT_EQ(real.restoredSnippets, 1);
        EXPECT_EQ(real.trashedSnippets, replace ? 2 : 0);
        EXPECT_EQ(w.library.context().undoManager().undoActionName(), "Import Library");
    }
}

TEST(LibraryPortability, MergeRestoresFromTheTrashAndReportsKeywordClashes) {
    MergeCase w;
    const auto result = w.portability().apply(w.document, {}, testNow());
    const auto restored = w.store().snippet(w.trashed.id);
    ASSERT_TRUE(restored);
    EXPECT_TRUE(restored->isLive());
    EXPECT_EQ(restored->content, "from the file");
    EXPECT_EQ(w.count("SELECT count(*) FROM Snippet WHERE keyword = 'addr' AND deletedAt IS NULL"),
              3)
        << "clashing snippets are all kept";
    EXPECT_EQ(result.duplicateKeywords, std::vector<std::string>{";addr"});
    EXPECT_EQ(result.keywordClashMessage(),
              "The keyword ;addr would belong to two snippets — only one of them expands. Rename "
              "one after importing.");
    EXPECT_EQ(w.count("SELECT count(*) FROM SnippetGroup WHERE name = 'Made on the way'"), 1);
    EXPECT_EQ(w.count("SELECT count(*) FROM Tag WHERE name = 'new tag'"), 1);

    LibraryPortability::ImportResult several;
    several.duplicateKeywords = {";a", ";b"};
    EXPECT_EQ(several.keywordClashMessage(),
              "2 keywords would belong to two snippets (;a, ;b) — only one of each pair expands. "
              "Rename one after importing.");
}

TEST(LibraryPortability, ReplaceMovesTheRestToTheTrashButNeedsSnippets) {
    MergeCase w;
    LibraryPortability::ApplyOptions replace;
    replace.replace = true;
    for (const bool empty : {false, true}) {
        DataDocumentDTO withoutSnippets = w.document;
        if (empty) {
            withoutSnippets.snippets.emplace();
        } else {
            withoutSnippets.snippets.reset();
        }
        try {
            w.portability().apply(withoutSnippets, replace, testNow());
            ADD_FAILURE() << "replace without snippets went ahead";
        } catch (const LibraryPortability::Error& error) {
            EXPECT_EQ(error.kind(), LibraryPortability::Error::Kind::replaceNeedsSnippets);
            EXPECT_STREQ(error.what(), "Replacing needs a file with at least one snippet — "
                                       "otherwise every snippet would move to the Trash.");
        }
        EXPECT_EQ(w.count("SELECT count(*) FROM Snippet WHERE deletedAt IS NULL"), 2);
    }
    // Without replace, a document lacking snippets leaves them alone and takes the rest.
    DataDocumentDTO profileOnly = w.document;
    profileOnly.snippets.reset();
    const auto merged = w.portability().apply(profileOnly, {}, testNow());
    EXPECT_EQ(merged.snippets, 0);
    EXPECT_EQ(merged.profileVars, 1);
    EXPECT_EQ(w.count("SELECT count(*) FROM Snippet WHERE deletedAt IS NULL"), 2);

    const auto result = w.portability().apply(w.document, replace, testNow());
    EXPECT_EQ(result.trashedSnippets, 2);
    EXPECT_FALSE(w.store().snippet(w.other.id)->isLive());
    EXPECT_EQ(w.count("SELECT count(*) FROM Snippet"), 5) << "nothing is deleted outright";
}

TEST(LibraryPortability, DocumentsThatArentOneAreRefusedBeforeAnyWrite) {
    const char* cases[] = {
        "not JSON at all",
        "[]",
        "{}",
        R"({"schemaVersion": 3})",
        R"({"schemaVersion": 2, "snippets": {}})",
        R"({"schemaVersion": 2, "groups": [{"id": "nope", "name": "G", "iconSymbol": "folder",
            "sortIndex": 0, "snippetCount": 0, "createdAt": "2026-01-01T00:00:00Z"}]})",
        R"({"schemaVersion": 2, "snippets": [{"id": "8E0B5A8C-3F4B-4C55-9C37-1A2B3C4D5E6F",
            "title": "t", "keyword": "k", "content": "c", "contentType": "plainText",
            "isFavorite": false, "createdAt": "yesterday", "updatedAt": "2026-01-01T00:00:00Z",
            "usageCount": 0, "tags": [], "fillInCount": 0, "hasAI": false}]})",
        R"({"schemaVersion": 2, "settings": {"keywordPrefix": 1.5}})",
    };
    Workspace w;
    for (const char* text : cases) {
        SCOPED_TRACE(text);
        try {
            w.portability().importText(text, {}, testNow());
            ADD_FAILURE() << "accepted";
        } catch (const LibraryPortability::Error& error) {
            EXPECT_EQ(error.kind(), LibraryPortability::Error::Kind::invalidDocument);
            EXPECT_STREQ(error.what(), "That file isn't a valid Marlune export.");
        }
    }
    EXPECT_EQ(w.count("SELECT count(*) FROM Snippet"), 0);
    EXPECT_EQ(w.count("SELECT count(*) FROM SnippetGroup"), 0);
}

TEST(LibraryPortability, OnlyKnownAcceptableSettingsAreApplied) {
    Workspace w;
    DataDocumentDTO doc;
    doc.schemaVersion = 2;
    doc.settings = std::map<std::string, CLIJSONValue>{
        {"keywordPrefix", CLIJSONValue::string("!")},
        {"maxUnpinnedHistory", CLIJSONValue::integer(0)},   // refused by its rule
        {"unlimitedHistory", CLIJSONValue::string("yes")},  // wrong type
        {"mainWindowWasOpen", CLIJSONValue::boolean(true)}, // internal
        {"someFutureKey", CLIJSONValue::boolean(true)},
        {"pasteShortcutOverrides", CLIJSONValue::string(R"({"*term*": "Ctrl+Shift+V"})")},
    };
    LibraryPortability::ApplyOptions options;
    const auto ignored = w.portability().apply(doc, options, testNow());
    EXPECT_TRUE(ignored.settingsApplied.empty()) << "settings need applySettings";
    options.applySettings = true;
    const auto result = w.portability().apply(doc, options, testNow());
    EXPECT_EQ(result.settingsApplied,
              (std::vector<std::string>{"keywordPrefix", "pasteShortcutOverrides"}));
    EXPECT_TRUE(result.changedShortcut);
    EXPECT_EQ(w.settings.string("keywordPrefix", ";"), "!");
    EXPECT_FALSE(w.settings.contains("mainWindowWasOpen"));
}

} // namespace
} // namespace marlune
