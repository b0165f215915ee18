#include "MarluneCore/ClipStore.h"

#include "MarluneCore/ContentFingerprint.h"
#include "MarluneCore/LibraryResealer.h"
#include "MarluneCore/Log.h"
#include "MarluneCore/Settings.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <set>

namespace marlune {

namespace {

std::optional<Date> optionalDate(const Statement& row, int column) {
    if (auto value = row.optionalInt64(column)) {
        return fromStorage(*value);
    }
    return std::nullopt;
}

std::optional<std::int64_t> storage(const std::optional<Date>& date) {
    if (date) {
        return toStorage(*date);
    }
    return std::nullopt;
}

// ASCII-only case folding keeps the scan allocation-free; other letters compare exactly.
bool containsIgnoringASCIICase(std::string_view haystack, std::string_view needle) {
    if (needle.empty()) {
        return true;
    }
    auto lower = [](unsigned char c) {
        return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
    };
    const auto it = std::search(
        haystack.begin(), haystack.end(), needle.begin(), needle.end(), [&](char a, char b) {
            return lower(static_cast<unsigned char>(a)) == lower(static_cast<unsigned char>(b));
        });
    return it != haystack.end();
}

} // namespace

ClipStoreSettings ClipStoreSettings::read(const Settings& settings) {
    ClipStoreSettings result;
    result.maxUnpinnedHistory = settings.integer("maxUnpinnedHistory", defaultMaxUnpinnedHistory);
    if (result.maxUnpinnedHistory < 1) {
        logs::settings.warning("maxUnpinnedHistory " + std::to_string(result.maxUnpinnedHistory) +
                               " is below 1; using " + std::to_string(defaultMaxUnpinnedHistory) +
                               ".");
        result.maxUnpinnedHistory = defaultMaxUnpinnedHistory;
    }
    result.unlimitedHistory = settings.boolean("unlimitedHistory", false);
    result.clipRetentionDays = settings.integer("clipRetentionDays", 0);
    return result;
}

Clip readClipRow(const Statement& row, const ClipCrypto& crypto, ClipPreview preview) {
    // Every field named, so that no default is computed only to be overwritten (a default
    // Clip draws a random id).
    return Clip{
        .id = Uuid::parse(row.textView(0)).value_or(Uuid()),
        .primaryKind = clipKindFromRaw(row.textView(1)).value_or(ClipKind::text),
        .previewText =
            preview == ClipPreview::open
                ? crypto.readText(row.textView(clipPreviewColumn)).value_or(std::string())
                : std::string(),
        .contentHash = row.text(3),
        .sourceAppBundleID = row.optionalText(4),
        .sourceAppName = row.optionalText(5),
        .createdAt = fromStorage(row.int64(6)),
        .isPinned = row.int64(7) != 0,
        .recopyCount = row.int64(8),
        .promotionHandled = row.int64(9) != 0,
        .sourceDeviceID = row.optionalText(10),
        .lastUsedAt = optionalDate(row, 11),
        .deletedAt = optionalDate(row, 12),
        .completedAt = optionalDate(row, 13),
        .sourceURL = row.optionalText(14),
        .sourceTitle = row.optionalText(15),
        .boardOrder = row.optionalReal(16),
        .boardPinnedAt = optionalDate(row, 17),
        .snoozedUntil = optionalDate(row, 18),
        .dueAt = optionalDate(row, 19),
        .boardNote = row.isNull(20)
                         ? std::nullopt
                         : std::optional<std::string>(
                               crypto.readText(row.textView(20)).value_or(std::string())),
    };
}

bool readRepresentationText(const Statement& row, const ClipCrypto& crypto, std::string& plain) {
    if (!row.isNull(1)) {
        return crypto.readTextInto(row.textView(1), plain);
    }
    const auto blob = crypto.readBytes(row.blob(2));
    if (!blob) {
        plain.clear();
        return false;
    }
    plain.assign(blob->begin(), blob->end());
    return true;
}

Clip ClipStore::record(const NewClip& input, Date now) {
    MainActor::assertIsolated();
    auto& db = context_.db();
    const auto& crypto = context_.crypto();
    if (!context_.undoManager().isRecording()) {
        // Fingerprints left from before they were keyed, or from an earlier key, would never
        // match this one. Made afresh once (a look at one row when they are current); never
        // as part of an undo step, which would hold the whole history.
        LibraryResealer::refreshFingerprints(db, crypto);
    }

    const std::string hash =
        input.contentHash.empty()
            ? ContentFingerprint::of(crypto.fingerprintKey(), input.kind, input.representations)
            : input.contentHash;

    Database::Transaction tx(db);
    auto& find = db.cached("SELECT id FROM Clip WHERE contentHash = ?1 AND deletedAt IS NULL "
                           "LIMIT 1");
    find.bind(1, hash);
    if (find.step()) {
        const std::string id = find.text(0);
        find.reset();
        auto& bump = db.cached("UPDATE Clip SET lastUsedAt = ?1, recopyCount = recopyCount + 1 "
                               "WHERE id = ?2");
        bump.bind(1, toStorage(now)).bind(2, id).run();
        tx.commit();
        return *clip(*Uuid::parse(id));
    }
    find.reset();

    Clip clip = Clip::make(now);
    clip.primaryKind = input.kind;
    clip.previewText = input.previewText;
    clip.contentHash = hash;
    clip.sourceAppBundleID = input.sourceAppBundleID;
    clip.sourceAppName = input.sourceAppName;
    clip.sourceDeviceID = context_.deviceID();
    clip.lastUsedAt = clip.createdAt;

    auto& insert = db.cached(
        "INSERT INTO Clip (id, primaryKindRaw, previewText, contentHash, sourceAppBundleID, "
        "sourceAppName, createdAt, sourceDeviceID, lastUsedAt) "
        "VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9)");
    insert.bind(1, clip.id.string())
        .bind(2, rawValue(clip.primaryKind))
        .bind(3, crypto.sealText(clip.previewText))
        .bind(4, clip.contentHash)
        .bind(5, clip.sourceAppBundleID)
        .bind(6, clip.sourceAppName)
        .bind(7, toStorage(clip.createdAt))
        .bind(8, clip.sourceDeviceID)
        .bind(9, storage(clip.lastUsedAt))
        .run();
    insertRepresentations(clip.id, input.representations, now);
    tx.commit();
    return clip;
}

void ClipStore::insertRepresentations(const Uuid& clipID, const std::vector<Representation>& reps,
                                      Date now) {
    auto& db = context_.db();
    const auto& crypto = context_.crypto();
    auto& insert = db.cached("INSERT INTO Representation (id, utTypeIdentifier, text, createdAt, "
                             "position, clip_id) VALUES (?1, ?2, ?3, ?4, ?5, ?6)");
    auto& insertData = db.cached(
        "INSERT INTO RepresentationData (representation_id, field, bytes) VALUES (?1, ?2, ?3)");
    const auto asBytes = [](const std::string& text) {
        return std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size());
    };
    std::int64_t position = 0;
    for (const auto& rep : reps) {
        const std::string id = rep.id.string();
        // A long text goes outside the row, unless the flavour brings its own long text.
        const bool spill = rep.text && rep.text->size() > inlineTextLimit && !rep.textBlob;
        insert.bind(1, id).bind(2, rep.utTypeIdentifier);
        if (rep.text && !spill) {
            insert.bind(3, crypto.sealText(*rep.text));
        } else {
            insert.bindNull(3);
        }
        insert.bind(4, toStorage(rep.createdAt == Date{} ? now : rep.createdAt))
            .bind(5, position++)
            .bind(6, clipID.string())
            .run();
        if (rep.data) {
            insertData.bind(1, id).bind(2, "data").bindBlob(3, crypto.sealBytes(*rep.data)).run();
        }
        if (rep.textBlob || spill) {
            insertData.bind(1, id)
                .bind(2, "textBlob")
                .bindBlob(3, crypto.sealBytes(spill ? asBytes(*rep.text)
                                                    : std::span<const std::uint8_t>(*rep.textBlob)))
                .run();
        }
    }
}

