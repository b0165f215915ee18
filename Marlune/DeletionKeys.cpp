#include "Marlune/DeletionKeys.h"

#include "ExpansionEngine/Graphemes.h"

namespace marlune {

namespace {

std::int64_t codePoints(std::string_view text) {
    std::int64_t count = 0;
    for (const char byte : text) {
        // Every byte but a continuation byte starts a code point.
        count += (static_cast<unsigned char>(byte) & 0xc0) != 0x80 ? 1 : 0;
    }
    return count;
}

} // namespace

std::vector<KeyInjection> deletionKeys(std::string_view text, bool lineEditor) {
    std::vector<KeyInjection> keys;
    if (lineEditor) {
        if (const auto count = codePoints(text); count > 0) {
            keys.emplace_back(keyinjection::Backspaces{count});
        }
        return keys;
    }
    std::int64_t plain = 0;
    const auto flushPlain = [&] {
        if (plain > 0) {
            keys.emplace_back(keyinjection::Backspaces{plain});
            plain = 0;
        }
    };
    while (!text.empty()) {
        const std::size_t start = Graphemes::offsetOfLast(text, 1);
        if (codePoints(text.substr(start)) > 1) {
            flushPlain();
            keys.emplace_back(keyinjection::SelectLeft{1});
            keys.emplace_back(keyinjection::Backspaces{1});
        } else {
            ++plain;
        }
        text = text.substr(0, start);
    }
    flushPlain();
    return keys;
}

} // namespace marlune
