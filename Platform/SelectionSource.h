#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace marlune {

// One target an owner offers: its atom and its name.
struct SelectionTarget {
    std::uint32_t atom = 0;
    std::string name;
    friend bool operator==(const SelectionTarget&, const SelectionTarget&) = default;
};

// How one request for a target ended.
struct SelectionTransfer {
    enum class Outcome { data, refused, tooLarge, timedOut, broken };
    Outcome outcome = Outcome::data;
    std::vector<std::uint8_t> bytes;
    // For `tooLarge`: as much of the size as was known when the transfer stopped.
    std::uint64_t size = 0;
};

// What reading a selection needs of the X server, so that the reads built on it can be run
// against a scripted owner and a clock of the test's own.
class SelectionSource {
public:
    using Clock = std::chrono::steady_clock;
    using Targets = std::variant<std::vector<SelectionTarget>, SelectionTransfer::Outcome>;

    virtual ~SelectionSource() = default;
    virtual Clock::time_point now() const = 0;
    // The window that owns `selection`, 0 for none.
    virtual std::uint32_t owner(std::uint32_t selection) = 0;
    // The owner's content targets in its order (protocol targets left out), or why not.
    virtual Targets targets(std::uint32_t selection, Clock::time_point deadline) = 0;
    // One target's bytes, at most `limit` of them, given up at `deadline`.
    virtual SelectionTransfer fetch(std::uint32_t selection, std::uint32_t target,
                                    std::size_t limit, Clock::time_point deadline) = 0;
};

} // namespace marlune
