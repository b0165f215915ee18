#pragma once

#include "ClipboardKit/PasteboardSnapshot.h"
#include "MarluneCore/Records.h"

#include <optional>
#include <string>
#include <vector>

namespace marlune {

// A stored clip as the clipboard takes it back: one item offering every flavour under its
// MIME type, in the order they were captured.
struct ClipPasteboard {
    // Flavours whose type has no MIME type to offer it under are left out.
    static PasteboardSnapshot snapshot(const std::vector<Representation>& representations);

    // The text of a flavour (its text, or its text bytes), when it has one.
    static std::optional<std::string> textOf(const Representation& representation);

    // The clip's best text: plain text first, then a link, a file link, HTML and RTF, in that
    // order; nothing for clips without any text (an image alone).
    static std::optional<std::string> bestText(const std::vector<Representation>& representations);

    // The flavour a user named: its uniform type ("public.html"), its MIME type
    // ("text/html"), or a short name (text, html, rtf, url, file, png, jpeg, tiff, color).
    static const Representation* find(const std::vector<Representation>& representations,
                                      std::string_view name);
};

} // namespace marlune
