#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

using Bytes = std::vector<std::uint8_t>;

// Standard base64 (RFC 4648 alphabet, '=' padding).
std::string base64Encode(std::span<const std::uint8_t> bytes);

// Strict decoding: the length is a multiple of four, only alphabet characters, padding only
// at the very end and the unused bits of the last group zero. Anything else is rejected, so
// every byte string has exactly one accepted text.
std::optional<Bytes> base64Decode(std::string_view text);

// The same, decoding into `out` (replacing its contents, reusing its capacity); false on a
// rejected text, with `out` unspecified.
bool base64DecodeInto(std::string_view text, Bytes& out);

// The number of bytes a valid text of this length decodes to at most.
constexpr std::size_t base64DecodedCapacity(std::size_t textLength) {
    return textLength / 4 * 3;
}
constexpr std::size_t base64EncodedLength(std::size_t byteCount) {
    return (byteCount + 2) / 3 * 4;
}

} // namespace marlune
