#pragma once

#include "MarluneCLIProtocol/CLIErrorPayload.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>

namespace marlune {

// The shared secret in `cli-token`: 64 lower-case hex digits from 32 random bytes.
struct CLIToken {
    static constexpr std::size_t randomBytes = 32;

    // Fresh random bytes from libcrypto; nothing when the generator fails, which start-up
    // reports as "Failed to generate CLI token.".
    static std::optional<std::string> generate();
    static std::string fromBytes(std::span<const std::uint8_t, randomBytes> bytes);

    // The server's reading of the token file's contents (nothing when the file is missing):
    // trimmed of white space and newlines; empty or not UTF-8 means "make a new one".
    static std::optional<std::string> fromFileContents(const std::optional<std::string>& contents);

    // The tool's reading: the same rule, but a missing token means the application is not
    // running (E_APP_UNAVAILABLE with the message and hint the tool prints).
    static std::variant<std::string, CLIErrorPayload>
    forClient(const std::optional<std::string>& contents);

    // Takes the same time whatever the position of the first difference; only unequal lengths
    // are told apart early.
    static bool equal(std::string_view presented, std::string_view expected);
};

// Strips Unicode white space and newlines (U+0009..U+000D, U+0020, U+0085, U+00A0, U+1680,
// U+2000..U+200A, U+2028, U+2029, U+202F, U+205F, U+3000) from both ends of UTF-8 text.
std::string_view trimWhitespaceAndNewlines(std::string_view text);

bool isValidUTF8(std::string_view text);

} // namespace marlune
