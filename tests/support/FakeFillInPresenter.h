#pragma once

#include "Marlune/FillInPresenter.h"

#include <optional>
#include <utility>
#include <vector>

namespace marlune::test {

// Keeps the form "open" until the test answers or cancels it.
class FakeFillInPresenter : public FillInPresenter {
public:
    void present(const TypedExpansion::FillInRequest& request, const Answers& initialValues,
                 Completion done) override {
        requests.push_back(request);
        shownValues.push_back(initialValues);
        completion = std::move(done);
    }
    void dismiss() override {
        ++dismissals;
        completion = nullptr;
    }

    bool isOpen() const { return static_cast<bool>(completion); }
    void answer(Answers answers) { finish(std::move(answers)); }
    void cancel() { finish(std::nullopt); }

    std::vector<TypedExpansion::FillInRequest> requests;
    std::vector<Answers> shownValues;
    Completion completion;
    int dismissals = 0;

private:
    void finish(std::optional<Answers> answers) {
        auto done = std::exchange(completion, nullptr);
        if (done) {
            done(std::move(answers));
        }
    }
};

} // namespace marlune::test
