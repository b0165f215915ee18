#include "MarluneCore/LibraryResealer.h"

#include "MarluneCore/ClipCrypto.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/ContentFingerprint.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Resealer.h"

#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace marlune {

namespace {

struct SealedColumn {
    std::string_view table;
    std::string_view column;
    bool bytes;
};

// Every sealed column of the schema.
constexpr std::array<SealedColumn, 7> sealedColumns{{
    {"Snippet", "content", false},
    {"Snippet", "lastFillInValues", false},
    {"Clip", "previewText", false},
    {"Clip", "boardNote", false},
    {"Representation", "text", false},
    {"RepresentationData", "bytes", true},
    {"Profile", "\"values\"", false},
}};

} // namespace

std::int64_t LibraryResealer::resealAll(ModelContext& context, const Resealer& resealer) {
    MainActor::assertIsolated();
    auto& db = context.db();
    std::int64_t rewritten = 0;
    Database::Transaction tx(db);
    for (const auto& sealed : sealedColumns) {
        const std::string table(sealed.table);
        const std::string column(sealed.column);
        auto scan = db.prepare("SELECT rowid, " + column + " FROM " + table + " WHERE " + column +
                               " IS NOT NULL");
        auto update = db.prepare("UPDATE " + table + " SET " + column + " = ?2 WHERE rowid = ?1");
        while (scan.step()) {
            const std::int64_t rowid = scan.int64(0);
            if (sealed.bytes) {
                if (auto moved = resealer.resealBytes(scan.blob(1))) {
                    update.bind(1, rowid).bindBlob(2, *moved).run();
                    ++rewritten;
                }
            } else if (auto moved = resealer.resealText(scan.textView(1))) {
                update.bind(1, rowid).bind(2, *moved).run();
                ++rewritten;
            }
        }
    }
    // Everything that opens now opens with the current key alone.
    refreshFingerprints(db, resealer.sealer());
    tx.commit();
    return rewritten;
}

bool LibraryResealer::fingerprintsUseKey(Database& db, const FingerprintKey& key) {
    auto& stmt = db.cached("SELECT value FROM Metadata WHERE key = ?1");
    stmt.bind(1, fingerprintKeyMetadata);
    const bool current = stmt.step() && stmt.textView(0) == key.identifier();
    stmt.reset();
    return current;
}

std::int64_t LibraryResealer::refreshFingerprints(Database& db, const ClipCrypto& crypto) {
    MainActor::assertIsolated();
    const FingerprintKey& key = crypto.fingerprintKey();
    if (fingerprintsUseKey(db, key)) {
        return 0;
    }
    Database::Transaction tx(db);
    // Collected first and written after the scan, so the scan never meets its own writes.
    std::vector<std::pair<std::string, std::string>> changes;
    auto scan = db.prepare("SELECT id, primaryKindRaw, contentHash FROM Clip");
    while (scan.step()) {
        const auto id = Uuid::parse(scan.textView(0));
        if (!id) {
            continue;
        }
        const auto stored = readRepresentations(db, crypto, *id);
        if (!stored.allOpened) {
            continue;
        }
        const ClipKind kind = clipKindFromRaw(scan.textView(1)).value_or(ClipKind::text);
        std::string fingerprint = ContentFingerprint::of(key, kind, stored.representations);
        if (fingerprint != scan.textView(2)) {
            changes.emplace_back(scan.text(0), std::move(fingerprint));
        }
    }
    auto update = db.prepare("UPDATE Clip SET contentHash = ?2 WHERE id = ?1");
    for (const auto& [id, fingerprint] : changes) {
        update.bind(1, id).bind(2, fingerprint).run();
    }
    db.prepare("INSERT INTO Metadata (key, value) VALUES (?1, ?2) "
               "ON CONFLICT(key) DO UPDATE SET value = excluded.value")
        .bind(1, fingerprintKeyMetadata)
        .bind(2, key.identifier())
        .run();
    tx.commit();
    return static_cast<std::int64_t>(changes.size());
}

LibraryResealer::KeyCheck LibraryResealer::checkKeys(ModelContext& context,
                                                     std::int64_t perColumn) {
    MainActor::assertIsolated();
    auto& db = context.db();
    const auto& crypto = context.crypto();
    KeyCheck check;
    for (const auto& sealed : sealedColumns) {
        const std::string column(sealed.column);
        auto scan =
            db.prepare("SELECT " + column + " FROM " + std::string(sealed.table) + " WHERE " +
                       column + " IS NOT NULL AND length(" + column + ") > 0 LIMIT ?1");
        scan.bind(1, perColumn * 4);
        std::int64_t seen = 0;
        while (seen < perColumn && scan.step()) {
            if (sealed.bytes) {
                const auto stored = scan.blob(0);
                if (!ClipCrypto::isSealedBytes(stored)) {
                    continue;
                }
                ++seen;
                check.opened += crypto.openBytes(stored) ? 1 : 0;
            } else {
                const auto stored = scan.textView(0);
                if (!ClipCrypto::isSealedText(stored)) {
                    continue;
                }
                ++seen;
                check.opened += crypto.readText(stored) ? 1 : 0;
            }
        }
        check.sealed += seen;
    }
    return check;
}

} // namespace marlune