void ClipStore::replaceRepresentations(const Uuid& clipID, const std::vector<Representation>& reps,
                                       Date now) {
    MainActor::assertIsolated();
    context_.db()
        .cached("DELETE FROM Representation WHERE clip_id = ?1")
        .bind(1, clipID.string())
        .run();
    insertRepresentations(clipID, reps, now);
}

std::int64_t ClipStore::trimmableCount() {
    auto& stmt = context_.db().cached("SELECT trimmable FROM ClipCounters");
    const std::int64_t count = stmt.step() ? stmt.int64(0) : 0;
    stmt.reset();
    return count;
}

std::int64_t ClipStore::trim() {
    MainActor::assertIsolated();
    if (settings_.unlimitedHistory) {
        return 0;
    }
    const std::int64_t excess = trimmableCount() - settings_.maxUnpinnedHistory;
    if (excess <= 0) {
        return 0;
    }
    auto& db = context_.db();
    auto& drop = db.cached("DELETE FROM Clip WHERE id IN (SELECT id FROM Clip "
                           "WHERE deletedAt IS NULL AND isPinned = 0 AND pinboardCount = 0 "
                           "ORDER BY coalesce(lastUsedAt, createdAt) ASC LIMIT ?1)");
    drop.bind(1, excess).run();
    return db.changes();
}

