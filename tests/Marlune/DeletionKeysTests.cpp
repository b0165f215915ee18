#include "Marlune/DeletionKeys.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using keyinjection::Backspaces;
using keyinjection::SelectLeft;

TEST(DeletionKeys, CharactersOfSeveralCodePointsAreSelectedWholeOutsideTerminals) {
    struct Case {
        const char* name;
        const char* text;
        bool lineEditor;
        std::vector<KeyInjection> keys;
    };
    const Case cases[] = {
        {"plain keyword", ";sig", false, {Backspaces{4}}},
        {"precomposed accent is one code point", ";café", false, {Backspaces{5}}},
        {"skin tone at the end",
         ";ok👍🏽",
         false,
         {SelectLeft{1}, Backspaces{1}, Backspaces{3}}},
        {"joined emoji at the end",
         ";dev👩‍💻",
         false,
         {SelectLeft{1}, Backspaces{1}, Backspaces{4}}},
        {"decomposed accent in the middle",
         ";cafe\u0301s",
         false,
         {Backspaces{1}, SelectLeft{1}, Backspaces{1}, Backspaces{4}}},
        {"flag", ";🇫🇷", false, {SelectLeft{1}, Backspaces{1}, Backspaces{1}}},
        {"terminal: a BackSpace per code point", ";ok👍🏽", true, {Backspaces{5}}},
        {"terminal: joined emoji", ";dev👩‍💻", true, {Backspaces{7}}},
        {"nothing", "", false, {}},
        {"nothing in a terminal", "", true, {}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(deletionKeys(c.text, c.lineEditor), c.keys) << c.name;
    }
}

} // namespace
} // namespace marlune
