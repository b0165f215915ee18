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
    appendEncoded(out, bytes);
    return out;
}

void CLIBase64::appendEncoded(std::string& out, std::string_view bytes) {
    const std::size_t start = out.size();
    out.resize(start + (bytes.size() + 2) / 3 * 4);
    char* o = out.data() + start;
    std::size_t i = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t n =
            (byteAt(bytes, i) << 16) | (byteAt(bytes, i + 1) << 8) | byteAt(bytes, i + 2);
        o[0] = kAlphabet[(n >> 18) & 63];
        o[1] = kAlphabet[(n >> 12) & 63];
        o[2] = kAlphabet[(n >> 6) & 63];
        o[3] = kAlphabet[n & 63];
        o += 4;
    }
    const std::size_t rest = bytes.size() - i;
    if (rest > 0) {
        std::uint32_t n = byteAt(bytes, i) << 16;
        if (rest == 2) {
            n |= byteAt(bytes, i + 1) << 8;
        }
        o[0] = kAlphabet[(n >> 18) & 63];
        o[1] = kAlphabet[(n >> 12) & 63];
        o[2] = rest == 2 ? kAlphabet[(n >> 6) & 63] : '=';
        o[3] = '=';
    }
}

std::optional<std::string> CLIBase64::decode(std::string_view text) {
    if (text.size() % 4 != 0) {
        return std::nullopt;
    }
    std::size_t padding = 0;
    if (!text.empty() && text.back() == '=') {
        padding = text[text.size() - 2] == '=' ? 2 : 1;
    }
    std::string out(text.size() / 4 * 3 - padding, '\0');
    char* o = out.data();
    const std::size_t whole = padding > 0 ? text.size() - 4 : text.size();
    std::size_t g = 0;
    for (; g < whole; g += 4) {
        const std::uint32_t a = kDecode[static_cast<unsigned char>(text[g])];
        const std::uint32_t b = kDecode[static_cast<unsigned char>(text[g + 1])];
        const std::uint32_t c = kDecode[static_cast<unsigned char>(text[g + 2])];
        const std::uint32_t d = kDecode[static_cast<unsigned char>(text[g + 3])];
        // Alphabet values are below 64; the invalid mark has the top bits set.
        if (((a | b | c | d) & 0xC0) != 0) {
            return std::nullopt;
        }
        const std::uint32_t n = (a << 18) | (b << 12) | (c << 6) | d;
        o[0] = static_cast<char>(n >> 16);
        o[1] = static_cast<char>((n >> 8) & 0xFF);
        o[2] = static_cast<char>(n & 0xFF);
        o += 3;
    }
    if (padding > 0) {
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
        o[0] = static_cast<char>(n >> 16);
        if (padding == 1) {
            o[1] = static_cast<char>((n >> 8) & 0xFF);
        }
    }
    return out;
}

} // namespace marlune
