#include "ExpansionEngine/FillInSession.h"
#include "ExpansionEngine/Graphemes.h"
#include "ExpansionEngine/TypedBuffer.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

TEST(Graphemes, CountsUserPerceivedCharacters) {
    struct Case {
        std::string_view text;
        std::int64_t count;
    };
    const Case cases[] = {
        {"", 0},         {"abc", 3},    {"a\r\nb", 3},
        {"e\u0301", 1},  {"🇫🇷🇩🇪", 2},   {"👩‍👩‍👧", 1},
        {"☕️", 1},   {"日本語", 3}, {"👍🏽!", 2},
        {"\xff\xfe", 2}, // ill-formed bytes still count, one each
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        EXPECT_EQ(Graphemes::count(c.text), c.count);
    }
}

TEST(TypedBuffer, BurstKeepsExactlyTheLast64Characters) {
    TypedBuffer buffer;
    std::string typed;
    for (int i = 0; i < 70; ++i) {
        std::string key(1, static_cast<char>('a' + i % 26));
        typed += key;
        buffer.appendKeyText(key);
    }
    EXPECT_EQ(buffer.text(), typed.substr(6));

    TypedBuffer emoji;
    for (int i = 0; i < 70; ++i) {
        emoji.appendKeyText(i == 0 ? "x" : "🇫🇷");
    }
    EXPECT_EQ(Graphemes::count(emoji.text()), 64);
    EXPECT_EQ(emoji.text().substr(0, 8), "🇫🇷");
}

TEST(TypedBuffer, BackspaceRemovesOneWholeCharacter) {
    TypedBuffer buffer;
    buffer.backspace();
    EXPECT_EQ(buffer.text(), "");
    buffer.appendKeyText("a");
    buffer.appendKeyText("e\u0301");
    buffer.appendKeyText("👩‍👩‍👧");
    buffer.backspace();
    EXPECT_EQ(buffer.text(), "ae\u0301");
    buffer.backspace();
    EXPECT_EQ(buffer.text(), "a");
}

TEST(TypedBuffer, SuppressionLastsUntilTheTokenEnds) {
    TypedBuffer buffer;
    buffer.appendKeyText(";sig");
    buffer.suppress(";sig");
    EXPECT_TRUE(buffer.isSuppressed(";sig"));
    buffer.appendKeyText("x");
    EXPECT_TRUE(buffer.isSuppressed(";sig"));
    buffer.appendKeyText(" ");
    EXPECT_FALSE(buffer.suppressedToken().has_value());
    buffer.suppress(";sig");
    buffer.clear();
    EXPECT_FALSE(buffer.isSuppressed(";sig"));
}

TEST(TypedBuffer, AbortReasonsAreCountedAndSurviveClear) {
    TypedBuffer buffer;
    buffer.recordAbort("precaret-mismatch");
    buffer.recordAbort("keydown-during-verify");
    buffer.recordAbort("precaret-mismatch");
    buffer.clear();
    EXPECT_EQ(buffer.lastAbortReason(), "precaret-mismatch");
    EXPECT_EQ(buffer.abortCounts().at("precaret-mismatch"), 2);
    EXPECT_EQ(buffer.abortCounts().at("keydown-during-verify"), 1);
}

TEST(FillInSession, ReturnMovesOnUntilTheLastFieldThenInserts) {
    FillInSession session({{"A", FillInField::Text{}, "x"},
                           {"B", FillInField::Choice{{"S", "M"}}, "L"},
                           {"C", FillInField::MultiChoice{{"Oat", "Ice", "Sugar"}}, std::nullopt}});
    EXPECT_EQ(session.values().at("A"), "x");
    EXPECT_EQ(session.values().at("B"), "S"); // a default that is no option falls back to the first
    EXPECT_EQ(session.values().at("C"), "");
    EXPECT_EQ(session.pressReturn(), FillInSession::ReturnAction::next);
    EXPECT_EQ(session.activeIndex(), 1);
    EXPECT_EQ(session.pressReturn(), FillInSession::ReturnAction::next);
    EXPECT_EQ(session.pressReturn(), FillInSession::ReturnAction::insert);
    EXPECT_EQ(session.activeIndex(), 2);

    FillInSession single({{"Only", FillInField::Text{}, std::nullopt}});
    EXPECT_EQ(single.returnAction(), FillInSession::ReturnAction::insert);
}

TEST(FillInSession, MultipleChoiceAnswerFollowsOptionOrderNotTickOrder) {
    FillInSession session({{"C", FillInField::MultiChoice{{"Oat", "Ice", "Sugar"}}, std::nullopt}});
    session.toggleOption("C", "Sugar");
    session.toggleOption("C", "Oat");
    session.toggleOption("C", "Ice");
    session.toggleOption("C", "Ice");
    session.toggleOption("C", "Nope");
    EXPECT_EQ(session.values().at("C"), "Oat, Sugar");
    EXPECT_TRUE(session.isChosen("C", "Sugar"));
    EXPECT_FALSE(session.isChosen("C", "Ice"));
}

} // namespace
} // namespace marlune
