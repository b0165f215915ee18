#include "MarluneCore/BoardDatePreset.h"

#include <unicode/calendar.h>
#include <unicode/gregocal.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>

#include <array>
#include <charconv>
#include <cstdio>
#include <limits>

namespace marlune {

namespace {

constexpr std::array<std::pair<BoardDatePreset, std::string_view>, 5> presetNames{{
    {BoardDatePreset::laterToday, "later-today"},
    {BoardDatePreset::today, "today"},
    {BoardDatePreset::tomorrow, "tomorrow"},
    {BoardDatePreset::weekend, "weekend"},
    {BoardDatePreset::nextWeek, "next-week"},
}};

UDate toUDate(Date date) {
    return static_cast<UDate>(toStorage(date)) / 1000.0;
}

Date fromUDate(UDate millis) {
    return fromStorage(static_cast<std::int64_t>(millis) * 1000);
}

} // namespace

struct BoardCalendar::Impl {
    std::unique_ptr<icu::Calendar> calendar;

    icu::Calendar& at(Date date) const {
        UErrorCode status = U_ZERO_ERROR;
        calendar->setTime(toUDate(date), status);
        return *calendar;
    }
    Date time() const {
        UErrorCode status = U_ZERO_ERROR;
        const UDate millis = calendar->getTime(status);
        if (U_FAILURE(status)) {
            throw std::runtime_error("The calendar could not compute a date.");
        }
        return fromUDate(millis);
    }
};

BoardCalendar::BoardCalendar(std::string timeZone, std::string locale)
    : impl_(std::make_unique<Impl>()) {
    UErrorCode status = U_ZERO_ERROR;
    icu::TimeZone* zone = timeZone.empty()
                              ? icu::TimeZone::createDefault()
                              : icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZone));
    const icu::Locale where =
        locale.empty() ? icu::Locale::getDefault() : icu::Locale::createFromName(locale.c_str());
    impl_->calendar.reset(icu::Calendar::createInstance(zone, where, status));
    if (U_FAILURE(status) || !impl_->calendar) {
        throw std::runtime_error("The calendar for Board dates could not be created.");
    }
    impl_->calendar->setLenient(true);
}

BoardCalendar::~BoardCalendar() = default;
BoardCalendar::BoardCalendar(BoardCalendar&&) noexcept = default;
BoardCalendar& BoardCalendar::operator=(BoardCalendar&&) noexcept = default;

Date BoardCalendar::startOfDay(Date date, int days) const {
    return atHour(date, days, 0);
}

Date BoardCalendar::atHour(Date date, int days, int hour) const {
    auto& cal = impl_->at(date);
    UErrorCode status = U_ZERO_ERROR;
    if (days != 0) {
        cal.add(UCAL_DATE, days, status);
    }
    cal.set(UCAL_HOUR_OF_DAY, hour);
    cal.set(UCAL_MINUTE, 0);
    cal.set(UCAL_SECOND, 0);
    cal.set(UCAL_MILLISECOND, 0);
    return impl_->time();
}

int BoardCalendar::dayOfWeek(Date date) const {
    UErrorCode status = U_ZERO_ERROR;
    return impl_->at(date).get(UCAL_DAY_OF_WEEK, status);
}

int BoardCalendar::firstDayOfWeek() const {
    UErrorCode status = U_ZERO_ERROR;
    return static_cast<int>(impl_->calendar->getFirstDayOfWeek(status));
}

bool BoardCalendar::isWeekend(int dayOfWeek) const {
    UErrorCode status = U_ZERO_ERROR;
    const auto type =
        impl_->calendar->getDayOfWeekType(static_cast<UCalendarDaysOfWeek>(dayOfWeek), status);
    return U_SUCCESS(status) && type != UCAL_WEEKDAY;
}

Date BoardCalendar::localTime(int year, int month, int day, int hour, int minute,
                              int second) const {
    auto& cal = *impl_->calendar;
    cal.clear();
    cal.set(year, month - 1, day, hour, minute, second);
    return impl_->time();
}

std::string BoardCalendar::describe(Date date) const {
    UErrorCode status = U_ZERO_ERROR;
    auto& cal = impl_->at(date);
    char text[32];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d", cal.get(UCAL_YEAR, status),
                  cal.get(UCAL_MONTH, status) + 1, cal.get(UCAL_DATE, status),
                  cal.get(UCAL_HOUR_OF_DAY, status), cal.get(UCAL_MINUTE, status));
    return text;
}

std::string_view rawValue(BoardDatePreset preset) {
    for (const auto& [value, name] : presetNames) {
        if (value == preset) {
            return name;
        }
    }
    return "today";
}

std::optional<BoardDatePreset> boardDatePresetFromRaw(std::string_view raw) {
    for (const auto& [value, name] : presetNames) {
        if (name == raw) {
            return value;
        }
    }
    return std::nullopt;
}

BoardDateError::BoardDateError(const std::string& text)
    : std::runtime_error("'" + text + "' is not a date."),
      hint_("Use later-today, today, tomorrow, weekend, next-week, an offset like +3h or +2d, or "
            "ISO 8601.") {}

