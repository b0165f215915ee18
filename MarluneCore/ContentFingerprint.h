#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace marlune {

// One pasteboard flavour as the fingerprint sees it: its uniform type identifier and bytes.
struct FingerprintPart {
    std::string_view type;
    std::span<const std::uint8_t> bytes;
};

// The duplicate key of a clip (`Clip.contentHash`): lowercase hex SHA-256 over
//   "marlune-clip-v1" 0x00, then the kind, the number of parts, and for each part in
//   pasteboard order its type and its bytes,
// every string and byte run preceded by its length as a 64-bit big-endian integer, so that
// no two different inputs can be framed into the same byte stream. Two copies hash alike
// exactly when they have the same kind and the same flavours with the same bytes in the
// same order; the source application and the time do not take part.
struct ContentFingerprint {
    static std::string compute(std::string_view kindRaw, std::span<const FingerprintPart> parts);
};

// Lowercase hex SHA-256 of a byte run (used where a stable digest is all that is needed).
std::string sha256Hex(std::span<const std::uint8_t> bytes);

} // namespace marlune
