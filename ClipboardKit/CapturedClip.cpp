#include "ClipboardKit/CapturedClip.h"

namespace marlune {

std::span<const std::uint8_t> CapturedRepresentation::bytes() const {
    if (text) {
        return {reinterpret_cast<const std::uint8_t*>(text->data()), text->size()};
    }
    if (data) {
        return {data->data(), data->size()};
    }
    return {};
}

const CapturedRepresentation* CapturedClip::representation(std::string_view utType) const {
    for (const auto& rep : representations) {
        if (rep.utType == utType) {
            return &rep;
        }
    }
    return nullptr;
}

} // namespace marlune
