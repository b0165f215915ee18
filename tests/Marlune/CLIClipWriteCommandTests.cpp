// The clip commands beyond reading: filters and sorts of the listing, copy and paste through
// the desktop, pin, delete, promote and purge.
#include "CLIHarness.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/PinboardStore.h"
#include "MarluneCore/SnippetStore.h"
#include "support/FakeDesktopActions.h"

namespace marlune {
namespace {

namespace N = CLICommandName;
using V = std::vector<std::string>;

class ClipWriteCommands : public test::CLIHarness {
protected:
    Clip record(const std::string& text, double minutes, const std::string& app = "firefox",
                const std::string& html = "") {
        NewClip clip;
        clip.kind = html.empty() ? ClipKind::text : ClipKind::richText;
        clip.previewText = text;
        Representation plain;
        plain.utTypeIdentifier = "public.utf8-plain-text";
        plain.text = text;
        clip.representations.push_back(plain);
        if (!html.empty()) {
            Representation rich;
            rich.utTypeIdentifier = "public.html";
            rich.text = html;
            clip.representations.push_back(rich);
        }
        clip.sourceAppBundleID = app;
        return ClipStore(context(), {}).record(clip, addSeconds(test::testNow(), minutes * 60.0));
    }

    Clip recordImage(double minutes) {
        NewClip clip;
        clip.kind = ClipKind::image;
        clip.previewText = "Image";
        Representation png;
        png.utTypeIdentifier = "public.png";
        png.data = std::vector<std::uint8_t>{0x89, 'P', 'N', 'G', 1, 2, 3};
        clip.representations.push_back(png);
        return ClipStore(context(), {}).record(clip, addSeconds(test::testNow(), minutes * 60.0));
    }

    static ListArgs list() {
        ListArgs args;
        args.limit = 50;
        return args;
    }

    static V previews(const Page<ClipDTO>& page) {
        V out;
        for (const auto& c : page.items) {
            out.push_back(c.previewText);
        }
        return out;
    }

    void useDesktop() {
        listener->environment().headless = false;
        listener->environment().desktop = &desktop;
    }

    static RefArgs ref(const Clip& clip) {
        RefArgs args;
        args.ref = clip.id.string();
        return args;
    }

