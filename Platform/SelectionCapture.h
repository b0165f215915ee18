#pragma once

#include "Marlune/ClipboardAccess.h"
#include "Platform/SelectionSource.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace marlune {

struct SelectionCaptureRequest {
    std::uint32_t selection = 0;
    // One deadline for the whole read: the target list and every payload together.
    SelectionSource::Clock::time_point deadline;
    std::vector<std::uint64_t> skipOwners;
    // Whether a window belongs to this process.
    std::function<bool(std::uint32_t owner)> heldHere;
};

struct SelectionCapture {
    ClipboardCaptureRead read;
    // The owner is a window of this process, so nothing was asked: its data is at hand in
    // memory, and asking over the server would wait on our own event loop.
    bool heldHere = false;
};

// Reads what a selection's owner offers, for the history. Only types the history keeps are
// fetched, each at most up to its type's size cap and `ContentLimits::clipFlavourBytes`, and
// of the encodings of one content (the text targets, the image formats) only the best that
// answers. A copy marked concealed is reported by its markers alone, its content never
// fetched. When the deadline passes the whole read is given up, and a change of owner during
// the read voids it.
SelectionCapture captureSelection(SelectionSource& source, const SelectionCaptureRequest& request);

// Where a text target stands as the source of a text (lower first): an explicit UTF-8 label,
// the X11 UTF-8 target, text/plain (UTF-8 on this desktop), any other UTF-8 flavour, then
// Latin-1 ones; nothing for targets that are not plain text.
std::optional<int> textTargetRank(std::string_view type);
// ICCCM's STRING, and text labelled Latin-1.
bool isLatin1TextTarget(std::string_view type);

} // namespace marlune
