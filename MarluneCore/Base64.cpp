#include "MarluneCore/Base64.h"

#include <array>

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

inline std::uint8_t value(char c) {
    return kDecode[static_cast<unsigned char>(c)];
}

} // namespace

std::string base64Encode(std::span<const std::uint8_t> bytes) {
    std::string out(base64EncodedLength(bytes.size()), '=');
    std::size_t i = 0;
    std::size_t o = 0;
    for (; i + 3 <= bytes.size(); i += 3) {
        const std::uint32_t n = (std::uint32_t{bytes[i]} << 16) |
                                (std::uint32_t{bytes[i + 1]} << 8) | std::uint32_t{bytes[i + 2]};
        out[o++] = kAlphabet[(n >> 18) & 63];
        out[o++] = kAlphabet[(n >> 12) & 63];
        out[o++] = kAlphabet[(n >> 6) & 63];
        out[o++] = kAlphabet[n & 63];
    }
    const std::size_t rest = bytes.size() - i;
    if (rest > 0) {
        std::uint32_t n = std::uint32_t{bytes[i]} << 16;
        if (rest == 2) {
            n |= std::uint32_t{bytes[i + 1]} << 8;
        }
        out[o++] = kAlphabet[(n >> 18) & 63];
        out[o++] = kAlphabet[(n >> 12) & 63];
        if (rest == 2) {
            out[o++] = kAlphabet[(n >> 6) & 63];
        }
    }
    return out;
}

bool base64DecodeInto(std::string_view text, Bytes& out) {
    out.clear();
    if (text.size() % 4 != 0) {
        return false;
    }
    if (text.empty()) {
        return true;
    }
    std::size_t padding = 0;
    if (text.back() == '=') {
        padding = text[text.size() - 2] == '=' ? 2 : 1;
    }
    out.resize(base64DecodedCapacity(text.size()) - padding);

    const std::size_t fullGroups = text.size() / 4 - (padding > 0 ? 1 : 0);
    const char* in = text.data();
    std::uint8_t* dst = out.data();
    for (std::size_t g = 0; g < fullGroups; ++g, in += 4, dst += 3) {
        const std::uint8_t a = value(in[0]);
        const std::uint8_t b = value(in[1]);
        const std::uint8_t c = value(in[2]);
        const std::uint8_t d = value(in[3]);
        if ((a | b | c | d) & 0x80) {
            return false;
        }
        const std::uint32_t n = (std::uint32_t{a} << 18) | (std::uint32_t{b} << 12) |
                                (std::uint32_t{c} << 6) | std::uint32_t{d};
        dst[0] = static_cast<std::uint8_t>(n >> 16);
        dst[1] = static_cast<std::uint8_t>(n >> 8);
        dst[2] = static_cast<std::uint8_t>(n);
    }
    if (padding == 0) {
        return true;
    }
    const std::uint8_t a = value(in[0]);
    const std::uint8_t b = value(in[1]);
    if ((a | b) & 0x80) {
        return false;
    }
    if (padding == 2) {
        if ((b & 0x0F) != 0) {
            return false;
        }
        dst[0] = static_cast<std::uint8_t>((a << 2) | (b >> 4));
        return true;
    }
    const std::uint8_t c = value(in[2]);
    if ((c & 0x80) || (c & 0x03) != 0) {
        return false;
    }
    dst[0] = static_cast<std::uint8_t>((a << 2) | (b >> 4));
    dst[1] = static_cast<std::uint8_t>((b << 4) | (c >> 2));
    return true;
}

std::optional<Bytes> base64Decode(std::string_view text) {
    Bytes out;
    if (!base64DecodeInto(text, out)) {
        return std::nullopt;
    }
    return out;
}

} // namespace marlune
