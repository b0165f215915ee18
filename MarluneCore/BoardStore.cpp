#include "MarluneCore/BoardStore.h"

#include "MarluneCore/BatchActions.h"
#include "MarluneCore/BoardListingCache.h"
#include "MarluneCore/BoardOrdering.h"
#include "MarluneCore/ContentFingerprint.h"
#include "MarluneCore/Settings.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <set>
#include <span>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

namespace marlune {

namespace {

std::optional<std::int64_t> storage(const std::optional<Date>& date) {
    if (date) {
        return toStorage(*date);
    }
    return std::nullopt;
}

// An item's text: its first plain-text flavour, else its first textual flavour, by position;
// the preview when it has none or the chosen one does not open. `ItemTextChoice` makes the same
// choice over the flavours of a listing's rows.
//
// For one clip: two lookups rather than one sorted one, so that both walk the
// (clip_id, position) index in order and stop at the first hit. A text too long for the row
// is the flavour's `textBlob` (see ClipStore::inlineTextLimit).
constexpr std::string_view hasText =
    "(r.text IS NOT NULL OR EXISTS (SELECT 1 FROM RepresentationData d WHERE "
    "d.representation_id = r.id AND d.field = 'textBlob'))";
const std::string& itemTextSQL() {
    static const std::string sql =
        "SELECT r.text, r.id FROM Representation r WHERE r.rowid = coalesce("
        "(SELECT r.rowid FROM Representation r WHERE r.clip_id = ?1 "
        "AND r.utTypeIdentifier = 'public.utf8-plain-text' AND " +
        std::string(hasText) +
        " ORDER BY r.position LIMIT 1), "
        "(SELECT r.rowid FROM Representation r WHERE r.clip_id = ?1 AND " +
        std::string(hasText) + " ORDER BY r.position LIMIT 1))";
    return sql;
}

// Opens the text of a flavour read with its sealed row text in `textColumn` (null when the
// text is stored outside the row) and its id in `idColumn`; false when no key opens it.
bool readFlavourText(Database& db, const ClipCrypto& crypto, const Statement& row, int textColumn,
                     int idColumn, std::string& text) {
    if (!row.isNull(textColumn)) {
        return crypto.readTextInto(row.textView(textColumn), text);
    }
    auto& blob = db.cached("SELECT bytes FROM RepresentationData WHERE representation_id = ?1 "
                           "AND field = 'textBlob'");
    blob.bind(1, row.textView(idColumn));
    std::optional<Bytes> plain;
    if (blob.step()) {
        plain = crypto.readBytes(blob.blob(0));
    }
    blob.reset();
    if (!plain) {
        text.clear();
        return false;
    }
    text.assign(plain->begin(), plain->end());
    return true;
}

// `clipColumns` qualified by the Clip table, for a query that joins another table with
// columns of the same names.
const std::string& qualifiedClipColumns() {
    static const std::string columns = [] {
        std::string out = "Clip.";
        for (const char c : clipColumns) {
            out += c;
            if (c == ' ') {
                out += "Clip.";
            }
        }
        return out;
    }();
    return columns;
}

// Picks an item's text from the textual flavours of its clip as a listing meets them, one row
// each, in any order.
class ItemTextChoice {
public:
    void start() { chosen_ = false; }
    // Whether the flavour beats the one chosen so far; it is then the chosen one. Equal ones
    // keep the first met.
    bool better(bool plainText, std::int64_t position) {
        if (chosen_ && !(plainText && !plainText_) &&
            !(plainText == plainText_ && position < position_)) {
            return false;
        }
        chosen_ = true;
        plainText_ = plainText;
        position_ = position;
        return true;
    }

private:
    bool chosen_ = false;
    bool plainText_ = false;
    std::int64_t position_ = 0;
};

void readPreviewInto(const Statement& row, const ClipCrypto& crypto, std::string& text) {
    text = crypto.readText(row.textView(clipPreviewColumn)).value_or(std::string());
}

// Which items a listing shows.
struct ItemFilter {
    // Everything a section holds: what the listing cache keeps.
    static BoardStore::ListFilter everything() {
        BoardStore::ListFilter all;
        all.includeSnoozed = true;
        return all;
    }
    // Done or open, snoozed or not (at `now`), and of the kind asked for.
    static bool passesStates(const Clip& clip, Date now, const BoardStore::ListFilter& filter) {
        const bool done = BoardOrdering::isDone(clip);
        return !(
            (done && !filter.includeDone) || (!done && !filter.includeOpen) ||
            (!filter.includeSnoozed && BoardOrdering::isSnoozed(clip, now) != filter.snoozedOnly) ||
            (filter.kind && clip.primaryKind != *filter.kind));
    }
    // `wanted` is case-folded.
    static bool hasTag(const BoardItem& item, const std::string& wanted) {
        return std::any_of(item.tags.begin(), item.tags.end(),
                           [&](const std::string& t) { return boardFoldCase(t) == wanted; });
    }
    static bool passes(const BoardItem& item, Date now, const BoardStore::ListFilter& filter,
                       const std::optional<std::string>& wantedTag) {
        return passesStates(item.clip, now, filter) && (!wantedTag || hasTag(item, *wantedTag));
    }
};

// Rearranges `items` so that position k holds what was at `order[k]`, moving each item about
// once (sorting the items themselves would move them many times over). `order` is used up.
void placeInOrder(std::span<BoardItem> items, std::vector<std::uint32_t>& order) {
    for (std::uint32_t start = 0; start < order.size(); ++start) {
        if (order[start] == start) {
            continue;
        }
        BoardItem held = std::move(items[start]);
        std::uint32_t to = start;
        for (;;) {
            const std::uint32_t from = order[to];
            order[to] = to;
            if (from == start) {
                items[to] = std::move(held);
                break;
            }
            items[to] = std::move(items[from]);
            to = from;
        }
    }
}

std::string trimmed(std::string_view text) {
    auto unicode = icu::UnicodeString::fromUTF8(
        icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())));
    // ICU's trim takes spaces only; new lines and other white space go too.
    std::int32_t start = 0;
    std::int32_t end = unicode.length();
    while (start < end && u_isUWhiteSpace(unicode.char32At(start))) {
        start = unicode.moveIndex32(start, 1);
    }
    while (end > start) {
        const std::int32_t previous = unicode.moveIndex32(end, -1);
        if (!u_isUWhiteSpace(unicode.char32At(previous))) {
            break;
        }
        end = previous;
    }
    std::string out;
    unicode.tempSubStringBetween(start, end).toUTF8String(out);
    return out;
}

