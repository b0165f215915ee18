#include "Platform/XkbKeymapTranslator.h"

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <xkbcommon/xkbcommon-keysyms.h>

namespace marlune {
namespace {

// The compose table every developer machine has; the user's own locale would make the tests
// depend on who runs them.
constexpr const char* kComposeLocale = "en_US.UTF-8";

std::string describe(const KeyboardEvent& event) {
    if (const auto* typed = std::get_if<keyboard::TextTyped>(&event)) {
        return typed->text;
    }
    if (std::holds_alternative<keyboard::BackspacePressed>(event)) {
        return "<bs>";
    }
    if (const auto* key = std::get_if<keyboard::KeyPressed>(&event)) {
        std::string name = key->modifiers.control ? "<ctrl+" : "<";
        switch (key->key) {
        case NamedKey::returnKey:
            return name + "return>";
        case NamedKey::left:
            return name + "left>";
        case NamedKey::other:
            return name + "key>";
        default:
            return name + "named>";
        }
    }
    return "";
}

// Plays a script of XKB key names: "AC01" presses and releases a key, "+LFSH" only presses it,
// "-LFSH" only releases it. Returns what the keys typed.
std::string play(XkbKeymapTranslator& translator, const std::string& script) {
    std::istringstream words(script);
    std::string word;
    std::string transcript;
    while (words >> word) {
        const bool pressOnly = word.front() == '+';
        const bool releaseOnly = word.front() == '-';
        const std::string name = pressOnly || releaseOnly ? word.substr(1) : word;
        const auto keycode = translator.keycodeByName(name);
        if (!keycode) {
            ADD_FAILURE() << "no key named " << name;
            return transcript;
        }
        if (!releaseOnly) {
            if (const auto event = translator.keyPressed(*keycode)) {
                transcript += describe(*event);
            }
        }
        if (!pressOnly) {
            translator.keyReleased(*keycode);
        }
    }
    return transcript;
}

struct TypingCase {
    const char* name;
    const char* layout;
    const char* options;
    const char* script;
    const char* typed;
};

void PrintTo(const TypingCase& row, std::ostream* out) {
    *out << row.name;
}

class TypingTest : public ::testing::TestWithParam<TypingCase> {};

TEST_P(TypingTest, KeysTypeWhatTheLayoutPrints) {
    const TypingCase& row = GetParam();
    auto translator = XkbKeymapTranslator::fromNames(row.layout, "", row.options, kComposeLocale);
    ASSERT_NE(translator, nullptr) << "xkb data for " << row.layout << " is missing";
    EXPECT_EQ(play(*translator, row.script), row.typed);
}

INSTANTIATE_TEST_SUITE_P(
    OfflineKeymaps, TypingTest,
    ::testing::Values(
        TypingCase{"UsLetters", "us", "", "AD05 AD03 AC02 AD05", "test"},
        TypingCase{"UsShiftedSymbolsEndWithShift", "us", "",
                   "+LFSH AE01 AE02 AB01 AC11 -LFSH AC01 AC11", "!@Z\"a'"},
        TypingCase{"UsCapsLockTogglesLettersNotDigits", "us", "", "CAPS AC01 AE01 CAPS AC01",
                   "A1a"},
        TypingCase{"UsControlLetterIsAShortcutNotText", "us", "", "+LCTL AB03 -LCTL AB03",
                   "<ctrl+key>c"},
        TypingCase{"UsBackspaceReturnAndArrowsAreKeysNotText", "us", "",
                   "AC01 BKSP RTRN LEFT ESC FK01", "a<bs><return><left><named><key>"},
        TypingCase{"UsKeypadDigitsNeedNumLock", "us", "", "KP1 NMLK KP1", "<named>1"},
        TypingCase{"GermanDirectUmlautsAndSharpS", "de", "", "AE11 AD11 AC10 AC11", "ßüöä"},
        TypingCase{"GermanSwapsYAndZ", "de", "", "AD06 AB01", "zy"},
        TypingCase{"GermanDeadAcuteThenE", "de", "", "AE12 AD03", "é"},
        TypingCase{"GermanShiftedDeadKeyIsGrave", "de", "", "+LFSH AE12 -LFSH AC01", "à"},
        TypingCase{"GermanDeadCircumflexThenSpaceIsTheCaret", "de", "", "TLDE SPCE", "^"},
        TypingCase{"GermanDeadKeyTwiceTypesTheAccentItself", "de", "", "AE12 AE12", "´"},
        TypingCase{"GermanInvalidComposeTypesNothingAndTypingGoesOn", "de", "", "AE12 AC04 AD03",
                   "e"},
        TypingCase{"GermanBackspaceAbandonsADeadKey", "de", "", "TLDE BKSP AD03", "<bs>e"},
        TypingCase{"GermanAltGrLevelsType", "de", "", "+RALT AD03 AD01 -RALT AD03", "€@e"},
        TypingCase{"LayoutKeySwitchesMidWord", "us,de", "grp:caps_toggle",
                   "AC07 AD06 CAPS AD06 AE11 CAPS AD06", "jyzßy"}),
    [](const ::testing::TestParamInfo<TypingCase>& row) { return std::string(row.param.name); });

TEST(XkbKeymapTranslatorTest, ModifierKeysReportPressAndReleaseButTypeNothing) {
    auto translator = XkbKeymapTranslator::fromNames("us", "", "", kComposeLocale);
    ASSERT_NE(translator, nullptr);
    const auto shift = *translator->keycodeByName("RTSH");
    EXPECT_EQ(translator->keyPressed(shift),
              KeyboardEvent(keyboard::ModifierChanged{ModifierKey::rightShift, true}));
    EXPECT_EQ(translator->keyReleased(shift),
              KeyboardEvent(keyboard::ModifierChanged{ModifierKey::rightShift, false}));
    EXPECT_EQ(translator->keyReleased(*translator->keycodeByName("AC01")), std::nullopt);
}

TEST(XkbKeymapTranslatorTest, ModifierHeldAcrossADeadKeyDoesNotCancelTheSequence) {
    auto translator = XkbKeymapTranslator::fromNames("de", "", "", kComposeLocale);
    ASSERT_NE(translator, nullptr);
    // Shift for a capital after the accent: the Shift press must not end the sequence.
    EXPECT_EQ(play(*translator, "AE12 +LFSH AD03 -LFSH"), "É");
}

// Against the X server the keys never move the state; the server's notifications do. A
// translator that still tracked keys would shift twice or miss a switch made by another client.
TEST(XkbKeymapTranslatorTest, ServerStateAloneDecidesModifiersAndLayout) {
    auto translator = XkbKeymapTranslator::fromNames("us,de", "", "", kComposeLocale,
                                                     XkbKeymapTranslator::StateSource::server);
    ASSERT_NE(translator, nullptr);
    EXPECT_EQ(play(*translator, "+LFSH AD06 -LFSH"), "y");

    XkbStateMask shifted;
    shifted.depressedMods = 1; // Shift
    EXPECT_FALSE(translator->updateMask(shifted));
    EXPECT_EQ(play(*translator, "AD06"), "Y");

    XkbStateMask german;
    german.lockedGroup = 1;
    EXPECT_TRUE(translator->updateMask(german));
    EXPECT_EQ(translator->layoutIndex(), 1U);
    EXPECT_EQ(play(*translator, "AD06 AE11"), "zß");
}

TEST(XkbKeymapTranslatorTest, TypedEventCarriesKeysymAndShiftState) {
    auto translator = XkbKeymapTranslator::fromNames("us", "", "", kComposeLocale);
    ASSERT_NE(translator, nullptr);
    translator->keyPressed(*translator->keycodeByName("LFSH"));
    const auto event = translator->keyPressed(*translator->keycodeByName("AC01"));
    ASSERT_TRUE(event.has_value());
    KeyModifiers shift;
    shift.shift = true;
    EXPECT_EQ(*event, KeyboardEvent(keyboard::TextTyped{"A", XKB_KEY_A, shift}));
}

TEST(XkbKeymapTranslatorTest, UnknownLayoutNamesCompileToNothing) {
    EXPECT_EQ(XkbKeymapTranslator::fromKeymapText("xkb_keymap { nonsense", kComposeLocale),
              nullptr);
}

} // namespace
} // namespace marlune
