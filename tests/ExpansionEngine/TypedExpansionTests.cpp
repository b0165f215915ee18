#include "ExpansionEngine/InjectionPlan.h"
#include "ExpansionEngine/KeywordTable.h"
#include "ExpansionEngine/TypedExpansion.h"
#include "TestContext.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using testing::makeContext;
using Commit = TypedExpansion::Commit;
using FillInRequest = TypedExpansion::FillInRequest;

KeywordTable sampleTable() {
    return KeywordTable({
        {"1", "sig", "Best regards,\nAda", "plainText"},
        {"2", "empty", "{@cursor@}", "plainText"},
        {"3", "form", "{@text|name=Recipient@}", "plainText"},
        {"4", "mail", "Hi {@text|name=Who|default=there@},{@cursor@} bye", "plainText"},
        {"5", "end", "done{@cursor@}", "plainText"},
        {"6", "start", "{@cursor@}abc", "plainText"},
        {"7", "☕", "coffee ☕️", "plainText"},
        {"8", "café", "🇫🇷 e\u0301", "plainText"},
        {"9", "cafe\u0301", "decomposed", "plainText"},
    });
}

struct DecideCase {
    const char* name;
    std::optional<std::string_view> text;
    std::optional<std::string_view> baseline;
    bool enabled;
    // Expected: keyword of an expand, or "" for none.
    const char* expandedKeyword;
    std::int64_t deleteCount;
};

TEST(TypedExpansion, DecidesOnlyWhenATokenEndingInAKnownKeywordWasJustTyped) {
    const DecideCase cases[] = {
        {"plain match after a space", "hello ;sig", "hello ;si", true, "sig", 4},
        {"prefix inside a token keeps what precedes it", "x;sig", "x;si", true, "sig", 4},
        {"tab ends a token", "a\t;sig", "a\t;si", true, "sig", 4},
        {"newline ends a token", "a\n;sig", "a\n;si", true, "sig", 4},
        {"no-break space is whitespace too", "a\u00a0;sig", "a\u00a0;si", true, "sig", 4},
        {"ideographic space is whitespace too", "日本\u3000;sig", "日本\u3000;si", true, "sig", 4},
        {"disabled", "hello ;sig", "hello ;si", false, "", 0},
        {"no text", std::nullopt, "hello ;si", true, "", 0},
        {"no baseline", "hello ;sig", std::nullopt, true, "", 0},
        {"baseline equals text", "hello ;sig", "hello ;sig", true, "", 0},
        {"baseline longer (a deletion)", "hello ;sig", "hello ;sigg", true, "", 0},
        {"edit in the middle", "hallo ;sig", "hello ;si", true, "", 0},
        {"paste replaced the text", ";sig", "abc", true, "", 0},
        {"doubled prefix", ";;sig", ";;si", true, "", 0},
        {"second prefix inside keyword", ";a;sig", ";a;si", true, "", 0},
        {"prefix alone is an empty keyword", "hello ;", "hello ", true, "", 0},
        {"keyword not in the table", "hello ;sih", "hello ;si", true, "", 0},
        {"keyword with a space before it split the token", ";si g", ";si ", true, "", 0},
        {"unknown longer keyword", ";sigx", ";sig", true, "", 0},
        {"combining accent typed after the keyword", ";sig\u0301", ";sig", true, "", 0},
        {"emoji keyword counts one character", "ok ;☕", "ok ;", true, "☕", 2},
        {"accent merging into the last letter completes a decomposed keyword", ";cafe\u0301",
         ";cafe", true, "cafe\u0301", 5},
        {"decomposed keyword counts graphemes", ";cafe\u0301", ";caf", true, "cafe\u0301", 5},
        {"precomposed keyword", ";café", ";caf", true, "café", 5},
    };
    auto table = sampleTable();
    auto context = makeContext();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto decision =
            TypedExpansion::decide(c.text, c.baseline, ";", c.enabled, table.lookup(), context);
        if (std::string_view(c.expandedKeyword).empty()) {
            EXPECT_TRUE(std::holds_alternative<TypedExpansion::None>(decision));
            continue;
        }
        const auto* commit = std::get_if<Commit>(&decision);
        ASSERT_NE(commit, nullptr);
        EXPECT_EQ(commit->keyword, c.expandedKeyword);
        EXPECT_EQ(commit->typedToken, ";" + std::string(c.expandedKeyword));
        EXPECT_EQ(commit->deleteCount, c.deleteCount);
    }
}

