#include "ExpansionEngine/KeywordRules.h"
#include "ExpansionEngine/KeywordTable.h"
#include "ExpansionEngine/TypedBuffer.h"
#include "ExpansionEngine/TypedExpansion.h"
#include "TestContext.h"

#include <gtest/gtest.h>
#include <optional>
#include <vector>

namespace marlune {
namespace {

using Problem = KeywordRules::Problem;

TEST(KeywordRules, KeywordsThatCouldNeverBeTypedAreRefused) {
    struct Case {
        const char* keyword;
        std::optional<Problem> problem;
    };
    const Case cases[] = {
        {"sig", std::nullopt},
        {"", std::nullopt}, // no keyword at all
        {"café", std::nullopt},
        {"cafe\u0301", std::nullopt}, // a combining mark inside is one character with the e
        {"ok👍🏽", std::nullopt},
        {"dev👩‍💻", std::nullopt},
        {"🇫🇷", std::nullopt},
        {"a b", Problem::whitespace},
        {"a\tb", Problem::whitespace},
        {"ab\n", Problem::whitespace},
        {"a\u00a0b", Problem::whitespace},     // no-break space
        {"a\u2003b", Problem::whitespace},     // em space
        {"日本\u3000語", Problem::whitespace}, // ideographic space
        {"\u0301sig", Problem::leadingCombiningMark},
        {"\ufe0fsig", Problem::leadingCombiningMark},     // variation selector
        {"\U0001f3fdsig", Problem::leadingCombiningMark}, // skin tone
        {"\u200dsig", Problem::leadingCombiningMark},     // zero-width joiner
        {"a;b", Problem::containsPrefix},
    };
    for (const auto& c : cases) {
        const auto refusal = KeywordRules::check(c.keyword, ";");
        EXPECT_EQ(refusal ? std::optional(refusal->problem) : std::nullopt, c.problem) << c.keyword;
        if (refusal) {
            EXPECT_TRUE(refusal->message.ends_with(".")) << refusal->message;
        }
    }
    EXPECT_EQ(KeywordRules::refusalForPrefixOnly(";").message,
              "A keyword can't be only the keyword prefix ';'.");
}

// Keys arrive one code point at a time (an emoji with a skin tone or a joiner is several key
// events), so the keyword is complete only with its last code point, and it is then deleted as
// the characters the field shows.
TEST(KeywordRules, KeywordEndingInAMultiCodePointEmojiExpandsOnItsLastCodePoint) {
    const KeywordTable table({{"1", "ok👍🏽", "fine", "plainText"},
                              {"2", "dev👩‍💻", "developer", "plainText"}});
    const auto lookup = table.lookup();
    const auto context = testing::makeContext();
    struct Case {
        std::vector<const char*> keys;
        const char* keyword;
        std::int64_t deleteCount;
    };
    const Case cases[] = {
        {{"x", " ", ";", "o", "k", "👍", "\U0001f3fd"}, "ok👍🏽", 4},
        {{";", "d", "e", "v", "👩", "\u200d", "💻"}, "dev👩‍💻", 5},
    };
    for (const auto& c : cases) {
        TypedBuffer buffer;
        std::optional<TypedExpansion::Commit> commit;
        std::size_t decidedAt = 0;
        for (std::size_t i = 0; i < c.keys.size(); ++i) {
            const std::string before = buffer.text();
            buffer.appendKeyText(c.keys[i]);
            auto decision =
                TypedExpansion::decide(buffer.text(), before, ";", true, lookup, context);
            if (auto* found = std::get_if<TypedExpansion::Commit>(&decision)) {
                commit = *found;
                decidedAt = i;
            }
        }
        ASSERT_TRUE(commit) << c.keyword;
        EXPECT_EQ(decidedAt, c.keys.size() - 1) << c.keyword;
        EXPECT_EQ(commit->keyword, c.keyword);
        EXPECT_EQ(commit->deleteCount, c.deleteCount) << c.keyword;
    }
}

} // namespace
} // namespace marlune
