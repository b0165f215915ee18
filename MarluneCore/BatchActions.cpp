#include "MarluneCore/BatchActions.h"

#include "MarluneCore/Localization.h"
#include "MarluneCore/ModelContext.h"

namespace marlune {

namespace {

// Runs `statement` once per selected id (bound as ?1, with `extra` bound as ?2 when given)
// inside one undo step.
std::string applyToEach(ModelContext& context, const std::string& actionName,
                        const std::vector<Uuid>& ids, std::string_view sql,
                        const std::optional<std::string>& extra = std::nullopt,
                        const std::optional<std::int64_t>& number = std::nullopt) {
    context.performUndoable(actionName, [&] {
        auto stmt = context.db().prepare(sql);
        for (const auto& id : ids) {
            stmt.bind(1, id.string());
            if (extra) {
                stmt.bind(2, *extra);
            }
            if (number) {
                stmt.bind(extra ? 3 : 2, *number);
            }
            stmt.run();
        }
    });
    return actionName;
}

} // namespace

std::string BatchActions::countPhrase(std::size_t count, std::string_view noun) {
    if (count == 1) {
        return " " + std::string(noun);
    }
    return " " + std::to_string(count) + " " + std::string(noun) + "s";
}

std::string BatchActions::moveToTrashActionName(std::size_t count, std::string_view noun) {
    if (noun == "Snippet") {
        return count == 1 ? localizedString("Move Snippet to Trash")
                          : localizedFormat("Move %lld Snippets to Trash",
                                            static_cast<std::int64_t>(count));
    }
    return count == 1
               ? localizedString("Move Clip to Trash")
               : localizedFormat("Move %lld Clips to Trash", static_cast<std::int64_t>(count));
}

std::string BatchActions::addTagToSnippets(ModelContext& context, const std::vector<Uuid>& snippets,
                                           const Uuid& tag, Date now) {
    const std::string name = "Add Tag to" + countPhrase(snippets.size(), "Snippet");
    context.performUndoable(name, [&] {
        auto add = context.db().prepare(
            "INSERT OR IGNORE INTO SnippetTag (snippet_id, tag_id) "
            "SELECT id, ?2 FROM Snippet WHERE id = ?1");
        auto stamp = context.db().prepare("UPDATE Snippet SET updatedAt = ?2 WHERE id = ?1");
        for (const auto& id : snippets) {
            add.bind(1, id.string()).bind(2, tag.string()).run();
            stamp.bind(1, id.string()).bind(2, toStorage(now)).run();
        }
    });
    return name;
}

std::string BatchActions::removeTagFromSnippets(ModelContext& context,
                                                const std::vector<Uuid>& snippets, const Uuid& tag,
                                                Date now) {
    const std::string name = "Remove Tag from" + countPhrase(snippets.size(), "Snippet");
    context.performUndoable(name, [&] {
        auto remove =
            context.db().prepare("DELETE FROM SnippetTag WHERE snippet_id = ?1 AND tag_id = ?2");
        auto stamp = context.db().prepare("UPDATE Snippet SET updatedAt = ?2 WHERE id = ?1");
        for (const auto& id : snippets) {
            remove.bind(1, id.string()).bind(2, tag.string()).run();
            stamp.bind(1, id.string()).bind(2, toStorage(now)).run();
        }
    });
    return name;
}

std::string BatchActions::duplicateSnippets(ModelContext& context,
                                            const std::vector<Uuid>& snippets, Date now,
                                            std::vector<Uuid>* copies) {
    const std::string name = "Duplicate" + countPhrase(snippets.size(), "Snippet");
    context.performUndoable(name, [&] {
        // The copy keeps the sealed body as stored: it is the same plaintext under the same key.
        auto copy = context.db().prepare(
            "INSERT INTO Snippet (id, title, keyword, content, contentTypeRaw, isFavorite, "
            "createdAt, updatedAt, usageCount, lastUsedAt, sortIndex, lastFillInValues, deletedAt, "
            "group_id) "
            "SELECT ?2, CASE WHEN title = '' THEN 'Untitled copy' ELSE title || ' copy' END, '', "
            "content, contentTypeRaw, isFavorite, ?3, ?3, 0, NULL, sortIndex, NULL, NULL, group_id "
            "FROM Snippet WHERE id = ?1");
        auto tags = context.db().prepare(
            "INSERT INTO SnippetTag (snippet_id, tag_id) "
            "SELECT ?2, tag_id FROM SnippetTag WHERE snippet_id = ?1");
        for (const auto& id : snippets) {
            const Uuid newID = Uuid::random();
            copy.bind(1, id.string()).bind(2, newID.string()).bind(3, toStorage(now)).run();
            if (context.db().changes() == 0) {
                continue;
            }
            tags.bind(1, id.string()).bind(2, newID.string()).run();
            if (copies != nullptr) {
                copies->push_back(newID);
            }
        }
    });
    return name;
}

std::string BatchActions::moveSnippetsToTrash(ModelContext& context,
                                              const std::vector<Uuid>& snippets, Date now) {
    return applyToEach(context, moveToTrashActionName(snippets.size(), "Snippet"), snippets,
                       "UPDATE Snippet SET deletedAt = ?2, updatedAt = ?2 WHERE id = ?1 AND "
                       "deletedAt IS NULL",
                       std::nullopt, toStorage(now));
}

std::string BatchActions::deleteSnippets(ModelContext& context,
                                         const std::vector<Uuid>& snippets) {
    return applyToEach(context, "Delete" + countPhrase(snippets.size(), "Snippet"), snippets,
                       "DELETE FROM Snippet WHERE id = ?1");
}

std::string BatchActions::setClipsPinned(ModelContext& context, const std::vector<Uuid>& clips,
                                         bool pinned) {
    return applyToEach(context, (pinned ? "Pin" : "Unpin") + countPhrase(clips.size(), "Clip"),
                       clips, "UPDATE Clip SET isPinned = ?2 WHERE id = ?1", std::nullopt,
                       pinned ? 1 : 0);
}

std::string BatchActions::addClipsToPinboard(ModelContext& context, const std::vector<Uuid>& clips,
                                             const Uuid& pinboard) {
    return applyToEach(context, "Add" + countPhrase(clips.size(), "Clip"), clips,
                       "INSERT OR IGNORE INTO ClipPinboard (clip_id, pinboard_id) "
                       "SELECT c.id, p.id FROM Clip c, Pinboard p WHERE c.id = ?1 AND p.id = ?2",
                       pinboard.string());
}

std::string BatchActions::removeClipsFromPinboard(ModelContext& context,
                                                  const std::vector<Uuid>& clips,
                                                  const Uuid& pinboard) {
    return applyToEach(context, "Remove" + countPhrase(clips.size(), "Clip"), clips,
                       "DELETE FROM ClipPinboard WHERE clip_id = ?1 AND pinboard_id = ?2",
                       pinboard.string());
}

std::string BatchActions::addTagToClips(ModelContext& context, const std::vector<Uuid>& clips,
                                        const Uuid& tag) {
    return applyToEach(context, "Add Tag to" + countPhrase(clips.size(), "Clip"), clips,
                       "INSERT OR IGNORE INTO ClipTag (clip_id, tag_id) "
                       "SELECT c.id, t.id FROM Clip c, Tag t WHERE c.id = ?1 AND t.id = ?2",
                       tag.string());
}

std::string BatchActions::removeTagFromClips(ModelContext& context, const std::vector<Uuid>& clips,
                                             const Uuid& tag) {
    return applyToEach(context, "Remove Tag from" + countPhrase(clips.size(), "Clip"), clips,
                       "DELETE FROM ClipTag WHERE clip_id = ?1 AND tag_id = ?2", tag.string());
}

std::string BatchActions::moveClipsToTrash(ModelContext& context, const std::vector<Uuid>& clips,
                                           Date now) {
    return applyToEach(context, moveToTrashActionName(clips.size(), "Clip"), clips,
                       "UPDATE Clip SET deletedAt = ?2 WHERE id = ?1 AND deletedAt IS NULL",
                       std::nullopt, toStorage(now));
}

std::string BatchActions::deleteClips(ModelContext& context, const std::vector<Uuid>& clips) {
    return applyToEach(context, "Delete" + countPhrase(clips.size(), "Clip"), clips,
                       "DELETE FROM Clip WHERE id = ?1");
}

} // namespace marlune
