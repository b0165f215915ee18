#include "ExpansionEngine/SnippetBodyValidator.h"
#include "ExpansionEngine/SnippetParser.h"
#include "ExpansionEngine/SnippetRenderer.h"
#include "TestContext.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using testing::makeContext;

TEST(SnippetParser, SplitsBodiesIntoTextAndPlaceholdersAndKeepsUnclosedMarksLiteral) {
    struct Case {
        std::string_view body;
        std::vector<Token> tokens;
    };
    const Case cases[] = {
        {"", {}},
        {"plain", {TextToken{"plain"}}},
        {"{@cursor@}", {Placeholder{"cursor", {}}}},
        {"a{@date|format=long@}b",
         {TextToken{"a"}, Placeholder{"date", {"format=long"}}, TextToken{"b"}}},
        {"{@text|name=To|default=a=b|@}", {Placeholder{"text", {"name=To", "default=a=b", ""}}}},
        {"{@a@}{@b@}", {Placeholder{"a", {}}, Placeholder{"b", {}}}},
        {"x {@date", {TextToken{"x {@date"}}},
        {"{@cursor@} {@", {Placeholder{"cursor", {}}, TextToken{" {@"}}},
        {"a @} b", {TextToken{"a @} b"}}},
        {"{@a {@b@}", {Placeholder{"a {@b", {}}}},
        {"{@@}", {Placeholder{"", {}}}},
        {"{@}", {TextToken{"{@}"}}},
        {"☕{@cursor@}é", {TextToken{"☕"}, Placeholder{"cursor", {}}, TextToken{"é"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        EXPECT_EQ(SnippetParser::parse(c.body), c.tokens);
    }
    EXPECT_EQ((Placeholder{"select", {"options= Small, ,Large,"}}.options()),
              (std::vector<std::string>{"Small", "Large"}));
}

TEST(SnippetRenderer, EachPlaceholderKindProducesItsText) {
    auto context = makeContext({{"addr", "1 Main St"}});
    context.clipboard = [] { return std::optional<std::string>("Copied Text"); };
    context.selection = [] { return std::optional<std::string>("picked"); };
    context.variables["name"] = "Ada";
    context.nextCounter = [n = 41]() mutable { return ++n; };
    context.randomInt = [](std::int64_t low, std::int64_t high) { return low * 1000 + high; };
    struct Case {
        std::string_view body;
        std::string_view text;
    };
    const Case cases[] = {
        {"no placeholders at all", "no placeholders at all"},
        {"[{@clipboard@}]", "[Copied Text]"},
        {"{@clipboard|transform=uppercase@}", "COPIED TEXT"},
        {"{@clipboard|transform=no-such-transform@}", "Copied Text"},
        {"{@selection|transform=kebab-case@}", "picked"},
        {"{@counter@} {@increment@}", "42 43"},
        {"{@random|min=5|max=9@}", "5009"},
        {"{@random|min=9|max=5@}", "5009"},
        {"{@random|min=x@}", "100"},
        {"Hi {@var|key=name@}{@var|key=missing@}", "Hi Ada"},
        {"{@link|url=https://a.example|text=Site@}", "[Site](https://a.example)"},
        {"{@hyperlink|url=https://a.example@}", "[https://a.example](https://a.example)"},
        {"at {@snippet|keyword=addr@}.", "at 1 Main St."},
        {"{@snippet|keyword=unknown@}", ""},
        {"{@nosuch|x=1@}", "{@nosuch|x=1@}"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        auto result = SnippetRenderer::render(c.body, context);
        EXPECT_EQ(result.text, c.text);
        EXPECT_TRUE(result.fillIns.empty());
        EXPECT_FALSE(result.cursorOffset.has_value());
    }
}

TEST(SnippetRenderer, MissingClipboardOrSelectionRendersNothing) {
    auto context = makeContext();
    EXPECT_EQ(SnippetRenderer::render("a{@clipboard@}{@selection@}b", context).text, "ab");
    context.clipboard = [] { return std::optional<std::string>(); };
    EXPECT_EQ(SnippetRenderer::render("a{@clipboard@}b", context).text, "ab");
}

TEST(SnippetRenderer, CursorOffsetCountsCharactersAndTheFirstMarkWins) {
    auto context = makeContext({{"inner", "12{@cursor@}3"}});
    struct Case {
        std::string_view body;
        std::string_view text;
        std::optional<std::int64_t> offset;
    };
    const Case cases[] = {
        {"{@cursor@}abc", "abc", 0},
        {"abc{@cursor@}", "abc", 3},
        {"a{@cursor@}b{@cursor@}c", "abc", 1},
        {"👩‍👩‍👧 e\u0301{@cursor@}!", "👩‍👩‍👧 e\u0301!", 3},
        {"ab{@snippet|keyword=inner@}", "ab123", 4},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        auto result = SnippetRenderer::render(c.body, context);
        EXPECT_EQ(result.text, c.text);
        EXPECT_EQ(result.cursorOffset, c.offset);
    }
}

TEST(SnippetRenderer, DateStylesAndPatternsFollowTheContextLocaleAndTimeZone) {
    struct Case {
        std::string_view body;
        const char* locale;
        const char* zone;
        std::string_view text;
    };
    const Case cases[] = {
        {"{@date@}", "en_US", "UTC", "Mar 5, 2024"},
        {"{@date|format=short@}", "en_US", "UTC", "3/5/24"},
        {"{@date|format=medium@}", "en_US", "UTC", "Mar 5, 2024"},
        {"{@date|format=long@}", "en_US", "UTC", "March 5, 2024"},
        {"{@date|format=full@}", "en_US", "UTC", "Tuesday, March 5, 2024"},
        {"{@date|format=full@}", "en_US", "Asia/Tokyo", "Wednesday, March 6, 2024"},
        {"{@date|format=yyyy@}", "en_US", "UTC", "2024"},
        {"{@date|format=yyyy-MM-dd HH:mm@}", "en_US", "Asia/Tokyo", "2024-03-06 05:07"},
        {"{@time@}", "en_US", "UTC", "8:07\u202fPM"},
        {"{@time|format=medium@}", "en_US", "Asia/Tokyo", "5:07:09\u202fAM"},
        {"{@date|format=long@}", "de_DE", "UTC", "5. März 2024"},
        {"{@date|format=full@}", "de_DE", "Asia/Tokyo", "Mittwoch, 6. März 2024"},
        {"{@date|format=EEEE@}", "de_DE", "UTC", "Dienstag"},
        {"{@time|format=short@}", "de_DE", "Asia/Tokyo", "05:07"},
        {"{@time|format=short@}", "de_DE", "UTC", "20:07"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(c.body) + " " + c.locale + " " + c.zone);
        auto context = makeContext();
        context.locale = c.locale;
        context.timeZone = c.zone;
        EXPECT_EQ(SnippetRenderer::render(c.body, context).text, c.text);
    }
}

TEST(SnippetRenderer, FieldsOfOneNameAreOneQuestionAnsweredInEveryPlace) {
    const std::string body = "{@text|name=To|default=you@} and {@select|name=To|options=A,B@} "
                             "{@select|name=Size|options=Small,Medium,Large@}"
                             "{@multiselect|name=Extras|options=Oat milk,Sugar,Ice@}"
                             "{@date-picker|name=Day@}{@text|field=Note@}{@choice@}";
    auto context = makeContext();
    auto unanswered = SnippetRenderer::render(body, context);
    const std::vector<FillInField> expected{
        {"To", FillInField::Text{}, "you"},
        {"Size", FillInField::Choice{{"Small", "Medium", "Large"}}, std::nullopt},
        {"Extras", FillInField::MultiChoice{{"Oat milk", "Sugar", "Ice"}}, std::nullopt},
        {"Day", FillInField::Date{}, std::nullopt},
        {"Note", FillInField::Text{}, std::nullopt},
        {"choice", FillInField::Choice{}, std::nullopt},
    };
    EXPECT_EQ(unanswered.fillIns, expected);
    EXPECT_EQ(unanswered.text, "you and you ");

    context.fillInValues = {{"To", "Bo"},     {"Size", "Large"}, {"Extras", "Ice, Oat milk"},
                            {"Day", "May 1"}, {"Note", "n"},     {"choice", "c"}};
    auto answered = SnippetRenderer::render(body, context);
    EXPECT_EQ(answered.text, "Bo and Bo LargeOat milk, IceMay 1nc");
    EXPECT_EQ(answered.fillIns, expected);
}

TEST(SnippetRenderer, SelfInclusionRendersNothingAndIsReported) {
    auto context = makeContext({
        {"a", "A{@snippet|keyword=b@}"},
        {"b", "B{@snippet|keyword=a@}"},
        {"self", "S{@snippet|keyword=self@}"},
        {"twice", "{@snippet|keyword=leaf@}{@snippet|keyword=leaf@}"},
        {"leaf", "L"},
    });
    struct Case {
        std::string_view body;
        std::string_view keyword;
        std::string_view text;
        std::vector<std::string> refused;
    };
    const Case cases[] = {
        {"S{@snippet|keyword=self@}", "self", "S", {"self"}},
        {"A{@snippet|keyword=b@}", "a", "AB", {"a"}},
        {"x{@snippet|keyword=a@}", "", "xAB", {"a"}},
        // The same snippet twice side by side is not a cycle.
        {"{@snippet|keyword=twice@}", "", "LL", {}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        auto result = SnippetRenderer::render(c.body, context, c.keyword);
        EXPECT_EQ(result.text, c.text);
        EXPECT_EQ(result.refusedIncludes, c.refused);
    }
}

TEST(SnippetRenderer, IncludeChainsStopAtTheDepthCap) {
    std::map<std::string, std::string> library;
    for (int i = 0; i < 20; ++i) {
        library["s" + std::to_string(i)] = "x{@snippet|keyword=s" + std::to_string(i + 1) + "@}";
    }
    auto result = SnippetRenderer::render("{@snippet|keyword=s0@}", makeContext(library));
    EXPECT_EQ(result.text, std::string(SnippetRenderer::kMaxIncludeDepth + 1, 'x'));
    ASSERT_EQ(result.refusedIncludes.size(), 1u);
}

TEST(SnippetRenderer, AIPlaceholdersAskWithStableIdsAndFallBackWithoutAnAnswer) {
    const std::string body = "{@ai|prompt=Greet|fallback=Hello@} {@ai|prompt=Greet|fallback=Hi@} "
                             "{@ai|prompt=Sum|input=clipboard|tier=cloud@}";
    auto context = makeContext();
    auto first = SnippetRenderer::render(body, context);
    ASSERT_EQ(first.aiRequests.size(), 3u);
    EXPECT_EQ(first.text, "Hello Hi ");
    EXPECT_NE(first.aiRequests[0].id, first.aiRequests[1].id);
    EXPECT_EQ(first.aiRequests[2].input, AIInput::clipboard);
    EXPECT_EQ(first.aiRequests[2].tier, AITier::cloud);

    context.aiValues[first.aiRequests[1].id] = "Good day";
    context.aiValues[first.aiRequests[2].id] = "summary";
    auto second = SnippetRenderer::render(body, context);
    EXPECT_EQ(second.aiRequests, first.aiRequests);
    EXPECT_EQ(second.text, "Hello Good day summary");
}

TEST(SnippetBodyValidator, ReportsUnknownTypesEmptyOptionsAndLeftoverMarks) {
    using V = SnippetBodyValidator;
    struct Case {
        std::string_view body;
        std::vector<V::Issue> issues;
        std::int64_t fillInCount;
    };
    const Case cases[] = {
        {"Hello {@cursor@}", {}, 0},
        {"{@dat@}", {V::UnknownType{"dat"}}, 0},
        {"{@select|name=A@}{@multiselect|name=B|options=@}{@choice|options=,@}",
         {V::EmptyOptions{"select"}, V::EmptyOptions{"multiselect"}, V::EmptyOptions{"choice"}},
         3},
        {"{@text|name=A@}{@text|name=A@}{@date-picker|field=B@}", {}, 2},
        {"oops {@date", {V::MalformedResidue{}}, 0},
        {"oops date@}", {V::MalformedResidue{}}, 0},
        {"{@a {@cursor@}", {V::UnknownType{"a {@cursor"}, V::MalformedResidue{}}, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.body);
        auto result = V::validate(c.body);
        EXPECT_EQ(result.issues, c.issues);
        EXPECT_EQ(result.fillInCount, c.fillInCount);
    }
}

} // namespace
} // namespace marlune
