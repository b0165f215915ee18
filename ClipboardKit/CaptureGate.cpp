#include "ClipboardKit/CaptureGate.h"

#include "ClipboardKit/PasteboardClassifier.h"
#include "ClipboardKit/SecretDetector.h"

#include <string_view>
#include <utility>
#include <vector>

namespace marlune {

namespace {

// Every textual flavour is scanned, not just the plain text: a key pasted from a web page can
// sit in the HTML alone, and a link can carry a token in its query. RTF is text in bytes.
std::optional<SecretKind> secretIn(const CapturedClip& clip, SecretPolicy policy) {
    for (const auto& rep : clip.representations) {
        std::string_view text;
        if (rep.text) {
            text = *rep.text;
        } else if (rep.utType == PasteboardClassifier::rtfType && rep.data) {
            text =
                std::string_view(reinterpret_cast<const char*>(rep.data->data()), rep.data->size());
        } else {
            continue;
        }
        if (const auto kind = SecretDetector::classify(text, policy)) {
            return kind;
        }
    }
    return std::nullopt;
}

} // namespace

CaptureDecision CaptureGate::decide(const PasteboardSnapshot& snapshot, SecretPolicy policy) {
    if (PasteboardClassifier::isConcealed(snapshot)) {
        return {CaptureDecision::Concealed{}};
    }
    auto clip = PasteboardClassifier::classify(snapshot);
    if (!clip) {
        return {CaptureDecision::Nothing{}};
    }
    if (const auto kind = secretIn(*clip, policy)) {
        return {CaptureDecision::LikelySecret{*kind}};
    }
    // Not fingerprinted here: the fingerprint is keyed by the library's content key, which
    // only the store holds.
    return {CaptureDecision::Capture{std::move(*clip)}};
}

CaptureDecision CaptureGate::decide(CapturedClip clip, SecretPolicy policy) {
    if (const auto kind = secretIn(clip, policy)) {
        return {CaptureDecision::LikelySecret{*kind}};
    }
    return {CaptureDecision::Capture{std::move(clip)}};
}

} // namespace marlune
