#pragma once

#include "MarluneCore/ModelContext.h"
#include "MarluneCore/Records.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace marlune {

// The applications whose copies stay out of the clipboard history. A rule names an
// application by its bundle identifier, which on X11 is the class part of WM_CLASS.
//
// Identifiers are compared without regard to ASCII case: toolkits disagree on the
// capitalisation of the class ("Gnome-terminal", "gnome-terminal", "firefox", "Firefox"), and
// a rule the user typed must not silently miss because of it.
class CaptureRuleStore {
public:
    explicit CaptureRuleStore(ModelContext& context) : context_(context) {}

    // Every rule, enabled or not, oldest first.
    std::vector<CaptureRule> list();
    // Adds an enabled rule for `bundleID`. When a rule for the same application exists
    // already, that rule is enabled (and its name filled in when it had none) and returned,
    // so that one application never has two rules that disagree.
    CaptureRule add(std::string_view bundleID, std::optional<std::string> appName, Date now);
    // False when no rule has this id.
    bool setEnabled(const Uuid& id, bool enabled);
    // False when no rule has this id.
    bool remove(const Uuid& id);
    // True when an enabled rule names this application. An unknown source (empty
    // identifier) is never excluded.
    bool isExcluded(std::string_view bundleID);

private:
    std::optional<CaptureRule> find(std::string_view bundleID);

    ModelContext& context_;
};

} // namespace marlune
