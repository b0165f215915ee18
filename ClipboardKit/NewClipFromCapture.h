#pragma once

#include "ClipboardKit/CapturedClip.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/Date.h"

#include <string_view>

namespace marlune {

// What the capture gate let through, in the form the stores take it: every flavour becomes a
// representation created at `now`, and a known source application (its window class; empty
// when unknown) is named as both the source's identifier and its display name.
NewClip newClipFromCapture(const CapturedClip& captured, Date now,
                           std::string_view sourceWindowClass = {});

} // namespace marlune
