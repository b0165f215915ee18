#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// What the user typed lately, as the expansion service keeps it: the text of every real
// key-down, at most the last 64 characters, with the diagnostics of abandoned expansions.
// The keystrokes are wiped from memory when the buffer is cleared or destroyed.
class TypedBuffer {
public:
    static constexpr std::int64_t kCapacity = 64;

    TypedBuffer() = default;
    TypedBuffer(const TypedBuffer&) = delete;
    TypedBuffer& operator=(const TypedBuffer&) = delete;
    ~TypedBuffer();

    const std::string& text() const { return text_; }

    // Appends the text of one key-down and drops the oldest characters beyond 64. Typing
    // whitespace ends the current token and with it any suppression.
    void appendKeyText(std::string_view keyText);
    // Delete (Backspace) removes the last character of a non-empty buffer.
    void backspace();
    // Focus moved, a click, or an expansion carried out: what was typed no longer stands in
    // front of the caret.
    void clear();

    // After an undo the token just restored must not expand again until the user types on.
    const std::optional<std::string>& suppressedToken() const { return suppressedToken_; }
    void suppress(std::string token) { suppressedToken_ = std::move(token); }
    bool isSuppressed(std::string_view typedToken) const {
        return suppressedToken_ && *suppressedToken_ == typedToken;
    }

    // Records why a commit was abandoned ("precaret-mismatch", "keydown-during-verify", ...).
    void recordAbort(std::string_view reason);
    const std::optional<std::string>& lastAbortReason() const { return lastAbortReason_; }
    const std::map<std::string, std::int64_t, std::less<>>& abortCounts() const {
        return abortCounts_;
    }

private:
    void wipe();

    std::string text_;
    std::optional<std::string> suppressedToken_;
    std::optional<std::string> lastAbortReason_;
    std::map<std::string, std::int64_t, std::less<>> abortCounts_;
};

} // namespace marlune
