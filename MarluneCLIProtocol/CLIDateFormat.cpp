#include "MarluneCLIProtocol/CLIDateFormat.h"

#include <cstdio>

namespace marlune {

namespace {

// Reads `width` ASCII digits at `pos`; -1 when any of them is not a digit.
int digits(std::string_view text, std::size_t pos, std::size_t width) {
    int value = 0;
    for (std::size_t i = pos; i < pos + width; ++i) {
        const char c = text[i];
        if (c < '0' || c > '9') {
            return -1;
        }
        value = value * 10 + (c - '0');
    }
    return value;
}

} // namespace

std::string CLIDateFormat::format(CLIDate date) {
    using namespace std::chrono;
    const auto seconds = floor<std::chrono::seconds>(date);
    const auto day = floor<days>(seconds);
    const year_month_day ymd{day};
    const hh_mm_ss time{seconds - day};
    const int year = static_cast<int>(ymd.year());
    const auto month = static_cast<unsigned>(ymd.month());
    const auto dayOfMonth = static_cast<unsigned>(ymd.day());
    const auto hour = static_cast<int>(time.hours().count());
    const auto minute = static_cast<int>(time.minutes().count());
    const auto second = static_cast<int>(time.seconds().count());
    if (year < 0 || year > 9999) {
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%s%04d-%02u-%02uT%02d:%02d:%02dZ",
                      year < 0 ? "-" : "", year < 0 ? -year : year, month, dayOfMonth, hour,
                      minute, second);
        return buffer;
    }
    // The common case without printf: listings format thousands of dates.
    std::string out = "0000-00-00T00:00:00Z";
    const auto put = [&](std::size_t at, int value, int width) {
        for (int i = width - 1; i >= 0; --i) {
            out[at + static_cast<std::size_t>(i)] = static_cast<char>('0' + value % 10);
            value /= 10;
        }
    };
    put(0, year, 4);
    put(5, static_cast<int>(month), 2);
    put(8, static_cast<int>(dayOfMonth), 2);
    put(11, hour, 2);
    put(14, minute, 2);
    put(17, second, 2);
    return out;
}

std::optional<CLIDate> CLIDateFormat::parse(std::string_view text) {
    using namespace std::chrono;
    if (text.size() != 20 && text.size() != 25) {
        return std::nullopt;
    }
    if (text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' || text[16] != ':') {
        return std::nullopt;
    }
    const int y = digits(text, 0, 4);
    const int mo = digits(text, 5, 2);
    const int d = digits(text, 8, 2);
    const int h = digits(text, 11, 2);
    const int mi = digits(text, 14, 2);
    const int s = digits(text, 17, 2);
    if (y < 0 || mo < 0 || d < 0 || h < 0 || h > 23 || mi < 0 || mi > 59 || s < 0 || s > 59) {
        return std::nullopt;
    }
    const year_month_day ymd{year{y}, month{static_cast<unsigned>(mo)},
                             day{static_cast<unsigned>(d)}};
    if (!ymd.ok()) {
        return std::nullopt;
    }
    minutes offset{0};
    if (text.size() == 20) {
        if (text[19] != 'Z') {
            return std::nullopt;
        }
    } else {
        const char sign = text[19];
        const int oh = digits(text, 20, 2);
        const int om = digits(text, 23, 2);
        if ((sign != '+' && sign != '-') || text[22] != ':' || oh < 0 || oh > 23 || om < 0 ||
            om > 59) {
            return std::nullopt;
        }
        offset = hours{oh} + minutes{om};
        if (sign == '-') {
            offset = -offset;
        }
    }
    const auto local = sys_days{ymd} + hours{h} + minutes{mi} + seconds{s};
    return CLIDate{duration_cast<microseconds>((local - offset).time_since_epoch())};
}

} // namespace marlune
