#include "Platform/PasteShortcut.h"

#include "Marlune/WindowClassKind.h"
#include "Platform/KeyChordText.h"

#include <algorithm>
#include <cctype>
#include <optional>

namespace marlune {

namespace {

constexpr std::uint32_t kKeysymV = 0x76;

std::string lowercase(std::string_view text) {
    std::string lower(text);
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::optional<PasteMethod> parseMethod(std::string_view text) {
    if (lowercase(text) == "type") {
        return PasteByTyping{};
    }
    if (const auto chord = KeyChordText::parse(text)) {
        return PasteByChord{*chord};
    }
    return std::nullopt;
}

PasteMethod chord(bool shift, bool alt) {
    return PasteByChord{KeyChord{KeyModifiers{shift, true, alt, false}, kKeysymV}};
}

PasteMethod defaultFor(std::string_view wmClass) {
    switch (windowClassKind(wmClass)) {
    case WindowClassKind::xterm:
        return PasteByTyping{};
    case WindowClassKind::rxvtUnicode:
        return chord(false, true);
    case WindowClassKind::terminal:
        // Terminals take Ctrl+V for themselves (a literal next character).
        return chord(true, false);
    case WindowClassKind::ordinary:
        break;
    }
    return chord(false, false);
}

bool globMatch(std::string_view pattern, std::string_view text) {
    // Iterative glob with one backtrack point: linear enough for class names.
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t starAt = std::string_view::npos;
    std::size_t resumeAt = 0;
    while (t < text.size()) {
        if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == text[t])) {
            ++p;
            ++t;
        } else if (p < pattern.size() && pattern[p] == '*') {
            starAt = p++;
            resumeAt = t;
        } else if (starAt != std::string_view::npos) {
            p = starAt + 1;
            t = ++resumeAt;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

} // namespace

bool PasteShortcut::classMatches(std::string_view pattern, std::string_view wmClass) {
    return globMatch(lowercase(pattern), lowercase(wmClass));
}

PasteMethod
PasteShortcut::forWindowClass(std::string_view wmClass,
                              const std::map<std::string, std::string, std::less<>>& overrides) {
    std::optional<PasteMethod> chosen;
    std::size_t chosenLength = 0;
    for (const auto& [pattern, shortcut] : overrides) {
        if (pattern.empty() || (chosen && pattern.size() <= chosenLength) ||
            !classMatches(pattern, wmClass)) {
            continue;
        }
        if (auto method = parseMethod(shortcut)) {
            chosen = std::move(method);
            chosenLength = pattern.size();
        }
    }
    return chosen ? *chosen : defaultFor(wmClass);
}

} // namespace marlune