TEST(TypedExpansion, ExpandCommitCountsCharactersNotBytes) {
    auto table = sampleTable();
    auto context = makeContext();
    struct Case {
        std::string_view text, baseline;
        std::string expectedText;
        std::int64_t cursorBack, keystrokesSaved;
        std::vector<InjectionStep> steps;
    };
    const Case cases[] = {
        {"hello ;sig",
         "hello ;si",
         "Best regards,\nAda",
         0,
         13,
         {injection::DeleteBackward{4}, injection::Settle{},
          injection::Paste{"Best regards,\nAda"}}},
        // A cursor mark at the very end moves nothing.
        {";end",
         ";en",
         "done",
         0,
         0,
         {injection::DeleteBackward{4}, injection::Settle{}, injection::Paste{"done"}}},
        // At the very start the caret walks back over the whole text.
        {";start",
         ";star",
         "abc",
         3,
         0,
         {injection::DeleteBackward{6}, injection::Settle{}, injection::Paste{"abc"},
          injection::MoveCaretBack{3}}},
        // "coffee ☕️" is 8 characters: the emoji with its variation selector is one.
        {";☕",
         ";",
         "coffee ☕️",
         0,
         6,
         {injection::DeleteBackward{2}, injection::Settle{}, injection::Paste{"coffee ☕️"}}},
        // A flag and a decomposed é are one character each: 3 in all, less than 5 deleted.
        {";café",
         ";caf",
         "🇫🇷 e\u0301",
         0,
         0,
         {injection::DeleteBackward{5}, injection::Settle{}, injection::Paste{"🇫🇷 e\u0301"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        auto decision =
            TypedExpansion::decide(c.text, c.baseline, ";", true, table.lookup(), context);
        const auto* commit = std::get_if<Commit>(&decision);
        ASSERT_NE(commit, nullptr);
        EXPECT_EQ(commit->text, c.expectedText);
        EXPECT_EQ(commit->cursorBack, c.cursorBack);
        EXPECT_EQ(commit->keystrokesSaved, c.keystrokesSaved);
        EXPECT_EQ(commit->steps, c.steps);
    }
}

TEST(TypedExpansion, BodyThatRendersEmptyNeverEatsTheKeyword) {
    auto table = sampleTable();
    auto decision =
        TypedExpansion::decide(";empty", ";empt", ";", true, table.lookup(), makeContext());
    EXPECT_TRUE(std::holds_alternative<TypedExpansion::None>(decision));
}

TEST(TypedExpansion, FillInFieldAsksFirstEvenWhenTheRestOfTheBodyIsEmpty) {
    auto table = sampleTable();
    auto decision =
        TypedExpansion::decide("to ;form", "to ;for", ";", true, table.lookup(), makeContext());
    const auto* request = std::get_if<FillInRequest>(&decision);
    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->keyword, "form");
    EXPECT_EQ(request->typedToken, ";form");
    EXPECT_EQ(request->deleteCount, 5);
    EXPECT_EQ(request->content, "{@text|name=Recipient@}");
    ASSERT_EQ(request->fields.size(), 1u);
    EXPECT_EQ(request->fields[0].name, "Recipient");
}

TEST(TypedExpansion, FillInCommitDeletesNothingWhenTheCaretMovedWhileTheFormWasOpen) {
    auto table = sampleTable();
    auto context = makeContext();
    auto decision = TypedExpansion::decide("x ;mail", "x ;mai", ";", true, table.lookup(), context);
    auto request = std::get<FillInRequest>(decision);
    context.fillInValues["Who"] = "Bo";

    struct Case {
        const char* name;
        std::optional<std::string_view> preCaret;
        std::int64_t deleteCount;
    };
    const Case cases[] = {
        {"keyword still in front of the caret", "x ;mail", 5},
        {"caret moved elsewhere", "x ;mail and more", 0},
        {"field unreadable", std::nullopt, 0},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto commit = TypedExpansion::commitFillIn(request, c.preCaret, context);
        EXPECT_EQ(commit.text, "Hi Bo, bye");
        EXPECT_EQ(commit.deleteCount, c.deleteCount);
        EXPECT_EQ(commit.cursorBack, 4);
        EXPECT_EQ(commit.keystrokesSaved, 10 - c.deleteCount);
        EXPECT_EQ(commit.steps.size(), c.deleteCount > 0 ? 4u : 3u);
        EXPECT_EQ(commit.steps.back(), InjectionStep(injection::MoveCaretBack{4}));
    }
}

TEST(TypedExpansion, SnippetNamingItsOwnKeywordIsNotIncludedEvenOnce) {
    KeywordTable table({{"1", "loop", "a{@snippet|keyword=loop@}b", "plainText"}});
    auto context = makeContext({{"loop", "a{@snippet|keyword=loop@}b"}});
    auto decision = TypedExpansion::decide(";loop", ";loo", ";", true, table.lookup(), context);
    ASSERT_TRUE(std::holds_alternative<Commit>(decision));
    EXPECT_EQ(std::get<Commit>(decision).text, "ab");
}

TEST(InjectionPlan, OmitsDeletionAndCaretStepsThatWouldMoveNothing) {
    using namespace injection;
    EXPECT_EQ(InjectionPlan::make(0, "t", 0), (std::vector<InjectionStep>{Settle{}, Paste{"t"}}));
    EXPECT_EQ(InjectionPlan::make(-2, "t", -1), (std::vector<InjectionStep>{Settle{}, Paste{"t"}}));
    EXPECT_EQ(
        InjectionPlan::make(3, "t", 1),
        (std::vector<InjectionStep>{DeleteBackward{3}, Settle{}, Paste{"t"}, MoveCaretBack{1}}));
}

} // namespace
} // namespace marlune
