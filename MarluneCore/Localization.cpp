#include "MarluneCore/Localization.h"

namespace marlune {

std::string localizedString(std::string_view key) { return std::string(key); }

std::string localizedFormat(std::string_view key, std::int64_t count) {
    const std::string format = localizedString(key);
    const auto at = format.find("%lld");
    if (at == std::string::npos) {
        return format;
    }
    return format.substr(0, at) + std::to_string(count) + format.substr(at + 4);
}

} // namespace marlune
