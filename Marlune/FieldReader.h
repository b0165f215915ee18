#pragma once

#include <optional>
#include <string>

namespace marlune {

// What the accessibility interface tells of the focused text field. Used only when the user
// turned `smartFieldDetection` on: the queries cross to another process on every call.
struct FocusedField {
    bool isPassword = false;
    // The text in front of the caret, when the application exposes it. Wiped when freed.
    std::optional<std::string> textBeforeCaret;

    FocusedField() = default;
    FocusedField(bool password, std::optional<std::string> before)
        : isPassword(password), textBeforeCaret(std::move(before)) {}
    FocusedField(const FocusedField&) = default;
    FocusedField& operator=(const FocusedField&) = default;
    ~FocusedField() {
        if (textBeforeCaret) {
            volatile char* bytes = textBeforeCaret->data();
            for (std::size_t i = 0; i < textBeforeCaret->size(); ++i) {
                bytes[i] = 0;
            }
        }
    }
};

class FieldReader {
public:
    virtual ~FieldReader() = default;
    // Nothing when no accessible text field has the focus or the application does not answer.
    virtual std::optional<FocusedField> focusedField() = 0;
};

} // namespace marlune
