#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// A snippet as the expansion engine sees it: a plain value copied out of the library, so that
// the engine never touches a record or the store.
struct ExpansionSnippet {
    std::string id;
    std::string keyword;
    std::string body;
    std::string contentType = "plainText"; // raw value: "plainText", "markdown" or "richText"
};

// keyword → snippet, or nullptr. Called on every keystroke that reaches a keyword, so it must
// not allocate on a miss; the pointer only has to live until decide returns.
using SnippetLookup = std::function<const ExpansionSnippet*(std::string_view keyword)>;

// Everything a render may consult of the outside world. Closures left empty count as
// "nothing there" (no clipboard, no selection, no other snippet, counter 0, random min).
struct ExpansionContext {
    std::chrono::system_clock::time_point now{};
    std::function<std::optional<std::string>()> clipboard;
    std::function<std::optional<std::string>()> selection;
    std::map<std::string, std::string, std::less<>> fillInValues;
    std::map<std::string, std::string, std::less<>> aiValues;
    std::map<std::string, std::string, std::less<>> variables;
    std::function<std::optional<std::string>(std::string_view keyword)> resolveSnippet;
    std::function<std::int64_t()> nextCounter;
    std::function<std::int64_t(std::int64_t min, std::int64_t max)> randomInt;
    std::string timeZone = "UTC"; // IANA identifier
    std::string locale = "en_US"; // ICU locale identifier
};

} // namespace marlune
