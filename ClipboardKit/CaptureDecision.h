#pragma once

#include "ClipboardKit/CapturedClip.h"
#include "ClipboardKit/SecretKind.h"

#include <string>
#include <variant>

namespace marlune {

// What a clipboard change yields. The caller carries it out: store the clip, count the
// skipped secret, or do nothing.
struct CaptureDecision {
    struct Capture {
        CapturedClip clip;
        friend bool operator==(const Capture&, const Capture&) = default;
    };
    struct LikelySecret {
        SecretKind kind;
        friend bool operator==(const LikelySecret&, const LikelySecret&) = default;
    };
    struct Concealed {
        friend bool operator==(const Concealed&, const Concealed&) = default;
    };
    struct Nothing {
        friend bool operator==(const Nothing&, const Nothing&) = default;
    };

    std::variant<Capture, LikelySecret, Concealed, Nothing> value;

    const CapturedClip* capturedClip() const;
    std::optional<SecretKind> secretKind() const;
    bool isConcealed() const { return std::holds_alternative<Concealed>(value); }
    bool isNothing() const { return std::holds_alternative<Nothing>(value); }

    // The answer of "import the current clipboard into the library", word for word.
    std::string importMessage() const;

    friend bool operator==(const CaptureDecision&, const CaptureDecision&) = default;
};

} // namespace marlune