// At most 200 Unicode scalar values, as the history's previews.
std::string previewOf(std::string_view text) {
    std::size_t i = 0;
    std::size_t count = 0;
    while (i < text.size() && count < 200) {
        const auto lead = static_cast<unsigned char>(text[i]);
        i += lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        ++count;
    }
    return std::string(text.substr(0, std::min(i, text.size())));
}

bool isTextual(ClipKind kind) {
    return kind == ClipKind::text || kind == ClipKind::richText || kind == ClipKind::url;
}

std::string countedName(std::string_view verb, std::size_t count) {
    return std::string(verb) + BatchActions::countPhrase(count, "Board Item");
}

std::string fileURL(const std::filesystem::path& path) {
    std::string url = "file://";
    for (const char c : path.string()) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || c == '%' || c == '#' || c == '?' || byte >= 0x7F) {
            static constexpr char hex[] = "0123456789ABCDEF";
            url += '%';
            url += hex[byte >> 4];
            url += hex[byte & 0x0F];
        } else {
            url += c;
        }
    }
    return url;
}

std::optional<std::string_view> imageType(const std::filesystem::path& path) {
    std::string ext = path.extension().string();
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (ext == ".png") {
        return "public.png";
    }
    if (ext == ".jpg" || ext == ".jpeg") {
        return "public.jpeg";
    }
    if (ext == ".tif" || ext == ".tiff") {
        return "public.tiff";
    }
    return std::nullopt;
}

} // namespace

std::string boardFoldCase(std::string_view text) {
    auto folded = icu::UnicodeString::fromUTF8(
                      icu::StringPiece(text.data(), static_cast<std::int32_t>(text.size())))
                      .foldCase();
    std::string out;
    folded.toUTF8String(out);
    return out;
}

Pinboard readPinboardRow(const Statement& row) {
    Pinboard board;
    board.id = Uuid::parse(row.textView(0)).value_or(Uuid());
    board.name = row.text(1);
    board.iconSymbol = row.text(2);
    board.colorHex = row.optionalText(3);
    board.colorRole = row.optionalText(4);
    board.sortIndex = row.int64(5);
    board.createdAt = fromStorage(row.int64(6));
    if (auto flag = row.optionalInt64(7)) {
        board.isBoard = *flag != 0;
    }
    return board;
}

BoardStore::BoardStore(ModelContext& context, Settings& settings, SecretCheck secretCheck,
                       std::function<void()> changed)
    : context_(context), settings_(settings), secretCheck_(std::move(secretCheck)),
      changed_(std::move(changed)) {}

void BoardStore::notify() {
    if (changed_) {
        changed_();
    }
}

// --- Sections

std::vector<Pinboard> BoardStore::sections() {
    MainActor::assertIsolated();
    auto& stmt = context_.db().cached("SELECT " + std::string(pinboardColumns) +
                                      " FROM Pinboard WHERE isBoard = 1 "
                                      "ORDER BY sortIndex, createdAt, id");
    std::vector<Pinboard> out;
    while (stmt.step()) {
        out.push_back(readPinboardRow(stmt));
    }
    stmt.reset();
    return out;
}

std::vector<BoardSectionSummary> BoardStore::sectionSummaries() {
    std::vector<BoardSectionSummary> out;
    auto counts = context_.db().prepare(
        "SELECT cp.pinboard_id, count(*), count(c.completedAt) FROM ClipPinboard cp "
        "JOIN Clip c ON c.id = cp.clip_id JOIN Pinboard p ON p.id = cp.pinboard_id "
        "WHERE p.isBoard = 1 AND c.deletedAt IS NULL GROUP BY cp.pinboard_id");
    std::map<std::string, std::pair<std::int64_t, std::int64_t>> byID;
    while (counts.step()) {
        byID[counts.text(0)] = {counts.int64(1), counts.int64(2)};
    }
    for (auto& section : sections()) {
        BoardSectionSummary summary;
        const auto found = byID.find(section.id.string());
        if (found != byID.end()) {
            summary.itemCount = found->second.first;
            summary.doneCount = found->second.second;
        }
        summary.section = std::move(section);
        out.push_back(std::move(summary));
    }
    return out;
}

std::optional<Pinboard> BoardStore::section(const Uuid& id) {
    auto& stmt = context_.db().cached("SELECT " + std::string(pinboardColumns) +
                                      " FROM Pinboard WHERE id = ?1 AND isBoard = 1");
    stmt.bind(1, id.string());
    std::optional<Pinboard> out;
    if (stmt.step()) {
        out = readPinboardRow(stmt);
    }
    stmt.reset();
    return out;
}

Pinboard BoardStore::activeSection(Date now) {
    if (auto active = activeSectionIfAny()) {
        return *active;
    }
    return createSection(BoardConstants::defaultSectionName, now);
}

std::optional<Pinboard> BoardStore::activeSectionIfAny() {
    auto all = sections();
    if (all.empty()) {
        return std::nullopt;
    }
    if (auto id = Uuid::parse(settings_.string(BoardSettingKeys::activeSectionID, ""))) {
        for (const auto& s : all) {
            if (s.id == *id) {
                return s;
            }
        }
    }
    // Missing, or stale (the section was deleted, perhaps on another device).
    return all.front();
}

