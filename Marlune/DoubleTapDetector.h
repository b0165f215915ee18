#pragma once

#include "Marlune/KeyboardWatcher.h"
#include "MarluneCore/Date.h"

#include <optional>
#include <vector>

namespace marlune {

// Two quick taps of a modifier key on its own, seen in the raw key stream: Shift twice captures
// to the Board (with Super held, asking for the section first), Control twice shows or hides
// the Board, Alt twice opens a drawing. A tap is a press and release within the hold limit; the
// second press must follow the first release within the window. Any other key in between, a
// click, or the other side's key cancels the sequence, so that Shift between typed capitals
// never counts.
class DoubleTapDetector {
public:
    // Seconds.
    struct Config {
        double holdLimit = 0.25;
        double window = 0.3;
        // The tighter limits apply when the first tap follows typing closely, where a stray
        // Shift is likeliest to be part of the text.
        double hiddenHoldLimit = 0.15;
        double hiddenWindow = 0.18;
        double refractory = 0.3;
    };

    enum class Side { left, right };
    enum class Action { capture, captureChoosing, toggle, draw };

    struct Pending {
        Side side = Side::left;
        ModifierKey key = ModifierKey::leftShift;
        std::vector<Date> presses;
        Date downAt{};
        std::optional<Date> firstUpAt;
        bool commandHeld = false;
        bool hidden = false;
    };

    DoubleTapDetector() = default;
    explicit DoubleTapDetector(Config config) : config_(config) {}

    // Feeds one event seen at `now`; answers the action when it completes a double tap.
    std::optional<Action> handle(const KeyboardEvent& event, Date now);

    const Config& config() const { return config_; }
    const std::optional<Pending>& pending() const { return pending_; }
    std::optional<Date> refractoryUntil() const { return refractoryUntil_; }

private:
    std::optional<Action> modifier(const keyboard::ModifierChanged& change, Date now);

    Config config_;
    std::optional<Pending> pending_;
    std::optional<Date> refractoryUntil_;
    std::optional<Date> lastTypingAt_;
    bool leftSuperDown_ = false;
    bool rightSuperDown_ = false;
};

} // namespace marlune
