#include "MarluneCLIProtocol/CLIBase64.h"

#include <array>
#include <cstdint>

namespace marlune {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kInvalid = 0xFF;

constexpr std::array<std::uint8_t, 256> makeDecodeTable() {
    std::array<std::uint8_t, 256> table{};
    for (auto& entry : table) {
        entry = kInvalid;
    }
    for (std::uint8_t i = 0; i < 64; ++i) {
        table[static_cast<unsigned char>(kAlphabet[i])] = i;
    }
    return table;
}

constexpr std::array<std::uint8_t, 256> kDecode = makeDecodeTable();

std::uint32_t byteAt(std::string_view bytes, std::size_t i) {
    return static_cast<unsigned char>(bytes[i]);
}

} // namespace

std::string CLIBase64::encode(std::string_view bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t n =
            (byteAt(bytes, i) << 16) | (byteAt(bytes, i + 1) << 8) | byteAt(bytes, i + 2);
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += kAlphabet[(n >> 6) & 63];
        out += kAlphabet[n & 63];
    }
    const std::size_t rest = bytes.size() - i;
    if (rest > 0) {
        std::uint32_t n = byteAt(bytes, i) << 16;
        if (rest == 2) {
            n |= byteAt(bytes, i + 1) << 8;
        }
        out += kAlphabet[(n >> 18) & 63];
        out += kAlphabet[(n >> 12) & 63];
        out += rest == 2 ? kAlphabet[(n >> 6) & 63] : '=';
        out += '=';
    }
    return out;
}

std::optional<std::string> CLIBase64::decode(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::string out;
    out.reserve(text.size() / 4 * 3);
    for (std::size_t g = 0; g < text.size(); g += 4) {
        const bool last = g + 4 == text.size();
        std::size_t padding = 0;
        if (last && text[g + 3] == '=') {
            padding = text[g + 2] == '=' ? 2 : 1;
        }
        std::uint32_t n = 0;
        for (std::size_t k = 0; k < 4 - padding; ++k) {
            const std::uint8_t v = kDecode[static_cast<unsigned char>(text[g + k])];
            if (v == kInvalid) {
                return std::nullopt;
            }
            n |= std::uint32_t{v} << (18 - 6 * k);
        }
        // The bits past the last whole byte must be zero, or two texts would mean one value.
        if ((padding == 1 && (n & 0xFF) != 0) || (padding == 2 && (n & 0xFFFF) != 0)) {
            return std::nullopt;
        }
        out += static_cast<char>(n >> 16);
        if (padding < 2) {
            out += static_cast<char>((n >> 8) & 0xFF);
        }
        if (padding < 1) {
            out += static_cast<char>(n & 0xFF);
        }
    }
    return out;
}

} // namespace marlune
