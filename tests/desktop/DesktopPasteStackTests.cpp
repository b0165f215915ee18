// The paste stack on a real display: three clips queued, the stack started, and Ctrl+V pressed
// three times in a real Qt text field pastes them in the order they were queued.
#include "AppUI/AppServices.h"
#include "MarluneCore/ClipStore.h"
#include "MarluneCore/PasteStackModel.h"
#include "support/LibraryFixture.h"
#include "support/Desktop.h"
#include "support/Process.h"

#include <QApplication>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace marlune {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

TEST(DesktopPasteStack, CtrlVPastesTheQueuedClipsInOrderThenLetsGo) {
    const char* display = std::getenv("DISPLAY");
    const std::string xdotool = test::findProgram("xdotool");
    if (display == nullptr || *display == '\0' || xdotool.empty()) {
        GTEST_SKIP() << "needs a display and xdotool (run through scripts/test-session.sh)";
    }
    int argc = 1;
    char name[] = "DesktopPasteStackTests";
    char* argv[] = {name, nullptr};
    QApplication app(argc, argv);

    test::Library library(true);
    Settings settings =
        Settings::load(library.dir.path() / "settings.json", std::chrono::system_clock::now());
    ClipStore clips(library.context(), ClipStoreSettings::read(settings));
    const Date now = dateNow();
    std::vector<Uuid> ids;
    for (const std::string text : {"first ", "second ", "third"}) {
        NewClip clip;
        clip.previewText = text;
        Representation rep;
        rep.utTypeIdentifier = "public.utf8-plain-text";
        rep.text = text;
        clip.representations.push_back(std::move(rep));
        ids.push_back(clips.record(clip, now).id);
    }
    auto model = PasteStackLibrary::open(library.dir.path(), library.context());
    for (const auto& id : ids) {
        ASSERT_TRUE(model->push(PasteStackClip{id}, "clip", "doc.on.clipboard"));
    }

    AppServices services(library.context(), settings);
    const auto report = services.start(model);
    ASSERT_NE(services.pasteStack(), nullptr) << "no paste stack; " << report.size() << " lines";

    const fs::path fieldReport = library.dir.path() / "field.txt";
    test::BackgroundProcess field({MARLUNE_TEST_FIELD, fieldReport.string()}, {},
                                  library.dir.path() / "field.log");
    std::string window;
    ASSERT_TRUE(test::pumpUntil([&] {
        window = test::windowIdIn(field.log()).value_or("");
        return !window.empty();
    })) << field.log();
    test::runProcess({xdotool, "windowfocus", "--sync", window});

    ASSERT_EQ(services.pasteStack()->start(), std::nullopt);
    ASSERT_TRUE(services.pasteStack()->isArmed());
    std::string expected;
    for (const std::string text : {"first ", "second ", "third"}) {
        expected += text;
        // xdotool runs while our event loop is busy elsewhere; the paste needs the loop.
        test::BackgroundProcess press({xdotool, "key", "ctrl+v"}, {}, library.dir.path() / "key.log");
        EXPECT_TRUE(test::pumpUntil([&] { return test::fieldTextIn(fieldReport) == expected; }))
            << "field: '" << test::fieldTextIn(fieldReport) << "'";
        // Let the stack take its shortcut back before the next press.
        test::pumpUntil([] { return false; }, PasteStackService::rearmDelay + 200ms);
    }
    EXPECT_FALSE(services.pasteStack()->isArmed());
    EXPECT_TRUE(model->isEmpty());
}

} // namespace
} // namespace marlune
