#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// Base64 carriage of the embedded JSON documents (standard alphabet, '=' padding). Bytes are
// held in std::string because what travels is JSON text.
struct CLIBase64 {
    static std::string encode(std::string_view bytes);
    // The same text appended to `out`.
    static void appendEncoded(std::string& out, std::string_view bytes);

    // Strict: length a multiple of four, alphabet characters only, padding only at the end and
    // zero bits in the unused tail, so a corrupted text is refused instead of half-decoded.
    static std::optional<std::string> decode(std::string_view text);
};

} // namespace marlune
