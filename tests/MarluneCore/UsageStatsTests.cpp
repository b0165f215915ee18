#include "MarluneCore/UsageStats.h"
#include "support/TempDir.h"

#include <cstdlib>
#include <ctime>
#include <fstream>
#include <gtest/gtest.h>

namespace marlune {
namespace {

// Runs a test body in a given time zone and puts the process's zone back afterwards.
class TimeZone {
public:
    explicit TimeZone(const char* zone) {
        if (const char* old = std::getenv("TZ")) {
            previous_ = old;
        }
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~TimeZone() {
        if (previous_) {
            ::setenv("TZ", previous_->c_str(), 1);
        } else {
            ::unsetenv("TZ");
        }
        ::tzset();
    }

private:
    std::optional<std::string> previous_;
};

Date utc(int year, unsigned month, unsigned day, int hour = 12, int minute = 0) {
    using namespace std::chrono;
    return Date(
        sys_days(std::chrono::year(year) / std::chrono::month(month) / std::chrono::day(day)) +
        hours(hour) + minutes(minute));
}

TEST(UsageStats, WeekStartsOnLocalMonday) {
    struct Row {
        const char* zone;
        Date when;
        const char* day;
        const char* monday;
    };
    // 2026-09-20 is a Sunday, 2026-09-21 a Monday.
    const Row rows[] = {
        {"UTC", utc(2026, 9, 21, 0, 0), "2026-09-21", "2026-09-21"},
        {"UTC", utc(2026, 9, 20, 23, 59), "2026-09-20", "2026-09-14"},
        {"UTC", utc(2026, 9, 27, 23, 0), "2026-09-27", "2026-09-21"},
        // Late Sunday in UTC is already Monday in New Zealand, and still Sunday in New York.
        {"Pacific/Auckland", utc(2026, 9, 20, 13, 0), "2026-09-21", "2026-09-21"},
        {"America/New_York", utc(2026, 9, 21, 2, 0), "2026-09-20", "2026-09-14"},
        // A week that spans a month and a year end.
        {"UTC", utc(2027, 1, 1), "2027-01-01", "2026-12-28"},
    };
    for (const auto& row : rows) {
        TimeZone zone(row.zone);
        EXPECT_EQ(UsageStats::localDay(row.when), row.day) << row.zone << " " << row.day;
        EXPECT_EQ(UsageStats::localWeekStart(row.when), row.monday) << row.zone << " " << row.day;
    }
}

TEST(UsageStats, SummaryCountsThisWeekAndEverythingAndSurvivesReopening) {
    TimeZone zone("UTC");
    test::TempDir dir;
    const auto file = dir.path() / UsageStats::fileName;
    const Date thursday = utc(2026, 9, 24);
    {
        UsageStats stats(file);
        stats.record(utc(2026, 9, 20, 23), 1'000); // last Sunday: not this week
        stats.record(utc(2026, 9, 21, 0), 150);    // Monday midnight: this week
        stats.record(thursday, 160);
        stats.record(thursday, -5); // an expansion longer to type than its text saves nothing
    }
    UsageStats reopened(file);
    const auto summary = reopened.summary(thursday);
    EXPECT_EQ(summary.totalExpansions, 4);
    EXPECT_EQ(summary.totalKeystrokesSaved, 1'310);
    EXPECT_EQ(summary.expansionsThisWeek, 3);
    EXPECT_EQ(summary.keystrokesSavedThisWeek, 310);
    // 310 characters at 200 a minute: 1.55 minutes, rounded to 2.
    EXPECT_EQ(summary.minutesSavedThisWeek, 2);
    // Next Monday the week starts over; the totals stay.
    const auto nextWeek = reopened.summary(utc(2026, 9, 28));
    EXPECT_EQ(nextWeek.expansionsThisWeek, 0);
    EXPECT_EQ(nextWeek.totalExpansions, 4);
}

TEST(UsageStats, AnUnreadableFileIsSetAsideAndCountingStartsAgain) {
    TimeZone zone("UTC");
    test::TempDir dir;
    const auto file = dir.path() / UsageStats::fileName;
    for (const char* text : {"[1,2]", R"({"2026-09-21":{"expansions":"two","keystrokes":1}})",
                             R"({"yesterday":{"expansions":1,"keystrokes":1}})"}) {
        std::ofstream(file) << text;
        UsageStats stats(file);
        EXPECT_EQ(stats.summary(utc(2026, 9, 21)).totalExpansions, 0) << text;
        EXPECT_TRUE(std::filesystem::exists(file.string() + ".corrupt")) << text;
        stats.record(utc(2026, 9, 21), 3);
        EXPECT_EQ(UsageStats(file).summary(utc(2026, 9, 21)).totalKeystrokesSaved, 3);
        std::filesystem::remove(file);
    }
}

} // namespace
} // namespace marlune
