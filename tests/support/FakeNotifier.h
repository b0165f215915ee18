#pragma once

#include "Marlune/Notifier.h"

#include <string>
#include <utility>
#include <vector>

namespace marlune::test {

class FakeNotifier : public Notifier {
public:
    void suggestSnippet(std::string_view message, std::string_view phrase) override {
        suggestions.emplace_back(std::string(message), std::string(phrase));
    }
    // (message, phrase) in the order shown.
    std::vector<std::pair<std::string, std::string>> suggestions;
};

} // namespace marlune::test
