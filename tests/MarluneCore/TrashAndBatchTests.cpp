#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/SnippetStore.h"
#include "MarluneCore/TrashPolicy.h"
#include "support/LibraryFixture.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using test::daysAfter;
using test::Library;
using test::testNow;

Snippet snippetWith(const std::string& title, const std::string& keyword) {
    Snippet s = Snippet::make(testNow());
    s.title = title;
    s.keyword = keyword;
    s.content = "Body of " + title;
    return s;
}

NewClip clipWith(const std::string& text) {
    NewClip clip;
    clip.previewText = text;
    Representation rep;
    rep.utTypeIdentifier = "public.utf8-plain-text";
    rep.text = text;
    rep.data = std::vector<std::uint8_t>(text.begin(), text.end());
    clip.representations.push_back(rep);
    return clip;
}

std::int64_t countRows(ModelContext& context, const std::string& table) {
    auto stmt = context.db().prepare("SELECT count(*) FROM " + table);
    stmt.step();
    return stmt.int64(0);
}

TEST(TrashPolicy, DaysLeftCountsWholeDaysDown) {
    const Date trashed = testNow();
    struct Case {
        double daysLater;
        std::int64_t expected;
    } cases[] = {
        {0, 30},   {15 + 1.0 / 24, 15}, {29.9, 1}, {30, 0}, {31, 0},
        {-2, 30}, // a clock set back never shows more than the retention
        {29.999999, 1},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(TrashPolicy::daysLeft(trashed, daysAfter(trashed, c.daysLater)), c.expected)
            << c.daysLater << " days after";
    }
}

TEST(TrashPolicy, PurgeIsStrictToTheSecondAndSparesLiveRecords) {
    Library library;
    auto& context = library.context();
    SnippetStore snippets(context);
    ClipStore clips(context, {});
    const Date now = testNow();
    const Date exactly30 = now - std::chrono::seconds(2'592'000);
    const Date justOver = exactly30 - std::chrono::seconds(1);

    const Clip keep = clips.record(clipWith("exactly thirty days"), daysAfter(now, -40));
    const Clip purge = clips.record(clipWith("thirty days and a second"), daysAfter(now, -40));
    const Clip live = clips.record(clipWith("live and ancient"), daysAfter(now, -4000));
    BatchActions::moveClipsToTrash(context, {keep.id}, exactly30);
    BatchActions::moveClipsToTrash(context, {purge.id}, justOver);

    const auto tag = snippets.createTag([] { Tag t; t.name = "work"; return t; }(), now);
    const auto group = snippets.createGroup([] { SnippetGroup g; g.name = "Mail"; return g; }(), now);
    Snippet oldSnippet = snippetWith("Old", ";old");
    oldSnippet.groupID = group.id;
    oldSnippet.tagIDs = {tag.id};
    oldSnippet = snippets.create(oldSnippet, now);
    snippets.moveToTrash(oldSnippet.id, justOver);

    EXPECT_EQ(TrashPolicy::purgeExpired(context, now), 2);
    EXPECT_TRUE(clips.clip(keep.id));
    EXPECT_FALSE(clips.clip(purge.id));
    EXPECT_TRUE(clips.clip(live.id));
    EXPECT_FALSE(snippets.snippet(oldSnippet.id));
    EXPECT_TRUE(snippets.group(group.id)) << "purging a snippet leaves its group";
    EXPECT_EQ(snippets.tags().size(), 1U) << "purging a snippet leaves its tags";
    EXPECT_EQ(countRows(context, "Representation"), 2) << "the purged clip's flavours go with it";
    EXPECT_EQ(countRows(context, "RepresentationData"), 2);
    EXPECT_EQ(countRows(context, "SnippetTag"), 0);
}

