#pragma once

#include "MarluneCore/Date.h"

#include <cstdint>

namespace marlune {

class ModelContext;

// Snippets and clips wait in the Trash for 30 days before they are deleted for good.
struct TrashPolicy {
    static constexpr std::int64_t retentionDays = 30;
    static constexpr std::int64_t secondsPerDay = 86'400;
    static constexpr std::int64_t retentionSeconds = 2'592'000;

    // Whole days left before a record trashed at `deletedAt` is purged: 30 for a record trashed
    // now, 1 at 29.9 days, 0 from 30 days on. A trash time in the future (a clock that was set
    // back) counts as trashed now.
    static std::int64_t daysLeft(Date deletedAt, Date now);

    // Deletes every trashed snippet and clip trashed more than 30 days before `now` (strictly),
    // all or nothing, and returns how many records it deleted.
    static std::int64_t purgeExpired(ModelContext& context, Date now);
};

} // namespace marlune
