#include "MarluneCore/LibraryResealer.h"

#include "MarluneCore/ClipCrypto.h"
#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Resealer.h"

#include <array>
#include <string>
#include <string_view>

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
    tx.commit();
    return rewritten;
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
