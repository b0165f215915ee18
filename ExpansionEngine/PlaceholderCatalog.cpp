#include "ExpansionEngine/PlaceholderCatalog.h"

#include <array>
#include <utility>

namespace marlune {

std::optional<PlaceholderKind> PlaceholderCatalog::kind(std::string_view type) {
    static constexpr std::array<std::pair<std::string_view, PlaceholderKind>, 18> table{{
        {"cursor", PlaceholderKind::cursor},
        {"clipboard", PlaceholderKind::clipboard},
        {"selection", PlaceholderKind::selection},
        {"date", PlaceholderKind::date},
        {"time", PlaceholderKind::time},
        {"increment", PlaceholderKind::counter},
        {"counter", PlaceholderKind::counter},
        {"random", PlaceholderKind::random},
        {"text", PlaceholderKind::textField},
        {"select", PlaceholderKind::choiceField},
        {"choice", PlaceholderKind::choiceField},
        {"multiselect", PlaceholderKind::multiChoiceField},
        {"date-picker", PlaceholderKind::dateField},
        {"snippet", PlaceholderKind::snippet},
        {"var", PlaceholderKind::variable},
        {"link", PlaceholderKind::link},
        {"hyperlink", PlaceholderKind::link},
        {"ai", PlaceholderKind::ai},
    }};
    for (const auto& [name, k] : table) {
        if (name == type) {
            return k;
        }
    }
    return std::nullopt;
}

bool PlaceholderCatalog::isFillIn(PlaceholderKind k) {
    switch (k) {
    case PlaceholderKind::textField:
    case PlaceholderKind::choiceField:
    case PlaceholderKind::multiChoiceField:
    case PlaceholderKind::dateField:
        return true;
    default:
        return false;
    }
}

} // namespace marlune
