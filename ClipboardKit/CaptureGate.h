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
    // The same decision for a clip that arrives whole rather than from the clipboard (a file
    // of clips being imported): no markers to honour, but the same secret test over the same
    // flavours. The clip comes back as it was given; the store fingerprints it.
    static CaptureDecision decide(CapturedClip clip, SecretPolicy policy);
};

} // namespace marlune