void BoardStore::setActiveSection(const Uuid& section) {
    settings_.setString(BoardSettingKeys::activeSectionID, section.string());
}

std::optional<Pinboard> BoardStore::sectionNamed(std::string_view name) {
    const std::string wanted = boardFoldCase(name);
    for (auto& s : sections()) {
        if (boardFoldCase(s.name) == wanted) {
            return s;
        }
    }
    return std::nullopt;
}

void BoardStore::insertSection(const Pinboard& section) {
    context_.db()
        .prepare("INSERT INTO Pinboard (id, name, iconSymbol, colorHex, colorRole, sortIndex, "
                 "createdAt, isBoard) VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)")
        .bind(1, section.id.string())
        .bind(2, section.name)
        .bind(3, section.iconSymbol)
        .bind(4, section.colorHex)
        .bind(5, section.colorRole)
        .bind(6, section.sortIndex)
        .bind(7, toStorage(section.createdAt))
        .bind(8, section.isBoard.has_value() ? std::optional<std::int64_t>(*section.isBoard ? 1 : 0)
                                             : std::nullopt)
        .run();
}

Pinboard BoardStore::createSection(std::string_view name, Date now) {
    MainActor::assertIsolated();
    const std::string clean = trimmed(name);
    if (clean.empty()) {
        throw BoardError(BoardError::Kind::invalid, "A section needs a name.");
    }
    Pinboard section = Pinboard::make(now);
    section.name = clean;
    section.isBoard = true;
    section.iconSymbol = clean == BoardConstants::defaultSectionName
                             ? std::string(BoardConstants::defaultSectionSymbol)
                             : "list.bullet";
    auto& next = context_.db().cached(
        "SELECT coalesce(max(sortIndex) + 1, 0) FROM Pinboard WHERE isBoard = 1");
    section.sortIndex = next.step() ? next.int64(0) : 0;
    next.reset();
    context_.performUndoable("New Board Section", [&] { insertSection(section); });
    notify();
    return section;
}

Pinboard BoardStore::sectionForName(std::string_view name, Date now) {
    if (auto found = sectionNamed(trimmed(name))) {
        return *found;
    }
    return createSection(name, now);
}

std::optional<Pinboard> BoardStore::pinboardNamed(std::string_view name) {
    const std::string wanted = boardFoldCase(trimmed(name));
    auto stmt = context_.db().prepare("SELECT " + std::string(pinboardColumns) +
                                      " FROM Pinboard ORDER BY createdAt, id");
    std::optional<Pinboard> board;
    while (stmt.step()) {
        if (boardFoldCase(stmt.textView(1)) == wanted) {
            // A Board section of that name is reported as such by the caller; an ordinary
            // pinboard of the same name wins over it.
            auto found = readPinboardRow(stmt);
            if (!board || (board->isBoard.value_or(false) && !found.isBoard.value_or(false))) {
                board = std::move(found);
            }
        }
    }
    return board;
}

Pinboard BoardStore::createPinboard(std::string_view name, std::string_view symbol, Date now) {
    Pinboard board = Pinboard::make(now);
    board.name = std::string(name);
    board.iconSymbol = std::string(symbol);
    auto& next = context_.db().cached(
        "SELECT coalesce(max(sortIndex) + 1, 0) FROM Pinboard WHERE coalesce(isBoard, 0) = 0");
    board.sortIndex = next.step() ? next.int64(0) : 0;
    next.reset();
    insertSection(board);
    return board;
}

// --- Items

std::vector<BoardItem> BoardStore::items(const Pinboard& section, Date now,
                                         const ListFilter& filter) {
    std::vector<BoardItem> out;
    appendItems(section, now, filter, out);
    return out;
}

std::vector<BoardItem> BoardStore::items(const Pinboard& section, Date now) {
    return items(section, now, ListFilter());
}

std::vector<BoardItem> BoardStore::allItems(Date now, const ListFilter& filter) {
    std::vector<BoardItem> out;
    for (const auto& s : sections()) {
        appendItems(s, now, filter, out);
    }
    return out;
}

void BoardStore::appendItems(const Pinboard& section, Date now, const ListFilter& filter,
                             std::vector<BoardItem>& out) {
    MainActor::assertIsolated();
    auto& db = context_.db();
    if (db.inTransaction()) {
        // What is read now may yet be rolled back: read it afresh and keep none of it.
        readItems(section, now, filter, out);
        return;
    }
    // The stamp is taken before the rows are read, so a listing is never kept as newer than
    // it is; at worst a commit by another connection in between costs one more read.
    const Database::ChangeStamp stamp = db.changeStamp();
    auto& cache = context_.boardListings();
    const std::vector<BoardItem>* whole = cache.find(section.id, stamp);
    std::optional<std::string> wantedTag;
    if (filter.tag) {
        wantedTag = boardFoldCase(*filter.tag);
    }
    const auto shown = [&](const BoardItem& item) {
        return ItemFilter::passes(item, now, filter, wantedTag);
    };
    if (whole == nullptr) {
        std::vector<BoardItem> fresh;
        readItems(section, now, ItemFilter::everything(), fresh);
        if (!BoardListingCache::fits(fresh.size())) {
            // Too long to keep: the items shown are moved out of the one read.
            for (auto& item : fresh) {
                if (shown(item)) {
                    out.push_back(std::move(item));
                }
            }
            return;
        }
        whole = &cache.keep(section.id, stamp, std::move(fresh));
    }
    const auto first = out.size();
    std::size_t count = 0;
    for (const auto& item : *whole) {
        count += shown(item) ? 1 : 0;
    }
    out.reserve(first + count);
    for (const auto& item : *whole) {
        if (shown(item)) {
            out.push_back(BoardItem{item.clip, item.text, section.id, section.name, item.tags});
        }
    }
}

