#pragma once

#include <cstdint>
#include <string>
#include <variant>

namespace marlune {

namespace injection {
struct DeleteBackward {
    std::int64_t count = 0;
    friend bool operator==(const DeleteBackward&, const DeleteBackward&) = default;
};
struct Paste {
    std::string text;
    friend bool operator==(const Paste&, const Paste&) = default;
};
struct MoveCaretBack {
    std::int64_t count = 0;
    friend bool operator==(const MoveCaretBack&, const MoveCaretBack&) = default;
};
struct MoveCaretForward {
    std::int64_t count = 0;
    friend bool operator==(const MoveCaretForward&, const MoveCaretForward&) = default;
};
// The pause in which the target application catches up with the deletions before the paste;
// its length belongs to the executor.
struct Settle {
    friend bool operator==(const Settle&, const Settle&) = default;
};
} // namespace injection

// One step of an expansion as the service carries it out; counts are user-perceived characters.
using InjectionStep =
    std::variant<injection::DeleteBackward, injection::Paste, injection::MoveCaretBack,
                 injection::MoveCaretForward, injection::Settle>;

} // namespace marlune
