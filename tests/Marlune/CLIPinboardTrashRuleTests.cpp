#include "CLIHarness.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/LibraryRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/SnippetStore.h"

namespace marlune {
namespace {

namespace N = CLICommandName;
using V = std::vector<std::string>;

class PinboardTrashRule : public test::CLIHarness {
protected:
    Clip record(const std::string& text) {
        NewClip clip;
        clip.previewText = text;
        Representation plain;
        plain.utTypeIdentifier = "public.utf8-plain-text";
        plain.text = text;
        clip.representations.push_back(plain);
        return ClipStore(context(), {}).record(clip, test::testNow());
    }

    PinboardDTO create(const std::string& name) {
        PinboardWriteArgs args;
        args.name = name;
        return ok<PinboardDTO>(N::pinboardCreate, args);
    }
};

TEST_F(PinboardTrashRule, PinboardLifecycleKeepsNamesUniqueAndCountsLiveClips) {
    const auto work = create("Work");
    create("Home");
    EXPECT_EQ(work.sortIndex, 0);

    PinboardWriteArgs duplicate;
    duplicate.name = "WORK";
    EXPECT_EQ(fails(N::pinboardCreate, duplicate).code, "E_CONFLICT");
    duplicate.name = "  ";
    EXPECT_EQ(fails(N::pinboardCreate, duplicate).message, "A pinboard needs a name.");
    duplicate.name = "Colours";
    duplicate.colorRole = "mauve";
    EXPECT_EQ(fails(N::pinboardCreate, duplicate).code, "E_VALIDATION");

    const auto a = record("a");
    const auto b = record("b");
    PinboardClipArgs clips;
    clips.pinboardRef = "work";
    clips.clipRefs = {a.id.string(), b.id.string().substr(0, 8), a.id.string()};
    EXPECT_EQ(ok<PinboardDTO>(N::pinboardAddClip, clips).clipCount, 2);
    BatchActions::moveClipsToTrash(context(), {b.id}, test::testNow());
    GetArgs get;
    get.ref = "Wo";
    EXPECT_EQ(ok<PinboardDTO>(N::pinboardGet, get).clipCount, 1);
    clips.clipRefs = {a.id.string()};
    EXPECT_EQ(ok<PinboardDTO>(N::pinboardRemoveClip, clips).clipCount, 0);
    clips.clipRefs.clear();
    EXPECT_EQ(fails(N::pinboardAddClip, clips).message, "Provide at least one clip ref.");
    clips.pinboardRef = "";
    EXPECT_EQ(fails(N::pinboardAddClip, clips).message, "A pinboard reference is required.");

    PinboardWriteArgs rename;
    rename.ref = work.id;
    rename.name = "Office";
    rename.colorRole = "teal";
    const auto renamed = ok<PinboardDTO>(N::pinboardUpdate, rename);
    EXPECT_EQ(renamed.name, "Office");
    EXPECT_EQ(renamed.colorRole, "teal");

    ListArgs list;
    list.limit = 10;
    list.sort = "name";
    V names;
    for (const auto& p : ok<Page<PinboardDTO>>(N::pinboardList, list).items) {
        names.push_back(p.name);
    }
    EXPECT_EQ(names, (V{"Home", "Office"}));

    RefArgs remove;
    remove.ref = "office";
    remove.dryRun = true;
    ok<DeleteResultDTO>(N::pinboardDelete, remove);
    EXPECT_EQ(ok<Page<PinboardDTO>>(N::pinboardList, list).page.total, 2);
    remove.dryRun = false;
    ok<DeleteResultDTO>(N::pinboardDelete, remove);
    EXPECT_EQ(ok<Page<PinboardDTO>>(N::pinboardList, list).page.total, 1);
    // The clip it held stays in the history.
    EXPECT_TRUE(ClipStore(context(), {}).clip(a.id)->isLive());
    get.ref = "office";
    EXPECT_EQ(fails(N::pinboardGet, get).message, "No pinboard matches 'office'.");
}

TEST_F(PinboardTrashRule, TrashListsRestoresAndEmpties) {
    SnippetStore snippets(context());
    Snippet s = Snippet::make(test::testNow());
    s.title = "Old reply";
    s.keyword = "old";
    s = snippets.create(s, test::testNow());
    snippets.moveToTrash(s.id, test::daysAfter(test::testNow(), -12));
    const auto clip = record("line one\nline two");
    BatchActions::moveClipsToTrash(context(), {clip.id}, test::daysAfter(test::testNow(), -29.5));
    record("still live");

    TrashListArgs args;
    args.limit = 10;
    const auto page = ok<Page<TrashItemDTO>>(N::trashList, args);
    ASSERT_EQ(page.items.size(), 2U);
    EXPECT_EQ(page.items[0].kind, "snippet"); // trashed most recently
    EXPECT_EQ(page.items[0].label, "Old reply");
    EXPECT_EQ(page.items[0].daysLeft, 18);
    EXPECT_EQ(page.items[1].kind, "clip");
    EXPECT_EQ(page.items[1].label, "line one");
    EXPECT_EQ(page.items[1].daysLeft, 1);

    TrashRestoreArgs restore;
    restore.ref = "old";
    auto response = send(N::trashRestore, restore);
    ASSERT_TRUE(response.ok);
    EXPECT_EQ(std::get<SnippetDTO>(decodeResult<SnippetDTO>(response)).title, "Old reply");
    EXPECT_TRUE(snippets.snippet(s.id)->isLive());
    restore.ref = "old";
    EXPECT_EQ(fails(N::trashRestore, restore).message, "Nothing in the Trash matches 'old'.");

    TrashEmptyArgs empty;
    empty.dryRun = true;
    EXPECT_EQ(ok<DeleteResultDTO>(N::trashEmpty, empty).affected, (V{clip.id.string()}));
    restore.ref = clip.id.string().substr(0, 6);
    response = send(N::trashRestore, restore);
    ASSERT_TRUE(response.ok);
    EXPECT_EQ(std::get<ClipDTO>(decodeResult<ClipDTO>(response)).id, clip.id.string());

    BatchActions::moveClipsToTrash(context(), {clip.id}, test::testNow());
    empty.dryRun = false;
    EXPECT_EQ(ok<DeleteResultDTO>(N::trashEmpty, empty).deletedCount, 1);
    EXPECT_FALSE(ClipStore(context(), {}).clip(clip.id));
    EXPECT_EQ(ok<Page<TrashItemDTO>>(N::trashList, args).page.total, 0);
}

TEST_F(PinboardTrashRule, RulesAreAddedOncePerApplicationAndRemovedByNameOrId) {
    CaptureRuleWriteArgs add;
    add.bundleID = " KeePassXC ";
    add.appName = "KeePassXC";
    add.enabled = true;
    const auto rule = ok<CaptureRuleDTO>(N::ruleAdd, add);
    EXPECT_EQ(rule.bundleID, "KeePassXC");
    add.bundleID = "keepassxc";
    EXPECT_EQ(ok<CaptureRuleDTO>(N::ruleAdd, add).id, rule.id);
    add.bundleID = "firefox";
    add.enabled = false;
    EXPECT_FALSE(ok<CaptureRuleDTO>(N::ruleAdd, add).isEnabled);
    EXPECT_EQ(ok<Page<CaptureRuleDTO>>(N::ruleList, EmptyArgs{}).page.total, 2);

    CaptureRuleWriteArgs remove;
    remove.bundleID = "KEEPASSXC";
    EXPECT_EQ(ok<DeleteResultDTO>(N::ruleRemove, remove).affected, (V{rule.id}));
    EXPECT_EQ(fails(N::ruleRemove, remove).hint, "List them with `marlune rule list`.");
    remove.bundleID = "";
    EXPECT_EQ(fails(N::ruleRemove, remove).code, "E_USAGE");
}

} // namespace
} // namespace marlune
