#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace marlune {

// Counting over user-perceived characters (extended grapheme clusters) of UTF-8 text. Every
// count that becomes key presses (deletions, caret moves) goes through here, so that an emoji,
// a flag or a letter with a combining accent is one press and not several.
struct Graphemes {
    static std::int64_t count(std::string_view utf8);

    // Byte offset at which the last `n` characters begin (0 when the text is shorter).
    static std::size_t offsetOfLast(std::string_view utf8, std::int64_t n);

    // Number of characters in utf8[0, byteOffset); the offset is clamped to the text.
    static std::int64_t countBefore(std::string_view utf8, std::size_t byteOffset);

    // Whether a character boundary falls at byteOffset.
    static bool isBoundary(std::string_view utf8, std::size_t byteOffset);

    // The Unicode White_Space property of a code point.
    static bool isWhitespace(char32_t codePoint);

    // Decodes the code point that ends at `end` (exclusive) and returns its first byte offset;
    // an ill-formed byte counts as one code point of its own.
    static std::size_t previousCodePoint(std::string_view utf8, std::size_t end, char32_t& out);
};

} // namespace marlune
