#include "ExpansionEngine/SnippetBodyValidator.h"

#include "ExpansionEngine/PlaceholderCatalog.h"
#include "ExpansionEngine/SnippetParser.h"

#include <set>

namespace marlune {
namespace {

bool hasMark(std::string_view s) {
    return s.find("{@") != std::string_view::npos || s.find("@}") != std::string_view::npos;
}

} // namespace

SnippetBodyValidator::Result SnippetBodyValidator::validate(std::string_view body) {
    Result result;
    std::set<std::string, std::less<>> fieldNames;
    bool residue = false;
    for (const Token& token : SnippetParser::parse(body)) {
        if (const auto* text = std::get_if<TextToken>(&token)) {
            residue = residue || hasMark(text->text);
            continue;
        }
        const auto& p = std::get<Placeholder>(token);
        // "{@a {@b@}" parses as one placeholder whose type holds the second opening mark.
        residue = residue || hasMark(p.type);
        for (const auto& parameter : p.parameters) {
            residue = residue || hasMark(parameter);
        }
        auto kind = PlaceholderCatalog::kind(p.type);
        if (!kind) {
            result.issues.emplace_back(UnknownType{p.type});
            continue;
        }
        if (!PlaceholderCatalog::isFillIn(*kind)) {
            continue;
        }
        if ((*kind == PlaceholderKind::choiceField || *kind == PlaceholderKind::multiChoiceField) &&
            p.options().empty()) {
            result.issues.emplace_back(EmptyOptions{p.type});
        }
        // Named the same way the renderer names fields, so the count matches the form.
        fieldNames.emplace(p.parameter("name").value_or(p.parameter("field").value_or(p.type)));
    }
    if (residue) {
        result.issues.emplace_back(MalformedResidue{});
    }
    result.fillInCount = static_cast<std::int64_t>(fieldNames.size());
    return result;
}

} // namespace marlune
