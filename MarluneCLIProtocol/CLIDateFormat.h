#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

namespace marlune {

// The library keeps microseconds since the Unix epoch; the wire carries whole seconds.
using CLIDate = std::chrono::sys_time<std::chrono::microseconds>;

// Internet date-time (2026-03-04T05:06:07Z): written in UTC without fractional seconds.
struct CLIDateFormat {
    // Fractional seconds are dropped toward the past, so a formatted date never lies after
    // the moment it stands for.
    static std::string format(CLIDate date);

    // Accepts exactly "YYYY-MM-DDTHH:MM:SS" followed by "Z" or a "+HH:MM" / "-HH:MM" offset,
    // with calendar-valid fields; fractional seconds, leap seconds, lower-case separators and
    // offsets without the colon are refused.
    static std::optional<CLIDate> parse(std::string_view text);
};

} // namespace marlune
