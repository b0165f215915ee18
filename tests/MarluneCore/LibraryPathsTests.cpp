#include "MarluneCore/LibraryPaths.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <map>
#include <sys/stat.h>

namespace marlune {
namespace {

EnvironmentLookup environmentOf(std::map<std::string, std::string, std::less<>> variables) {
    return [variables = std::move(variables)](std::string_view name) -> std::optional<std::string> {
        const auto it = variables.find(name);
        return it == variables.end() ? std::nullopt : std::optional(it->second);
    };
}

TEST(LibraryPaths, ResolvesFromTheEnvironment) {
    struct Row {
        const char* what;
        std::map<std::string, std::string, std::less<>> environment;
        const char* library;
        const char* settings;
    };
    const Row rows[] = {
        {"defaults under HOME",
         {{"HOME", "/home/ada"}},
         "/home/ada/.local/share/Marlune",
         "/home/ada/.config/Marlune/settings.json"},
        {"XDG directories",
         {{"HOME", "/home/ada"}, {"XDG_DATA_HOME", "/data"}, {"XDG_CONFIG_HOME", "/conf"}},
         "/data/Marlune",
         "/conf/Marlune/settings.json"},
        {"MARLUNE_HOME holds both",
         {{"HOME", "/home/ada"}, {"XDG_DATA_HOME", "/data"}, {"MARLUNE_HOME", "/srv/m"}},
         "/srv/m",
         "/srv/m/settings.json"},
        {"empty variables count as unset",
         {{"HOME", "/home/ada"}, {"XDG_DATA_HOME", ""}, {"MARLUNE_HOME", ""}},
         "/home/ada/.local/share/Marlune",
         "/home/ada/.config/Marlune/settings.json"},
        {"relative XDG paths are ignored",
         {{"HOME", "/home/ada"}, {"XDG_DATA_HOME", "data"}, {"XDG_CONFIG_HOME", "./c"}},
         "/home/ada/.local/share/Marlune",
         "/home/ada/.config/Marlune/settings.json"},
        {"no HOME needed with XDG set",
         {{"XDG_DATA_HOME", "/d"}, {"XDG_CONFIG_HOME", "/c"}},
         "/d/Marlune",
         "/c/Marlune/settings.json"},
    };
    for (const auto& row : rows) {
        const auto paths = LibraryPaths::resolve(environmentOf(row.environment));
        EXPECT_EQ(paths.libraryDirectory, row.library) << row.what;
        EXPECT_EQ(paths.settingsFile, row.settings) << row.what;
    }
    EXPECT_THROW(LibraryPaths::resolve(environmentOf({})), LibraryPathsError);
}

mode_t modeOf(const std::filesystem::path& path) {
    struct stat info {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0);
    return info.st_mode & 07777;
}

TEST(LibraryPaths, LibraryDirectoryIsCreatedPrivateAndTightenedWhenLoose) {
    test::TempDir dir;
    const auto library = dir / "share" / "Marlune";
    createPrivateDirectory(library);
    EXPECT_EQ(modeOf(library), 0700u);

    ::chmod(library.c_str(), 0755);
    createPrivateDirectory(library);
    EXPECT_EQ(modeOf(library), 0700u);

    test::writeFileBytes(dir / "file", "x");
    EXPECT_THROW(createPrivateDirectory(dir / "file"), LibraryPathsError);
}

} // namespace
} // namespace marlune
