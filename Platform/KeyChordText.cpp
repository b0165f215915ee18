#include "Platform/KeyChordText.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <xkbcommon/xkbcommon.h>

namespace marlune {

namespace {

std::string lowercase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.front()))) {
        text.remove_prefix(1);
    }
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.remove_suffix(1);
    }
    return text;
}

bool applyModifier(std::string_view name, KeyModifiers& modifiers) {
    const std::string lower = lowercase(name);
    if (lower == "ctrl" || lower == "control") {
        modifiers.control = true;
    } else if (lower == "shift") {
        modifiers.shift = true;
    } else if (lower == "alt" || lower == "meta") {
        modifiers.alt = true;
    } else if (lower == "super" || lower == "win") {
        modifiers.super = true;
    } else {
        return false;
    }
    return true;
}

} // namespace

std::optional<KeyChord> KeyChordText::parse(std::string_view text) {
    KeyChord chord;
    text = trimmed(text);
    while (true) {
        const auto plus = text.find('+');
        // A trailing "+" is the plus key itself ("Ctrl++").
        if (plus == std::string_view::npos || plus + 1 == text.size()) {
            break;
        }
        if (!applyModifier(trimmed(text.substr(0, plus)), chord.modifiers)) {
            return std::nullopt;
        }
        text.remove_prefix(plus + 1);
    }
    const std::string key(trimmed(text));
    if (key.empty()) {
        return std::nullopt;
    }
    if (key.size() == 1) {
        const auto c = static_cast<unsigned char>(key.front());
        if (c < 0x20 || c > 0x7e) {
            return std::nullopt;
        }
        // Latin-1 keysyms equal the character; the lower-case letter names the key.
        chord.keysym = static_cast<std::uint32_t>(std::tolower(c));
        return chord;
    }
    const xkb_keysym_t sym = xkb_keysym_from_name(key.c_str(), XKB_KEYSYM_CASE_INSENSITIVE);
    if (sym == XKB_KEY_NoSymbol) {
        return std::nullopt;
    }
    chord.keysym = sym;
    return chord;
}

std::string KeyChordText::describe(const KeyChord& chord) {
    std::string text;
    if (chord.modifiers.control) {
        text += "Ctrl+";
    }
    if (chord.modifiers.alt) {
        text += "Alt+";
    }
    if (chord.modifiers.shift) {
        text += "Shift+";
    }
    if (chord.modifiers.super) {
        text += "Super+";
    }
    if (chord.keysym > 0x20 && chord.keysym < 0x7f) {
        text += static_cast<char>(std::toupper(static_cast<int>(chord.keysym)));
        return text;
    }
    std::array<char, 64> name{};
    if (xkb_keysym_get_name(chord.keysym, name.data(), name.size()) <= 0) {
        return text + "?";
    }
    std::string keyName(name.data());
    keyName.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(keyName.front())));
    return text + keyName;
}

} // namespace marlune
