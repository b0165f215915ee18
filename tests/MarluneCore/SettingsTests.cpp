#include "MarluneCore/Log.h"
#include "MarluneCore/Settings.h"
#include "support/TempDir.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace marlune {
namespace {

using std::chrono::system_clock;
const system_clock::time_point kNow =
    system_clock::from_time_t(1'795'302'900); // 2026-11-21T23:15:00Z

std::string readText(const std::filesystem::path& path) {
    const auto bytes = test::readFileBytes(path);
    return {bytes.begin(), bytes.end()};
}

std::vector<std::string> directoryEntries(const std::filesystem::path& dir) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

TEST(Settings, GettersFallBackWhenAbsentOrOfAnotherType) {
    test::TempDir dir;
    test::writeFileBytes(dir / "settings.json", R"({
        "flag": true, "count": 42, "big": 18446744073709551615, "ratio": 1.5, "name": "Ada",
        "dict": {"a": 1}, "list": [1, 2], "nothing": null
    })");
    const auto settings = Settings::load(dir / "settings.json", kNow);
    EXPECT_TRUE(settings.boolean("flag", false));
    EXPECT_EQ(settings.integer("count", 0), 42);
    EXPECT_EQ(settings.string("name", ""), "Ada");
    EXPECT_EQ(settings.dictionary("dict"), nlohmann::json({{"a", 1}}));

    for (const char* key :
         {"flag", "count", "big", "ratio", "name", "dict", "list", "nothing", "absent"}) {
        const std::string k = key;
        if (k != "flag") {
            EXPECT_TRUE(settings.boolean(key, true)) << key;
        }
        if (k != "count") {
            EXPECT_EQ(settings.integer(key, -7), -7) << key;
        }
        if (k != "name") {
            EXPECT_EQ(settings.string(key, "fallback"), "fallback") << key;
        }
        if (k != "dict") {
            EXPECT_EQ(settings.dictionary(key), nlohmann::json::object()) << key;
        }
    }
}

TEST(Settings, WritesKeepUnknownKeysAndReplaceTheFileWhole) {
    test::TempDir dir;
    const auto file = dir / "settings.json";
    test::writeFileBytes(file, R"({"fromNewerVersion": {"x": [1, 2, 3]}, "flag": false})");
    auto settings = Settings::load(file, kNow);
    settings.setBoolean("flag", true);
    settings.setInteger("historyLimit", 500);
    settings.setString("hotKey", "Ctrl+Shift+V");
    settings.setDictionary("window", {{"width", 640}});
    settings.remove("nope");

    const auto reloaded = Settings::load(file, kNow);
    EXPECT_TRUE(reloaded.boolean("flag", false));
    EXPECT_EQ(reloaded.integer("historyLimit", 0), 500);
    EXPECT_EQ(reloaded.string("hotKey", ""), "Ctrl+Shift+V");
    EXPECT_EQ(reloaded.dictionary("window"), nlohmann::json({{"width", 640}}));
    EXPECT_EQ(reloaded.dictionary("fromNewerVersion"), nlohmann::json({{"x", {1, 2, 3}}}));
    // No temporary file is left next to it.
    EXPECT_EQ(directoryEntries(dir.path()), std::vector<std::string>{"settings.json"});

    settings.remove("flag");
    EXPECT_FALSE(Settings::load(file, kNow).contains("flag"));
}

TEST(Settings, MissingFileAndDirectoryAreCreatedOnFirstWrite) {
    test::TempDir dir;
    const auto file = dir / "config" / "Marlune" / "settings.json";
    auto settings = Settings::load(file, kNow);
    EXPECT_FALSE(settings.contains("anything"));
    EXPECT_FALSE(std::filesystem::exists(file));
    settings.setInteger("n", 1);
    EXPECT_EQ(Settings::load(file, kNow).integer("n", 0), 1);
}

TEST(Settings, CorruptFileIsMovedAsideOnceAndNeverOverwritten) {
    const std::string corrupt[] = {"{\"unterminated\": ", "[1, 2, 3]", "\"text\"", "",
                                   "{\"a\":1} trailing"};
    for (const auto& text : corrupt) {
        test::TempDir dir;
        const auto file = dir / "settings.json";
        test::writeFileBytes(file, text);
        std::vector<std::string> lines;
        auto previous =
            Logger::setSink([&](std::string_view category, LogLevel, std::string_view line) {
                if (category == logs::settings.category()) {
                    lines.emplace_back(line);
                }
            });
        auto settings = Settings::load(file, kNow);
        Logger::setSink(std::move(previous));

        EXPECT_EQ(lines.size(), 1u) << text;
        EXPECT_FALSE(settings.contains("a")) << text;
        const auto aside = dir / "settings.json.corrupt-20261121T231500Z";
        EXPECT_EQ(readText(aside), text);
        settings.setBoolean("fresh", true);
        EXPECT_EQ(readText(aside), text);
        EXPECT_TRUE(Settings::load(file, kNow).boolean("fresh", false));
    }
}

TEST(Settings, SecondCorruptionInTheSameSecondKeepsBothCopies) {
    test::TempDir dir;
    const auto file = dir / "settings.json";
    test::writeFileBytes(file, "first broken");
    Settings::load(file, kNow);
    test::writeFileBytes(file, "second broken");
    Settings::load(file, kNow);
    EXPECT_EQ(readText(dir / "settings.json.corrupt-20261121T231500Z"), "first broken");
    EXPECT_EQ(readText(dir / "settings.json.corrupt-20261121T231500Z-1"), "second broken");
}

TEST(Settings, FailedWriteLeavesTheSettingsInMemoryAsTheyWere) {
    test::TempDir dir;
    const auto file = dir / "sub" / "settings.json";
    auto settings = Settings::load(file, kNow);
    settings.setInteger("n", 1);
    // Its directory turns into a file: nothing can be written there any more.
    std::filesystem::remove_all(dir / "sub");
    test::writeFileBytes(dir / "sub", "in the way");
    EXPECT_THROW(settings.setInteger("n", 2), SettingsError);
    EXPECT_EQ(settings.integer("n", 0), 1);
}

} // namespace
} // namespace marlune
