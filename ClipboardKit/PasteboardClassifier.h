#pragma once

#include "ClipboardKit/CapturedClip.h"
#include "ClipboardKit/PasteboardSnapshot.h"
#include "MarluneCore/Records.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

namespace marlune {

// Turns the clipboard's MIME types into the uniform type identifiers the library stores,
// decides the clip's kind and its preview, and knows which types are never content.
struct PasteboardClassifier {
    static constexpr std::string_view plainTextType = "public.utf8-plain-text";
    static constexpr std::string_view htmlType = "public.html";
    static constexpr std::string_view rtfType = "public.rtf";
    static constexpr std::string_view urlType = "public.url";
    static constexpr std::string_view fileURLType = "public.file-url";
    static constexpr std::string_view pngType = "public.png";
    static constexpr std::string_view jpegType = "public.jpeg";
    static constexpr std::string_view tiffType = "public.tiff";
    // X11 colour (four 16-bit channels, RGBA); it has no system identifier of its own.
    static constexpr std::string_view colorType = "org.marlune.x-color";

    // The longest preview, in Unicode scalar values. A history row shows at most two lines
    // (about 120 characters in the widest panel) and search results show a little more
    // around the match; the full text stays in the representations.
    static constexpr std::size_t previewLength = 200;

    // Set by the owner of the clipboard to say "do not record this" (password managers,
    // private windows, throw-away data, and our own expansion pastes).
    static bool isConcealedMarker(std::string_view type);
    // Markers, promises and X11 protocol targets: they describe the clipboard, they are not
    // content, and they are never kept as representations.
    static bool isNeverContent(std::string_view type);
    static bool isConcealed(const PasteboardSnapshot& snapshot);

    // The uniform type a payload is stored under, or nothing for types that are not kept.
    // "text/uri-list" needs its data: file: URIs are files, anything else is a link.
    static std::optional<std::string_view> uniformType(std::string_view mimeType,
                                                       std::span<const std::uint8_t> data);
    // The MIME type a stored representation is offered under when written back.
    static std::string_view mimeType(std::string_view utType);
    static bool isTextual(std::string_view utType);

    // The most bytes of one payload of this type (MIME type or uniform type) that are worth
    // reading; 0 for types that are never read. The clipboard reader asks before it fetches,
    // and `classify` drops anything larger and keeps the rest of the clip.
    static std::size_t sizeCap(std::string_view type);

    // The clip's representations, kind and preview (without `contentHash`), or nothing when
    // no payload is usable. Does not look at concealment or secrets.
    static std::optional<CapturedClip> classify(const PasteboardSnapshot& snapshot);

    static std::optional<ClipKind> kindOf(const std::vector<CapturedRepresentation>& reps);
    static std::string previewText(ClipKind kind, const std::vector<CapturedRepresentation>& reps);
};

} // namespace marlune