    test::FakeDesktopActions desktop;
};

TEST_F(ClipWriteCommands, ListFiltersAndSortsAsAsked) {
    const auto a = record("alpha", 1, "firefox");
    const auto b = record("beta", 2, "Gnome-terminal");
    const auto c = record("gamma", 3, "firefox");
    record("alpha", 4); // copied again: alpha is now the most recent and copied twice
    const Tag tag = SnippetStore(context()).createTag(Tag::make(test::testNow()), test::testNow());
    BatchActions::addTagToClips(context(), {b.id}, tag.id);
    Pinboard board = Pinboard::make(test::testNow());
    board.name = "Keep";
    board = PinboardStore(context()).create(board, test::testNow());
    BatchActions::addClipsToPinboard(context(), {c.id, a.id}, board.id);
    BatchActions::moveClipsToTrash(context(), {c.id}, test::testNow());

    struct Row {
        const char* name;
        std::function<void(ListArgs&)> set;
        V expected;
    };
    const std::vector<Row> rows = {
        {"recency", [](ListArgs&) {}, {"alpha", "beta"}},
        {"created", [](ListArgs& l) { l.sort = "created"; }, {"beta", "alpha"}},
        {"created asc",
         [](ListArgs& l) {
             l.sort = "created";
             l.order = "asc";
         },
         {"alpha", "beta"}},
        {"most recopied",
         [](ListArgs& l) {
             l.sort = "mostRecopied";
             l.order = "asc";
         },
         {"beta", "alpha"}},
        {"tag", [&](ListArgs& l) { l.tagRef = tag.id.string(); }, {"beta"}},
        {"pinboard (trashed clips left out)",
         [](ListArgs& l) { l.pinboardRef = "keep"; },
         {"alpha"}},
        {"source app, letter case aside",
         [](ListArgs& l) { l.sourceAppBundleID = "gnome-terminal"; },
         {"beta"}},
        {"trashed", [](ListArgs& l) { l.trashed = true; }, {"gamma"}},
        {"text within a filter",
         [](ListArgs& l) {
             l.query = "ET";
             l.sourceAppBundleID = "gnome-terminal";
         },
         {"beta"}},
    };
    for (const auto& row : rows) {
        auto args = list();
        row.set(args);
        EXPECT_EQ(previews(ok<Page<ClipDTO>>(N::clipList, args)), row.expected) << row.name;
    }

    struct Refusal {
        std::function<void(ListArgs&)> set;
        const char* code;
    };
    for (const auto& refusal : std::vector<Refusal>{
             {[](ListArgs& l) { l.sort = "size"; }, "E_USAGE"},
             {[](ListArgs& l) { l.order = "sideways"; }, "E_USAGE"},
             {[](ListArgs& l) { l.groupRef = "Mail"; }, "E_USAGE"},
             {[](ListArgs& l) { l.favoriteOnly = true; }, "E_USAGE"},
             {[](ListArgs& l) { l.pinboardRef = "nowhere"; }, "E_NOT_FOUND"},
         }) {
        auto args = list();
        refusal.set(args);
        EXPECT_EQ(fails(N::clipList, args).code, refusal.code);
    }
}

TEST_F(ClipWriteCommands, GetGivesBestTextAndRawBytes) {
    const auto rich = record("plain words", 1, "firefox", "<b>plain words</b>");
    const auto image = recordImage(2);
    GetArgs args;
    args.ref = rich.id.string();
    EXPECT_EQ(ok<ClipDTO>(N::clipGet, args).bestText, "plain words");
    args.ref = image.id.string();
    auto dto = ok<ClipDTO>(N::clipGet, args);
    EXPECT_FALSE(dto.bestText);
    EXPECT_FALSE(dto.representations[0].dataBase64);
    EXPECT_EQ(dto.representations[0].byteSize, 7);
    args.raw = true;
    dto = ok<ClipDTO>(N::clipGet, args);
    EXPECT_EQ(dto.representations[0].dataBase64, "iVBORwECAw==");
    // A listing measures the image without opening it.
    EXPECT_EQ(ok<Page<ClipDTO>>(N::clipList, list()).items[0].representations[0].byteSize, 7);
}

TEST_F(ClipWriteCommands, SearchDescribesEachMatch) {
    record("report", 1);
    record("Report for March", 2);
    record("the monthly report", 3);
    SearchArgs args;
    args.query = "report";
    args.limit = 10;
    const auto page = ok<Page<ClipDTO>>(N::clipSearch, args);
    ASSERT_EQ(page.items.size(), 3U);
    EXPECT_EQ(page.items[0].matchType, "substring");
    EXPECT_EQ(page.items[1].matchType, "prefix");
    EXPECT_EQ(page.items[2].matchType, "exact");
    EXPECT_EQ(page.items[2].score, 1.0);
    EXPECT_LT(*page.items[0].score, *page.items[1].score);
    EXPECT_EQ(page.items[0].matchedIn, "preview");
    args.offset = 2;
    const auto last = ok<Page<ClipDTO>>(N::clipSearch, args);
    EXPECT_EQ(previews(last), (V{"report"}));
    EXPECT_EQ(last.page.total, 3);
}

TEST_F(ClipWriteCommands, CopyWithoutDisplayStillAnswersWithTheText) {
    const auto clip = record("Hello World", 1, "firefox", "<i>Hello World</i>");
    ClipCopyArgs args;
    args.ref = clip.id.string();
    args.transform = "uppercase";
    auto response = send(N::clipCopy, args);
    ASSERT_TRUE(response.ok) << response.error->message;
    ASSERT_EQ(response.warnings.size(), 1U);
    EXPECT_EQ(response.warnings[0].code, "W_NO_CLIPBOARD");
    const auto result = std::get<ClipActionResultDTO>(decodeResult<ClipActionResultDTO>(response));
    EXPECT_EQ(result.text, "HELLO WORLD");
    EXPECT_EQ(result.bytes, 11);
    EXPECT_FALSE(result.copied);

    args.transform = "sideways";
    EXPECT_EQ(fails(N::clipCopy, args).code, "E_VALIDATION");
    ClipCopyArgs paste;
    paste.ref = clip.id.string();
    EXPECT_EQ(fails(N::clipPaste, paste).code, "E_CAPABILITY");
    ClipPasteStackArgs several;
    several.refs = {clip.id.string()};
    EXPECT_EQ(fails(N::clipPasteStack, several).code, "E_CAPABILITY");
}

TEST_F(ClipWriteCommands, CopyAndPasteHandEveryFlavourToTheDesktop) {
    useDesktop();
    const auto clip = record("Hello", 1, "firefox", "<b>Hello</b>");
    ClipCopyArgs args;
    args.ref = clip.id.string();
    EXPECT_TRUE(ok<ClipActionResultDTO>(N::clipCopy, args).copied);
    ASSERT_EQ(desktop.copies.size(), 1U);
    const auto& payloads = desktop.copies[0].items.at(0).payloads;
    ASSERT_EQ(payloads.size(), 2U);
    EXPECT_EQ(payloads[0].type, "text/plain;charset=utf-8");
    EXPECT_EQ(payloads[1].type, "text/html");
    EXPECT_EQ(std::string(payloads[1].data.begin(), payloads[1].data.end()), "<b>Hello</b>");

    args.representation = "html";
    args.into = "gedit";
    const auto pasted = ok<ClipActionResultDTO>(N::clipPaste, args);
    EXPECT_TRUE(pasted.pasted);
    EXPECT_EQ(desktop.activations, (V{"gedit"}));
    ASSERT_EQ(desktop.pastes.size(), 1U);
    EXPECT_EQ(desktop.pastes[0].items[0].payloads.size(), 1U);

    // A refused paste leaves the clip on the clipboard and says so.
    desktop.pasteRefusal = "Marlune is in the middle of an expansion; try again in a moment.";
    args.into.reset();
    const auto response = send(N::clipPaste, args);
    ASSERT_TRUE(response.ok);
    EXPECT_EQ(response.warnings.at(0).code, "W_PASTE_FAILED");
    EXPECT_EQ(desktop.copies.size(), 2U);

    desktop.missingApplication = "nothing";
    args.into = "nothing";
    EXPECT_EQ(fails(N::clipPaste, args).message, "No window of nothing is open.");
    args.into.reset();
    args.representation = "png";
    EXPECT_EQ(fails(N::clipPaste, args).code, "E_NOT_FOUND");
}

TEST_F(ClipWriteCommands, PasteStackJoinsTheClipsInTheOrderGiven) {
    useDesktop();
    const auto first = record("first", 1);
    const auto second = record("second", 2);
    const auto image = recordImage(3);
    ClipPasteStackArgs args;
    args.refs = {second.id.string(), first.id.string()};
    const auto result = ok<ClipPasteStackResultDTO>(N::clipPasteStack, args);
    EXPECT_EQ(result.pastedCount, 2);
    EXPECT_EQ(result.clipIds, (V{second.id.string(), first.id.string()}));
    const auto& data = desktop.pastes.at(0).items.at(0).payloads.at(0).data;
    EXPECT_EQ(std::string(data.begin(), data.end()), "second\nfirst");
    args.refs.push_back(image.id.string());
    EXPECT_EQ(fails(N::clipPasteStack, args).code, "E_VALIDATION");
    args.refs.clear();
    EXPECT_EQ(fails(N::clipPasteStack, args).message, "Provide at least one clip ref.");
}

TEST_F(ClipWriteCommands, PinDeleteAndDryRunsChangeOnlyWhatTheySay) {
    const auto clip = record("keep me", 1);
    auto args = ref(clip);
    args.dryRun = true;
    EXPECT_TRUE(ok<ClipDTO>(N::clipPin, args).isPinned);
    EXPECT_FALSE(ClipStore(context(), {}).clip(clip.id)->isPinned);
    args.dryRun = false;
    EXPECT_TRUE(ok<ClipDTO>(N::clipPin, args).isPinned);
    EXPECT_TRUE(ClipStore(context(), {}).clip(clip.id)->isPinned);
    EXPECT_FALSE(ok<ClipDTO>(N::clipUnpin, args).isPinned);

    args.dryRun = true;
    EXPECT_EQ(ok<DeleteResultDTO>(N::clipDelete, args).affected, (V{clip.id.string()}));
    EXPECT_TRUE(ClipStore(context(), {}).clip(clip.id)->isLive());
    args.dryRun = false;
    ok<DeleteResultDTO>(N::clipDelete, args);
    EXPECT_EQ(ClipStore(context(), {}).clip(clip.id)->deletedAt, test::testNow());

    const auto gone = record("gone now", 2);
    auto now = ref(gone);
    now.now = true;
    ok<DeleteResultDTO>(N::clipDelete, now);
    EXPECT_FALSE(ClipStore(context(), {}).clip(gone.id));
}

TEST_F(ClipWriteCommands, PromoteMakesASnippetAndMarksTheClip) {
    const auto clip = record("  Kind regards,\nAda", 1);
    ClipPromoteArgs args;
    args.ref = clip.id.string();
    args.keyword = ";kr";
    const auto snippet = ok<SnippetDTO>(N::clipPromote, args);
    EXPECT_EQ(snippet.title, "Kind regards,");
    EXPECT_EQ(snippet.keyword, "kr");
    EXPECT_EQ(snippet.content, "  Kind regards,\nAda");
    EXPECT_TRUE(ClipStore(context(), {}).clip(clip.id)->promotionHandled);
    // The keyword is now taken.
    EXPECT_EQ(fails(N::clipPromote, args).code, "E_CONFLICT");
    args.keyword = "two words";
    EXPECT_EQ(fails(N::clipPromote, args).code, "E_VALIDATION");
    ClipPromoteArgs image;
    image.ref = recordImage(2).id.string();
    EXPECT_EQ(fails(N::clipPromote, image).message,
              "This clip has no text to make a snippet from.");
}

TEST_F(ClipWriteCommands, PurgeDryRunNamesExactlyWhatTheRealRunDeletes) {
    // Ages of 10, 8, 6, 4 and 2 days before now; the oldest is pinned and spared.
    std::vector<Clip> clips;
    for (int i = 0; i < 5; ++i) {
        clips.push_back(record("clip " + std::to_string(i), (-10 + 2 * i) * 24 * 60.0));
    }
    BatchActions::setClipsPinned(context(), {clips[0].id}, true);
    struct Row {
        std::optional<std::int64_t> keepLast;
        std::optional<std::string> olderThan;
        V deleted;
    };
    const std::vector<Row> rows = {
        {std::nullopt, "+7d", {"clip 1"}},
        {std::nullopt, "5d", {"clip 2", "clip 1"}},
        {2, std::nullopt, {"clip 2", "clip 1"}},
        {3, "1w", {"clip 1"}},
        {std::nullopt, "2026-09-16T00:00:00Z", {"clip 2", "clip 1"}},
        {std::nullopt, "2026-09-14", {"clip 1"}},
    };
    for (const auto& row : rows) {
        ClipPurgeArgs args;
        args.keepLast = row.keepLast;
        args.olderThan = row.olderThan;
        args.dryRun = true;
        const auto dry = ok<DeleteResultDTO>(N::clipPurge, args);
        V names;
        for (const auto& id : dry.affected) {
            names.push_back(ClipStore(context(), {}).clip(*Uuid::parse(id))->previewText);
        }
        EXPECT_EQ(names, row.deleted)
            << row.olderThan.value_or("") << " keep " << row.keepLast.value_or(-1);
        EXPECT_EQ(ClipStore(context(), {}).liveCount(), 5);
    }
    ClipPurgeArgs real;
    real.olderThan = "5d";
    real.dryRun = true;
    const auto dry = ok<DeleteResultDTO>(N::clipPurge, real);
    real.dryRun = false;
    const auto done = ok<DeleteResultDTO>(N::clipPurge, real);
    EXPECT_EQ(done.affected, dry.affected);
    EXPECT_EQ(ClipStore(context(), {}).liveCount(), 3);

    ClipPurgeArgs bad;
    EXPECT_EQ(fails(N::clipPurge, bad).code, "E_USAGE");
    bad.olderThan = "soon";
    EXPECT_EQ(fails(N::clipPurge, bad).code, "E_VALIDATION");
}

} // namespace
} // namespace marlune
