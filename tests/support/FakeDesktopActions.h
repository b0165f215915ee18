#pragma once

#include "Marlune/DesktopActions.h"

#include <optional>
#include <string>
#include <vector>

namespace marlune::test {

// Records what commands asked of the desktop. `pasteRefusal` / `missingApplication` make the
// next paste or activation fail with that message.
class FakeDesktopActions : public DesktopActions {
public:
    void copyToClipboard(const PasteboardSnapshot& content) override { copies.push_back(content); }

    std::optional<std::string> paste(const PasteboardSnapshot& content) override {
        if (pasteRefusal) {
            return pasteRefusal;
        }
        pastes.push_back(content);
        return std::nullopt;
    }

    std::optional<std::string> activate(std::string_view application) override {
        if (missingApplication && *missingApplication == application) {
            return "No window of " + std::string(application) + " is open.";
        }
        activations.emplace_back(application);
        return std::nullopt;
    }

    std::vector<PasteboardSnapshot> copies;
    std::vector<PasteboardSnapshot> pastes;
    std::vector<std::string> activations;
    std::optional<std::string> pasteRefusal;
    std::optional<std::string> missingApplication;
};

} // namespace marlune::test
