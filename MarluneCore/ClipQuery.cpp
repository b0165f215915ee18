#include "MarluneCore/ClipQuery.h"

#include "MarluneCore/ClipStore.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>

namespace marlune {

namespace {

// Parameters: ?1 kind, ?2 tag, ?3 pinboard, ?4 source application; the rest are free.
std::string whereClause(const ClipQuery& query) {
    // Spelled exactly as the partial indexes are, so that the live listing walks one.
    std::string where = query.trashed ? "deletedAt IS NOT NULL" : "deletedAt IS NULL";
    if (query.kind) {
        where += " AND primaryKindRaw = ?1";
    }
    if (query.pinnedOnly) {
        where += " AND isPinned = 1";
    }
    if (query.tagID) {
        where += " AND id IN (SELECT clip_id FROM ClipTag WHERE tag_id = ?2)";
    }
    if (query.pinboardID) {
        where += " AND id IN (SELECT clip_id FROM ClipPinboard WHERE pinboard_id = ?3)";
    }
    if (query.sourceAppBundleID) {
        where += " AND sourceAppBundleID = ?4 COLLATE NOCASE";
    }
    return where;
}

void bindQuery(Statement& stmt, const ClipQuery& query) {
    if (query.kind) {
        stmt.bind(1, rawValue(*query.kind));
    }
    if (query.tagID) {
        stmt.bind(2, query.tagID->string());
    }
    if (query.pinboardID) {
        stmt.bind(3, query.pinboardID->string());
    }
    if (query.sourceAppBundleID) {
        stmt.bind(4, *query.sourceAppBundleID);
    }
}

constexpr std::string_view recencyKey = "coalesce(lastUsedAt, createdAt)";

std::string orderClause(const ClipQuery& query) {
    const std::string direction = query.ascending ? " ASC" : " DESC";
    switch (query.sort) {
    case ClipSort::created:
        return "createdAt" + direction + ", rowid" + direction;
    case ClipSort::mostRecopied:
        return "recopyCount" + direction + ", " + std::string(recencyKey) + direction + ", rowid" +
               direction;
    case ClipSort::recent:
        break;
    }
    return std::string(recencyKey) + direction + ", rowid" + direction;
}

// The sort key of a row as an integer pair, for ranking search hits in memory the way the
// SQL order would.
std::string sortColumns(const ClipQuery& query) {
    switch (query.sort) {
    case ClipSort::created:
        return "createdAt, 0";
    case ClipSort::mostRecopied:
        return "recopyCount, " + std::string(recencyKey);
    case ClipSort::recent:
        break;
    }
    return std::string(recencyKey) + ", 0";
}

unsigned char lowerASCII(unsigned char c) {
    return static_cast<unsigned char>(c >= 'A' && c <= 'Z' ? c + 32 : c);
}

// Where `needle` first occurs in `haystack`, ASCII letters compared without case.
std::size_t findIgnoringASCIICase(std::string_view haystack, std::string_view needle) {
    if (needle.empty()) {
        return 0;
    }
    const auto it = std::search(haystack.begin(), haystack.end(), needle.begin(), needle.end(),
                                [](char a, char b) {
                                    return lowerASCII(static_cast<unsigned char>(a)) ==
                                           lowerASCII(static_cast<unsigned char>(b));
                                });
    return it == haystack.end() ? std::string_view::npos
                                : static_cast<std::size_t>(it - haystack.begin());
}

struct Found {
    std::int64_t rowid = 0;
    std::int64_t key1 = 0;
    std::int64_t key2 = 0;
    bool inPreview = true;
    std::uint8_t type = 0; // 0 substring, 1 prefix, 2 exact
    double score = 0;
};

bool describeMatch(std::string_view text, std::string_view needle, Found& found) {
    const auto at = findIgnoringASCIICase(text, needle);
    if (at == std::string_view::npos) {
        return false;
    }
    found.type = at != 0 ? 0 : (text.size() == needle.size() ? 2 : 1);
    found.score =
        text.empty()
            ? 1.0
            : std::min(1.0, static_cast<double>(needle.size()) / static_cast<double>(text.size()));
    return true;
}

// A clip id as two 64-bit words: the 32 hex digits of its UUID, which is exact for the ids
// the library writes. Anything else (never written by this program) is hashed instead.
struct IdKey {
    std::uint64_t high = 0;
    std::uint64_t low = 0;
    friend bool operator==(const IdKey&, const IdKey&) = default;
};

IdKey idKey(std::string_view id) {
    IdKey key;
    int digits = 0;
    for (const char c : id) {
        unsigned value = 0;
        if (c >= '0' && c <= '9') {
            value = static_cast<unsigned>(c - '0');
        } else if (c >= 'A' && c <= 'F') {
            value = static_cast<unsigned>(c - 'A' + 10);
        } else if (c >= 'a' && c <= 'f') {
            value = static_cast<unsigned>(c - 'a' + 10);
        } else if (c == '-') {
            continue;
        } else {
            digits = 99;
            break;
        }
        auto& word = digits < 16 ? key.high : key.low;
        word = (word << 4) | value;
        ++digits;
    }
    if (digits != 32) {
        std::uint64_t hash = 14695981039346656037ULL;
        for (const char c : id) {
            hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211ULL;
        }
        key = {hash, ~hash};
    }
    return key;
}

// The clips whose preview did not match, found again by id while the flavours are scanned:
// one flat table with open addressing over exact 128-bit keys. A node-based map of strings
// costs an allocation per clip and a cache miss or two per lookup, which at 100,000 clips was
// most of the search.
class PendingClips {
public:
    void reserve(std::size_t count) { pending_.reserve(count); }

