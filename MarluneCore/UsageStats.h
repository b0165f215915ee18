#pragma once

#include "MarluneCore/Date.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace marlune {

// How much typing the snippets saved: expansions and keystrokes saved per day, kept in
// `usage-stats.json` in the library directory (a JSON object from local calendar day,
// "2026-09-21", to {"expansions": n, "keystrokes": k}), rewritten atomically on every record.
// Days are the user's local days; the week is the ISO week, Monday to Sunday, in local time.
// Main thread only.
class UsageStats {
public:
    static constexpr std::string_view fileName = "usage-stats.json";
    // 40 words per minute at five characters a word: the usual figure for ordinary typing.
    static constexpr std::int64_t typedCharactersPerMinute = 200;

    struct Summary {
        std::int64_t totalExpansions = 0;
        std::int64_t totalKeystrokesSaved = 0;
        std::int64_t expansionsThisWeek = 0;
        std::int64_t keystrokesSavedThisWeek = 0;
        // keystrokesSavedThisWeek / typedCharactersPerMinute, rounded to the nearest minute.
        std::int64_t minutesSavedThisWeek = 0;
    };

    // Reads the file when it exists. A file that is not such an object is logged, set aside as
    // "usage-stats.json.corrupt" and counting starts again; a missing one starts at zero.
    explicit UsageStats(std::filesystem::path file);

    // One expansion at `when` that saved `keystrokesSaved` keys (negative counts as 0).
    // Throws std::system_error when the file cannot be written; the count is then not kept.
    void record(Date when, std::int64_t keystrokesSaved);
    Summary summary(Date now) const;

    // The local calendar day of `when` ("2026-09-21") and the Monday that begins its week.
    static std::string localDay(Date when);
    static std::string localWeekStart(Date when);

    const std::filesystem::path& file() const { return file_; }

private:
    struct Day {
        std::int64_t expansions = 0;
        std::int64_t keystrokes = 0;
    };

    std::filesystem::path file_;
    std::map<std::string, Day> days_;
};

} // namespace marlune
