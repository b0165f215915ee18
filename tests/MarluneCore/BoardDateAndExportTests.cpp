#include "MarluneCore/BoardDatePreset.h"
#include "MarluneCore/BoardExporter.h"
#include "support/TempDir.h"

#include <fstream>
#include <gtest/gtest.h>
#include <sstream>

namespace marlune {
namespace {

namespace fs = std::filesystem;

Date utc(int y, int mo, int d, int h, int mi, int s = 0) {
    using namespace std::chrono;
    return sys_days(year(y) / mo / d) + hours(h) + minutes(mi) + seconds(s);
}

TEST(BoardDatesTest, PresetsAtTheEdgesOfADayAndAWeek) {
    const BoardCalendar us("UTC", "en_US");  // week starts on Sunday
    const BoardCalendar de("UTC", "de_DE");  // week starts on Monday
    const BoardCalendar eg("UTC", "ar_EG");  // weekend starts on Friday
    struct Case {
        const BoardCalendar& calendar;
        Date now;
        BoardDatePreset preset;
        Date expected;
    };
    // 2026-09-19 is a Saturday, 2026-09-20 a Sunday, 2026-09-21 a Monday.
    const Case cases[] = {
        {us, utc(2026, 9, 21, 23, 59, 59), BoardDatePreset::laterToday, utc(2026, 9, 22, 2, 59, 59)},
        {us, utc(2026, 9, 21, 23, 59, 59), BoardDatePreset::today, utc(2026, 9, 21, 17, 0)},
        {us, utc(2026, 9, 21, 0, 0, 0), BoardDatePreset::tomorrow, utc(2026, 9, 22, 9, 0)},
        {us, utc(2026, 9, 21, 23, 59, 59), BoardDatePreset::tomorrow, utc(2026, 9, 22, 9, 0)},
        {us, utc(2026, 9, 18, 22, 0), BoardDatePreset::weekend, utc(2026, 9, 19, 9, 0)},  // Fri
        {us, utc(2026, 9, 19, 8, 0), BoardDatePreset::weekend, utc(2026, 9, 20, 9, 0)},   // Sat
        {us, utc(2026, 9, 20, 8, 0), BoardDatePreset::weekend, utc(2026, 9, 26, 9, 0)},   // Sun
        {eg, utc(2026, 9, 17, 8, 0), BoardDatePreset::weekend, utc(2026, 9, 18, 9, 0)},   // Thu
        {us, utc(2026, 9, 19, 23, 0), BoardDatePreset::nextWeek, utc(2026, 9, 20, 9, 0)}, // Sat
        {de, utc(2026, 9, 19, 23, 0), BoardDatePreset::nextWeek, utc(2026, 9, 21, 9, 0)},
        {de, utc(2026, 9, 21, 0, 0), BoardDatePreset::nextWeek, utc(2026, 9, 28, 9, 0)}, // on Monday
        {us, utc(2026, 9, 20, 23, 59), BoardDatePreset::nextWeek, utc(2026, 9, 27, 9, 0)},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(BoardDates::resolve(c.preset, c.now, c.calendar), c.expected)
            << rawValue(c.preset) << " from " << c.calendar.describe(c.now);
    }
    // Days are the user's: 22:30 UTC is already the 22nd in Paris, so "tomorrow" is the 23rd,
    // at 09:00 there (07:00 UTC in summer).
    const BoardCalendar paris("Europe/Paris", "fr_FR");
    EXPECT_EQ(BoardDates::resolve(BoardDatePreset::tomorrow, utc(2026, 9, 21, 22, 30), paris),
              utc(2026, 9, 23, 7, 0));
}

TEST(BoardDatesTest, OffsetsIsoAndRefusals) {
    const BoardCalendar cal("UTC", "en_US");
    const Date now = utc(2026, 9, 21, 12, 0);
    EXPECT_EQ(BoardDates::parse("+90m", now, cal), utc(2026, 9, 21, 13, 30));
    EXPECT_EQ(BoardDates::parse("+3h", now, cal), utc(2026, 9, 21, 15, 0));
    EXPECT_EQ(BoardDates::parse("+2d", now, cal), utc(2026, 9, 23, 12, 0));
    EXPECT_EQ(BoardDates::parse("2026-10-01T09:30:00Z", now, cal), utc(2026, 10, 1, 9, 30));
    EXPECT_EQ(BoardDates::parse("2026-10-01T09:30+02:00", now, cal), utc(2026, 10, 1, 7, 30));
    EXPECT_EQ(BoardDates::parse("2026-10-01", now, cal), utc(2026, 10, 1, 0, 0));
    EXPECT_EQ(BoardDates::parse("tomorrow", now, cal), utc(2026, 9, 22, 9, 0));
    for (const auto* bad : {"", "+", "+3", "+3w", "+-3h", "+3.5h", "soon", "Tomorrow",
                            "2026-02-30", "2026-10-01T25:00", "2026-10-01T09:30+2", "+99999999999999d"}) {
        try {
            BoardDates::parse(bad, now, cal);
            FAIL() << "accepted '" << bad << "'";
        } catch (const BoardDateError& error) {
            EXPECT_EQ(std::string(error.what()), "'" + std::string(bad) + "' is not a date.");
            EXPECT_EQ(error.hint(), "Use later-today, today, tomorrow, weekend, next-week, an "
                                    "offset like +3h or +2d, or ISO 8601.");
        }
    }
}

std::string slurp(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

TEST(BoardExporterTest, WritesFrontMatterTaskListAndAttachmentsAndNeverOverwritesUnasked) {
    test::TempDir dir;
    const fs::path source = dir / "scan report.pdf";
    std::ofstream(source) << "pdf bytes";
    BoardExporter::Section section;
    section.name = "Work: Q3";
    section.items = {{BoardListItem::Text{"Write\nthe summary"}, false},
                     {BoardListItem::Text{"Send invoice"}, true},
                     {BoardListItem::File{"scan report.pdf"}, false},
                     {BoardListItem::Image{"AB12CD34.png", std::nullopt}, false}};
    section.attachments = {{"scan report.pdf", source, std::nullopt},
                           {"AB12CD34.png", std::nullopt, std::vector<std::uint8_t>{0x89, 'P'}}};
    const fs::path out = dir / "export" / "nested";
    const auto result = BoardExporter::write(section, out, utc(2026, 9, 21, 12, 0), false);
    EXPECT_EQ(result.file, out / "Work- Q3.md");
    EXPECT_EQ(result.attachments, 2);
    EXPECT_EQ(slurp(result.file), "---\n"
                                  "source: Marlune Board\n"
                                  "section: \"Work: Q3\"\n"
                                  "exported: 2026-09-21T12:00:00Z\n"
                                  "---\n\n"
                                  "# Work: Q3\n\n"
                                  "- [ ] Write\n  the summary\n"
                                  "- [x] Send invoice\n"
                                  "- [ ] [scan report.pdf](scan%20report.pdf)\n"
                                  "- [ ] ![AB12CD34.png](AB12CD34.png)\n");
    EXPECT_EQ(slurp(out / "scan report.pdf"), "pdf bytes");
    EXPECT_EQ(slurp(out / "AB12CD34.png"), std::string("\x89P"));

    try {
        BoardExporter::write(section, out, utc(2026, 9, 22, 12, 0), false);
        FAIL();
    } catch (const ExportError& error) {
        EXPECT_EQ(error.kind(), ExportError::Kind::fileExists);
    }
    EXPECT_NE(slurp(result.file).find("2026-09-21T12:00:00Z"), std::string::npos);
    BoardExporter::write(section, out, utc(2026, 9, 22, 12, 0), true);
    EXPECT_NE(slurp(result.file).find("2026-09-22T12:00:00Z"), std::string::npos);

    // A folder that cannot be made: a file stands where it would go.
    std::ofstream(dir / "blocker") << "x";
    try {
        BoardExporter::write(section, dir / "blocker" / "sub", utc(2026, 9, 21, 12, 0), false);
        FAIL();
    } catch (const ExportError& error) {
        EXPECT_EQ(error.kind(), ExportError::Kind::directoryUnavailable);
    }
}

TEST(BoardExporterTest, ObsidianVaultIsTheOpenOrLatestOneAndMissingIsExplained) {
    test::TempDir dir;
    fs::create_directories(dir / "A");
    fs::create_directories(dir / "B");
    const fs::path config = dir / "obsidian";
    try {
        BoardExporter::obsidianVault(config, "");
        FAIL();
    } catch (const ExportError& error) {
        EXPECT_EQ(error.kind(), ExportError::Kind::noVault);
        EXPECT_STREQ(error.what(), "No Obsidian vault found.");
        EXPECT_EQ(error.hint(), "Open a vault in Obsidian once, or choose one in Settings › Board.");
    }
    fs::create_directories(config);
    std::ofstream(config / "obsidian.json")
        << R"({"vaults":{"1":{"path":")" << (dir / "A").string() << R"(","ts":5},"2":{"path":")"
        << (dir / "B").string() << R"(","ts":9},"3":{"path":"/nonexistent","ts":99}}})";
    EXPECT_EQ(BoardExporter::obsidianVault(config, ""), dir / "B");
    EXPECT_EQ(BoardExporter::obsidianVault(config, "/chosen"), fs::path("/chosen"));
}

} // namespace
} // namespace marlune