    void add(std::string_view id, const Found& found) {
        pending_.push_back({found, idKey(id), false});
    }

    // Builds the table once every clip has been added.
    void index() {
        std::size_t size = 16;
        while (size < pending_.size() * 2) {
            size *= 2;
        }
        mask_ = size - 1;
        slots_.assign(size, 0);
        for (std::size_t i = 0; i < pending_.size(); ++i) {
            std::size_t slot = slotOf(pending_[i].key);
            while (slots_[slot] != 0) {
                slot = (slot + 1) & mask_;
            }
            slots_[slot] = static_cast<std::uint32_t>(i + 1);
        }
    }

    // The pending clip with this id that has not matched yet, if any.
    Found* find(std::string_view id) {
        last_ = nullptr;
        if (slots_.empty()) {
            return nullptr;
        }
        const IdKey key = idKey(id);
        for (std::size_t slot = slotOf(key); slots_[slot] != 0; slot = (slot + 1) & mask_) {
            auto& entry = pending_[slots_[slot] - 1];
            if (entry.key == key) {
                last_ = &entry;
                return entry.matched ? nullptr : &entry.found;
            }
        }
        return nullptr;
    }

    // The clip last found has matched in one of its flavours: its others are skipped.
    void markLastMatched() {
        if (last_ != nullptr) {
            last_->matched = true;
        }
    }

    bool empty() const { return pending_.empty(); }

private:
    struct Entry {
        Found found;
        IdKey key;
        bool matched;
    };

    std::size_t slotOf(const IdKey& key) const {
        // Random UUIDs are uniform already; the multiply spreads the others.
        return static_cast<std::size_t>((key.high ^ key.low) * 0x9E3779B97F4A7C15ULL >> 20) & mask_;
    }

