#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace marlune {

// Looks up a user-facing string resource by its key (the English text) in the user's
// language. Only English ships so far, so a key is its own translation; callers still go
// through here so translations can be added without touching them.
std::string localizedString(std::string_view key);

// A localised resource with one "%lld" placeholder, formatted with a 64-bit count.
std::string localizedFormat(std::string_view key, std::int64_t count);

} // namespace marlune
