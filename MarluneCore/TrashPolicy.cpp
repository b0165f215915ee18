#include "MarluneCore/TrashPolicy.h"

#include "MarluneCore/ModelContext.h"

#include <algorithm>

namespace marlune {

std::int64_t TrashPolicy::daysLeft(Date deletedAt, Date now) {
    const std::int64_t elapsedMicros = std::max<std::int64_t>(0, (now - deletedAt).count());
    const std::int64_t elapsedDays = elapsedMicros / (secondsPerDay * 1'000'000);
    return std::max<std::int64_t>(0, retentionDays - elapsedDays);
}

std::int64_t TrashPolicy::purgeExpired(ModelContext& context, Date now) {
    MainActor::assertIsolated();
    const Date cutoff = now - std::chrono::seconds(retentionSeconds);
    auto& db = context.db();
    Database::Transaction tx(db);
    db.prepare("DELETE FROM Snippet WHERE deletedAt IS NOT NULL AND deletedAt < ?1")
        .bind(1, toStorage(cutoff))
        .run();
    std::int64_t deleted = db.changes();
    db.prepare("DELETE FROM Clip WHERE deletedAt IS NOT NULL AND deletedAt < ?1")
        .bind(1, toStorage(cutoff))
        .run();
    deleted += db.changes();
    tx.commit();
    return deleted;
}

} // namespace marlune
