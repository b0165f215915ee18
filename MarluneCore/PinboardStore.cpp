#include "MarluneCore/PinboardStore.h"

namespace marlune {

namespace {

constexpr std::string_view columns =
    "id, name, iconSymbol, colorHex, colorRole, sortIndex, createdAt, isBoard";

Pinboard readPinboard(const Statement& row) {
    Pinboard pinboard;
    pinboard.id = Uuid::parse(row.textView(0)).value_or(Uuid());
    pinboard.name = row.text(1);
    pinboard.iconSymbol = row.text(2);
    pinboard.colorHex = row.optionalText(3);
    pinboard.colorRole = row.optionalText(4);
    pinboard.sortIndex = row.int64(5);
    pinboard.createdAt = fromStorage(row.int64(6));
    if (auto board = row.optionalInt64(7)) {
        pinboard.isBoard = *board != 0;
    }
    return pinboard;
}

} // namespace

std::vector<Pinboard> PinboardStore::list() {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare("SELECT " + std::string(columns) +
                                      " FROM Pinboard WHERE coalesce(isBoard, 0) = 0 "
                                      "ORDER BY sortIndex, name COLLATE NOCASE, createdAt");
    std::vector<Pinboard> pinboards;
    while (stmt.step()) {
        pinboards.push_back(readPinboard(stmt));
    }
    return pinboards;
}

std::optional<Pinboard> PinboardStore::pinboard(const Uuid& id) {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare("SELECT " + std::string(columns) +
                                      " FROM Pinboard WHERE id = ?1 AND coalesce(isBoard, 0) = 0");
    stmt.bind(1, id.string());
    if (stmt.step()) {
        return readPinboard(stmt);
    }
    return std::nullopt;
}

Pinboard PinboardStore::create(Pinboard pinboard, Date now) {
    MainActor::assertIsolated();
    pinboard.createdAt = now;
    pinboard.isBoard.reset();
    context_.performUndoable("New Pinboard", [&] {
        context_.db()
            .prepare("INSERT INTO Pinboard (id, name, iconSymbol, colorHex, colorRole, sortIndex, "
                     "createdAt, isBoard) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, NULL)")
            .bind(1, pinboard.id.string())
            .bind(2, pinboard.name)
            .bind(3, pinboard.iconSymbol)
            .bind(4, pinboard.colorHex)
            .bind(5, pinboard.colorRole)
            .bind(6, pinboard.sortIndex)
            .bind(7, toStorage(pinboard.createdAt))
            .run();
    });
    return pinboard;
}

void PinboardStore::update(const Pinboard& pinboard) {
    MainActor::assertIsolated();
    context_.performUndoable("Edit Pinboard", [&] {
        context_.db()
            .prepare("UPDATE Pinboard SET name = ?2, iconSymbol = ?3, colorHex = ?4, "
                     "colorRole = ?5, sortIndex = ?6 WHERE id = ?1 AND coalesce(isBoard, 0) = 0")
            .bind(1, pinboard.id.string())
            .bind(2, pinboard.name)
            .bind(3, pinboard.iconSymbol)
            .bind(4, pinboard.colorHex)
            .bind(5, pinboard.colorRole)
            .bind(6, pinboard.sortIndex)
            .run();
    });
}

void PinboardStore::remove(const Uuid& id) {
    MainActor::assertIsolated();
    context_.performUndoable("Delete Pinboard", [&] {
        context_.db()
            .prepare("DELETE FROM Pinboard WHERE id = ?1 AND coalesce(isBoard, 0) = 0")
            .bind(1, id.string())
            .run();
    });
}

std::int64_t PinboardStore::clipCount(const Uuid& id) {
    MainActor::assertIsolated();
    auto& stmt = context_.db().cached(
        "SELECT count(*) FROM ClipPinboard cp JOIN Clip c ON c.id = cp.clip_id "
        "WHERE cp.pinboard_id = ?1 AND c.deletedAt IS NULL");
    stmt.bind(1, id.string());
    const std::int64_t count = stmt.step() ? stmt.int64(0) : 0;
    stmt.reset();
    return count;
}

} // namespace marlune
