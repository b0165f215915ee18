#include "ClipboardKit/CaptureDecision.h"

namespace marlune {

const CapturedClip* CaptureDecision::capturedClip() const {
    const auto* capture = std::get_if<Capture>(&value);
    return capture ? &capture->clip : nullptr;
}

std::optional<SecretKind> CaptureDecision::secretKind() const {
    if (const auto* secret = std::get_if<LikelySecret>(&value)) {
        return secret->kind;
    }
    return std::nullopt;
}

std::string CaptureDecision::importMessage() const {
    if (std::holds_alternative<Capture>(value)) {
        return "The clipboard was importable.";
    }
    if (const auto* secret = std::get_if<LikelySecret>(&value)) {
        return "Not imported: the clipboard looks like " +
               std::string(secretKindLabel(secret->kind)) + ".";
    }
    return "Nothing importable on the clipboard (empty or concealed).";
}

} // namespace marlune
