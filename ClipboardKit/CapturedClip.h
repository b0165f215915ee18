#pragma once

#include "MarluneCore/Records.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace marlune {

// One flavour of a clip as it will be stored: textual flavours carry `text` (UTF-8), the
// others `data`; exactly one of the two is present.
struct CapturedRepresentation {
    std::string utType;
    std::optional<std::string> text;
    std::optional<std::vector<std::uint8_t>> data;

    // The stored bytes: the UTF-8 of `text`, or `data`.
    std::span<const std::uint8_t> bytes() const;
    friend bool operator==(const CapturedRepresentation&, const CapturedRepresentation&) = default;
};

struct CapturedClip {
    ClipKind kind = ClipKind::text;
    std::string previewText;
    // Left empty by the capture gate: the fingerprint is keyed, and the store holds the key.
    std::string contentHash;
    std::vector<CapturedRepresentation> representations;

    const CapturedRepresentation* representation(std::string_view utType) const;
    friend bool operator==(const CapturedClip&, const CapturedClip&) = default;
};

} // namespace marlune