void BoardStore::readItems(const Pinboard& section, Date now, const ListFilter& filter,
                           std::vector<BoardItem>& out) {
    auto& db = context_.db();
    const auto& crypto = context_.crypto();
    const std::string sectionID = section.id.string();

    // Room for every member at once: items are large, and regrowing would move each of them.
    auto& members = db.cached("SELECT count(*) FROM ClipPinboard WHERE pinboard_id = ?1");
    members.bind(1, sectionID);
    const std::int64_t memberCount = members.step() ? members.int64(0) : 0;
    members.reset();
    const auto first = static_cast<std::ptrdiff_t>(out.size());
    out.reserve(out.size() + static_cast<std::size_t>(memberCount));

    // One row per textual flavour of each clip, or one row with none when it has no such
    // flavour. A left join's right side is always read inside its left side, so the rows of a
    // clip come together.
    constexpr int typeColumn = 21; // after the columns of `clipColumns`
    constexpr int textColumn = 22;
    constexpr int positionColumn = 23;
    constexpr int representationColumn = 24;
    auto& stmt =
        db.cached("SELECT " + qualifiedClipColumns() +
                  ", r.utTypeIdentifier, r.text, r.position, r.id "
                  "FROM ClipPinboard cp JOIN Clip ON Clip.id = cp.clip_id "
                  "LEFT JOIN Representation r ON r.clip_id = Clip.id AND " +
                  std::string(hasText) + " WHERE cp.pinboard_id = ?1 AND Clip.deletedAt IS NULL");
    stmt.bind(1, sectionID);
    std::string clipID; // of the rows being read
    bool shown = false; // whether that clip passes the filter
    ItemTextChoice choice;
    while (stmt.step()) {
        if (stmt.textView(0) != clipID) {
            clipID.assign(stmt.textView(0));
            auto& item = out.emplace_back(BoardItem{
                readClipRow(stmt, crypto, ClipPreview::unread), {}, section.id, section.name, {}});
            shown = ItemFilter::passesStates(item.clip, now, filter);
            if (!shown) {
                out.pop_back();
                continue;
            }
            choice.start();
        } else if (!shown) {
            continue;
        }
        std::string& text = out.back().text;
        if (stmt.isNull(positionColumn)) {
            readPreviewInto(stmt, crypto, text);
        } else if (choice.better(stmt.textView(typeColumn) == BoardConstants::plainTextType,
                                 stmt.int64(positionColumn)) &&
                   !readFlavourText(db, crypto, stmt, textColumn, representationColumn, text)) {
            readPreviewInto(stmt, crypto, text);
        }
    }
    stmt.reset();
    const std::span<BoardItem> added(out.begin() + first, out.end());

    // The tags, read from the smaller side: the section's members, or the library's tag
    // assignments (usually far fewer than the items of a long section).
    auto& assignments = db.cached("SELECT count(*) FROM ClipTag");
    const std::int64_t assignmentCount = assignments.step() ? assignments.int64(0) : 0;
    assignments.reset();
    auto& tagRows =
        db.cached(assignmentCount < memberCount
                      ? "SELECT ct.clip_id, t.name FROM ClipTag ct CROSS JOIN ClipPinboard cp "
                        "ON cp.clip_id = ct.clip_id AND cp.pinboard_id = ?1 "
                        "JOIN Tag t ON t.id = ct.tag_id ORDER BY t.name COLLATE NOCASE"
                      : "SELECT ct.clip_id, t.name FROM ClipPinboard cp "
                        "JOIN ClipTag ct ON ct.clip_id = cp.clip_id "
                        "JOIN Tag t ON t.id = ct.tag_id WHERE cp.pinboard_id = ?1 "
                        "ORDER BY t.name COLLATE NOCASE");
    tagRows.bind(1, sectionID);
    if (tagRows.step()) {
        std::vector<std::pair<Uuid, std::size_t>> byID;
        byID.reserve(added.size());
        for (std::size_t i = 0; i < added.size(); ++i) {
            byID.emplace_back(added[i].clip.id, i);
        }
        std::sort(byID.begin(), byID.end());
        do {
            const Uuid id = Uuid::parse(tagRows.textView(0)).value_or(Uuid());
            const auto found = std::lower_bound(byID.begin(), byID.end(), id,
                                                [](const std::pair<Uuid, std::size_t>& entry,
                                                   const Uuid& key) { return entry.first < key; });
            if (found != byID.end() && found->first == id) {
                added[found->second].tags.push_back(tagRows.text(1));
            }
        } while (tagRows.step());
    }
    tagRows.reset();

    if (filter.tag) {
        const std::string wanted = boardFoldCase(*filter.tag);
        out.erase(std::remove_if(
                      out.begin() + first, out.end(),
                      [&](const BoardItem& item) { return !ItemFilter::hasTag(item, wanted); }),
                  out.end());
    }

    const std::span<BoardItem> listed(out.begin() + first, out.end());
    std::vector<std::uint32_t> order(listed.size());
    std::iota(order.begin(), order.end(), 0U);
    std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) {
        return BoardOrdering::precedes(listed[a].clip, listed[b].clip);
    });
    placeInOrder(listed, order);
}

std::optional<BoardItem> BoardStore::item(const Uuid& clipID) {
    auto found = clip(clipID);
    if (!found || !found->isLive()) {
        return std::nullopt;
    }
    auto stmt = context_.db().prepare(
        "SELECT p.id, p.name FROM ClipPinboard cp JOIN Pinboard p ON p.id = cp.pinboard_id "
        "WHERE cp.clip_id = ?1 AND p.isBoard = 1 ORDER BY p.sortIndex, p.createdAt LIMIT 1");
    stmt.bind(1, clipID.string());
    if (!stmt.step()) {
        return std::nullopt;
    }
    BoardItem item;
    item.sectionID = Uuid::parse(stmt.textView(0)).value_or(Uuid());
    item.sectionName = stmt.text(1);
    item.text = text(*found);
    for (const auto& [id, name] : ClipStore(context_, {}).tagsOf(clipID)) {
        item.tags.push_back(name);
    }
    item.clip = std::move(*found);
    return item;
}

