#include "ClipboardKit/PasteboardClassifier.h"

#include <gtest/gtest.h>
#include <optional>
#include <string>
#include <vector>

namespace marlune {
namespace {

using Payload = PasteboardSnapshot::Payload;

PasteboardSnapshot snapshot(std::vector<Payload> payloads) {
    return PasteboardSnapshot::fromItems({PasteboardSnapshot::Item{std::move(payloads)}});
}

Payload text(std::string type, std::string_view value) {
    return Payload::fromText(std::move(type), value);
}

Payload bytes(std::string type, std::size_t n, std::uint8_t fill = 0x42) {
    return Payload{std::move(type), std::vector<std::uint8_t>(n, fill)};
}

std::vector<std::string> types(const CapturedClip& clip) {
    std::vector<std::string> out;
    for (const auto& rep : clip.representations) {
        out.push_back(rep.utType);
    }
    return out;
}

TEST(PasteboardClassifierTest, MimeTypesMapToTheStoredUniformTypes) {
    struct Row {
        std::string mime;
        std::string data;
        std::optional<std::string> expected;
    };
    const std::vector<Row> rows = {
        {"text/plain;charset=utf-8", "x", "public.utf8-plain-text"},
        {"text/plain; charset=UTF-8", "x", "public.utf8-plain-text"},
        {"UTF8_STRING", "x", "public.utf8-plain-text"},
        {"text/plain", "x", "public.utf8-plain-text"},
        {"STRING", "x", "public.utf8-plain-text"},
        {"TEXT", "x", "public.utf8-plain-text"},
        {"NSStringPboardType", "x", "public.utf8-plain-text"},
        {"text/html", "<b>x</b>", "public.html"},
        {"text/rtf", "{\\rtf1 x}", "public.rtf"},
        {"application/rtf", "{\\rtf1 x}", "public.rtf"},
        {"text/uri-list", "file:///home/a/x.txt\r\n", "public.file-url"},
        {"text/uri-list", "# comment\nhttps://example.com/\n", "public.url"},
        {"text/uri-list", "file:///a\nhttps://example.com/\n", "public.url"},
        {"text/uri-list", "# only a comment\n", std::nullopt},
        {"image/png", "png", "public.png"},
        {"image/jpeg", "jpg", "public.jpeg"},
        {"image/tiff", "tif", "public.tiff"},
        {"application/x-color", "12345678", "org.marlune.x-color"},
        {"text/plain;charset=utf-16", "x", std::nullopt},
        {"image/bmp", "bmp", std::nullopt},
        {"TARGETS", "x", std::nullopt},
        {"SAVE_TARGETS", "x", std::nullopt},
        {"org.nspasteboard.source", "x", std::nullopt},
        {"com.apple.pasteboard.promised", "x", std::nullopt},
        {"x-kde-passwordManagerHint", "secret", std::nullopt},
        {"chromium/x-source-url", "x", std::nullopt},
    };
    for (const auto& row : rows) {
        const std::vector<std::uint8_t> data(row.data.begin(), row.data.end());
        const auto got = PasteboardClassifier::uniformType(row.mime, data);
        EXPECT_EQ(got ? std::optional<std::string>(*got) : std::nullopt, row.expected)
            << row.mime << " / " << row.data;
    }
}

TEST(PasteboardClassifierTest, KindFollowsTheRichestMeaningfulFlavour) {
    struct Row {
        const char* name;
        std::vector<Payload> payloads;
        ClipKind kind;
    };
    const std::vector<Row> rows = {
        {"plain text", {text("UTF8_STRING", "hello")}, ClipKind::text},
        {"text with HTML",
         {text("text/html", "<b>hi</b>"), text("text/plain", "hi")},
         ClipKind::richText},
        {"RTF alone", {text("text/rtf", "{\\rtf1 hi}")}, ClipKind::richText},
        {"link",
         {text("text/uri-list", "https://e.test/"), text("text/plain", "https://e.test/")},
         ClipKind::url},
        {"files",
         {text("text/uri-list", "file:///a/b.txt"), text("text/plain", "/a/b.txt")},
         ClipKind::file},
        {"picture alone", {bytes("image/png", 10)}, ClipKind::image},
        {"picture from a web page",
         {bytes("image/png", 10), text("text/html", "<img src=x>")},
         ClipKind::image},
        {"spreadsheet cells with a rendering",
         {text("text/plain", "1\t2"), text("text/html", "<table/>"), bytes("image/png", 10)},
         ClipKind::richText},
        {"colour", {bytes("application/x-color", 8, 0xff)}, ClipKind::color},
    };
    for (const auto& row : rows) {
        const auto clip = PasteboardClassifier::classify(snapshot(row.payloads));
        ASSERT_TRUE(clip) << row.name;
        EXPECT_EQ(clip->kind, row.kind) << row.name;
    }
}

TEST(PasteboardClassifierTest, MarkersPromisesAndDuplicatesAreNotKept) {
    const auto clip = PasteboardClassifier::classify(snapshot({
        text("TARGETS", "x"),
        text("text/plain;charset=utf-8", "first"),
        text("UTF8_STRING", "second"),
        text("org.nspasteboard.source", "org.example.app"),
        text("com.apple.pasteboard.promised", "x"),
        text("text/html", "<i>first</i>"),
    }));
    ASSERT_TRUE(clip);
    EXPECT_EQ(types(*clip), (std::vector<std::string>{"public.utf8-plain-text", "public.html"}));
    EXPECT_EQ(clip->representations[0].text, "first");
}

TEST(PasteboardClassifierTest, OnlyOneImageFormatIsKeptPreferringPng) {
    const auto clip = PasteboardClassifier::classify(
        snapshot({bytes("image/tiff", 30), bytes("image/jpeg", 20), bytes("image/png", 10)}));
    ASSERT_TRUE(clip);
    EXPECT_EQ(types(*clip), (std::vector<std::string>{"public.png"}));
    EXPECT_EQ(clip->previewText, "PNG image, 10 bytes");
}

TEST(PasteboardClassifierTest, OversizedPayloadIsDroppedAndTheRestKept) {
    const std::size_t cap = PasteboardClassifier::sizeCap("text/plain");
    ASSERT_GT(cap, 0U);
    const auto clip = PasteboardClassifier::classify(
        snapshot({bytes("text/plain", cap + 1, 'a'), text("text/html", "<p>kept</p>")}));
    ASSERT_TRUE(clip);
    EXPECT_EQ(types(*clip), (std::vector<std::string>{"public.html"}));
    EXPECT_EQ(clip->previewText, "kept");

    EXPECT_FALSE(PasteboardClassifier::classify(
        snapshot({bytes("image/png", PasteboardClassifier::sizeCap("image/png") + 1)})));
    EXPECT_EQ(PasteboardClassifier::sizeCap("chromium/x-source-url"), 0U);
    EXPECT_EQ(PasteboardClassifier::sizeCap("org.nspasteboard.ConcealedType"), 0U);
}

TEST(PasteboardClassifierTest, TextIsReadAsUtf8WhateverTheOwnerSent) {
    struct Row {
        const char* name;
        Payload payload;
        std::string expected;
    };
    const std::vector<Row> rows = {
        {"UTF-8 as is", text("text/plain", "caf\xc3\xa9"), "caf\xc3\xa9"},
        {"Latin-1 STRING", text("STRING", "caf\xe9"), "caf\xc3\xa9"},
        {"invalid UTF-8 read as Latin-1", text("text/plain", "caf\xe9"), "caf\xc3\xa9"},
        {"trailing NUL dropped", text("UTF8_STRING", std::string("abc\0", 4)), "abc"},
        {"UTF-8 byte-order mark dropped", text("text/plain", "\xef\xbb\xbfhi"), "hi"},
        {"UTF-16LE HTML with a mark", text("text/html", std::string("\xff\xfe<\0b\0>\0", 8)),
         "<b>"},
        {"UTF-16LE HTML without a mark", text("text/html", std::string("<\0p\0", 4)), "<p"},
    };
    for (const auto& row : rows) {
        const auto clip = PasteboardClassifier::classify(snapshot({row.payload}));
        ASSERT_TRUE(clip) << row.name;
        EXPECT_EQ(clip->representations.at(0).text, row.expected) << row.name;
    }
}

TEST(PasteboardClassifierTest, PreviewIsShortSingleLineAndNeverSplitsACharacter) {
    struct Row {
        const char* name;
        std::vector<Payload> payloads;
        std::string expected;
    };
    std::string longText;
    for (int i = 0; i < 300; ++i) {
        longText += "\xc3\xa9"; // é, two bytes
    }
    const std::vector<Row> rows = {
        {"white space collapsed",
         {text("text/plain", "  one\n\n\ttwo  three \n")},
         "one two three"},
        {"cut at 200 scalar values", {text("text/plain", longText)}, longText.substr(0, 400)},
        {"HTML without tags and entities",
         {text("text/html", "<style>p{}</style><p>Fish &amp; chips</p><!-- x -->")},
         "Fish & chips"},
        {"RTF without control words",
         {text("text/rtf", "{\\rtf1\\ansi{\\fonttbl\\f0 Helvetica;}\\f0\\fs24 Hello\\par World}")},
         "Hello World"},
        {"file names",
         {text("text/uri-list", "file:///home/a/My%20Notes.txt\nfile:///tmp/b/\n")},
         "My Notes.txt, b"},
        {"link",
         {text("text/uri-list", "https://example.com/a?b=c\n")},
         "https://example.com/a?b=c"},
        {"opaque colour",
         {Payload{"application/x-color", {0, 0xff, 0, 0x80, 0, 0x00, 0xff, 0xff}}},
         "#FF8000"},
        {"translucent colour",
         {Payload{"application/x-color", {0, 0x10, 0, 0x20, 0, 0x30, 0, 0x40}}},
         "#10203040"},
    };
    for (const auto& row : rows) {
        const auto clip = PasteboardClassifier::classify(snapshot(row.payloads));
        ASSERT_TRUE(clip) << row.name;
        EXPECT_EQ(clip->previewText, row.expected) << row.name;
    }
}

TEST(PasteboardClassifierTest, NothingUsableYieldsNoClip) {
    EXPECT_FALSE(PasteboardClassifier::classify(PasteboardSnapshot{}));
    EXPECT_FALSE(PasteboardClassifier::classify(snapshot({})));
    EXPECT_FALSE(PasteboardClassifier::classify(snapshot({text("text/plain", "")})));
    EXPECT_FALSE(PasteboardClassifier::classify(
        snapshot({text("TARGETS", "x"), text("application/x-unknown", "data")})));
}

TEST(PasteboardClassifierTest, WritingBackUsesTheMimeTypeThatReadsAsTheSameType) {
    for (std::string_view ut : {PasteboardClassifier::plainTextType, PasteboardClassifier::htmlType,
                                PasteboardClassifier::rtfType, PasteboardClassifier::pngType,
                                PasteboardClassifier::jpegType, PasteboardClassifier::tiffType,
                                PasteboardClassifier::colorType}) {
        const auto back = PasteboardClassifier::uniformType(PasteboardClassifier::mimeType(ut), {});
        EXPECT_EQ(back, ut);
    }
}

} // namespace
} // namespace marlune