TEST(BatchActions, ActionNamesFollowTheCountRule) {
    struct Case {
        std::size_t count;
        const char* noun;
        const char* phrase;
        const char* trash;
    } cases[] = {
        {1, "Snippet", " Snippet", "Move Snippet to Trash"},
        {3, "Snippet", " 3 Snippets", "Move 3 Snippets to Trash"},
        {0, "Clip", " 0 Clips", "Move 0 Clips to Trash"},
        {1, "Clip", " Clip", "Move Clip to Trash"},
        {12, "Clip", " 12 Clips", "Move 12 Clips to Trash"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(BatchActions::countPhrase(c.count, c.noun), c.phrase);
        EXPECT_EQ(BatchActions::moveToTrashActionName(c.count, c.noun), c.trash);
    }
}

TEST(BatchActions, EachOperationNamesItsUndoStep) {
    Library library;
    auto& context = library.context();
    SnippetStore snippets(context);
    ClipStore clips(context, {});
    const auto s1 = snippets.create(snippetWith("A", ";a"), testNow()).id;
    const auto s2 = snippets.create(snippetWith("B", ";b"), testNow()).id;
    const auto c1 = clips.record(clipWith("one"), testNow()).id;
    const auto c2 = clips.record(clipWith("two"), testNow()).id;
    const auto tag = snippets.createTag(Tag::make(testNow()), testNow()).id;
    const Uuid board = Uuid::random();
    context.db().prepare("INSERT INTO Pinboard (id, createdAt) VALUES (?1, 0)").bind(1, board.string()).run();

    const std::pair<std::string, std::string> cases[] = {
        {BatchActions::addTagToSnippets(context, {s1, s2}, tag, testNow()), "Add Tag to 2 Snippets"},
        {BatchActions::removeTagFromSnippets(context, {s1}, tag, testNow()), "Remove Tag from Snippet"},
        {BatchActions::setClipsPinned(context, {c1, c2}, true), "Pin 2 Clips"},
        {BatchActions::setClipsPinned(context, {c1}, false), "Unpin Clip"},
        {BatchActions::addClipsToPinboard(context, {c1}, board), "Add Clip"},
        {BatchActions::removeClipsFromPinboard(context, {c1, c2}, board), "Remove 2 Clips"},
        {BatchActions::addTagToClips(context, {c1}, tag), "Add Tag to Clip"},
        {BatchActions::removeTagFromClips(context, {c1}, tag), "Remove Tag from Clip"},
        {BatchActions::duplicateSnippets(context, {s1, s2}, testNow()), "Duplicate 2 Snippets"},
        {BatchActions::moveSnippetsToTrash(context, {s1}, testNow()), "Move Snippet to Trash"},
        {BatchActions::deleteSnippets(context, {s1, s2}), "Delete 2 Snippets"},
        {BatchActions::moveClipsToTrash(context, {c1, c2}, testNow()), "Move 2 Clips to Trash"},
        {BatchActions::deleteClips(context, {c1}), "Delete Clip"},
    };
    for (const auto& [name, expected] : cases) {
        EXPECT_EQ(name, expected);
    }
    EXPECT_EQ(context.undoManager().undoActionName(), "Delete Clip");
}

TEST(BatchActions, OneUndoRevertsAWholeTrashBatchAndRedoRepeatsIt) {
    Library library;
    auto& context = library.context();
    SnippetStore snippets(context);
    std::vector<Uuid> ids;
    for (int i = 0; i < 3; ++i) {
        ids.push_back(snippets.create(snippetWith("S" + std::to_string(i), ";s" + std::to_string(i)),
                                      testNow())
                          .id);
    }
    BatchActions::moveSnippetsToTrash(context, ids, daysAfter(testNow(), 1));
    EXPECT_TRUE(snippets.list(SnippetSortMode::manual).empty());
    EXPECT_EQ(context.undoManager().undo(), "Move 3 Snippets to Trash");
    EXPECT_EQ(snippets.list(SnippetSortMode::manual).size(), 3U);
    for (const auto& id : ids) {
        EXPECT_EQ(snippets.snippet(id)->updatedAt, testNow()) << "undo restores every field";
    }
    EXPECT_EQ(context.undoManager().redo(), "Move 3 Snippets to Trash");
    EXPECT_EQ(snippets.list(SnippetSortMode::manual, true).size(), 3U);
}

TEST(BatchActions, UndoingAClipDeletionBringsBackFlavoursBytesAndMemberships) {
    Library library;
    auto& context = library.context();
    ClipStore clips(context, {});
    const Uuid board = Uuid::random();
    context.db().prepare("INSERT INTO Pinboard (id, createdAt) VALUES (?1, 0)").bind(1, board.string()).run();
    const Clip a = clips.record(clipWith("alpha"), testNow());
    const Clip b = clips.record(clipWith("beta"), testNow());
    BatchActions::addClipsToPinboard(context, {a.id}, board);
    const auto trimmableBefore = clips.trimmableCount();

    BatchActions::deleteClips(context, {a.id, b.id});
    EXPECT_EQ(countRows(context, "Representation"), 0);
    EXPECT_EQ(countRows(context, "ClipPinboard"), 0);

    EXPECT_EQ(context.undoManager().undo(), "Delete 2 Clips");
    EXPECT_EQ(clips.liveCount(), 2);
    const auto reps = clips.representations(a.id);
    ASSERT_EQ(reps.size(), 1U);
    EXPECT_EQ(reps[0].text, "alpha");
    EXPECT_EQ(reps[0].data, (std::vector<std::uint8_t>{'a', 'l', 'p', 'h', 'a'}));
    EXPECT_EQ(countRows(context, "ClipPinboard"), 1);
    EXPECT_EQ(clips.trimmableCount(), trimmableBefore);
}

TEST(BatchActions, DuplicateGetsCopyTitleNoKeywordAndSameGroupAndTags) {
    Library library;
    auto& context = library.context();
    SnippetStore snippets(context);
    const auto group = snippets.createGroup(SnippetGroup::make(testNow()), testNow());
    const auto tag = snippets.createTag(Tag::make(testNow()), testNow());
    Snippet invoice = snippetWith("Invoice", ";inv");
    invoice.groupID = group.id;
    invoice.tagIDs = {tag.id};
    invoice = snippets.create(invoice, testNow());
    const auto untitled = snippets.create(snippetWith("", ";u"), testNow());

    std::vector<Uuid> copies;
    BatchActions::duplicateSnippets(context, {invoice.id, untitled.id}, daysAfter(testNow(), 1),
                                    &copies);
    ASSERT_EQ(copies.size(), 2U);
    const auto copy = snippets.snippet(copies[0]);
    EXPECT_EQ(copy->title, "Invoice copy");
    EXPECT_EQ(copy->keyword, "");
    EXPECT_EQ(copy->content, invoice.content);
    EXPECT_EQ(copy->groupID, group.id);
    EXPECT_EQ(copy->tagIDs, std::vector<Uuid>{tag.id});
    EXPECT_TRUE(copy->isLive());
    EXPECT_EQ(snippets.snippet(copies[1])->title, "Untitled copy");
    EXPECT_EQ(snippets.liveSnippet(";inv")->id, invoice.id) << "the original keeps its keyword";
}

TEST(DeleteRules, GroupTakesSubGroupsButOnlyDetachesSnippets) {
    Library library;
    auto& context = library.context();
    SnippetStore snippets(context);
    const auto parent = snippets.createGroup(SnippetGroup::make(testNow()), testNow());
    SnippetGroup child = SnippetGroup::make(testNow());
    child.parentID = parent.id;
    const auto c1 = snippets.createGroup(child, testNow());
    child.id = Uuid::random();
    const auto c2 = snippets.createGroup(child, testNow());
    const Uuid homes[] = {parent.id, parent.id, c1.id, c2.id, c2.id};
    std::vector<Uuid> ids;
    for (int i = 0; i < 5; ++i) {
        Snippet s = snippetWith("S" + std::to_string(i), ";g" + std::to_string(i));
        s.groupID = homes[i];
        ids.push_back(snippets.create(s, testNow()).id);
    }
    snippets.deleteGroup(parent.id);
    EXPECT_TRUE(snippets.groups().empty());
    ASSERT_EQ(snippets.list(SnippetSortMode::manual).size(), 5U);
    for (const auto& id : ids) {
        EXPECT_FALSE(snippets.snippet(id)->groupID.has_value());
    }
}

TEST(DeleteRules, DeletingATagOrPinboardOnlyDetaches) {
    Library library;
    auto& context = library.context();
    SnippetStore snippets(context);
    ClipStore clips(context, {});
    const auto tag = snippets.createTag(Tag::make(testNow()), testNow());
    Snippet s = snippetWith("Tagged", ";t");
    s.tagIDs = {tag.id};
    s = snippets.create(s, testNow());
    const Clip clip = clips.record(clipWith("kept"), testNow());
    BatchActions::addTagToClips(context, {clip.id}, tag.id);
    const Uuid board = Uuid::random();
    context.db().prepare("INSERT INTO Pinboard (id, createdAt) VALUES (?1, 0)").bind(1, board.string()).run();
    BatchActions::addClipsToPinboard(context, {clip.id}, board);
    EXPECT_EQ(clips.trimmableCount(), 0);

    snippets.deleteTag(tag.id);
    context.db().prepare("DELETE FROM Pinboard WHERE id = ?1").bind(1, board.string()).run();
    EXPECT_TRUE(snippets.snippet(s.id)->tagIDs.empty());
    EXPECT_TRUE(clips.clip(clip.id));
    EXPECT_EQ(countRows(context, "ClipTag"), 0);
    EXPECT_EQ(clips.trimmableCount(), 1) << "a clip on no pinboard any more can be trimmed";
}

} // namespace
} // namespace marlune
