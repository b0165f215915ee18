#include "MarluneCore/UsageStats.h"

#include "MarluneCore/AtomicFile.h"
#include "MarluneCore/Log.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <nlohmann/json.hpp>
#include <system_error>

namespace marlune {

namespace {

std::tm localTime(Date when) {
    const std::time_t seconds = static_cast<std::time_t>(
        std::chrono::floor<std::chrono::seconds>(when).time_since_epoch().count());
    std::tm local{};
    ::localtime_r(&seconds, &local);
    return local;
}

std::string dayKey(const std::tm& local) {
    char buffer[48];
    std::snprintf(buffer, sizeof buffer, "%04d-%02d-%02d", local.tm_year + 1900, local.tm_mon + 1,
                  local.tm_mday);
    return buffer;
}

bool isDayKey(std::string_view key) {
    return key.size() == 10 && key[4] == '-' && key[7] == '-' &&
           std::all_of(key.begin(), key.end(),
                       [](char c) { return c == '-' || (c >= '0' && c <= '9'); });
}

} // namespace

UsageStats::UsageStats(std::filesystem::path file) : file_(std::move(file)) {
    const auto text = readFileIfExists(file_);
    if (!text) {
        return;
    }
    const auto json = nlohmann::json::parse(*text, nullptr, false);
    bool valid = json.is_object();
    if (valid) {
        for (const auto& [key, value] : json.items()) {
            if (!isDayKey(key) || !value.is_object() ||
                !value.value("expansions", nlohmann::json()).is_number_integer() ||
                !value.value("keystrokes", nlohmann::json()).is_number_integer()) {
                valid = false;
                break;
            }
            days_[key] = {value["expansions"].get<std::int64_t>(),
                          value["keystrokes"].get<std::int64_t>()};
        }
    }
    if (!valid) {
        days_.clear();
        logs::store.warning("The usage statistics in " + file_.string() +
                            " could not be read; counting starts again.");
        std::error_code ignored;
        std::filesystem::rename(file_, file_.string() + ".corrupt", ignored);
    }
}

void UsageStats::record(Date when, std::int64_t keystrokesSaved) {
    const std::string key = localDay(when);
    auto updated = days_;
    auto& day = updated[key];
    day.expansions += 1;
    day.keystrokes += std::max<std::int64_t>(0, keystrokesSaved);
    nlohmann::json json = nlohmann::json::object();
    for (const auto& [k, d] : updated) {
        json[k] = {{"expansions", d.expansions}, {"keystrokes", d.keystrokes}};
    }
    writeFileAtomically(file_, json.dump(), 0600);
    days_ = std::move(updated);
}

UsageStats::Summary UsageStats::summary(Date now) const {
    Summary summary;
    const std::string weekStart = localWeekStart(now);
    const std::string today = localDay(now);
    for (const auto& [key, day] : days_) {
        summary.totalExpansions += day.expansions;
        summary.totalKeystrokesSaved += day.keystrokes;
        // Day keys sort as dates; days after today (a clock set back) belong to no week.
        if (key >= weekStart && key <= today) {
            summary.expansionsThisWeek += day.expansions;
            summary.keystrokesSavedThisWeek += day.keystrokes;
        }
    }
    summary.minutesSavedThisWeek =
        (summary.keystrokesSavedThisWeek + typedCharactersPerMinute / 2) / typedCharactersPerMinute;
    return summary;
}

std::string UsageStats::localDay(Date when) {
    return dayKey(localTime(when));
}

std::string UsageStats::localWeekStart(Date when) {
    std::tm local = localTime(when);
    const int daysSinceMonday = (local.tm_wday + 6) % 7;
    local.tm_mday -= daysSinceMonday;
    local.tm_hour = 12; // away from midnight, so a daylight-saving change cannot shift the day
    local.tm_isdst = -1;
    std::mktime(&local);
    return dayKey(local);
}

} // namespace marlune
