#include "MarluneCLIProtocol/CLIToken.h"

#include "MarluneCLIProtocol/CLIErrorCode.h"

#include <algorithm>
#include <openssl/crypto.h>
#include <openssl/rand.h>

namespace marlune {

namespace {

bool isWhiteSpace(char32_t c) {
    return (c >= 0x09 && c <= 0x0D) || c == 0x20 || c == 0x85 || c == 0xA0 || c == 0x1680 ||
           (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F ||
           c == 0x205F || c == 0x3000;
}

// Decodes the well-formed sequence at `pos`; its length in `length`, 0 when malformed.
char32_t decodeAt(std::string_view text, std::size_t pos, std::size_t& length) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char lead = byte(pos);
    length = 0;
    if (lead < 0x80) {
        length = 1;
        return lead;
    }
    std::size_t need = 0;
    char32_t c = 0;
    char32_t min = 0;
    if ((lead & 0xE0) == 0xC0) {
        need = 1, c = lead & 0x1F, min = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        need = 2, c = lead & 0x0F, min = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        need = 3, c = lead & 0x07, min = 0x10000;
    } else {
        return 0;
    }
    if (text.size() - pos <= need) {
        return 0;
    }
    for (std::size_t i = 1; i <= need; ++i) {
        if ((byte(pos + i) & 0xC0) != 0x80) {
            return 0;
        }
        c = (c << 6) | (byte(pos + i) & 0x3F);
    }
    if (c < min || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) {
        return 0;
    }
    length = need + 1;
    return c;
}

} // namespace

bool isValidUTF8(std::string_view text) {
    for (std::size_t pos = 0; pos < text.size();) {
        std::size_t length = 0;
        decodeAt(text, pos, length);
        if (length == 0) {
            return false;
        }
        pos += length;
    }
    return true;
}

std::string_view trimWhitespaceAndNewlines(std::string_view text) {
    // Leading: walk forward while white space; trailing: find the end of the last
    // non-white-space character found on the same forward walk, so multi-byte spaces at
    // either end are recognised without decoding backwards.
    std::size_t begin = text.size();
    std::size_t end = 0;
    for (std::size_t pos = 0; pos < text.size();) {
        std::size_t length = 0;
        const char32_t c = decodeAt(text, pos, length);
        if (length == 0) {
            length = 1; // a stray byte is content, not space
        } else if (isWhiteSpace(c)) {
            pos += length;
            continue;
        }
        begin = std::min(begin, pos);
        end = pos + length;
        pos += length;
    }
    return begin >= end ? std::string_view() : text.substr(begin, end - begin);
}

std::optional<std::string> CLIToken::generate() {
    std::array<std::uint8_t, randomBytes> bytes{};
    if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) {
        return std::nullopt;
    }
    auto token = fromBytes(bytes);
    OPENSSL_cleanse(bytes.data(), bytes.size());
    return token;
}

std::string CLIToken::fromBytes(std::span<const std::uint8_t, randomBytes> bytes) {
    static constexpr char hex[] = "0123456789abcdef";
    std::string token;
    token.reserve(2 * randomBytes);
    for (const std::uint8_t b : bytes) {
        token += hex[b >> 4];
        token += hex[b & 0x0F];
    }
    return token;
}

std::optional<std::string> CLIToken::fromFileContents(const std::optional<std::string>& contents) {
    if (!contents || !isValidUTF8(*contents)) {
        return std::nullopt;
    }
    const auto trimmed = trimWhitespaceAndNewlines(*contents);
    if (trimmed.empty()) {
        return std::nullopt;
    }
    return std::string(trimmed);
}

std::variant<std::string, CLIErrorPayload>
CLIToken::forClient(const std::optional<std::string>& contents) {
    if (auto token = fromFileContents(contents)) {
        return std::move(*token);
    }
    return CLIErrorPayload{std::string(CLIErrorCode::appUnavailable),
                           "Marlune isn't running (no CLI token).",
                           "Start Marlune, or run without --no-launch."};
}

bool CLIToken::equal(std::string_view presented, std::string_view expected) {
    if (presented.size() != expected.size()) {
        return false;
    }
    return CRYPTO_memcmp(presented.data(), expected.data(), presented.size()) == 0;
}

} // namespace marlune
