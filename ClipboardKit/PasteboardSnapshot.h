#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// A value copy of the clipboard: every item with every payload the owner offered, under its
// Linux MIME type (or X11 target name). The expansion service also keeps one to put the
// user's clipboard back after a paste.
struct PasteboardSnapshot {
    struct Payload {
        std::string type;
        std::vector<std::uint8_t> data;

        static Payload fromText(std::string type, std::string_view text);
        friend bool operator==(const Payload&, const Payload&) = default;
    };
    struct Item {
        std::vector<Payload> payloads;
        friend bool operator==(const Item&, const Item&) = default;
    };

    std::vector<Item> items;
    std::int64_t totalBytes = 0; // sum of every payload's size

    // Builds a snapshot with `totalBytes` filled in from the payloads.
    static PasteboardSnapshot fromItems(std::vector<Item> items);
    static std::int64_t sumOfPayloadSizes(const std::vector<Item>& items);

    bool empty() const;
    friend bool operator==(const PasteboardSnapshot&, const PasteboardSnapshot&) = default;
};

} // namespace marlune
