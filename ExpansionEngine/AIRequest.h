#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace marlune {

enum class AIInput { none, clipboard, selection };
enum class AITier { onDevice, cloud };

std::string_view rawValue(AIInput input);
std::string_view rawValue(AITier tier);
std::optional<AIInput> aiInputFromRaw(std::string_view raw);
std::optional<AITier> aiTierFromRaw(std::string_view raw);

// One generated passage that a body asks for. The id is derived from the request itself, so a
// second render of the same body (after a fill-in form) asks with the same ids and finds the
// answers that arrived in between.
struct AIRequest {
    std::string id;
    std::string prompt;
    AIInput input = AIInput::none;
    std::string fallback;
    AITier tier = AITier::onDevice;

    friend bool operator==(const AIRequest&, const AIRequest&) = default;
};

} // namespace marlune