bool BoardStore::isOnBoard(const Uuid& clipID) {
    auto& stmt = context_.db().cached(
        "SELECT 1 FROM ClipPinboard cp JOIN Pinboard p ON p.id = cp.pinboard_id "
        "JOIN Clip c ON c.id = cp.clip_id "
        "WHERE cp.clip_id = ?1 AND p.isBoard = 1 AND c.deletedAt IS NULL LIMIT 1");
    stmt.bind(1, clipID.string());
    const bool on = stmt.step();
    stmt.reset();
    return on;
}

std::string BoardStore::text(const Clip& clip) {
    auto& db = context_.db();
    auto& stmt = db.cached(itemTextSQL());
    stmt.bind(1, clip.id.string());
    std::string out;
    const bool found = stmt.step() && readFlavourText(db, context_.crypto(), stmt, 0, 1, out);
    stmt.reset();
    return found ? out : clip.previewText;
}

std::vector<Uuid> BoardStore::itemIDsWithPrefix(std::string_view prefix, std::size_t limit) {
    std::string upper(prefix);
    for (auto& c : upper) {
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    }
    auto stmt = context_.db().prepare(
        "SELECT DISTINCT c.id FROM Clip c JOIN ClipPinboard cp ON cp.clip_id = c.id "
        "JOIN Pinboard p ON p.id = cp.pinboard_id "
        "WHERE c.id >= ?1 AND c.id < ?1 || '~' AND c.deletedAt IS NULL AND p.isBoard = 1 "
        "LIMIT ?2");
    stmt.bind(1, upper).bind(2, static_cast<std::int64_t>(limit));
    std::vector<Uuid> ids;
    while (stmt.step()) {
        if (stmt.textView(0).starts_with(upper)) {
            ids.push_back(Uuid::parse(stmt.textView(0)).value_or(Uuid()));
        }
    }
    return ids;
}

std::optional<Clip> BoardStore::clip(const Uuid& id) {
    return ClipStore(context_, {}).clip(id);
}

std::vector<Clip> BoardStore::existing(const std::vector<Uuid>& ids) {
    std::vector<Clip> out;
    std::set<Uuid> seen;
    for (const auto& id : ids) {
        if (!seen.insert(id).second) {
            continue;
        }
        // An id that matches no clip is passed over.
        if (auto found = clip(id); found && found->isLive()) {
            out.push_back(std::move(*found));
        }
    }
    return out;
}

std::vector<Clip> BoardStore::sectionClips(const Uuid& section) {
    auto& stmt = context_.db().cached("SELECT " + std::string(clipColumns) +
                                      " FROM ClipPinboard cp JOIN Clip ON Clip.id = cp.clip_id "
                                      "WHERE cp.pinboard_id = ?1 AND Clip.deletedAt IS NULL");
    stmt.bind(1, section.string());
    std::vector<Clip> out;
    while (stmt.step()) {
        out.push_back(readClipRow(stmt, context_.crypto()));
    }
    stmt.reset();
    return out;
}

std::optional<double> BoardStore::largestKey(const Uuid& section, const Uuid& excluding) {
    // The same arithmetic as BoardOrdering::orderKey, done by SQLite in doubles, so that the
    // largest key is found without opening a single sealed field.
    auto& stmt = context_.db().cached(
        "SELECT max(coalesce(c.boardOrder, CAST(c.createdAt AS REAL) / 1000000.0 - ?3)) "
        "FROM ClipPinboard cp JOIN Clip c ON c.id = cp.clip_id "
        "WHERE cp.pinboard_id = ?1 AND cp.clip_id <> ?2 AND c.deletedAt IS NULL");
    stmt.bind(1, section.string())
        .bind(2, excluding.string())
        .bind(3, static_cast<double>(referenceDateUnixSeconds));
    std::optional<double> largest;
    if (stmt.step()) {
        largest = stmt.optionalReal(0);
    }
    stmt.reset();
    return largest;
}

void BoardStore::place(const Clip& clip, const Uuid& section) {
    auto& db = context_.db();
    auto& member = db.cached("SELECT 1 FROM ClipPinboard WHERE clip_id = ?1 AND pinboard_id = ?2");
    member.bind(1, clip.id.string()).bind(2, section.string());
    const bool already = member.step();
    member.reset();
    if (already) {
        return;
    }
    if (auto key = BoardOrdering::placementKey(BoardOrdering::orderKey(clip),
                                               largestKey(section, clip.id))) {
        db.cached("UPDATE Clip SET boardOrder = ?2 WHERE id = ?1")
            .bind(1, clip.id.string())
            .bind(2, *key)
            .run();
    }
    db.cached("INSERT OR IGNORE INTO ClipPinboard (clip_id, pinboard_id) VALUES (?1, ?2)")
        .bind(1, clip.id.string())
        .bind(2, section.string())
        .run();
}

// --- Adding

BoardStore::AddResult BoardStore::addText(std::string_view input, const Pinboard& section,
                                          const Source& source, Date now) {
    const std::string text = trimmed(input);
    if (text.empty()) {
        throw BoardError(BoardError::Kind::invalid, std::string(BoardConstants::emptyText));
    }
    if (secretCheck_ && secretCheck_(text)) {
        throw BoardError(BoardError::Kind::likelySecret,
                         std::string(BoardConstants::secretRefused));
    }
    NewClip content;
    content.kind = ClipKind::text;
    content.previewText = previewOf(text);
    Representation rep;
    rep.utTypeIdentifier = std::string(BoardConstants::plainTextType);
    rep.text = text;
    content.representations.push_back(std::move(rep));
    content.sourceAppName = source.appName;
    content.sourceAppBundleID = source.appBundleID;
    return capture(content, section, source, now);
}

