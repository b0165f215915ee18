#pragma once

#include "ClipboardKit/PasteboardSnapshot.h"

#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// What commands and the paste stack may ask of the desktop: put content on the clipboard, or
// paste it into the focused window through the expansion service's paste path. Only present
// in GUI mode; headless runs leave it out and the commands answer that they cannot.
class DesktopActions {
public:
    virtual ~DesktopActions() = default;

    // Makes `content` the user's clipboard (it is not restored afterwards, and it is marked as
    // ours so that it does not come back as a new clip).
    virtual void copyToClipboard(const PasteboardSnapshot& content) = 0;

    // Pastes `content` into the focused window and puts the user's clipboard back afterwards.
    // Returns a message for the user when it cannot (an expansion or paste is under way, the
    // keyboard is grabbed by another client, ...).
    virtual std::optional<std::string> paste(const PasteboardSnapshot& content) = 0;

    // Brings the application whose window class or name is `application` to the front; a
    // message for the user when no window of it exists.
    virtual std::optional<std::string> activate(std::string_view application) = 0;
};

} // namespace marlune
