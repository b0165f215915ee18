#include "MarluneCore/DeviceIdentity.h"

#include "MarluneCore/AtomicFile.h"
#include "MarluneCore/ContentFingerprint.h"

#include <system_error>

namespace marlune {

std::optional<std::string> DeviceIdentity::fromMachineID(std::string_view fileContents) {
    constexpr std::string_view space = " \t\r\n";
    const auto first = fileContents.find_first_not_of(space);
    if (first == std::string_view::npos) {
        return std::nullopt;
    }
    const auto id = fileContents.substr(first, fileContents.find_last_not_of(space) - first + 1);
    const std::string input = "org.marlune.Marlune.device:" + std::string(id);
    return sha256Hex({reinterpret_cast<const std::uint8_t*>(input.data()), input.size()});
}

std::optional<std::string> DeviceIdentity::current() {
    for (const char* path : {"/etc/machine-id", "/var/lib/dbus/machine-id"}) {
        try {
            if (auto contents = readFileIfExists(path)) {
                if (auto identity = fromMachineID(*contents)) {
                    return identity;
                }
            }
        } catch (const std::system_error&) {
            // Unreadable: try the next place.
        }
    }
    return std::nullopt;
}

} // namespace marlune
