#pragma once

#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace marlune {

// Read-only questions about the library that the command line asks and no store answers:
// names of live snippets for resolving a reference, and how many records use a group or
// a tag. None of them opens sealed content. Main thread only.
struct LibraryQueries {
    struct SnippetName {
        Uuid id;
        std::string title;
        std::string keyword;
    };

    // Live snippets (or the Trash) with their titles and keywords, in creation order.
    static std::vector<SnippetName> snippetNames(ModelContext& context, bool trash = false);

    // Live snippets per group and per tag, live clips per tag; records used by nothing are
    // missing from the maps.
    static std::map<Uuid, std::int64_t> liveSnippetsPerGroup(ModelContext& context);
    static std::map<Uuid, std::int64_t> liveSnippetsPerTag(ModelContext& context);
    static std::map<Uuid, std::int64_t> liveClipsPerTag(ModelContext& context);

    static std::optional<Tag> tag(ModelContext& context, const Uuid& id);
};

} // namespace marlune
