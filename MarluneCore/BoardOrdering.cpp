#include "MarluneCore/BoardOrdering.h"

#include <algorithm>

namespace marlune {

double BoardOrdering::orderKey(const Clip& clip) {
    return clip.boardOrder.value_or(secondsSinceReferenceDate(clip.createdAt));
}

double BoardOrdering::keyBetween(std::optional<double> before, std::optional<double> after,
                                 Date now) {
    if (before && after) {
        return (*before + *after) * 0.5;
    }
    if (before) {
        return *before + 1.0;
    }
    if (after) {
        return *after - 1.0;
    }
    return secondsSinceReferenceDate(now);
}

std::optional<double> BoardOrdering::placementKey(double ownKey, std::optional<double> largest) {
    if (largest && ownKey <= *largest) {
        return *largest + 1.0;
    }
    return std::nullopt;
}

std::optional<double> BoardOrdering::bumpKey(double ownKey, std::optional<double> largestOfOthers) {
    return placementKey(ownKey, largestOfOthers);
}

std::optional<double> BoardOrdering::largestKey(std::span<const Clip> clips) {
    std::optional<double> largest;
    for (const auto& clip : clips) {
        const double key = orderKey(clip);
        if (!largest || key > *largest) {
            largest = key;
        }
    }
    return largest;
}

namespace {

// The bands of a section's list, top to bottom.
enum class Band { pinned, open, done };

Band bandOf(const Clip& clip) {
    if (BoardOrdering::isDone(clip)) {
        return Band::done;
    }
    return BoardOrdering::isPinned(clip) ? Band::pinned : Band::open;
}

// Why an item of `band` cannot go to a spot above its band (`aboveBand`) or below it.
std::string outsideBand(Band band, bool aboveBand) {
    if (band == Band::open) {
        return aboveBand ? "Pinned items stay at the top, so an unpinned item cannot move among "
                           "them. Pin the item first, or move it below the pinned items."
                         : "Done items stay in the Done group at the bottom, so an open item "
                           "cannot move among them. Mark the item done first, or move it above "
                           "the Done group.";
    }
    return band == Band::pinned ? "A pinned item stays above the unpinned ones. Unpin it first, "
                                  "or move it among the pinned items."
                                : "A done item stays in the Done group. Mark it not done first, "
                                  "or move it among the done items.";
}

// Pinned items stand by pin time, most recent first, then by key: a spot between two of them
// is a pin time between theirs, or, when they were pinned within a microsecond of each other,
// the upper one's pin time with a key below its own.
BoardOrdering::Placement pinnedBetween(const Clip& item, const std::optional<Clip>& below,
                                       const std::optional<Clip>& above) {
    using std::chrono::microseconds;
    BoardOrdering::Placement placement{item.boardOrder, item.boardPinnedAt};
    if (above && below) {
        const Date high = *above->boardPinnedAt;
        const Date low = *below->boardPinnedAt;
        if (high - low >= microseconds(2)) {
            placement.boardPinnedAt = low + (high - low) / 2;
        } else {
            placement.boardPinnedAt = high;
            placement.boardOrder =
                high == low
                    ? (BoardOrdering::orderKey(*above) + BoardOrdering::orderKey(*below)) * 0.5
                    : BoardOrdering::orderKey(*above) - 1.0;
        }
    } else if (above) {
        placement.boardPinnedAt = *above->boardPinnedAt - microseconds(1);
    } else if (below) {
        placement.boardPinnedAt = *below->boardPinnedAt + microseconds(1);
    }
    return placement;
}

} // namespace

std::variant<BoardOrdering::Placement, BoardOrdering::Refusal>
BoardOrdering::placeBetween(const Clip& item, const std::optional<Clip>& below,
                            const std::optional<Clip>& above, Date now) {
    const Band band = bandOf(item);
    if (below && bandOf(*below) < band) {
        return Refusal{outsideBand(band, true)};
    }
    if (above && bandOf(*above) > band) {
        return Refusal{outsideBand(band, false)};
    }
    // A neighbour of another band stands across the edge the item moves to.
    const auto inBand = [band](const std::optional<Clip>& neighbour) {
        return neighbour && bandOf(*neighbour) == band ? neighbour : std::nullopt;
    };
    const auto sameBelow = inBand(below);
    const auto sameAbove = inBand(above);
    Placement placement{item.boardOrder, item.boardPinnedAt};
    if (band == Band::pinned) {
        placement = pinnedBetween(item, sameBelow, sameAbove);
    } else {
        const auto key = [](const std::optional<Clip>& c) -> std::optional<double> {
            return c ? std::optional<double>(orderKey(*c)) : std::nullopt;
        };
        placement.boardOrder = keyBetween(key(sameBelow), key(sameAbove), now);
    }
    Clip placed = item;
    placed.boardOrder = placement.boardOrder;
    placed.boardPinnedAt = placement.boardPinnedAt;
    if ((above && !precedes(*above, placed)) || (below && !precedes(placed, *below))) {
        return Refusal{"There is no room between those two items. Move one of them first, then "
                       "try again."};
    }
    return placement;
}

bool BoardOrdering::precedes(const Clip& a, const Clip& b) {
    // Done items stand apart below the open ones, pinned or not.
    const bool aDone = isDone(a);
    const bool bDone = isDone(b);
    if (aDone != bDone) {
        return !aDone;
    }
    if (!aDone) {
        const bool aPinned = isPinned(a);
        const bool bPinned = isPinned(b);
        if (aPinned != bPinned) {
            return aPinned;
        }
        if (aPinned && *a.boardPinnedAt != *b.boardPinnedAt) {
            return *a.boardPinnedAt > *b.boardPinnedAt;
        }
    }
    const double ka = orderKey(a);
    const double kb = orderKey(b);
    if (ka != kb) {
        return ka > kb;
    }
    return a.id < b.id; // a stable order for equal keys
}

void BoardOrdering::sort(std::vector<Clip>& clips) {
    std::sort(clips.begin(), clips.end(), precedes);
}

} // namespace marlune
