#pragma once

#include "ExpansionEngine/TypedExpansion.h"

#include <functional>
#include <map>
#include <optional>
#include <string>

namespace marlune {

// The fill-in form. The expansion service asks for answers and carries on when the form calls
// back; the form owns the keyboard focus meanwhile.
class FillInPresenter {
public:
    using Answers = std::map<std::string, std::string, std::less<>>;
    // The answers by field name, or nothing when the user cancelled the form.
    using Completion = std::function<void(std::optional<Answers> answers)>;

    virtual ~FillInPresenter() = default;

    // Shows the form for `request` with `initialValues` filled in. `done` is called exactly
    // once, on the main thread, unless `dismiss` comes first.
    virtual void present(const TypedExpansion::FillInRequest& request, const Answers& initialValues,
                         Completion done) = 0;
    // Closes a showing form without calling its completion (the service is going away).
    virtual void dismiss() = 0;
};

} // namespace marlune
