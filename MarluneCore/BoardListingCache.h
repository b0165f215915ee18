#pragma once

#include "MarluneCore/BoardStore.h"
#include "MarluneCore/Database.h"
#include "MarluneCore/Uuid.h"

#include <cstddef>
#include <vector>

namespace marlune {

// The whole listing of the Board sections listed last, kept by the context between changes so
// that listing a long section again costs a copy rather than a read of every row and sealed
// text. A listing is kept with the library's change stamp it was read at and is served only
// while the stamp is unchanged: whatever writes to the library, through any store, an import,
// an undo or another connection to the file, moves the stamp, so no writer has to know about
// this cache. The items are unfiltered, in list order (which depends only on the stored
// fields); states that depend on the time (snoozed) are worked out by the reader on each call.
//
// The context's content key never changes for the context's life, so neither can the opened
// texts. Memory is bounded: at most `sectionCapacity` sections and `itemBudget` items in all; a
// longer section is never kept. Main thread only.
class BoardListingCache {
public:
    static constexpr std::size_t sectionCapacity = 2;
    static constexpr std::size_t itemBudget = 20'000;

    // The items of `section` as read at `stamp`, or null. Listings read at another stamp are
    // out of date for good and are dropped.
    const std::vector<BoardItem>* find(const Uuid& section, const Database::ChangeStamp& stamp);
    static bool fits(std::size_t itemCount) { return itemCount <= itemBudget; }
    // Keeps the listing of `section` read at `stamp` (which must `fit`), making room by
    // dropping the least recently used ones.
    const std::vector<BoardItem>& keep(const Uuid& section, const Database::ChangeStamp& stamp,
                                       std::vector<BoardItem> items);
    void clear() { entries_.clear(); }
    std::size_t sectionCount() const { return entries_.size(); }

private:
    struct Entry {
        Uuid section;
        Database::ChangeStamp stamp;
        std::vector<BoardItem> items;
    };
    std::vector<Entry> entries_; // most recently used first
};

} // namespace marlune
