#pragma once

#include "ClipboardKit/CaptureDecision.h"
#include "ClipboardKit/PasteboardSnapshot.h"
#include "ClipboardKit/SecretPolicy.h"

namespace marlune {

// The one decision about a settled clipboard change, taken in this order: a concealed or
// transient marker wins over everything; then a clipboard with nothing usable; then a text
// that looks like a secret the policy skips; otherwise the clip is captured.
struct CaptureGate {
    static CaptureDecision decide(const PasteboardSnapshot& snapshot, SecretPolicy policy);
};

} // namespace marlune
