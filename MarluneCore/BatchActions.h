#pragma once

#include "MarluneCore/Date.h"
#include "MarluneCore/Records.h"

#include <string>
#include <string_view>
#include <vector>

namespace marlune {

class ModelContext;

// One change applied to a selection of snippets or clips as one undo step, named for what was
// done and to how many ("Delete 3 Snippets", "Unpin Clip"). Each returns the undo action name.
// Identifiers of records that no longer exist are passed over.
struct BatchActions {
    // " Snippet" for one, " 3 Snippets" for three (and " 0 Snippets").
    static std::string countPhrase(std::size_t count, std::string_view noun);
    static std::string moveToTrashActionName(std::size_t count, std::string_view noun);

    static std::string addTagToSnippets(ModelContext& context, const std::vector<Uuid>& snippets,
                                        const Uuid& tag, Date now);
    static std::string removeTagFromSnippets(ModelContext& context,
                                             const std::vector<Uuid>& snippets, const Uuid& tag,
                                             Date now);
    // Each copy keeps the group, tags, body and type; its title gains " copy" ("Untitled copy"
    // for an untitled snippet) and it has no keyword, so the original keeps its expansion
    // until the user gives the copy a keyword of its own.
    static std::string duplicateSnippets(ModelContext& context, const std::vector<Uuid>& snippets,
                                         Date now, std::vector<Uuid>* copies = nullptr);
    static std::string moveSnippetsToTrash(ModelContext& context,
                                           const std::vector<Uuid>& snippets, Date now);
    static std::string deleteSnippets(ModelContext& context, const std::vector<Uuid>& snippets);

    static std::string setClipsPinned(ModelContext& context, const std::vector<Uuid>& clips,
                                      bool pinned);
    static std::string addClipsToPinboard(ModelContext& context, const std::vector<Uuid>& clips,
                                          const Uuid& pinboard);
    static std::string removeClipsFromPinboard(ModelContext& context,
                                               const std::vector<Uuid>& clips,
                                               const Uuid& pinboard);
    static std::string addTagToClips(ModelContext& context, const std::vector<Uuid>& clips,
                                     const Uuid& tag);
    static std::string removeTagFromClips(ModelContext& context, const std::vector<Uuid>& clips,
                                          const Uuid& tag);
    static std::string moveClipsToTrash(ModelContext& context, const std::vector<Uuid>& clips,
                                        Date now);
    static std::string deleteClips(ModelContext& context, const std::vector<Uuid>& clips);
};

} // namespace marlune
