#include "ExpansionEngine/InjectionPlan.h"

#include <utility>

namespace marlune {

std::vector<InjectionStep> InjectionPlan::make(std::int64_t deleteCount, std::string text,
                                               std::int64_t cursorBack) {
    std::vector<InjectionStep> steps;
    steps.reserve(4);
    if (deleteCount >= 1) {
        steps.emplace_back(injection::DeleteBackward{deleteCount});
    }
    steps.emplace_back(injection::Settle{});
    steps.emplace_back(injection::Paste{std::move(text)});
    if (cursorBack >= 1) {
        steps.emplace_back(injection::MoveCaretBack{cursorBack});
    }
    return steps;
}

} // namespace marlune
