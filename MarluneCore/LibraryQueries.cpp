#include "MarluneCore/LibraryQueries.h"

#include <string_view>

namespace marlune {

namespace {

std::map<Uuid, std::int64_t> countsByID(ModelContext& context, std::string_view sql) {
    MainActor::assertIsolated();
    auto stmt = context.db().prepare(sql);
    std::map<Uuid, std::int64_t> counts;
    while (stmt.step()) {
        if (auto id = Uuid::parse(stmt.textView(0))) {
            counts[*id] = stmt.int64(1);
        }
    }
    return counts;
}

} // namespace

std::vector<LibraryQueries::SnippetName> LibraryQueries::snippetNames(ModelContext& context,
                                                                      bool trash) {
    MainActor::assertIsolated();
    auto stmt = context.db().prepare(
        std::string("SELECT id, title, keyword FROM Snippet WHERE deletedAt IS ") +
        (trash ? "NOT NULL" : "NULL") + " ORDER BY createdAt, id");
    std::vector<SnippetName> names;
    while (stmt.step()) {
        if (auto id = Uuid::parse(stmt.textView(0))) {
            names.push_back({*id, stmt.text(1), stmt.text(2)});
        }
    }
    return names;
}

std::map<Uuid, std::int64_t> LibraryQueries::liveSnippetsPerGroup(ModelContext& context) {
    return countsByID(context,
                      "SELECT group_id, count(*) FROM Snippet "
                      "WHERE deletedAt IS NULL AND group_id IS NOT NULL GROUP BY group_id");
}

std::map<Uuid, std::int64_t> LibraryQueries::liveSnippetsPerTag(ModelContext& context) {
    return countsByID(context, "SELECT t.tag_id, count(*) FROM SnippetTag t "
                               "JOIN Snippet s ON s.id = t.snippet_id "
                               "WHERE s.deletedAt IS NULL GROUP BY t.tag_id");
}

std::map<Uuid, std::int64_t> LibraryQueries::liveClipsPerTag(ModelContext& context) {
    return countsByID(context, "SELECT t.tag_id, count(*) FROM ClipTag t "
                               "JOIN Clip c ON c.id = t.clip_id "
                               "WHERE c.deletedAt IS NULL GROUP BY t.tag_id");
}

std::optional<Tag> LibraryQueries::tag(ModelContext& context, const Uuid& id) {
    MainActor::assertIsolated();
    auto stmt = context.db().prepare(
        "SELECT id, name, colorHex, colorRole, createdAt FROM Tag WHERE id = ?1");
    stmt.bind(1, id.string());
    if (!stmt.step()) {
        return std::nullopt;
    }
    Tag tag;
    tag.id = id;
    tag.name = stmt.text(1);
    tag.colorHex = stmt.optionalText(2);
    tag.colorRole = stmt.optionalText(3);
    tag.createdAt = fromStorage(stmt.int64(4));
    return tag;
}

} // namespace marlune