BoardStore::AddResult BoardStore::capture(const NewClip& content, const Pinboard& section,
                                          const Source& source, Date now) {
    MainActor::assertIsolated();
    auto result = context_.performUndoable("Add to Board", [&] {
        ClipStore history(context_, ClipStoreSettings::read(settings_));
        const Clip stored = history.capture(content, now);
        return into(stored, section, source, now, true);
    });
    notify();
    return result;
}

BoardStore::AddResult BoardStore::into(const Clip& stored, const Pinboard& section,
                                       const Source& source, Date now, bool recordSource) {
    (void)now;
    auto& db = context_.db();
    AddResult result;
    result.section = section;
    auto& member = db.cached("SELECT 1 FROM ClipPinboard WHERE clip_id = ?1 AND pinboard_id = ?2");
    member.bind(1, stored.id.string()).bind(2, section.id.string());
    const bool already = member.step();
    member.reset();
    if (already) {
        if (auto key = BoardOrdering::bumpKey(BoardOrdering::orderKey(stored),
                                              largestKey(section.id, stored.id))) {
            db.cached("UPDATE Clip SET boardOrder = ?2 WHERE id = ?1")
                .bind(1, stored.id.string())
                .bind(2, *key)
                .run();
        }
        // Capturing a done item again means it is to be done again.
        db.cached("UPDATE Clip SET completedAt = NULL WHERE id = ?1")
            .bind(1, stored.id.string())
            .run();
        result.outcome = CaptureOutcome::bumped;
    } else {
        place(stored, section.id);
        result.outcome = CaptureOutcome::added;
        if (recordSource && (source.url || source.title)) {
            db.cached("UPDATE Clip SET sourceURL = coalesce(?2, sourceURL), "
                      "sourceTitle = coalesce(?3, sourceTitle) WHERE id = ?1")
                .bind(1, stored.id.string())
                .bind(2, source.url)
                .bind(3, source.title)
                .run();
        }
    }
    result.clip = *clip(stored.id);
    return result;
}

// --- Item operations

void BoardStore::setDone(const std::vector<Uuid>& ids, bool done, Date now) {
    const auto clips = existing(ids);
    context_.performUndoable(countedName(done ? "Check" : "Uncheck", clips.size()), [&] {
        // Ticking an item that is already done keeps its first completion time, which is what
        // the archive age counts from.
        auto& stmt = context_.db().cached(
            "UPDATE Clip SET completedAt = CASE WHEN ?2 THEN coalesce(completedAt, ?3) END "
            "WHERE id = ?1");
        for (const auto& c : clips) {
            stmt.bind(1, c.id.string()).bind(2, done).bind(3, toStorage(now)).run();
        }
    });
    notify();
}

void BoardStore::setPinned(const std::vector<Uuid>& ids, bool pinned, Date now) {
    const auto clips = existing(ids);
    context_.performUndoable(countedName(pinned ? "Pin" : "Unpin", clips.size()), [&] {
        auto& stmt = context_.db().cached(
            "UPDATE Clip SET boardPinnedAt = CASE WHEN ?2 THEN coalesce(boardPinnedAt, ?3) END "
            "WHERE id = ?1");
        for (const auto& c : clips) {
            stmt.bind(1, c.id.string()).bind(2, pinned).bind(3, toStorage(now)).run();
        }
    });
    notify();
}

void BoardStore::snooze(const std::vector<Uuid>& ids, Date until) {
    const auto clips = existing(ids);
    context_.performUndoable(countedName("Snooze", clips.size()), [&] {
        auto& stmt = context_.db().cached("UPDATE Clip SET snoozedUntil = ?2 WHERE id = ?1");
        for (const auto& c : clips) {
            stmt.bind(1, c.id.string()).bind(2, toStorage(until)).run();
        }
    });
    notify();
}

void BoardStore::wake(const std::vector<Uuid>& ids) {
    const auto clips = existing(ids);
    context_.performUndoable(countedName("Wake", clips.size()), [&] {
        auto& stmt = context_.db().cached("UPDATE Clip SET snoozedUntil = NULL WHERE id = ?1");
        for (const auto& c : clips) {
            stmt.bind(1, c.id.string()).run();
        }
    });
    notify();
}

void BoardStore::setDue(const std::vector<Uuid>& ids, std::optional<Date> at) {
    const auto clips = existing(ids);
    context_.performUndoable(at ? "Set Due Date" : "Clear Due Date", [&] {
        auto& stmt = context_.db().cached("UPDATE Clip SET dueAt = ?2 WHERE id = ?1");
        for (const auto& c : clips) {
            stmt.bind(1, c.id.string()).bind(2, storage(at)).run();
        }
    });
    notify();
}

void BoardStore::setNote(const Uuid& id, const std::optional<std::string>& note) {
    if (!clip(id)) {
        return;
    }
    context_.performUndoable(note ? "Set Note" : "Remove Note",
                             [&] { ClipStore(context_, {}).setBoardNote(id, note); });
    notify();
}

void BoardStore::move(const Uuid& id, const std::optional<Uuid>& before,
                      const std::optional<Uuid>& after, Date now) {
    const auto find = [&](const Uuid& wanted) {
        auto found = clip(wanted);
        if (!found || !found->isLive()) {
            throw BoardError(BoardError::Kind::notFound,
                             "No Board item has the id " + wanted.string() + ".");
        }
        return *found;
    };
    const Clip item = find(id);
    if (before == id || after == id) {
        throw BoardError(BoardError::Kind::invalid,
                         "An item cannot be moved next to itself. Name another item.");
    }
    const auto neighbour = [&](const std::optional<Uuid>& ref) -> std::optional<Clip> {
        return ref ? std::optional<Clip>(find(*ref)) : std::nullopt;
    };
    const auto placement =
        BoardOrdering::placeBetween(item, neighbour(before), neighbour(after), now);
    if (const auto* refusal = std::get_if<BoardOrdering::Refusal>(&placement)) {
        throw BoardError(BoardError::Kind::refused, refusal->message);
    }
    const auto& place = std::get<BoardOrdering::Placement>(placement);
    context_.performUndoable("Move Board Item", [&] {
        context_.db()
            .cached("UPDATE Clip SET boardOrder = ?2, boardPinnedAt = ?3 WHERE id = ?1")
            .bind(1, id.string())
            .bind(2, place.boardOrder)
            .bind(3, storage(place.boardPinnedAt))
            .run();
    });
    notify();
}

