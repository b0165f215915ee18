#pragma once

#include "MarluneCore/Date.h"
#include "MarluneCore/Records.h"

#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace marlune {

// Where each item stands in a Board section. One floating-point key per clip: a move, a drag or
// a capture changes the one item moved and never renumbers its neighbours.
struct BoardOrdering {
    // `boardOrder` when set, else the creation time in seconds since 1 January 2001, so an item
    // that was never moved sorts by when it was made.
    static double orderKey(const Clip& clip);

    // The key of an item dropped between two neighbours: `before` is the one that ends up
    // directly below it, `after` the one directly above. Their mean; one above `before`; one
    // below `after`; the current time when the section has no other item.
    static double keyBetween(std::optional<double> before, std::optional<double> after, Date now);

    // A move of `item` to the spot between two items of its list: `below` ends up directly
    // below it, `above` directly above (either may be absent). The list keeps its bands (the
    // pinned items, then the open ones, then the done ones), so the spot must lie within the
    // item's band or at its edge, where a neighbour of the next band only marks the edge; any
    // other spot is refused with the sentence to show. Among open or done items the new key is
    // `keyBetween`; among pinned items, which stand by when they were pinned, the pin time moves
    // between the neighbours' (and the key breaks a tie of pin times).
    struct Placement {
        std::optional<double> boardOrder;
        std::optional<Date> boardPinnedAt;
    };
    struct Refusal {
        std::string message;
    };
    static std::variant<Placement, Refusal> placeBetween(const Clip& item,
                                                         const std::optional<Clip>& below,
                                                         const std::optional<Clip>& above,
                                                         Date now);

    // Placing an item into a section it is not yet in: the new `boardOrder` when its key does
    // not already stand above every key of the section (`largest`), else none.
    static std::optional<double> placementKey(double ownKey, std::optional<double> largest);

    // Capturing content that is already an item of the section: the key that puts it back on
    // top, or none when it is there already. `largestOfOthers` leaves the item itself out.
    static std::optional<double> bumpKey(double ownKey, std::optional<double> largestOfOthers);

    static std::optional<double> largestKey(std::span<const Clip> clips);

    // The Board's list order: pinned items first, most recently pinned first; then the open
    // items by descending key; then the Done group, also by descending key.
    static void sort(std::vector<Clip>& clips);
    static bool precedes(const Clip& a, const Clip& b);

    // Derived states, computed at read time and never stored.
    static bool isDone(const Clip& clip) { return clip.completedAt.has_value(); }
    static bool isPinned(const Clip& clip) { return clip.boardPinnedAt.has_value(); }
    static bool isSnoozed(const Clip& clip, Date now) {
        return clip.snoozedUntil.has_value() && *clip.snoozedUntil > now;
    }
    // Due before the start of tomorrow: overdue items and items due later today both count.
    static bool isDue(const Clip& clip, Date startOfTomorrow) {
        return clip.dueAt.has_value() && *clip.dueAt < startOfTomorrow;
    }
};

} // namespace marlune
