#pragma once

#include "ExpansionEngine/ExpansionContext.h"

#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace marlune {

// The in-memory keyword → snippet table the service builds from the library, looked up with
// a string_view so that a keystroke that matches nothing allocates nothing.
class KeywordTable {
public:
    KeywordTable() = default;
    explicit KeywordTable(std::vector<ExpansionSnippet> snippets);

    // A later snippet with the same keyword does not replace the first one.
    void insert(ExpansionSnippet snippet);
    const ExpansionSnippet* find(std::string_view keyword) const;
    std::size_t size() const { return table_.size(); }

    // A lookup over this table; the table must outlive it.
    SnippetLookup lookup() const {
        return [this](std::string_view keyword) { return find(keyword); };
    }

private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view s) const {
            return std::hash<std::string_view>{}(s);
        }
    };
    std::unordered_map<std::string, ExpansionSnippet, Hash, std::equal_to<>> table_;
};

} // namespace marlune
