#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// The value of `Clip.sourceDeviceID`: a hash of the machine id that is stable for this
// machine but means nothing outside Marlune (the machine id itself is not to be shared).
struct DeviceIdentity {
    // `fileContents` is the text of a machine-id file; nothing when it holds no id.
    static std::optional<std::string> fromMachineID(std::string_view fileContents);
    // From /etc/machine-id, else /var/lib/dbus/machine-id; nothing when neither has an id.
    static std::optional<std::string> current();
};

} // namespace marlune
