#include "MarluneCLIProtocol/CLIRecordCodec.h"

namespace marlune {

namespace {

// Brackets inside strings do not nest; an escaped quote does not end a string.
bool nestsDeeperThan(std::string_view text, std::size_t limit) {
    std::size_t depth = 0;
    bool inString = false;
    bool escaped = false;
    for (const char c : text) {
        if (inString) {
            if (escaped) {
                escaped = false;
            } else if (c == '\\') {
                escaped = true;
            } else if (c == '"') {
                inString = false;
            }
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            if (++depth > limit) {
                return true;
            }
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return false;
}

} // namespace

std::optional<CLIJSONInput> parseWireJSON(std::string_view text) {
    if (nestsDeeperThan(text, cliMaxJSONDepth)) {
        return std::nullopt;
    }
    auto json = CLIJSONInput::parse(text.begin(), text.end(), nullptr, false);
    if (json.is_discarded()) {
        return std::nullopt;
    }
    return json;
}

} // namespace marlune
