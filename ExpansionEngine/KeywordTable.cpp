#include "ExpansionEngine/KeywordTable.h"

#include <utility>

namespace marlune {

KeywordTable::KeywordTable(std::vector<ExpansionSnippet> snippets) {
    table_.reserve(snippets.size());
    for (auto& snippet : snippets) {
        insert(std::move(snippet));
    }
}

void KeywordTable::insert(ExpansionSnippet snippet) {
    if (snippet.keyword.empty()) {
        return;
    }
    std::string key = snippet.keyword;
    table_.try_emplace(std::move(key), std::move(snippet));
}

const ExpansionSnippet* KeywordTable::find(std::string_view keyword) const {
    auto it = table_.find(keyword);
    return it == table_.end() ? nullptr : &it->second;
}

} // namespace marlune
