// The real marlune-app (headless) started over a library whose snippets have a damaged page:
// it must say so and exit, never abort, and never write to the file.
#include "support/DamagedLibrary.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

namespace marlune {
namespace {

namespace fs = std::filesystem;

const std::string appPath = MARLUNE_APP_PATH;
const std::string toolPath = MARLUNE_TOOL_PATH;

class DamagedLibraryApp : public ::testing::TestWithParam<test::PageDamage> {
protected:
    DamagedLibraryApp() {
        fs::create_directories(home);
        ::chmod(home.c_str(), 0700);
    }

    std::map<std::string, std::string> environment() const {
        return {{"MARLUNE_HOME", home.string()}, {"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}};
    }

    test::ProcessResult tool(std::vector<std::string> args) {
        args.insert(args.begin(), toolPath);
        args.push_back("--no-launch");
        return test::runProcess(args, environment());
    }

    // A library written by the application itself, through the tool, then closed.
    void makeLibrary() {
        test::BackgroundProcess app({appPath, "--headless"}, environment(), dir / "first.log");
        bool answering = false;
        for (int i = 0; i < 250 && !answering; ++i) {
            answering = tool({"ping"}).exitStatus == 0;
            if (!answering) {
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            }
        }
        ASSERT_TRUE(answering) << app.log();
        // Long bodies, so the snippets fill many pages and the last is read only by a full scan.
        for (int i = 0; i < 40; ++i) {
            const auto created = tool({"snippet", "create", "Note " + std::to_string(i), "-k",
                                       "n" + std::to_string(i), "-c",
                                       std::string(1500, static_cast<char>('a' + i % 26))});
            ASSERT_EQ(created.exitStatus, 0) << created.err;
        }
        ASSERT_EQ(app.stop(), 0) << app.log();
    }

    test::TempDir dir;
    fs::path home = dir.path() / "home";
};

TEST_P(DamagedLibraryApp, ExitsWithTheDamagedLibraryMessageInsteadOfAborting) {
    makeLibrary();
    const fs::path file = home / "Marlune.store";
    test::damageTablePage(file, GetParam().object, GetParam().page);
    const auto before = test::readFileBytes(file);

    const auto started = test::runProcess({appPath, "--headless"}, environment());
    EXPECT_EQ(started.exitStatus, 1) << "an exit, not a crash:\n" << started.err;
    EXPECT_NE(started.err.find("Failed to create Marlune model container: The library file " +
                               file.string() +
                               " is damaged (part of it cannot be read). It was left untouched"),
              std::string::npos)
        << started.err;
    EXPECT_EQ(started.err.find("Marlune is running"), std::string::npos) << started.err;
    EXPECT_EQ(test::readFileBytes(file), before);
}

INSTANTIATE_TEST_SUITE_P(Pages, DamagedLibraryApp, ::testing::ValuesIn(test::snippetPageDamages),
                         [](const auto& testInfo) { return std::string(testInfo.param.name); });

} // namespace
} // namespace marlune
