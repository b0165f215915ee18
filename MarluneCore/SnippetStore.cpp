#include "MarluneCore/SnippetStore.h"

#include <nlohmann/json.hpp>

namespace marlune {

namespace {

constexpr std::string_view snippetColumns =
    "id, title, keyword, content, contentTypeRaw, isFavorite, createdAt, updatedAt, usageCount, "
    "lastUsedAt, sortIndex, lastFillInValues, deletedAt, group_id";

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

Snippet readSnippet(const Statement& row, const ClipCrypto& crypto) {
    Snippet s;
    s.id = Uuid::parse(row.textView(0)).value_or(Uuid());
    s.title = row.text(1);
    s.keyword = row.text(2);
    if (auto content = crypto.readText(row.textView(3))) {
        s.content = std::move(*content);
    } else {
        s.contentUnreadable = true;
    }
    s.contentType =
        snippetContentTypeFromRaw(row.textView(4)).value_or(SnippetContentType::plainText);
    s.isFavorite = row.int64(5) != 0;
    s.createdAt = fromStorage(row.int64(6));
    s.updatedAt = fromStorage(row.int64(7));
    s.usageCount = row.int64(8);
    s.lastUsedAt = optionalDate(row, 9);
    s.sortIndex = row.int64(10);
    if (!row.isNull(11)) {
        auto json = crypto.readText(row.textView(11));
        s.lastFillInValuesUnreadable = !json;
        if (json) {
            auto parsed = nlohmann::json::parse(*json, nullptr, false);
            if (parsed.is_object()) {
                std::map<std::string, std::string> values;
                for (const auto& [key, value] : parsed.items()) {
                    if (value.is_string()) {
                        values[key] = value.get<std::string>();
                    }
                }
                s.lastFillInValues = std::move(values);
            }
        }
    }
    s.deletedAt = optionalDate(row, 12);
    if (!row.isNull(13)) {
        s.groupID = Uuid::parse(row.textView(13));
    }
    return s;
}

std::optional<std::string> sealedFillIns(const std::optional<std::map<std::string, std::string>>& v,
                                         const ClipCrypto& crypto) {
    if (!v) {
        return std::nullopt;
    }
    return crypto.sealText(nlohmann::json(*v).dump());
}

std::optional<std::string> idString(const std::optional<Uuid>& id) {
    if (id) {
        return id->string();
    }
    return std::nullopt;
}

// Whether an update keeps the stored value of a field that did not open when it was read:
// the record's empty value there is no one's choice.
bool keepsStoredContent(const Snippet& snippet) {
    return snippet.contentUnreadable && snippet.content.empty();
}
bool keepsStoredFillIns(const Snippet& snippet) {
    return snippet.lastFillInValuesUnreadable && !snippet.lastFillInValues;
}

// The columns of one snippet, in the order of `snippetColumns`; an update leaves ?7, the
// creation date, out of its SET list.
void bindSnippet(Statement& stmt, const Snippet& snippet, const ClipCrypto& crypto) {
    stmt.bind(1, snippet.id.string())
        .bind(2, snippet.title)
        .bind(3, snippet.keyword)
        .bind(4, crypto.sealText(snippet.content))
        .bind(5, rawValue(snippet.contentType))
        .bind(6, snippet.isFavorite)
        .bind(7, toStorage(snippet.createdAt))
        .bind(8, toStorage(snippet.updatedAt))
        .bind(9, snippet.usageCount)
        .bind(10, storage(snippet.lastUsedAt))
        .bind(11, snippet.sortIndex)
        .bind(12, sealedFillIns(snippet.lastFillInValues, crypto))
        .bind(13, storage(snippet.deletedAt))
        .bind(14, idString(snippet.groupID));
}

SnippetStoreError notFound(const Uuid& id) {
    return {SnippetStoreError::Kind::notFound, "No snippet has the id " + id.string() + "."};
}

} // namespace

std::string_view orderClause(SnippetSortMode mode) {
    switch (mode) {
    case SnippetSortMode::lastEdited:
        return "updatedAt DESC, title COLLATE NOCASE";
    case SnippetSortMode::mostUsed:
        return "usageCount DESC, lastUsedAt DESC NULLS LAST, title COLLATE NOCASE";
    case SnippetSortMode::recentlyUsed:
        return "lastUsedAt DESC NULLS LAST, updatedAt DESC";
    case SnippetSortMode::manual:
        return "sortIndex, title COLLATE NOCASE, createdAt";
    }
    return "updatedAt DESC";
}

std::string SnippetStore::keywordInUseMessage(std::string_view keyword, std::string_view holder) {
    std::string message = "The keyword \"" + std::string(keyword) + "\" is already used by ";
    message += holder.empty() ? std::string("another snippet")
                              : "the snippet \"" + std::string(holder) + "\"";
    message += ". Choose another keyword, or change that snippet's keyword first.";
    return message;
}

void SnippetStore::checkKeywordFree(std::string_view keyword, const Uuid& self) {
    if (keyword.empty()) {
        return; // a snippet without a keyword expands from nowhere; any number may exist
    }
    auto& stmt = context_.db().cached(
        "SELECT title FROM Snippet WHERE keyword = ?1 AND deletedAt IS NULL AND id <> ?2 LIMIT 1");
    stmt.bind(1, keyword).bind(2, self.string());
    if (stmt.step()) {
        const std::string holder = stmt.text(0);
        stmt.reset();
        throw SnippetStoreError(SnippetStoreError::Kind::keywordInUse,
                                keywordInUseMessage(keyword, holder));
    }
    stmt.reset();
}

void SnippetStore::writeTags(const Snippet& snippet) {
    auto& db = context_.db();
    db.cached("DELETE FROM SnippetTag WHERE snippet_id = ?1").bind(1, snippet.id.string()).run();
    auto& add = db.cached("INSERT OR IGNORE INTO SnippetTag (snippet_id, tag_id) VALUES (?1, ?2)");
    for (const auto& tag : snippet.tagIDs) {
        add.bind(1, snippet.id.string()).bind(2, tag.string()).run();
    }
}

Snippet SnippetStore::create(Snippet snippet, Date now) {
    MainActor::assertIsolated();
    snippet.createdAt = now;
    snippet.updatedAt = now;
    return context_.performUndoable("New Snippet", [&] {
        if (snippet.isLive()) {
            checkKeywordFree(snippet.keyword, snippet.id);
        }
        auto stmt = context_.db().prepare(
            "INSERT INTO Snippet (" + std::string(snippetColumns) +
            ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14)");
        bindSnippet(stmt, snippet, context_.crypto());
        stmt.run();
        writeTags(snippet);
        return snippet;
    });
}

Snippet SnippetStore::update(Snippet snippet, Date now) {
    MainActor::assertIsolated();
    snippet.updatedAt = now;
    return context_.performUndoable("Edit Snippet", [&] {
        if (snippet.isLive()) {
            checkKeywordFree(snippet.keyword, snippet.id);
        }
        auto stmt = context_.db().prepare(
            "UPDATE Snippet SET title = ?2, keyword = ?3, "
            "content = CASE WHEN ?15 THEN content ELSE ?4 END, contentTypeRaw = ?5, "
            "isFavorite = ?6, updatedAt = ?8, usageCount = ?9, lastUsedAt = ?10, sortIndex = ?11, "
            "lastFillInValues = CASE WHEN ?16 THEN lastFillInValues ELSE ?12 END, "
            "deletedAt = ?13, group_id = ?14 WHERE id = ?1");
        const bool keepContent = keepsStoredContent(snippet);
        const bool keepFillIns = keepsStoredFillIns(snippet);
        bindSnippet(stmt, snippet, context_.crypto());
        stmt.bind(15, keepContent).bind(16, keepFillIns).run();
        if (context_.db().changes() == 0) {
            throw notFound(snippet.id);
        }
        writeTags(snippet);
        snippet.contentUnreadable = keepContent;
        snippet.lastFillInValuesUnreadable = keepFillIns;
        return snippet;
    });
}

void SnippetStore::moveToTrash(const Uuid& id, Date now) {
    MainActor::assertIsolated();
    context_.performUndoable("Move Snippet to Trash", [&] {
        auto stmt = context_.db().prepare(
            "UPDATE Snippet SET deletedAt = ?2, updatedAt = ?2 WHERE id = ?1");
        stmt.bind(1, id.string()).bind(2, toStorage(now)).run();
        if (context_.db().changes() == 0) {
            throw notFound(id);
        }
    });
}

Snippet SnippetStore::restore(const Uuid& id, Date now) {
    MainActor::assertIsolated();
    auto found = snippet(id);
    if (!found) {
        throw notFound(id);
    }
    if (found->isLive()) {
        return *found;
    }
    return context_.performUndoable("Restore Snippet", [&] {
        checkKeywordFree(found->keyword, id);
        auto stmt = context_.db().prepare(
            "UPDATE Snippet SET deletedAt = NULL, updatedAt = ?2 WHERE id = ?1");
        stmt.bind(1, id.string()).bind(2, toStorage(now)).run();
        found->deletedAt.reset();
        found->updatedAt = now;
        return *found;
    });
}

void SnippetStore::deletePermanently(const Uuid& id) {
    MainActor::assertIsolated();
    context_.performUndoable("Delete Snippet", [&] {
        context_.db().prepare("DELETE FROM Snippet WHERE id = ?1").bind(1, id.string()).run();
        if (context_.db().changes() == 0) {
            throw notFound(id);
        }
    });
}

void SnippetStore::recordUse(const Uuid& id, Date now) {
    MainActor::assertIsolated();
    auto& stmt = context_.db().cached(
        "UPDATE Snippet SET usageCount = usageCount + 1, lastUsedAt = ?2 WHERE id = ?1");
    stmt.bind(1, id.string()).bind(2, toStorage(now)).run();
    if (context_.db().changes() == 0) {
        throw notFound(id);
    }
}

void SnippetStore::setLastFillInValues(const Uuid& id,
                                       const std::map<std::string, std::string>& values) {
    MainActor::assertIsolated();
    auto& stmt = context_.db().cached("UPDATE Snippet SET lastFillInValues = ?2 WHERE id = ?1");
    stmt.bind(1, id.string()).bind(2, *sealedFillIns(values, context_.crypto())).run();
}

std::vector<Snippet> SnippetStore::query(const std::string& where, const std::string& order,
                                         const std::optional<Uuid>& groupID) {
    auto stmt = context_.db().prepare("SELECT " + std::string(snippetColumns) +
                                      " FROM Snippet WHERE " + where + " ORDER BY " + order);
    if (groupID) {
        stmt.bind(1, groupID->string());
    }
    std::vector<Snippet> snippets;
    while (stmt.step()) {
        snippets.push_back(readSnippet(stmt, context_.crypto()));
    }
    if (!snippets.empty()) {
        auto tags = context_.db().prepare("SELECT tag_id FROM SnippetTag WHERE snippet_id = ?1");
        for (auto& s : snippets) {
            tags.bind(1, s.id.string());
            while (tags.step()) {
                s.tagIDs.push_back(Uuid::parse(tags.textView(0)).value_or(Uuid()));
            }
            tags.reset();
        }
    }
    return snippets;
}

std::optional<Snippet> SnippetStore::snippet(const Uuid& id) {
    MainActor::assertIsolated();
    auto found = query("id = ?1", "id", id);
    if (found.empty()) {
        return std::nullopt;
    }
    return std::move(found.front());
}

std::optional<Snippet> SnippetStore::liveSnippet(std::string_view keyword) {
    MainActor::assertIsolated();
    if (keyword.empty()) {
        return std::nullopt;
    }
    auto& stmt = context_.db().cached(
        "SELECT id FROM Snippet WHERE keyword = ?1 AND deletedAt IS NULL LIMIT 1");
    stmt.bind(1, keyword);
    std::optional<Uuid> id;
    if (stmt.step()) {
        id = Uuid::parse(stmt.textView(0));
    }
    stmt.reset();
    return id ? snippet(*id) : std::nullopt;
}

std::vector<Snippet> SnippetStore::list(SnippetSortMode mode, bool trash) {
    MainActor::assertIsolated();
    return query(trash ? "deletedAt IS NOT NULL" : "deletedAt IS NULL",
                 trash ? "deletedAt DESC" : std::string(orderClause(mode)), std::nullopt);
}

std::vector<Snippet> SnippetStore::inGroup(const Uuid& groupID, SnippetSortMode mode) {
    MainActor::assertIsolated();
    return query("deletedAt IS NULL AND group_id = ?1", std::string(orderClause(mode)), groupID);
}

namespace {
SnippetGroup readGroup(const Statement& row) {
    SnippetGroup g;
    g.id = Uuid::parse(row.textView(0)).value_or(Uuid());
    g.name = row.text(1);
    g.iconSymbol = row.text(2);
    g.colorHex = row.optionalText(3);
    g.colorRole = row.optionalText(4);
    g.sortIndex = row.int64(5);
    g.createdAt = fromStorage(row.int64(6));
    if (!row.isNull(7)) {
        g.parentID = Uuid::parse(row.textView(7));
    }
    return g;
}
constexpr std::string_view groupColumns =
    "id, name, iconSymbol, colorHex, colorRole, sortIndex, createdAt, parent_id";
} // namespace

SnippetGroup SnippetStore::createGroup(SnippetGroup group, Date now) {
    MainActor::assertIsolated();
    group.createdAt = now;
    context_.performUndoable("New Group", [&] {
        auto stmt = context_.db().prepare("INSERT INTO SnippetGroup (" + std::string(groupColumns) +
                                          ") VALUES (?1, ?2, ?3, ?4, ?5, ?6, ?7, ?8)");
        stmt.bind(1, group.id.string())
            .bind(2, group.name)
            .bind(3, group.iconSymbol)
            .bind(4, group.colorHex)
            .bind(5, group.colorRole)
            .bind(6, group.sortIndex)
            .bind(7, toStorage(group.createdAt))
            .bind(8, idString(group.parentID))
            .run();
    });
    return group;
}

void SnippetStore::updateGroup(const SnippetGroup& group) {
    MainActor::assertIsolated();
    context_.performUndoable("Edit Group", [&] {
        auto stmt = context_.db().prepare(
            "UPDATE SnippetGroup SET name = ?2, iconSymbol = ?3, colorHex = ?4, colorRole = ?5, "
            "sortIndex = ?6, parent_id = ?7 WHERE id = ?1");
        stmt.bind(1, group.id.string())
            .bind(2, group.name)
            .bind(3, group.iconSymbol)
            .bind(4, group.colorHex)
            .bind(5, group.colorRole)
            .bind(6, group.sortIndex)
            .bind(7, idString(group.parentID))
            .run();
    });
}

void SnippetStore::deleteGroup(const Uuid& id) {
    MainActor::assertIsolated();
    context_.performUndoable("Delete Group", [&] {
        context_.db().prepare("DELETE FROM SnippetGroup WHERE id = ?1").bind(1, id.string()).run();
    });
}

std::optional<SnippetGroup> SnippetStore::group(const Uuid& id) {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare("SELECT " + std::string(groupColumns) +
                                      " FROM SnippetGroup WHERE id = ?1");
    stmt.bind(1, id.string());
    if (!stmt.step()) {
        return std::nullopt;
    }
    return readGroup(stmt);
}

std::vector<SnippetGroup> SnippetStore::groups() {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare("SELECT " + std::string(groupColumns) +
                                      " FROM SnippetGroup ORDER BY sortIndex, name COLLATE NOCASE");
    std::vector<SnippetGroup> result;
    while (stmt.step()) {
        result.push_back(readGroup(stmt));
    }
    return result;
}

Tag SnippetStore::createTag(Tag tag, Date now) {
    MainActor::assertIsolated();
    tag.createdAt = now;
    context_.performUndoable("New Tag", [&] {
        auto stmt = context_.db().prepare("INSERT INTO Tag (id, name, colorHex, colorRole, "
                                          "createdAt) VALUES (?1, ?2, ?3, ?4, ?5)");
        stmt.bind(1, tag.id.string())
            .bind(2, tag.name)
            .bind(3, tag.colorHex)
            .bind(4, tag.colorRole)
            .bind(5, toStorage(tag.createdAt))
            .run();
    });
    return tag;
}

void SnippetStore::updateTag(const Tag& tag) {
    MainActor::assertIsolated();
    context_.performUndoable("Edit Tag", [&] {
        auto stmt = context_.db().prepare(
            "UPDATE Tag SET name = ?2, colorHex = ?3, colorRole = ?4 WHERE id = ?1");
        stmt.bind(1, tag.id.string())
            .bind(2, tag.name)
            .bind(3, tag.colorHex)
            .bind(4, tag.colorRole);
        stmt.run();
    });
}

void SnippetStore::deleteTag(const Uuid& id) {
    MainActor::assertIsolated();
    context_.performUndoable("Delete Tag", [&] {
        context_.db().prepare("DELETE FROM Tag WHERE id = ?1").bind(1, id.string()).run();
    });
}

std::vector<Tag> SnippetStore::tags() {
    MainActor::assertIsolated();
    auto stmt = context_.db().prepare(
        "SELECT id, name, colorHex, colorRole, createdAt FROM Tag ORDER BY name COLLATE NOCASE");
    std::vector<Tag> result;
    while (stmt.step()) {
        Tag t;
        t.id = Uuid::parse(stmt.textView(0)).value_or(Uuid());
        t.name = stmt.text(1);
        t.colorHex = stmt.optionalText(2);
        t.colorRole = stmt.optionalText(3);
        t.createdAt = fromStorage(stmt.int64(4));
        result.push_back(std::move(t));
    }
    return result;
}

} // namespace marlune
