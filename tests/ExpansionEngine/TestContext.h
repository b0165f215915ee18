#pragma once

#include "ExpansionEngine/ExpansionContext.h"

#include <chrono>
#include <map>
#include <string>

namespace marlune::testing {

// 2024-03-05 20:07:09 UTC, a Tuesday evening; in Tokyo it is already Wednesday morning, so
// that a time-zone mistake changes the date as well as the hour.
inline std::chrono::system_clock::time_point fixedNow() {
    return std::chrono::system_clock::time_point(std::chrono::seconds(1709669229));
}

inline ExpansionContext makeContext(std::map<std::string, std::string> library = {}) {
    ExpansionContext context;
    context.now = fixedNow();
    context.timeZone = "UTC";
    context.locale = "en_US";
    context.resolveSnippet = [library](std::string_view keyword) -> std::optional<std::string> {
        auto it = library.find(std::string(keyword));
        if (it == library.end()) {
            return std::nullopt;
        }
        return it->second;
    };
    return context;
}

} // namespace marlune::testing
