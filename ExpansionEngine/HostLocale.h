#pragma once

#include <string>

namespace marlune {

// The user's own locale and time zone, as the session gives them (LC_ALL, LC_TIME or LANG; TZ
// or /etc/localtime), for rendering dates the way the user reads them.
struct HostLocale {
    // An ICU locale identifier such as "de_DE"; "en_US" when the session names none.
    static std::string localeID();
    // An IANA identifier such as "Europe/Berlin"; "UTC" when none can be found.
    static std::string timeZoneID();
};

} // namespace marlune
