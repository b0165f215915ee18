#pragma once

#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace marlune {

enum class SnippetSortMode { lastEdited, mostUsed, recentlyUsed, manual };

class SnippetStoreError : public std::runtime_error {
public:
    enum class Kind { keywordInUse, notFound };
    SnippetStoreError(Kind kind, std::string message)
        : std::runtime_error(std::move(message)), kind_(kind) {}
    Kind kind() const { return kind_; }

private:
    Kind kind_;
};

// Snippets, their groups and tags. Keywords are unique among live snippets: a clash is a
// SnippetStoreError whose message can be shown as it is. Every change stamps `updatedAt` and
// is one named undo step. Main thread only.
class SnippetStore {
public:
    explicit SnippetStore(ModelContext& context) : context_(context) {}

    Snippet create(Snippet snippet, Date now);
    // Saves every field of `snippet` (its tags included) and stamps `updatedAt`.
    Snippet update(Snippet snippet, Date now);
    void moveToTrash(const Uuid& id, Date now);
    // Brings a snippet back from the Trash; refused while a live snippet has its keyword.
    Snippet restore(const Uuid& id, Date now);
    void deletePermanently(const Uuid& id);
    // An expansion or paste: one more use, last used now. A use is not an edit, so
    // `updatedAt` (the "last edited" order) stays.
    void recordUse(const Uuid& id, Date now);
    void setLastFillInValues(const Uuid& id, const std::map<std::string, std::string>& values);

    std::optional<Snippet> snippet(const Uuid& id);
    // The live snippet with exactly this keyword.
    std::optional<Snippet> liveSnippet(std::string_view keyword);
    // Live snippets (or the Trash) in the given order; manual order is `sortIndex` within the
    // group, then title.
    std::vector<Snippet> list(SnippetSortMode mode, bool trash = false);
    std::vector<Snippet> inGroup(const Uuid& groupID, SnippetSortMode mode);

    SnippetGroup createGroup(SnippetGroup group, Date now);
    void updateGroup(const SnippetGroup& group);
    // Deletes the group and its sub-groups; their snippets stay, without a group.
    void deleteGroup(const Uuid& id);
    std::optional<SnippetGroup> group(const Uuid& id);
    std::vector<SnippetGroup> groups();

    Tag createTag(Tag tag, Date now);
    void updateTag(const Tag& tag);
    // Deletes the tag; snippets and clips only lose it.
    void deleteTag(const Uuid& id);
    std::vector<Tag> tags();

    // The user-facing sentence for a keyword clash.
    static std::string keywordInUseMessage(std::string_view keyword, std::string_view holder);

private:
    void checkKeywordFree(std::string_view keyword, const Uuid& self);
    void writeTags(const Snippet& snippet);
    std::vector<Snippet> query(const std::string& where, const std::string& order,
                               const std::optional<Uuid>& groupID);
    ModelContext& context_;
};

std::string_view orderClause(SnippetSortMode mode);

} // namespace marlune
