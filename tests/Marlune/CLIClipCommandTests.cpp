#include "CLIHarness.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCore/BatchActions.h"
#include "MarluneCore/ClipStore.h"

namespace marlune {
namespace {

class ClipCommands : public test::CLIHarness {
protected:
    // A text clip last used `minutes` after the test's now, with a plain and an HTML flavour.
    Clip record(const std::string& preview, int minutes, ClipKind kind = ClipKind::text,
                const std::string& html = "") {
        NewClip clip;
        clip.kind = kind;
        clip.previewText = preview;
        Representation plain;
        plain.utTypeIdentifier = "public.utf8-plain-text";
        plain.text = preview;
        clip.representations.push_back(plain);
        if (!html.empty()) {
            Representation rich;
            rich.utTypeIdentifier = "public.html";
            rich.text = html;
            clip.representations.push_back(rich);
        }
        clip.sourceAppBundleID = "firefox";
        return ClipStore(context(), {}).record(clip, addSeconds(test::testNow(), minutes * 60.0));
    }

    std::vector<std::string> previews(const Page<ClipDTO>& page) {
        std::vector<std::string> out;
        for (const auto& c : page.items) {
            out.push_back(c.previewText);
        }
        return out;
    }

    ListArgs list(std::int64_t limit = 50, std::int64_t offset = 0) {
        ListArgs args;
        args.limit = limit;
        args.offset = offset;
        return args;
    }
};

using V = std::vector<std::string>;

TEST_F(ClipCommands, ListIsNewestFirstAndFiltersByKindPinAndText) {
    record("oldest", 1);
    const auto link = record("https://example.org", 2, ClipKind::url);
    record("newest words", 3);
    BatchActions::setClipsPinned(context(), {link.id}, true);

    EXPECT_EQ(previews(ok<Page<ClipDTO>>(CLICommandName::clipList, list())),
              (V{"newest words", "https://example.org", "oldest"}));
    auto byKind = list();
    byKind.kind = "url";
    EXPECT_EQ(previews(ok<Page<ClipDTO>>(CLICommandName::clipList, byKind)),
              (V{"https://example.org"}));
    auto pinned = list();
    pinned.pinnedOnly = true;
    EXPECT_EQ(previews(ok<Page<ClipDTO>>(CLICommandName::clipList, pinned)),
              (V{"https://example.org"}));
    auto text = list();
    text.query = "WORDS";
    EXPECT_EQ(previews(ok<Page<ClipDTO>>(CLICommandName::clipList, text)), (V{"newest words"}));
    auto badKind = list();
    badKind.kind = "sound";
    EXPECT_EQ(fails(CLICommandName::clipList, badKind).code, "E_VALIDATION");
}

TEST_F(ClipCommands, PagingKeepsTheTotalAndEndsWithoutANextOffset) {
    for (int i = 0; i < 5; ++i) {
        record("clip " + std::to_string(i), i);
    }
    const auto first = ok<Page<ClipDTO>>(CLICommandName::clipList, list(2, 0));
    EXPECT_EQ(previews(first), (V{"clip 4", "clip 3"}));
    EXPECT_EQ(first.page.total, 5);
    EXPECT_EQ(first.page.nextOffset, 2);
    const auto last = ok<Page<ClipDTO>>(CLICommandName::clipList, list(2, 4));
    EXPECT_EQ(previews(last), (V{"clip 0"}));
    EXPECT_FALSE(last.page.nextOffset);
    const auto past = ok<Page<ClipDTO>>(CLICommandName::clipList, list(2, 9));
    EXPECT_TRUE(past.items.empty());
    EXPECT_EQ(past.page.total, 5);
    EXPECT_FALSE(past.page.nextOffset);
}

TEST_F(ClipCommands, GetFindsByIdOrItsStartWithEveryFlavour) {
    const auto clip = record("hello", 1, ClipKind::richText, "<b>hello</b>");
    GetArgs args;
    args.ref = clip.id.string().substr(0, 8);
    const auto dto = ok<ClipDTO>(CLICommandName::clipGet, args);
    EXPECT_EQ(dto.id, clip.id.string());
    EXPECT_EQ(dto.primaryKind, "richText");
    ASSERT_EQ(dto.representations.size(), 2U);
    EXPECT_EQ(dto.representations[1].utType, "public.html");
    EXPECT_EQ(dto.representations[1].text, "<b>hello</b>");
    EXPECT_EQ(dto.representations[1].byteSize, 12);
    ASSERT_TRUE(dto.sourceApp);
    EXPECT_EQ(dto.sourceApp->bundleID, "firefox");

    args.ref = "0000";
    const auto missing = fails(CLICommandName::clipGet, args);
    EXPECT_EQ(missing.code, "E_NOT_FOUND");
    EXPECT_EQ(missing.message, "No clip matches '0000'.");
    args.ref = "";
    EXPECT_EQ(fails(CLICommandName::clipGet, args).message, "A clip ref is required.");
}

TEST_F(ClipCommands, SearchLooksInPreviewsThenInFlavourText) {
    record("Quarterly report", 1);
    record("see attachment", 2, ClipKind::richText, "<p>the QUARTERLY figures</p>");
    record("lunch", 3);
    SearchArgs args;
    args.query = "quarterly";
    args.limit = 50;
    const auto page = ok<Page<ClipDTO>>(CLICommandName::clipSearch, args);
    ASSERT_EQ(page.items.size(), 2U);
    EXPECT_EQ(page.items[0].previewText, "see attachment"); // newest first
    EXPECT_EQ(page.items[0].matchedIn, "text");
    EXPECT_EQ(page.items[1].matchedIn, "preview");
    args.semantic = true;
    EXPECT_EQ(fails(CLICommandName::clipSearch, args).code, "E_CAPABILITY");
}

TEST_F(ClipCommands, TrashedClipsAreNotListedOrFound) {
    const auto gone = record("secret plans", 1);
    record("kept", 2);
    BatchActions::moveClipsToTrash(context(), {gone.id}, test::testNow());
    EXPECT_EQ(previews(ok<Page<ClipDTO>>(CLICommandName::clipList, list())), (V{"kept"}));
    GetArgs args;
    args.ref = gone.id.string();
    EXPECT_EQ(fails(CLICommandName::clipGet, args).code, "E_NOT_FOUND");
}

} // namespace
} // namespace marlune