std::vector<BoardMembership> BoardStore::removeSelection(const std::vector<Uuid>& ids) {
    std::vector<BoardMembership> removed;
    const auto clips = existing(ids);
    context_.performUndoable(std::string(BoardConstants::removedToast), [&] {
        auto& db = context_.db();
        auto& find = db.cached("SELECT cp.pinboard_id FROM ClipPinboard cp "
                               "JOIN Pinboard p ON p.id = cp.pinboard_id "
                               "WHERE cp.clip_id = ?1 AND p.isBoard = 1");
        for (const auto& c : clips) {
            find.bind(1, c.id.string());
            while (find.step()) {
                removed.push_back(
                    {c.id, Uuid::parse(find.textView(0)).value_or(Uuid()), c.boardOrder});
            }
            find.reset();
        }
        auto& drop = db.cached("DELETE FROM ClipPinboard WHERE clip_id = ?1 AND pinboard_id = ?2");
        for (const auto& m : removed) {
            drop.bind(1, m.clipID.string()).bind(2, m.sectionID.string()).run();
        }
    });
    notify();
    return removed;
}

void BoardStore::restoreMemberships(const std::vector<BoardMembership>& memberships) {
    context_.performUndoable("Restore to Board", [&] {
        auto& db = context_.db();
        for (const auto& m : memberships) {
            db.cached("INSERT OR IGNORE INTO ClipPinboard (clip_id, pinboard_id) "
                      "SELECT c.id, p.id FROM Clip c, Pinboard p WHERE c.id = ?1 AND p.id = ?2")
                .bind(1, m.clipID.string())
                .bind(2, m.sectionID.string())
                .run();
            db.cached("UPDATE Clip SET boardOrder = ?2 WHERE id = ?1")
                .bind(1, m.clipID.string())
                .bind(2, m.boardOrder)
                .run();
        }
    });
    notify();
}

void BoardStore::trashSelection(const std::vector<Uuid>& ids, Date now) {
    std::vector<Uuid> live;
    for (const auto& c : existing(ids)) {
        live.push_back(c.id);
    }
    BatchActions::moveClipsToTrash(context_, live, now);
    notify();
}

std::vector<Uuid> BoardStore::clearCompleted(const Pinboard& section) {
    std::vector<Uuid> done;
    for (const auto& c : sectionClips(section.id)) {
        if (BoardOrdering::isDone(c)) {
            done.push_back(c.id);
        }
    }
    if (!done.empty()) {
        removeSelection(done);
    }
    return done;
}

void BoardStore::moveSelection(const std::vector<Uuid>& ids, const Pinboard& to) {
    const auto clips = existing(ids);
    context_.performUndoable(countedName("Move", clips.size()), [&] {
        auto& db = context_.db();
        for (const auto& c : clips) {
            place(c, to.id);
            db.cached("DELETE FROM ClipPinboard WHERE clip_id = ?1 AND pinboard_id <> ?2 AND "
                      "pinboard_id IN (SELECT id FROM Pinboard WHERE isBoard = 1)")
                .bind(1, c.id.string())
                .bind(2, to.id.string())
                .run();
        }
    });
    notify();
}

void BoardStore::fileSelection(const std::vector<Uuid>& ids, const Pinboard& target) {
    if (target.isBoard.value_or(false)) {
        throw BoardError(BoardError::Kind::refused,
                         "'" + target.name + "' is a Board, not an archive.",
                         "Use `board use` to switch sections; `board file` moves items OUT of "
                         "the Board.");
    }
    const auto clips = existing(ids);
    context_.performUndoable(countedName("File", clips.size()), [&] {
        auto& db = context_.db();
        for (const auto& c : clips) {
            db.cached("DELETE FROM ClipPinboard WHERE clip_id = ?1 AND "
                      "pinboard_id IN (SELECT id FROM Pinboard WHERE isBoard = 1)")
                .bind(1, c.id.string())
                .run();
            db.cached("INSERT OR IGNORE INTO ClipPinboard (clip_id, pinboard_id) VALUES (?1, ?2)")
                .bind(1, c.id.string())
                .bind(2, target.id.string())
                .run();
        }
    });
    notify();
}

void BoardStore::rewrite(const Uuid& id, std::string_view input, Date now) {
    auto found = clip(id);
    if (!found) {
        return;
    }
    if (!isTextual(found->primaryKind)) {
        throw BoardError(BoardError::Kind::refused, "Only text items can be rewritten.");
    }
    const std::string text = trimmed(input);
    if (text.empty()) {
        throw BoardError(BoardError::Kind::invalid, std::string(BoardConstants::emptyText));
    }
    const auto& crypto = context_.crypto();
    Representation rep;
    rep.utTypeIdentifier = std::string(BoardConstants::plainTextType);
    rep.text = text;
    rep.createdAt = now;
    const std::vector<Representation> reps{std::move(rep)};
    const std::string hash = ContentFingerprint::of(crypto.fingerprintKey(), ClipKind::text, reps);
    context_.performUndoable("Rewrite Board Item", [&] {
        auto& db = context_.db();
        ClipStore(context_, {}).replaceRepresentations(id, reps, now);
        db.cached("UPDATE Clip SET primaryKindRaw = 'text', previewText = ?2, contentHash = ?3 "
                  "WHERE id = ?1")
            .bind(1, id.string())
            .bind(2, crypto.sealText(previewOf(text)))
            .bind(3, hash)
            .run();
    });
    notify();
}

