#include "ExpansionEngine/AIRequest.h"

namespace marlune {

std::string_view rawValue(AIInput input) {
    switch (input) {
    case AIInput::clipboard:
        return "clipboard";
    case AIInput::selection:
        return "selection";
    case AIInput::none:
        break;
    }
    return "none";
}

std::string_view rawValue(AITier tier) {
    return tier == AITier::cloud ? "cloud" : "onDevice";
}

std::optional<AIInput> aiInputFromRaw(std::string_view raw) {
    if (raw == "none") {
        return AIInput::none;
    }
    if (raw == "clipboard") {
        return AIInput::clipboard;
    }
    if (raw == "selection") {
        return AIInput::selection;
    }
    return std::nullopt;
}

std::optional<AITier> aiTierFromRaw(std::string_view raw) {
    if (raw == "onDevice") {
        return AITier::onDevice;
    }
    if (raw == "cloud") {
        return AITier::cloud;
    }
    return std::nullopt;
}

} // namespace marlune
