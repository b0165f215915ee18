#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace marlune {

// What the accessibility interface tells of the focused text field. Used only when the user
// turned `smartFieldDetection` on: the queries cross to another process on every call.
struct FocusedField {
    bool isPassword = false;
    // The text in front of the caret, when the application exposes it. Wiped when freed.
    std::optional<std::string> textBeforeCaret;
    // The process that owns the field, when the accessibility bus knows it. A focus that
    // belongs to another process than the active window's is stale: the window that has the
    // focus now never announced its field.
    std::optional<std::int64_t> pid;

    FocusedField() = default;
    FocusedField(bool password, std::optional<std::string> before,
                 std::optional<std::int64_t> owner = std::nullopt)
        : isPassword(password), textBeforeCaret(std::move(before)), pid(owner) {}
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
