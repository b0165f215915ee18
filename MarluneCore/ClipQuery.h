#pragma once

#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

enum class ClipSort {
    recent,       // last copied (or captured), the history's own order
    created,      // first captured
    mostRecopied, // copied again most often, then most recent
};

// Which clips a listing shows, and in what order. Live clips unless `trashed`.
struct ClipQuery {
    std::optional<ClipKind> kind;
    bool pinnedOnly = false;
    std::optional<Uuid> tagID;
    std::optional<Uuid> pinboardID;
    // Compared without regard to ASCII case, as capture rules compare it.
    std::optional<std::string> sourceAppBundleID;
    bool trashed = false;
    ClipSort sort = ClipSort::recent;
    bool ascending = false;
};

// A text hit: where it was found ("preview" or "text"), how ("exact", "prefix" or
// "substring", letter case aside) and a score in (0, 1], the share of the matched text that
// the query covers, so that a hit on a short clip ranks above one buried in a long text.
struct ClipSearchHit {
    Clip clip;
    std::string matchedIn;
    std::string matchType;
    double score = 0;
};

struct ClipSearchPage {
    std::int64_t total = 0;
    std::vector<ClipSearchHit> hits;
};

// The clip listings of the command line and the lists: filtered, sorted and paged in SQL,
// opening only the rows of the page. Main thread only.
class ClipQueries {
public:
    explicit ClipQueries(ModelContext& context) : context_(context) {}

    std::int64_t count(const ClipQuery& query);
    std::vector<Clip> page(const ClipQuery& query, std::size_t limit, std::size_t offset);

    // Clips whose preview or the text of one of their flavours contains `needle` (ASCII
    // letters compared without case), in the query's order; only the page's clips are read.
    // Every preview is opened, and a flavour's text only when the preview did not match.
    ClipSearchPage search(std::string_view needle, const ClipQuery& query, std::size_t limit,
                          std::size_t offset);

    // What "clip.purge" removes: live clips that are not pinned and on no pinboard or Board
    // section, beyond the `keepLast` most recent of them, or last copied before `olderThan`
    // (either rule, when both are given). Most recent first.
    std::vector<Uuid> purgeCandidates(std::optional<std::int64_t> keepLast,
                                      std::optional<Date> olderThan);

    // Live clips whose id starts with `prefix` (any case), or trashed ones with `trashed`.
    std::vector<Uuid> idsWithPrefix(std::string_view prefix, bool trashed, std::size_t limit);

private:
    ModelContext& context_;
};

} // namespace marlune
