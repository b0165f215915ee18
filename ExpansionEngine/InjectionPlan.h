#pragma once

#include "ExpansionEngine/InjectionStep.h"

#include <cstdint>
#include <string>
#include <vector>

namespace marlune {

struct InjectionPlan {
    // Delete the keyword, let the target settle, paste, then walk the caret back to the body's
    // cursor mark. Never emits moveCaretForward: that case is for executors that need it.
    static std::vector<InjectionStep> make(std::int64_t deleteCount, std::string text,
                                           std::int64_t cursorBack);
};

} // namespace marlune