Date BoardDates::resolve(BoardDatePreset preset, Date now, const BoardCalendar& calendar) {
    switch (preset) {
    case BoardDatePreset::laterToday:
        return now + std::chrono::seconds(10'800);
    case BoardDatePreset::today:
        return calendar.atHour(now, 0, 17);
    case BoardDatePreset::tomorrow:
        return calendar.atHour(now, 1, 9);
    case BoardDatePreset::weekend: {
        const int today = calendar.dayOfWeek(now);
        for (int days = 1; days <= 7; ++days) {
            if (calendar.isWeekend((today - 1 + days) % 7 + 1)) {
                return calendar.atHour(now, days, 9);
            }
        }
        return calendar.atHour(now, 7, 9); // a locale without a weekend: a week from today
    }
    case BoardDatePreset::nextWeek: {
        const int today = calendar.dayOfWeek(now);
        int days = (calendar.firstDayOfWeek() - today + 7) % 7;
        if (days == 0) {
            days = 7;
        }
        return calendar.atHour(now, days, 9);
    }
    }
    return now;
}

namespace {

bool number(std::string_view text, std::size_t at, std::size_t length, int& out) {
    if (at + length > text.size()) {
        return false;
    }
    for (std::size_t i = at; i < at + length; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
    }
    return std::from_chars(text.data() + at, text.data() + at + length, out).ec == std::errc{};
}

int daysInMonth(int year, int month) {
    static constexpr int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : days[month - 1];
}

// Days since 1970-01-01 of a proleptic Gregorian date (Howard Hinnant's algorithm).
std::int64_t daysFromCivil(int y, int m, int d) {
    y -= m <= 2;
    const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    const auto yoe = static_cast<unsigned>(y - era * 400);
    const unsigned doy = (153 * static_cast<unsigned>(m + (m > 2 ? -3 : 9)) + 2) / 5 +
                         static_cast<unsigned>(d) - 1;
    const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

std::optional<Date> parseISO(std::string_view text, const BoardCalendar& calendar) {
    int year = 0;
    int month = 0;
    int day = 0;
    if (!number(text, 0, 4, year) || text.size() < 10 || text[4] != '-' ||
        !number(text, 5, 2, month) || text[7] != '-' || !number(text, 8, 2, day)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > daysInMonth(year, month)) {
        return std::nullopt;
    }
    int hour = 0;
    int minute = 0;
    int second = 0;
    std::size_t at = 10;
    if (at < text.size()) {
        if ((text[at] != 'T' && text[at] != ' ') || !number(text, at + 1, 2, hour) ||
            at + 3 >= text.size() || text[at + 3] != ':' || !number(text, at + 4, 2, minute)) {
            return std::nullopt;
        }
        at += 6;
        if (at < text.size() && text[at] == ':') {
            if (!number(text, at + 1, 2, second)) {
                return std::nullopt;
            }
            at += 3;
        }
        if (hour > 23 || minute > 59 || second > 59) {
            return std::nullopt;
        }
    }
    if (at == text.size()) {
        return calendar.localTime(year, month, day, hour, minute, second);
    }
    int offsetMinutes = 0;
    if (text.substr(at) != "Z") {
        const char sign = text[at];
        int oh = 0;
        int om = 0;
        const std::string_view zone = text.substr(at + 1);
        if ((sign != '+' && sign != '-') ||
            !((zone.size() == 5 && zone[2] == ':' && number(zone, 0, 2, oh) &&
               number(zone, 3, 2, om)) ||
              (zone.size() == 4 && number(zone, 0, 2, oh) && number(zone, 2, 2, om)) ||
              (zone.size() == 2 && number(zone, 0, 2, oh))) ||
            oh > 23 || om > 59) {
            return std::nullopt;
        }
        offsetMinutes = (oh * 60 + om) * (sign == '-' ? -1 : 1);
    }
    const std::int64_t seconds = daysFromCivil(year, month, day) * 86'400 + hour * 3'600 +
                                 minute * 60 + second - offsetMinutes * 60;
    return Date(std::chrono::seconds(seconds));
}

} // namespace

Date BoardDates::parse(std::string_view text, Date now, const BoardCalendar& calendar) {
    if (const auto preset = boardDatePresetFromRaw(text)) {
        return resolve(*preset, now, calendar);
    }
    if (text.size() >= 3 && text.front() == '+') {
        const char unit = text.back();
        const std::int64_t scale = unit == 'm' ? 60 : unit == 'h' ? 3'600 : unit == 'd' ? 86'400 : 0;
        std::int64_t count = 0;
        const std::string_view digits = text.substr(1, text.size() - 2);
        const bool allDigits = !digits.empty() && digits.find_first_not_of("0123456789") ==
                                                      std::string_view::npos;
        if (scale != 0 && allDigits &&
            std::from_chars(digits.data(), digits.data() + digits.size(), count).ec ==
                std::errc{} &&
            count <= std::numeric_limits<std::int64_t>::max() / scale / 1'000'000) {
            return now + std::chrono::seconds(count * scale);
        }
        throw BoardDateError(std::string(text));
    }
    if (auto date = parseISO(text, calendar)) {
        return *date;
    }
    throw BoardDateError(std::string(text));
}

} // namespace marlune