    std::vector<Entry> pending_;
    std::vector<std::uint32_t> slots_;
    std::size_t mask_ = 0;
    Entry* last_ = nullptr;
};

} // namespace

std::int64_t ClipQueries::count(const ClipQuery& query) {
    MainActor::assertIsolated();
    const bool unfiltered = !query.kind && !query.pinnedOnly && !query.tagID && !query.pinboardID &&
                            !query.sourceAppBundleID && !query.trashed;
    if (unfiltered) {
        // Counting every row of a table walks its pages without decoding a row, several times
        // faster than stepping through the live clips' index; the Trash is small.
        auto& all = context_.db().cached("SELECT count(*) FROM Clip");
        auto& trashed =
            context_.db().cached("SELECT count(*) FROM Clip WHERE deletedAt IS NOT NULL");
        const std::int64_t total = all.step() ? all.int64(0) : 0;
        const std::int64_t inTrash = trashed.step() ? trashed.int64(0) : 0;
        all.reset();
        trashed.reset();
        return total - inTrash;
    }
    auto& stmt = context_.db().cached("SELECT count(*) FROM Clip WHERE " + whereClause(query));
    bindQuery(stmt, query);
    const std::int64_t total = stmt.step() ? stmt.int64(0) : 0;
    stmt.reset();
    return total;
}

std::vector<Clip> ClipQueries::page(const ClipQuery& query, std::size_t limit, std::size_t offset) {
    MainActor::assertIsolated();
    // The page's rows are picked from the index alone (skipping `offset` entries without
    // reading a row), and only those rows are read.
    auto& stmt = context_.db().cached("SELECT " + std::string(clipColumns) +
                                      " FROM Clip WHERE rowid IN (SELECT rowid FROM Clip WHERE " +
                                      whereClause(query) + " ORDER BY " + orderClause(query) +
                                      " LIMIT ?8 OFFSET ?9) ORDER BY " + orderClause(query));
    bindQuery(stmt, query);
    stmt.bind(8, static_cast<std::int64_t>(limit)).bind(9, static_cast<std::int64_t>(offset));
    std::vector<Clip> clips;
    clips.reserve(limit);
    while (stmt.step()) {
        clips.push_back(readClipRow(stmt, context_.crypto()));
    }
    stmt.reset();
    return clips;
}

ClipSearchPage ClipQueries::search(std::string_view needle, const ClipQuery& query,
                                   std::size_t limit, std::size_t offset) {
    MainActor::assertIsolated();
    auto& db = context_.db();
    const auto& crypto = context_.crypto();
    std::vector<Found> hits;
    PendingClips rest;
    std::string plain;
    {
        // Storage order: every preview has to be opened anyway, and only the hits are ranked.
        auto scan =
            db.prepare("SELECT rowid, " + sortColumns(query) +
                       ", id, previewText FROM Clip NOT INDEXED WHERE " + whereClause(query));
        bindQuery(scan, query);
        rest.reserve(4096);
        while (scan.step()) {
            Found found{scan.int64(0), scan.int64(1), scan.int64(2)};
            if (crypto.readTextInto(scan.textView(4), plain) &&
                describeMatch(plain, needle, found)) {
                hits.push_back(found);
            } else {
                rest.add(scan.textView(3), found);
            }
        }
    }
    if (!rest.empty()) {
        rest.index();
        auto texts = db.prepare(representationTextsSQL);
        while (texts.step()) {
            Found* pending = rest.find(texts.textView(0));
            if (pending == nullptr) {
                continue;
            }
            Found found = *pending;
            if (readRepresentationText(texts, crypto, plain) &&
                describeMatch(plain, needle, found)) {
                found.inPreview = false;
                hits.push_back(found);
                rest.markLastMatched();
            }
        }
    }
    const auto before = [&query](const Found& a, const Found& b) {
        const auto ka = std::tie(a.key1, a.key2, a.rowid);
        const auto kb = std::tie(b.key1, b.key2, b.rowid);
        return query.ascending ? ka < kb : ka > kb;
    };
    ClipSearchPage result;
    result.total = static_cast<std::int64_t>(hits.size());
    const std::size_t begin = std::min(offset, hits.size());
    const std::size_t end = begin + std::min(limit, hits.size() - begin);
    std::partial_sort(hits.begin(), hits.begin() + static_cast<std::ptrdiff_t>(end), hits.end(),
                      before);
    auto& row = db.cached("SELECT " + std::string(clipColumns) + " FROM Clip WHERE rowid = ?1");
    for (std::size_t i = begin; i < end; ++i) {
        row.bind(1, hits[i].rowid);
        if (row.step()) {
            static constexpr std::string_view types[] = {"substring", "prefix", "exact"};
            result.hits.push_back({readClipRow(row, crypto), hits[i].inPreview ? "preview" : "text",
                                   std::string(types[hits[i].type]), hits[i].score});
        }
        row.reset();
    }
    return result;
}

std::vector<Uuid> ClipQueries::purgeCandidates(std::optional<std::int64_t> keepLast,
                                               std::optional<Date> olderThan) {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare(
        "SELECT id, " + std::string(recencyKey) +
        " FROM Clip WHERE deletedAt IS NULL AND isPinned = 0 AND pinboardCount = 0 "
        "ORDER BY " +
        std::string(recencyKey) + " DESC, rowid DESC");
    std::vector<Uuid> ids;
    std::int64_t position = 0;
    while (stmt.step()) {
        const bool beyondKept = keepLast && position >= *keepLast;
        const bool tooOld = olderThan && stmt.int64(1) < toStorage(*olderThan);
        if (beyondKept || tooOld) {
            ids.push_back(Uuid::parse(stmt.textView(0)).value_or(Uuid()));
        }
        ++position;
    }
    return ids;
}

std::vector<Uuid> ClipQueries::idsWithPrefix(std::string_view prefix, bool trashed,
                                             std::size_t limit) {
    MainActor::assertIsolated();
    std::string upper(prefix);
    for (auto& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    auto stmt = context_.db().prepare(
        std::string("SELECT id FROM Clip WHERE id >= ?1 AND id < ?1 || '~' AND ") +
        (trashed ? "deletedAt IS NOT NULL" : "deletedAt IS NULL") + " LIMIT ?2");
    stmt.bind(1, upper).bind(2, static_cast<std::int64_t>(limit));
    std::vector<Uuid> ids;
    while (stmt.step()) {
        if (stmt.textView(0).starts_with(upper)) {
            ids.push_back(Uuid::parse(stmt.textView(0)).value_or(Uuid()));
        }
    }
    return ids;
}

} // namespace marlune
