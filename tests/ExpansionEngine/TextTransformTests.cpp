#include "ExpansionEngine/TextTransform.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

TEST(TextTransform, EachTransformWritesTheIntendedText) {
    using T = TextTransform;
    struct Case {
        T transform;
        std::string_view in;
        std::string_view out;
    };
    const Case cases[] = {
        {T::jsonPretty, R"({"b":1,"a":[true,null]})",
         "{\n  \"b\": 1,\n  \"a\": [\n    true,\n    null\n  ]\n}"},
        {T::jsonPretty, "{not json", "{not json"},
        {T::jsonMinify, "{ \"b\" : 1,\n \"a\" : \"é\" }", R"({"b":1,"a":"é"})"},
        {T::jsonMinify, "[1,", "[1,"},
        {T::jsonMinify, std::string_view("[[[[[[[[", 8), "[[[[[[[["},
        {T::upper, "straße é", "STRASSE É"},
        {T::lower, "ÀB Ç", "àb ç"},
        {T::title, "hello wORLD of élan", "Hello World Of Élan"},
        {T::snake, "Hello World", "hello_world"},
        {T::snake, "parseHTTPRequest now!", "parse_httprequest_now"},
        {T::snake, "  already_snake  ", "already_snake"},
        {T::kebab, "Crème brûlée 2 go", "crème-brûlée-2-go"},
        {T::kebab, "userId", "user-id"},
        {T::slug, "Crème Brûlée: the Ünïcode way!", "creme-brulee-the-unicode-way"},
        {T::slug, "  --  ", ""},
        {T::singleLine, "one\n  two\r\n\r\nthree\u2028four  ", "one two three four"},
        {T::base64, "", ""},
        {T::base64, "f", "Zg=="},
        {T::base64, "fo", "Zm8="},
        {T::base64, "foo", "Zm9v"},
        {T::base64, "é", "w6k="},
        {T::base64Decode, "Zm9v", "foo"},
        {T::base64Decode, "Zg==", "f"},
        {T::base64Decode, " Zm8\n= ", "fo"},
        {T::base64Decode, "w6k", "é"},
        {T::base64Decode, "Zm9v!", "Zm9v!"},
        {T::base64Decode, "Zg=a", "Zg=a"},
        {T::base64Decode, "Z", "Z"},
        {T::base64Decode, "/w==", "/w=="}, // 0xFF is not text
        {T::base64Decode, "AA==", "AA=="}, // nor is NUL
        {T::stripTracking,
         "see https://a.example/p?utm_source=x&id=7&UTM_Medium=y&fbclid=z#top and "
         "http://b.example/?gclid=1&mc_eid=2 or https://c.example/q?x=1.",
         "see https://a.example/p?id=7#top and http://b.example/ or https://c.example/q?x=1."},
        {T::stripTracking, "(https://a.example/?msclkid=1)", "(https://a.example/)"},
        {T::stripTracking, "no links, just http talk", "no links, just http talk"},
        {T::markdownToPlain, "See ![logo](a.png) and [the site](https://x.example).",
         "See logo and the site."},
        {T::markdownToPlain, "`code` **bold** __strong__ *it* _em_", "code bold strong it em"},
        {T::markdownToPlain, "# Title\n  > quoted\n>> deep\n###### six\nplain #not",
         "Title\nquoted\ndeep\nsix\nplain #not"},
        {T::markdownToPlain, "a ** b", "a ** b"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(rawValue(c.transform)) + ": " + std::string(c.in));
        EXPECT_EQ(applyTextTransform(c.transform, c.in), c.out);
    }
}

TEST(TextTransform, MarkdownLengthBoundsLeaveOverlongSpansAlone) {
    const std::string longBold = "**" + std::string(2049, 'x') + "**";
    EXPECT_EQ(applyTextTransform(TextTransform::markdownToPlain, longBold), longBold);
    const std::string boundBold = "**" + std::string(2048, 'x') + "**";
    EXPECT_EQ(applyTextTransform(TextTransform::markdownToPlain, boundBold),
              std::string(2048, 'x'));
    const std::string longLabel = "[" + std::string(513, 'l') + "](u)";
    EXPECT_EQ(applyTextTransform(TextTransform::markdownToPlain, longLabel), longLabel);
}

TEST(TextTransform, DeeplyNestedJsonIsLeftUnchangedInsteadOfOverflowingTheStack) {
    const std::string deep = std::string(100000, '[') + std::string(100000, ']');
    EXPECT_EQ(applyTextTransform(TextTransform::jsonPretty, deep), deep);
}

TEST(TextTransform, RawValuesRoundTrip) {
    for (int i = 0; i <= static_cast<int>(TextTransform::markdownToPlain); ++i) {
        auto t = static_cast<TextTransform>(i);
        EXPECT_EQ(textTransformFromRaw(rawValue(t)), t);
    }
    EXPECT_EQ(textTransformFromRaw("Plain"), std::nullopt);
}

} // namespace
} // namespace marlune
