// Replies that grow with the library: however large the records the library accepts, every
// reply fits in one frame, and what the tool joins from pieces is whole.

#include "CLIHarness.h"
#include "MarluneCLI/PiecedFetch.h"
#include "MarluneCLIProtocol/CLIBase64.h"
#include "MarluneCLIProtocol/CLICommandName.h"
#include "MarluneCLIProtocol/CLIWire.h"
#include "MarluneCLIProtocol/ClipRecords.h"
#include "MarluneCLIProtocol/DataRecords.h"
#include "MarluneCLIProtocol/SnippetRecords.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/ContentLimits.h"

#include <set>

namespace marlune {
namespace {

namespace N = CLICommandName;

class ReplySize : public test::CLIHarness {
protected:
    // Sends through the listener as the socket would, checking that each reply fits a frame.
    PiecedFetch fetch() {
        return PiecedFetch([this](CLIRequest request) -> PiecedFetch::Reply {
            auto response = listener->dispatch(request);
            const auto frame = response.encode().size();
            EXPECT_LE(frame, CLIWire::maxPayloadBytes) << request.command;
            largestFrame = std::max(largestFrame, frame);
            ++requests;
            return response;
        });
    }

    // A body of `size` bytes that is different for every `seed`, with quotes and line breaks
    // that the reply's JSON has to escape.
    static std::string body(std::size_t size, int seed) {
        std::string text = "snippet " + std::to_string(seed) + " \"quoted\"\n";
        while (text.size() < size) {
            text +=
                static_cast<char>('a' + (text.size() * 7 + static_cast<std::size_t>(seed)) % 26);
        }
        text.resize(size);
        return text;
    }

    std::vector<std::string> createSnippets(int count, std::size_t size) {
        std::vector<std::string> bodies;
        for (int i = 0; i < count; ++i) {
            SnippetCreateArgs args;
            args.title = "big " + std::to_string(i);
            args.content = body(size, i);
            ok<SnippetDTO>(N::snippetCreate, args);
            bodies.push_back(*args.content);
        }
        return bodies;
    }

    std::size_t largestFrame = 0;
    int requests = 0;
};

TEST_F(ReplySize, ListOfLargestSnippetsEndsEarlyAndEveryPageFitsAFrame) {
    const auto bodies = createSnippets(20, ContentLimits::snippetBodyBytes - 100);
    ListArgs args;
    args.limit = 100;
    std::vector<std::string> seen;
    int pages = 0;
    for (;;) {
        const auto page = ok<Page<SnippetDTO>>(N::snippetList, args);
        ASSERT_FALSE(page.items.empty());
        ++pages;
        for (const auto& item : page.items) {
            seen.push_back(item.title);
        }
        EXPECT_LE(listener->dispatch(makeRequest(N::snippetList, args, "t")).encode().size(),
                  CLIWire::maxPayloadBytes);
        if (!page.page.nextOffset) {
            break;
        }
        EXPECT_EQ(*page.page.nextOffset,
                  args.offset + static_cast<std::int64_t>(page.items.size()));
        args.offset = *page.page.nextOffset;
    }
    EXPECT_GT(pages, 1);
    EXPECT_EQ(seen.size(), bodies.size());
}

TEST_F(ReplySize, ExportOfALibraryLargerThanAFrameComesWholeFromPieces) {
    const auto bodies = createSnippets(24, ContentLimits::snippetBodyBytes - 10);
    const auto answer = fetch().exportDocument(makeRequest(N::dataExport, DataExportArgs{}, "t"));
    ASSERT_TRUE(std::holds_alternative<CLIResponse>(answer));
    auto decoded = decodeResult<DataDocumentDTO>(std::get<CLIResponse>(answer));
    ASSERT_TRUE(std::holds_alternative<DataDocumentDTO>(decoded));
    const auto& document = std::get<DataDocumentDTO>(decoded);
    EXPECT_GT(requests, 1);
    EXPECT_FALSE(document.nextSnippetOffset);
    ASSERT_TRUE(document.snippets && document.groups && document.settings);
    std::multiset<std::string> exported;
    for (const auto& snippet : *document.snippets) {
        exported.insert(snippet.content);
    }
    EXPECT_EQ(exported, std::multiset<std::string>(bodies.begin(), bodies.end()));
}

TEST_F(ReplySize, EveryFlavourOfAHugeClipIsFetchedWholeInPieces) {
    std::string png(30'000'000, '\0');
    for (std::size_t i = 0; i < png.size(); ++i) {
        png[i] = static_cast<char>((i * 2654435761U) >> 13);
    }
    const std::string text = body(5'000'000, 7);
    NewClip clip;
    clip.kind = ClipKind::image;
    clip.previewText = "Image";
    Representation image;
    image.utTypeIdentifier = "image/png";
    image.data = std::vector<std::uint8_t>(png.begin(), png.end());
    Representation words;
    words.utTypeIdentifier = "text/plain";
    words.text = text;
    Representation small;
    small.utTypeIdentifier = "text/html";
    small.text = "<b>small</b>";
    clip.representations = {image, words, small};
    const auto stored = ClipStore(context(), {}).record(clip, test::testNow());

    GetArgs get;
    get.ref = stored.id.string();
    get.raw = true;
    const auto answer = fetch().clip(makeRequest(N::clipGet, get, "t"));
    ASSERT_TRUE(std::holds_alternative<CLIResponse>(answer));
    auto decoded = decodeResult<ClipDTO>(std::get<CLIResponse>(answer));
    ASSERT_TRUE(std::holds_alternative<ClipDTO>(decoded));
    const auto& reps = std::get<ClipDTO>(decoded).representations;
    ASSERT_EQ(reps.size(), 3U);
    EXPECT_EQ(CLIBase64::decode(reps[0].dataBase64.value_or("")), png);
    EXPECT_EQ(reps[1].text, text);
    EXPECT_EQ(reps[2].text, "<b>small</b>");

    struct Case {
        std::string type;
        std::string expected;
    };
    for (const auto& [type, expected] : std::vector<Case>{
             {"image/png", png}, {"text/plain", text}, {"", png}, {"text/html", "<b>small</b>"}}) {
        const auto bytes = fetch().flavour(makeRequest(N::clipGet, get, "t"), type);
        ASSERT_TRUE(std::holds_alternative<std::string>(bytes)) << type;
        EXPECT_TRUE(std::get<std::string>(bytes) == expected) << type;
    }
    const auto missing = fetch().flavour(makeRequest(N::clipGet, get, "t"), "image/tiff");
    ASSERT_TRUE(std::holds_alternative<CLIErrorPayload>(missing));
    EXPECT_EQ(std::get<CLIErrorPayload>(missing).message, "The clip has no image/tiff flavour.");
}

} // namespace
} // namespace marlune