Clip BoardStore::mergeSelection(const std::vector<Uuid>& ids, Date now) {
    const auto clips = existing(ids);
    const bool allText = std::all_of(clips.begin(), clips.end(),
                                     [](const Clip& c) { return isTextual(c.primaryKind); });
    if (clips.size() < 2 || !allText) {
        throw BoardError(BoardError::Kind::refused, std::string(BoardConstants::mergeRefused));
    }
    std::string joined;
    for (const auto& c : clips) {
        joined += (joined.empty() ? "" : "\n") + text(c);
    }
    std::vector<Uuid> rest;
    for (std::size_t i = 1; i < clips.size(); ++i) {
        rest.push_back(clips[i].id);
    }
    rewrite(clips.front().id, joined, now);
    removeSelection(rest);
    return *clip(clips.front().id);
}

void BoardStore::setTag(std::string_view name, bool present, const std::vector<Uuid>& ids,
                        Date now) {
    const std::string clean = trimmed(name);
    if (clean.empty()) {
        throw BoardError(BoardError::Kind::invalid, "A tag needs a name.");
    }
    const auto clips = existing(ids);
    auto& db = context_.db();
    std::optional<Uuid> tagID;
    {
        auto stmt = db.prepare("SELECT id, name FROM Tag ORDER BY createdAt, id");
        const std::string wanted = boardFoldCase(clean);
        while (stmt.step()) {
            if (boardFoldCase(stmt.textView(1)) == wanted) {
                tagID = Uuid::parse(stmt.textView(0));
                break;
            }
        }
    }
    if (!tagID && !present) {
        return;
    }
    context_.performUndoable(present ? "Add Tag" : "Remove Tag", [&] {
        if (!tagID) {
            Tag tag = Tag::make(now);
            tag.name = clean;
            db.prepare("INSERT INTO Tag (id, name, createdAt) VALUES (?1, ?2, ?3)")
                .bind(1, tag.id.string())
                .bind(2, tag.name)
                .bind(3, toStorage(tag.createdAt))
                .run();
            tagID = tag.id;
        }
        auto stmt =
            db.prepare(present ? "INSERT OR IGNORE INTO ClipTag (clip_id, tag_id) VALUES (?1, ?2)"
                               : "DELETE FROM ClipTag WHERE clip_id = ?1 AND tag_id = ?2");
        for (const auto& c : clips) {
            stmt.bind(1, c.id.string()).bind(2, tagID->string()).run();
        }
    });
    notify();
}

void BoardStore::customize(const Uuid& id, std::optional<std::string> name,
                           std::optional<std::string> symbol, std::optional<std::string> role) {
    auto found = section(id);
    if (!found) {
        throw BoardError(BoardError::Kind::notFound, "That Board section no longer exists.");
    }
    if (name) {
        *name = trimmed(*name);
        if (name->empty()) {
            throw BoardError(BoardError::Kind::invalid, "A section needs a name.");
        }
    }
    if (role &&
        std::find(std::begin(BoardConstants::colorRoles), std::end(BoardConstants::colorRoles),
                  *role) == std::end(BoardConstants::colorRoles)) {
        throw BoardError(BoardError::Kind::invalid, "'" + *role + "' is not a colour role.",
                         "Use iris, plum, blush, amber, citron, sage or teal.");
    }
    context_.performUndoable("Customize Section", [&] {
        context_.db()
            .prepare("UPDATE Pinboard SET name = coalesce(?2, name), "
                     "iconSymbol = coalesce(?3, iconSymbol), colorRole = coalesce(?4, colorRole) "
                     "WHERE id = ?1")
            .bind(1, id.string())
            .bind(2, name)
            .bind(3, symbol)
            .bind(4, role)
            .run();
    });
    notify();
}

void BoardStore::deleteSection(const Uuid& id) {
    context_.performUndoable("Delete Section", [&] {
        context_.db()
            .prepare("DELETE FROM Pinboard WHERE id = ?1 AND isBoard = 1")
            .bind(1, id.string())
            .run();
    });
    notify();
}

std::vector<Clip> BoardStore::importFiles(const std::vector<std::filesystem::path>& files,
                                          const Pinboard& section, Date now) {
    std::vector<Clip> out;
    for (const auto& file : files) {
        std::error_code error;
        const auto path = std::filesystem::absolute(file, error);
        if (error || !std::filesystem::is_regular_file(path, error)) {
            throw BoardError(BoardError::Kind::notFound,
                             "'" + file.string() + "' is not a file that can be added.");
        }
        NewClip content;
        content.previewText = path.filename().string();
        content.sourceAppName = std::string(BoardConstants::composerSourceApp);
        Representation url;
        url.utTypeIdentifier = std::string(BoardConstants::fileURLType);
        url.text = fileURL(path);
        content.kind = ClipKind::file;
        if (const auto type = imageType(path)) {
            std::ifstream in(path, std::ios::binary);
            std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                            std::istreambuf_iterator<char>());
            if (!in.bad()) {
                Representation image;
                image.utTypeIdentifier = std::string(*type);
                image.data = std::move(bytes);
                content.kind = ClipKind::image;
                content.representations.push_back(std::move(image));
            }
        }
        content.representations.push_back(std::move(url));
        out.push_back(capture(content, section, {}, now).clip);
    }
    return out;
}

void BoardStore::pinExisting(const Uuid& clipID, const Pinboard& section) {
    auto found = clip(clipID);
    if (!found || !found->isLive()) {
        return;
    }
    context_.performUndoable("Add to Board", [&] { place(*found, section.id); });
    notify();
}

} // namespace marlune
