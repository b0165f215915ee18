#pragma once

#include <array>
#include <string_view>

namespace marlune {

// Error codes travel as strings so that an older tool meeting a newer code still exits with a
// sensible status; this is a set of names, not a closed enumeration.
namespace CLIErrorCode {

inline constexpr std::string_view runtime = "E_RUNTIME";
inline constexpr std::string_view usage = "E_USAGE";
inline constexpr std::string_view notFound = "E_NOT_FOUND";
inline constexpr std::string_view appUnavailable = "E_APP_UNAVAILABLE";
inline constexpr std::string_view ambiguous = "E_AMBIGUOUS";
inline constexpr std::string_view validation = "E_VALIDATION";
inline constexpr std::string_view capability = "E_CAPABILITY";
inline constexpr std::string_view conflict = "E_CONFLICT";
inline constexpr std::string_view unauthorized = "E_UNAUTHORIZED";
inline constexpr std::string_view busy = "E_BUSY";
inline constexpr std::string_view likelySecret = "E_LIKELY_SECRET";
inline constexpr std::string_view timeout = "E_TIMEOUT";

inline constexpr std::array<std::string_view, 12> all = {
    runtime,    usage,    notFound,     appUnavailable, ambiguous,    validation,
    capability, conflict, unauthorized, busy,           likelySecret, timeout,
};

// The tool's process exit status for a code; codes it does not know are runtime failures.
int exitStatus(std::string_view code);

} // namespace CLIErrorCode

} // namespace marlune
