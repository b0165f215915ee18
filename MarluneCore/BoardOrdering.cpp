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
