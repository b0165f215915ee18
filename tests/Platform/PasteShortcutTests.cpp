#include "Platform/KeyChordText.h"
#include "Platform/PasteShortcut.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using Overrides = std::map<std::string, std::string, std::less<>>;

std::string describe(const PasteMethod& method) {
    if (const auto* chord = std::get_if<PasteByChord>(&method)) {
        return KeyChordText::describe(chord->chord);
    }
    return "type";
}

TEST(PasteShortcutTest, WindowClassesGetTheirPasteMethod) {
    const Overrides none;
    const Overrides user{{"Emacs", "Shift+Insert"},
                         {"*term*", "ctrl+shift+v"},
                         {"xfce4-terminal", "type"},
                         {"Gimp*", "Ctrl+Nonsense+V"}};
    struct Row {
        const char* wmClass;
        const Overrides& overrides;
        const char* expected;
    } rows[] = {
        {"firefox", none, "Ctrl+V"},
        {"", none, "Ctrl+V"},
        {"XTerm", none, "type"},
        {"UXTerm", none, "type"},
        {"URxvt", none, "Ctrl+Alt+V"},
        {"Gnome-terminal", none, "Ctrl+Shift+V"},
        {"org.gnome.Terminal", none, "Ctrl+Shift+V"},
        {"kitty", none, "Ctrl+Shift+V"},
        {"Alacritty", none, "Ctrl+Shift+V"},
        {"konsole", none, "Ctrl+Shift+V"},
        {"Tilix", none, "Ctrl+Shift+V"},
        {"Terminator", none, "Ctrl+Shift+V"},
        {"org.wezfurlong.wezterm", none, "Ctrl+Shift+V"},
        {"foot", none, "Ctrl+Shift+V"},
        // A user's pattern beats the built-in choice, and the longest matching pattern wins.
        {"emacs", user, "Shift+Insert"},
        {"XTerm", user, "Ctrl+Shift+V"},
        {"Xfce4-terminal", user, "type"},
        // An override whose shortcut does not parse leaves the default in place.
        {"Gimp-2.10", user, "Ctrl+V"},
        {"Emacs-gtk", user, "Ctrl+V"},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(describe(PasteShortcut::forWindowClass(row.wmClass, row.overrides)), row.expected)
            << "class " << row.wmClass;
    }
}

TEST(PasteShortcutTest, PatternsMatchTheWholeClassIgnoringCase) {
    struct Row {
        const char* pattern;
        const char* wmClass;
        bool matches;
    } rows[] = {
        {"firefox", "Firefox", true},
        {"fire", "firefox", false},
        {"*fox", "firefox", true},
        {"f?refox", "firefox", true},
        {"*", "", true},
        {"?", "", false},
        {"a*b*c", "aXXbYYc", true},
        {"a*b*c", "aXXbYY", false},
        {"**x", "x", true},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(PasteShortcut::classMatches(row.pattern, row.wmClass), row.matches)
            << row.pattern << " against " << row.wmClass;
    }
}

TEST(KeyChordTextTest, ShortcutsParseAndReadBack) {
    struct Row {
        const char* text;
        const char* describedAs; // nullptr: does not parse
    } rows[] = {
        {"Ctrl+V", "Ctrl+V"},
        {" control + shift + v ", "Ctrl+Shift+V"},
        {"Alt+Ctrl+B", "Ctrl+Alt+B"},
        {"super+space", "Super+Space"},
        {"Shift+Insert", "Shift+Insert"},
        {"Ctrl++", "Ctrl++"},
        {"F2", "F2"},
        {"Hyper+V", nullptr},
        {"Ctrl+", nullptr},
        {"", nullptr},
        {"Ctrl+NoSuchKey", nullptr},
    };
    for (const Row& row : rows) {
        const auto chord = KeyChordText::parse(row.text);
        if (row.describedAs == nullptr) {
            EXPECT_FALSE(chord.has_value()) << row.text;
        } else {
            ASSERT_TRUE(chord.has_value()) << row.text;
            EXPECT_EQ(KeyChordText::describe(*chord), row.describedAs);
        }
    }
}

} // namespace
} // namespace marlune
