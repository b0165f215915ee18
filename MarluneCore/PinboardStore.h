#pragma once

#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace marlune {

// The user's pinboards: named collections of clips. Board sections are pinboards too (with
// `isBoard` set) but belong to the Board; this store neither lists nor changes them. Every
// change is one named undo step. Main thread only.
class PinboardStore {
public:
    explicit PinboardStore(ModelContext& context) : context_(context) {}

    // Pinboards (not Board sections) by `sortIndex`, then name.
    std::vector<Pinboard> list();
    // A pinboard, or nothing for an unknown id or a Board section.
    std::optional<Pinboard> pinboard(const Uuid& id);
    Pinboard create(Pinboard pinboard, Date now);
    void update(const Pinboard& pinboard);
    // Deletes the pinboard; its clips stay in the history, only leaving it.
    void remove(const Uuid& id);
    // Live clips on the pinboard.
    std::int64_t clipCount(const Uuid& id);

private:
    ModelContext& context_;
};

} // namespace marlune
