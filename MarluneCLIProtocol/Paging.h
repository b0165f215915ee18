#pragma once

#include "MarluneCLIProtocol/CLIRecordCodec.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace marlune {

// Where a page sits in the full, sorted list of matches.
struct PageInfo {
    std::int64_t limit = 0;
    std::int64_t offset = 0;
    std::int64_t total = 0;
    // offset + limit when more items follow; absent on the last page.
    std::optional<std::int64_t> nextOffset;

    // The page of at most `limit` items beginning at `offset` out of `total`. A negative
    // offset counts as 0; a limit of 0 or less gives an empty page without a next offset,
    // since a next page at the same offset would never end.
    static PageInfo of(std::int64_t total, std::int64_t limit, std::int64_t offset);

    static constexpr auto fields() {
        return std::tuple{
            cliField("limit", &PageInfo::limit), cliField("offset", &PageInfo::offset),
            cliField("total", &PageInfo::total), cliField("nextOffset", &PageInfo::nextOffset)};
    }
    friend bool operator==(const PageInfo&, const PageInfo&) = default;
};

// The bytes a record takes in a reply, which carries the result's JSON text in Base64.
template <class Item> std::size_t replyBytes(const Item& item) {
    return (encodeWireText(item).size() + 2) / 3 * 4;
}

template <class Item> struct Page;

template <class T> struct IsPage : std::false_type {};
template <class Item> struct IsPage<Page<Item>> : std::true_type {};

// One page of a list command's results.
template <class Item> struct Page {
    std::vector<Item> items;
    PageInfo page;

    // Cuts the page out of all matches, which the caller has already sorted.
    static Page slice(std::vector<Item> all, std::int64_t limit, std::int64_t offset) {
        Page result;
        result.page = PageInfo::of(static_cast<std::int64_t>(all.size()), limit, offset);
        const auto begin = std::min<std::int64_t>(std::max<std::int64_t>(offset, 0),
                                                  static_cast<std::int64_t>(all.size()));
        const auto count =
            std::clamp<std::int64_t>(limit, 0, static_cast<std::int64_t>(all.size()) - begin);
        result.items.assign(std::make_move_iterator(all.begin() + begin),
                            std::make_move_iterator(all.begin() + begin + count));
        return result;
    }

    // Ends the page early when its items would not fit in `budget` bytes of a reply, so that no
    // library, however large its records, makes a list that cannot be sent; `nextOffset` then
    // points at the first item left out. The first item is always kept: a single record that
    // cannot be sent is refused by the server with its own message.
    void fitToReply(std::size_t budget) {
        std::size_t used = 0;
        for (std::size_t i = 0; i < items.size(); ++i) {
            used += replyBytes(items[i]);
            if (i > 0 && used > budget) {
                items.resize(i);
                page.nextOffset = page.offset + static_cast<std::int64_t>(i);
                return;
            }
        }
    }

    static constexpr auto fields() {
        return std::tuple{cliField("items", &Page::items), cliField("page", &Page::page)};
    }
    friend bool operator==(const Page&, const Page&) = default;
};

inline PageInfo PageInfo::of(std::int64_t total, std::int64_t limit, std::int64_t offset) {
    const std::int64_t start = std::max<std::int64_t>(offset, 0);
    PageInfo info{limit, start, total, std::nullopt};
    // Compared by subtraction so that a huge limit cannot overflow offset + limit.
    if (limit > 0 && start < total && limit < total - start) {
        info.nextOffset = start + limit;
    }
    return info;
}

} // namespace marlune