std::int64_t ClipStore::purge(Date now) {
    MainActor::assertIsolated();
    if (settings_.clipRetentionDays < 1) {
        return 0;
    }
    const Date cutoff = now - std::chrono::seconds(settings_.clipRetentionDays * 86'400);
    auto& db = context_.db();
    auto& drop = db.cached("DELETE FROM Clip WHERE deletedAt IS NULL AND isPinned = 0 AND "
                           "pinboardCount = 0 AND coalesce(lastUsedAt, createdAt) < ?1");
    drop.bind(1, toStorage(cutoff)).run();
    return db.changes();
}

Clip ClipStore::capture(const NewClip& input, Date now) {
    Database::Transaction tx(context_.db());
    Clip clip = record(input, now);
    trim();
    purge(now);
    tx.commit();
    return clip;
}

std::vector<Clip> ClipStore::promotionCandidates(std::int64_t threshold) {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare(
        "SELECT " + std::string(clipColumns) +
        " FROM Clip WHERE deletedAt IS NULL AND promotionHandled = 0 AND recopyCount >= ?1 "
        "ORDER BY recopyCount DESC");
    stmt.bind(1, threshold);
    std::vector<Clip> clips;
    while (stmt.step()) {
        clips.push_back(readClipRow(stmt, context_.crypto()));
    }
    return clips;
}

void ClipStore::markPromotionHandled(const Uuid& clipID) {
    MainActor::assertIsolated();
    context_.db()
        .cached("UPDATE Clip SET promotionHandled = 1 WHERE id = ?1")
        .bind(1, clipID.string())
        .run();
}

void ClipStore::setBoardNote(const Uuid& clipID, const std::optional<std::string>& note) {
    MainActor::assertIsolated();
    auto& stmt = context_.db().cached("UPDATE Clip SET boardNote = ?2 WHERE id = ?1");
    stmt.bind(1, clipID.string());
    if (note) {
        stmt.bind(2, context_.crypto().sealText(*note));
    } else {
        stmt.bindNull(2);
    }
    stmt.run();
}

std::optional<Clip> ClipStore::clip(const Uuid& id) {
    MainActor::assertIsolated();
    auto& stmt =
        context_.db().cached("SELECT " + std::string(clipColumns) + " FROM Clip WHERE id = ?1");
    stmt.bind(1, id.string());
    std::optional<Clip> result;
    if (stmt.step()) {
        result = readClipRow(stmt, context_.crypto());
    }
    stmt.reset();
    return result;
}

std::vector<Clip> ClipStore::recent(std::size_t limit, std::size_t offset) {
    MainActor::assertIsolated();
    auto& stmt = context_.db().cached("SELECT " + std::string(clipColumns) +
                                      " FROM Clip WHERE deletedAt IS NULL "
                                      "ORDER BY coalesce(lastUsedAt, createdAt) DESC "
                                      "LIMIT ?1 OFFSET ?2");
    stmt.bind(1, static_cast<std::int64_t>(limit)).bind(2, static_cast<std::int64_t>(offset));
    std::vector<Clip> clips;
    clips.reserve(limit);
    while (stmt.step()) {
        clips.push_back(readClipRow(stmt, context_.crypto()));
    }
    stmt.reset();
    return clips;
}

std::vector<Clip> ClipStore::search(std::string_view needle, std::size_t limit) {
    MainActor::assertIsolated();
    auto& db = context_.db();
    const auto& crypto = context_.crypto();
    // Every live preview has to be opened anyway, so the table is read in storage order (a
    // sequential scan) and only the matches are ranked by recency afterwards.
    auto& scan = db.cached(
        "SELECT rowid, coalesce(lastUsedAt, createdAt), previewText FROM Clip NOT INDEXED "
        "WHERE deletedAt IS NULL");
    struct Match {
        std::int64_t recency;
        std::int64_t rowid;
    };
    std::vector<Match> matches;
    // One buffer for every preview, and no cache entries: a scan of the whole history would
    // only push out what the visible list reads again.
    std::string preview;
    while (scan.step()) {
        if (crypto.readTextInto(scan.textView(2), preview) &&
            containsIgnoringASCIICase(preview, needle)) {
            matches.push_back({scan.int64(1), scan.int64(0)});
        }
    }
    scan.reset();
    const auto keep = std::min(limit, matches.size());
    std::partial_sort(matches.begin(), matches.begin() + static_cast<std::ptrdiff_t>(keep),
                      matches.end(), [](const Match& a, const Match& b) {
                          return a.recency != b.recency ? a.recency > b.recency : a.rowid > b.rowid;
                      });
    std::vector<Clip> clips;
    clips.reserve(keep);
    auto& row = db.cached("SELECT " + std::string(clipColumns) + " FROM Clip WHERE rowid = ?1");
    for (std::size_t i = 0; i < keep; ++i) {
        row.bind(1, matches[i].rowid);
        if (row.step()) {
            clips.push_back(readClipRow(row, crypto));
        }
        row.reset();
    }
    return clips;
}

std::vector<Representation> ClipStore::representations(const Uuid& clipID) {
    MainActor::assertIsolated();
    return readRepresentations(context_.db(), context_.crypto(), clipID).representations;
}

StoredRepresentations readRepresentations(Database& db, const ClipCrypto& crypto,
                                          const Uuid& clipID) {
    auto& stmt = db.cached(
        "SELECT r.id, r.utTypeIdentifier, r.text, r.createdAt, "
        "(SELECT bytes FROM RepresentationData WHERE representation_id = r.id AND field = 'data'), "
        "(SELECT bytes FROM RepresentationData WHERE representation_id = r.id AND field = "
        "'textBlob') FROM Representation r WHERE r.clip_id = ?1 ORDER BY r.position");
    stmt.bind(1, clipID.string());
    StoredRepresentations out;
    const auto unreadable = [&out] { out.allOpened = false; };
    while (stmt.step()) {
        Representation rep;
        rep.id = Uuid::parse(stmt.textView(0)).value_or(Uuid());
        rep.utTypeIdentifier = stmt.text(1);
        if (!stmt.isNull(2)) {
            std::string text;
            if (crypto.readTextInto(stmt.textView(2), text)) {
                rep.text = std::move(text);
            } else {
                unreadable();
            }
        }
        rep.createdAt = fromStorage(stmt.int64(3));
        if (!stmt.isNull(4)) {
            rep.data = crypto.readBytes(stmt.blob(4));
            if (!rep.data) {
                unreadable();
            }
        }
        if (!stmt.isNull(5)) {
            auto blob = crypto.readBytes(stmt.blob(5));
            if (!blob) {
                unreadable();
            } else if (stmt.isNull(2)) {
                // A text too long for the row reads back as the text it was.
                rep.text.emplace(blob->begin(), blob->end());
            } else {
                rep.textBlob = std::move(blob);
            }
        }
        out.representations.push_back(std::move(rep));
    }
    stmt.reset();
    return out;
}

namespace {

std::string filterClause(const ClipFilter& filter) {
    std::string where = "deletedAt IS NULL";
    if (filter.kind) {
        where += " AND primaryKindRaw = ?1";
    }
    if (filter.pinnedOnly) {
        where += " AND isPinned = 1";
    }
    return where;
}

void bindFilter(Statement& stmt, const ClipFilter& filter) {
    if (filter.kind) {
        stmt.bind(1, rawValue(*filter.kind));
    }
}

std::vector<std::pair<Uuid, std::string>> namedRows(Statement& stmt) {
    std::vector<std::pair<Uuid, std::string>> out;
    while (stmt.step()) {
        out.emplace_back(Uuid::parse(stmt.textView(0)).value_or(Uuid()), stmt.text(1));
    }
    return out;
}

} // namespace

std::vector<Clip> ClipStore::recent(const ClipFilter& filter, std::size_t limit,
                                    std::size_t offset) {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare("SELECT " + std::string(clipColumns) + " FROM Clip WHERE " +
                                      filterClause(filter) +
                                      " ORDER BY coalesce(lastUsedAt, createdAt) DESC "
                                      "LIMIT ?8 OFFSET ?9");
    bindFilter(stmt, filter);
    stmt.bind(8, static_cast<std::int64_t>(limit)).bind(9, static_cast<std::int64_t>(offset));
    std::vector<Clip> clips;
    while (stmt.step()) {
        clips.push_back(readClipRow(stmt, context_.crypto()));
    }
    return clips;
}

std::int64_t ClipStore::count(const ClipFilter& filter) {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare("SELECT count(*) FROM Clip WHERE " + filterClause(filter));
    bindFilter(stmt, filter);
    return stmt.step() ? stmt.int64(0) : 0;
}

std::vector<ClipMatch> ClipStore::searchAll(std::string_view needle, const ClipFilter& filter) {
    MainActor::assertIsolated();
    auto& db = context_.db();
    const auto& crypto = context_.crypto();
    std::vector<std::pair<std::int64_t, std::string>> hits; // recency order comes from the query
    std::set<std::string> seen;
    std::string plain;
    auto previews = db.prepare("SELECT id, previewText FROM Clip WHERE " + filterClause(filter) +
                               " ORDER BY coalesce(lastUsedAt, createdAt) DESC");
    bindFilter(previews, filter);
    std::vector<std::string> order;
    while (previews.step()) {
        std::string id = previews.text(0);
        order.push_back(id);
        if (crypto.readTextInto(previews.textView(1), plain) &&
            containsIgnoringASCIICase(plain, needle)) {
            seen.insert(id);
            hits.emplace_back(static_cast<std::int64_t>(order.size() - 1), "preview");
        }
    }
    // Then the text of the flavours of the clips the previews did not match.
    std::map<std::string, std::size_t> position;
    for (std::size_t i = 0; i < order.size(); ++i) {
        position[order[i]] = i;
    }
    auto texts = db.prepare(representationTextsSQL);
    while (texts.step()) {
        const std::string id = texts.text(0);
        const auto at = position.find(id);
        if (at == position.end() || seen.contains(id)) {
            continue;
        }
        if (readRepresentationText(texts, crypto, plain) &&
            containsIgnoringASCIICase(plain, needle)) {
            seen.insert(id);
            hits.emplace_back(static_cast<std::int64_t>(at->second), "text");
        }
    }
    std::sort(hits.begin(), hits.end());
    std::vector<ClipMatch> matches;
    matches.reserve(hits.size());
    for (const auto& [index, where] : hits) {
        if (auto found = clip(*Uuid::parse(order[static_cast<std::size_t>(index)]))) {
            matches.push_back({std::move(*found), where});
        }
    }
    return matches;
}

std::vector<Uuid> ClipStore::idsWithPrefix(std::string_view prefix, std::size_t limit) {
    MainActor::assertIsolated();
    std::string upper(prefix);
    for (auto& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    // Ids are stored upper-case; a range scan on the primary key finds the prefix.
    auto stmt = context_.db().prepare(
        "SELECT id FROM Clip WHERE id >= ?1 AND id < ?1 || '~' AND deletedAt IS NULL LIMIT ?2");
    stmt.bind(1, upper).bind(2, static_cast<std::int64_t>(limit));
    std::vector<Uuid> ids;
    while (stmt.step()) {
        if (stmt.textView(0).starts_with(upper)) {
            ids.push_back(Uuid::parse(stmt.textView(0)).value_or(Uuid()));
        }
    }
    return ids;
}

std::vector<std::pair<Uuid, std::string>> ClipStore::pinboardsOf(const Uuid& clipID) {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare(
        "SELECT p.id, p.name FROM ClipPinboard cp JOIN Pinboard p ON p.id = cp.pinboard_id "
        "WHERE cp.clip_id = ?1 ORDER BY p.sortIndex, p.name");
    stmt.bind(1, clipID.string());
    return namedRows(stmt);
}

std::vector<std::pair<Uuid, std::string>> ClipStore::tagsOf(const Uuid& clipID) {
    MainActor::assertIsolated();
    auto stmt =
        context_.db().prepare("SELECT t.id, t.name FROM ClipTag ct JOIN Tag t ON t.id = ct.tag_id "
                              "WHERE ct.clip_id = ?1 ORDER BY t.name COLLATE NOCASE");
    stmt.bind(1, clipID.string());
    return namedRows(stmt);
}

std::int64_t ClipStore::liveCount() {
    auto& stmt = context_.db().cached("SELECT count(*) FROM Clip WHERE deletedAt IS NULL");
    const std::int64_t count = stmt.step() ? stmt.int64(0) : 0;
    stmt.reset();
    return count;
}

} // namespace marlune
