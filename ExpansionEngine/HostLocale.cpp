#include "ExpansionEngine/HostLocale.h"

#include <cstdlib>
#include <memory>
#include <string_view>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

namespace marlune {

std::string HostLocale::localeID() {
    // POSIX order: LC_ALL overrides LC_TIME, which overrides LANG. "C" and "POSIX" name no
    // language at all.
    for (const char* variable : {"LC_ALL", "LC_TIME", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr || *value == '\0') {
            continue;
        }
        std::string_view name = value;
        name = name.substr(0, name.find_first_of(".@"));
        if (name == "C" || name == "POSIX" || name.empty()) {
            break;
        }
        const icu::Locale locale(std::string(name).c_str());
        if (!locale.isBogus() && *locale.getLanguage() != '\0') {
            return locale.getName();
        }
        break;
    }
    return "en_US";
}

std::string HostLocale::timeZoneID() {
    const std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::detectHostTimeZone());
    if (!zone) {
        return "UTC";
    }
    icu::UnicodeString id;
    zone->getID(id);
    std::string out;
    id.toUTF8String(out);
    if (out.empty() || out == "Etc/Unknown") {
        return "UTC";
    }
    return out;
}

} // namespace marlune
