#include "ClipboardKit/PasteboardSnapshot.h"

#include <utility>

namespace marlune {

PasteboardSnapshot::Payload PasteboardSnapshot::Payload::fromText(std::string type,
                                                                  std::string_view text) {
    return Payload{std::move(type), std::vector<std::uint8_t>(text.begin(), text.end())};
}

PasteboardSnapshot PasteboardSnapshot::fromItems(std::vector<Item> items) {
    const std::int64_t total = sumOfPayloadSizes(items);
    return PasteboardSnapshot{std::move(items), total};
}

std::int64_t PasteboardSnapshot::sumOfPayloadSizes(const std::vector<Item>& items) {
    std::int64_t total = 0;
    for (const auto& item : items) {
        for (const auto& payload : item.payloads) {
            total += static_cast<std::int64_t>(payload.data.size());
        }
    }
    return total;
}

bool PasteboardSnapshot::empty() const {
    for (const auto& item : items) {
        if (!item.payloads.empty()) {
            return false;
        }
    }
    return true;
}

} // namespace marlune
