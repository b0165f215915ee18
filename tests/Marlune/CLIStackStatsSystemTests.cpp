#include "CLIHarness.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCLIProtocol/SystemRecords.h"
#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/PasteStackModel.h"
#include "MarluneCore/SnippetStore.h"
#include "support/FakeDesktopActions.h"

#include <algorithm>

namespace marlune {
namespace {

namespace N = CLICommandName;
using V = std::vector<std::string>;

class StackStatsSystem : public test::CLIHarness {
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

    StackPushArgs push(std::vector<std::string> refs, bool snippet = false) {
        StackPushArgs args;
        args.refs = std::move(refs);
        args.snippet = snippet;
        return args;
    }

    static V previews(const std::vector<StackItemDTO>& items) {
        V out;
        for (const auto& item : items) {
            out.push_back(item.preview);
        }
        return out;
    }

    test::FakeDesktopActions desktop;
};

TEST_F(StackStatsSystem, StackKeepsOrderAndCapacityAndTheFileFollowsIt) {
    const auto a = record("A");
    const auto b = record("B");
    SnippetStore snippets(context());
    Snippet sig = Snippet::make(test::testNow());
    sig.title = "Signature";
    sig.keyword = "sig";
    sig.content = "Best, Ada";
    snippets.create(sig, test::testNow());

    auto pushed = ok<StackPushResultDTO>(N::stackPush, push({b.id.string(), a.id.string()}));
    EXPECT_EQ(previews(pushed.pushed), (V{"B", "A"}));
    pushed = ok<StackPushResultDTO>(N::stackPush, push({"sig"}, true));
    EXPECT_EQ(pushed.pushed.at(0).kind, "snippet");
    EXPECT_EQ(pushed.pushed.at(0).position, 3);
    EXPECT_EQ(pushed.count, 3);
    EXPECT_EQ(pushed.capacity, 20);

    // A bad reference queues nothing, not even the good ones before it.
    EXPECT_EQ(fails(N::stackPush, push({a.id.string(), "ffff0000"})).code, "E_NOT_FOUND");
    EXPECT_EQ(fails(N::stackPush, push({})).message, "Provide at least one ref.");

    // What a restart would read back.
    const auto saved = PasteStackFile::read(library.dir.path() / PasteStackFile::fileName);
    ASSERT_EQ(saved.size(), 3U);
    EXPECT_EQ(saved[0], PasteStackEntry(PasteStackClip{b.id}));

    std::vector<std::string> many(20, a.id.string());
    const auto response = send(N::stackPush, push(many));
    ASSERT_TRUE(response.ok);
    const auto full = std::get<StackPushResultDTO>(decodeResult<StackPushResultDTO>(response));
    EXPECT_EQ(full.pushed.size(), 17U);
    EXPECT_EQ(full.dropped, 3);
    EXPECT_EQ(response.warnings.at(0).code, "W_STACK_FULL");

    const auto listed = ok<StackListResultDTO>(N::stackList, EmptyArgs{});
    EXPECT_EQ(listed.count, 20);
    EXPECT_EQ(previews(listed.items).front(), "B");
    EXPECT_EQ(ok<StackPopResultDTO>(N::stackPop, EmptyArgs{}).item->preview, "B");
    EXPECT_EQ(ok<StackClearResultDTO>(N::stackClear, EmptyArgs{}).cleared, 19);
    const auto empty = ok<StackPopResultDTO>(N::stackPop, EmptyArgs{});
    EXPECT_FALSE(empty.item);
    EXPECT_EQ(empty.remaining, 0);
    EXPECT_TRUE(PasteStackFile::read(library.dir.path() / PasteStackFile::fileName).empty());
}

TEST_F(StackStatsSystem, PopSkipsEntriesWhoseRecordWasDeleted) {
    const auto gone = record("gone");
    const auto kept = record("kept");
    ok<StackPushResultDTO>(N::stackPush, push({gone.id.string(), kept.id.string()}));
    BatchActions::moveClipsToTrash(context(), {gone.id}, test::testNow());
    const auto response = send(N::stackPop, EmptyArgs{});
    ASSERT_TRUE(response.ok);
    EXPECT_EQ(response.warnings.at(0).code, "W_SKIPPED_DELETED");
    const auto popped = std::get<StackPopResultDTO>(decodeResult<StackPopResultDTO>(response));
    EXPECT_EQ(popped.item->id, kept.id.string());
    EXPECT_EQ(popped.remaining, 0);
}

TEST_F(StackStatsSystem, StackPasteNeedsTheDesktopAndEmptiesTheQueue) {
    const auto a = record("one");
    const auto b = record("two");
    EXPECT_EQ(fails(N::stackPaste, StackPasteArgs{}).code, "E_CAPABILITY");
    listener->environment().headless = false;
    listener->environment().desktop = &desktop;
    const auto emptyError = fails(N::stackPaste, StackPasteArgs{});
    EXPECT_EQ(emptyError.message, "The Paste Stack is empty.");
    EXPECT_EQ(emptyError.hint, "Queue items with `marlune stack push <ref…>`.");

    ok<StackPushResultDTO>(N::stackPush, push({a.id.string(), b.id.string()}));
    const auto pasted = ok<StackPasteResultDTO>(N::stackPaste, StackPasteArgs{});
    EXPECT_EQ(pasted.pastedCount, 2);
    const auto& data = desktop.pastes.at(0).items.at(0).payloads.at(0).data;
    EXPECT_EQ(std::string(data.begin(), data.end()), "one\ntwo");
    EXPECT_EQ(ok<StackListResultDTO>(N::stackList, EmptyArgs{}).count, 0);
}

TEST_F(StackStatsSystem, ExpandingWithRecordUsageCountsKeystrokesSaved) {
    SnippetStore snippets(context());
    Snippet sig = Snippet::make(test::testNow());
    sig.title = "Signature";
    sig.keyword = "sig";
    sig.content = "Best regards, Ada"; // 17 characters for ";sig", 4 typed
    snippets.create(sig, test::testNow());
    ExpandArgs args;
    args.ref = "sig";
    args.recordUsage = true;
    EXPECT_TRUE(ok<ExpandResultDTO>(N::snippetExpand, args).usageRecorded);
    EXPECT_TRUE(ok<ExpandResultDTO>(N::snippetExpand, args).usageRecorded);
    args.recordUsage = false;
    ok<ExpandResultDTO>(N::snippetExpand, args);
    const auto stats = ok<StatsDTO>(N::statsShow, EmptyArgs{});
    EXPECT_EQ(stats.totalExpansions, 2);
    EXPECT_EQ(stats.totalKeystrokesSaved, 26);
    EXPECT_EQ(stats.expansionsThisWeek, 2);
    EXPECT_EQ(stats.keystrokesSavedThisWeek, 26);
    EXPECT_EQ(stats.minutesSavedThisWeek, 0);
}

TEST_F(StackStatsSystem, SyncSaysItIsNotAvailableAndWindowsAreNotThereYet) {
    const auto status = ok<SyncStatusDTO>(N::syncStatus, EmptyArgs{});
    EXPECT_EQ(status.state, "disabled");
    EXPECT_FALSE(status.needsAttention);
    record("one clip");
    const auto report = ok<SyncDoctorReportDTO>(N::syncDoctor, EmptyArgs{});
    EXPECT_EQ(report.mirror, "none");
    EXPECT_FALSE(report.zoneExists);
    const auto clips = std::find_if(report.entities.begin(), report.entities.end(),
                                    [](const auto& e) { return e.entity == "Clip"; });
    ASSERT_NE(clips, report.entities.end());
    EXPECT_EQ(clips->localCount, 1);
    EXPECT_EQ(clips->serverCount, 0);
    ASSERT_GE(report.notes.size(), 2U);
    EXPECT_NE(report.notes[1].find("ANSCK"), std::string::npos);

    for (auto name : {N::appOpen, N::appQuickPaste, N::appPalette, N::appCheatSheet}) {
        EXPECT_EQ(fails(name, EmptyArgs{}).code, "E_CAPABILITY") << name;
    }
    bool quit = false;
    listener->environment().quit = [&quit] { quit = true; };
    const auto answer = ok<AppActionResultDTO>(N::appQuit, EmptyArgs{});
    EXPECT_EQ(answer.action, "quit");
    EXPECT_TRUE(quit);
}

} // namespace
} // namespace marlune
