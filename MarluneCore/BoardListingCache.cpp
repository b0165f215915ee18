#include "MarluneCore/BoardListingCache.h"

#include <algorithm>
#include <utility>

namespace marlune {

const std::vector<BoardItem>* BoardListingCache::find(const Uuid& section,
                                                      const Database::ChangeStamp& stamp) {
    std::erase_if(entries_, [&](const Entry& entry) { return !(entry.stamp == stamp); });
    const auto found = std::find_if(entries_.begin(), entries_.end(),
                                    [&](const Entry& entry) { return entry.section == section; });
    if (found == entries_.end()) {
        return nullptr;
    }
    std::rotate(entries_.begin(), found, found + 1);
    return &entries_.front().items;
}

const std::vector<BoardItem>& BoardListingCache::keep(const Uuid& section,
                                                      const Database::ChangeStamp& stamp,
                                                      std::vector<BoardItem> items) {
    std::erase_if(entries_, [&](const Entry& entry) {
        return entry.section == section || !(entry.stamp == stamp);
    });
    std::size_t total = items.size();
    std::size_t kept = 0;
    while (kept < entries_.size() && kept + 1 < sectionCapacity &&
           total + entries_[kept].items.size() <= itemBudget) {
        total += entries_[kept].items.size();
        ++kept;
    }
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(kept), entries_.end());
    entries_.insert(entries_.begin(), Entry{section, stamp, std::move(items)});
    return entries_.front().items;
}

} // namespace marlune
