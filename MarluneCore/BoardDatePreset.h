#pragma once

#include "MarluneCore/Date.h"

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace marlune {

// The calendar Board dates are resolved in: the user's time zone and locale (which decides
// the first day of the week and which days are the weekend). Both default to the system's;
// tests name them. Backed by an ICU calendar.
class BoardCalendar {
public:
    // Empty strings mean the system's default time zone and locale.
    explicit BoardCalendar(std::string timeZone = {}, std::string locale = {});
    ~BoardCalendar();
    BoardCalendar(BoardCalendar&&) noexcept;
    BoardCalendar& operator=(BoardCalendar&&) noexcept;

    // Midnight that starts the day of `date`, plus `days` days (daylight-saving safe).
    Date startOfDay(Date date, int days = 0) const;
    // `hour`:00 on the day of `date` plus `days` days.
    Date atHour(Date date, int days, int hour) const;
    // 1 (Sunday) to 7 (Saturday), as ICU counts.
    int dayOfWeek(Date date) const;
    int firstDayOfWeek() const;
    bool isWeekend(int dayOfWeek) const;
    // Local wall-clock fields to a moment.
    Date localTime(int year, int month, int day, int hour, int minute, int second) const;
    // "2026-09-21 14:13" in local time.
    std::string describe(Date date) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// A date given in words. The raw values are the words the command line accepts.
enum class BoardDatePreset { laterToday, today, tomorrow, weekend, nextWeek };

std::string_view rawValue(BoardDatePreset preset);
std::optional<BoardDatePreset> boardDatePresetFromRaw(std::string_view raw);

// A date the user typed that is none of the accepted forms; carries the message and hint.
class BoardDateError : public std::runtime_error {
public:
    explicit BoardDateError(const std::string& text);
    const std::string& hint() const { return hint_; }

private:
    std::string hint_;
};

struct BoardDates {
    // later-today: now + 3 hours; today: 17:00 today; tomorrow: 09:00 the next day.
    // weekend: 09:00 on the first day after today that the locale counts as a weekend day
    // (Saturday where the weekend is Saturday and Sunday; Friday where it starts on Friday).
    // next-week: 09:00 on the next day, after today, that is the locale's first day of the
    // week (a Monday in most of Europe, a Sunday in the United States), so on that very day
    // it is a week away.
    static Date resolve(BoardDatePreset preset, Date now, const BoardCalendar& calendar);

    // A preset word, an offset ("+" a whole number and m, h or d), or an ISO 8601 timestamp
    // ("2026-10-01", "2026-10-01T09:30", with seconds, with "Z" or an offset; without a zone
    // it is local time). Throws BoardDateError for anything else.
    static Date parse(std::string_view text, Date now, const BoardCalendar& calendar);

    static Date startOfTomorrow(Date now, const BoardCalendar& calendar) {
        return calendar.startOfDay(now, 1);
    }
};

} // namespace marlune
