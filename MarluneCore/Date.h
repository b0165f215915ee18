#pragma once

#include <chrono>
#include <cstdint>

namespace marlune {

// Library times are microseconds since the Unix epoch: exact, ordered, and stored as
// SQLite integers.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

inline Date dateNow() {
    return std::chrono::time_point_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now());
}

inline std::int64_t toStorage(Date date) { return date.time_since_epoch().count(); }
inline Date fromStorage(std::int64_t micros) { return Date(std::chrono::microseconds(micros)); }

inline Date addSeconds(Date date, double seconds) {
    return date + std::chrono::microseconds(static_cast<std::int64_t>(seconds * 1'000'000.0));
}

// Seconds since 1 January 2001 UTC, the reference date of the Board order key and of the
// library's exchange formats.
inline constexpr std::int64_t referenceDateUnixSeconds = 978'307'200;
inline double secondsSinceReferenceDate(Date date) {
    return static_cast<double>(toStorage(date)) / 1'000'000.0 -
           static_cast<double>(referenceDateUnixSeconds);
}

} // namespace marlune
