// The tray icon's pulse, watched through the icons it shows. Runs on the test display when
// there is one, else on Qt's offscreen platform (no tray there: the shown icon is still kept).
#include "AppUI/TrayIcon.h"
#include "support/Desktop.h"

#include <QApplication>
#include <QImage>
#include <QPointer>
#include <gtest/gtest.h>
#include <string>
#include <vector>

// Drawing the icons loads the font configuration, whose library keeps a cache it never frees;
// that is not ours to report in the sanitizer build.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:libfontconfig\n"; }

namespace marlune {
namespace {

using namespace std::chrono_literals;

QApplication& application() {
    static QApplication* app = [] {
        if (!test::hasDisplay()) {
            qputenv("QT_QPA_PLATFORM", "offscreen");
        }
        static int argc = 1;
        static char name[] = "TrayIconTests";
        static char* argv[] = {name, nullptr};
        return new QApplication(argc, argv);
    }();
    return *app;
}

// "N" for the normal icon, "H" for the highlighted one, "?" for anything else.
std::string nameOf(const TrayIcon& tray, const QIcon& icon) {
    if (icon.cacheKey() == tray.normalIcon().cacheKey()) {
        return "N";
    }
    if (icon.cacheKey() == tray.highlightedIcon().cacheKey()) {
        return "H";
    }
    return "?";
}

// Every icon the tray shows, from construction on.
struct ShownIcons {
    explicit ShownIcons(TrayIcon& tray) {
        QObject::connect(&tray, &TrayIcon::iconShown, &tray,
                         [this, &tray](const QIcon& icon) { names += nameOf(tray, icon); });
    }
    std::string names;
};

// One pulse, frame by frame: bright first, then alternating, ending on the normal icon.
const std::string onePulse = [] {
    std::string frames;
    for (int flash = 0; flash < TrayIcon::pulseFlashes; ++flash) {
        frames += "HN";
    }
    return frames;
}();

bool settled(const TrayIcon& tray) {
    return !tray.isPulsing();
}

TEST(TrayIcon, HighlightedIconLooksDifferentAndTheNormalOneShowsAtRest) {
    application();
    TrayIcon tray;
    const QImage normal = tray.normalIcon().pixmap(22, 22).toImage();
    const QImage highlighted = tray.highlightedIcon().pixmap(22, 22).toImage();
    ASSERT_FALSE(normal.isNull());
    EXPECT_NE(normal, highlighted) << "a pulse would not be seen at tray size";
    EXPECT_EQ(nameOf(tray, tray.shownIcon()), "N");
    EXPECT_FALSE(tray.isPulsing());
}

TEST(TrayIcon, PulseFlashesAndEndsOnTheNormalIcon) {
    application();
    TrayIcon tray;
    ShownIcons shown(tray);

    tray.pulse();
    EXPECT_EQ(nameOf(tray, tray.shownIcon()), "H") << "the pulse shows at once";
    EXPECT_TRUE(tray.isPulsing());

    ASSERT_TRUE(test::pumpUntil([&] { return settled(tray); }, 10s)) << shown.names;
    EXPECT_EQ(shown.names, onePulse);
    EXPECT_EQ(nameOf(tray, tray.shownIcon()), "N");

    // Nothing goes on flashing afterwards.
    test::pumpUntil([] { return false; }, 3 * TrayIcon::pulseFrame);
    EXPECT_EQ(shown.names, onePulse);
}

// A second pulse starts the animation over instead of running beside the first: after it
// comes exactly one whole pulse, whatever frame the first had reached.
TEST(TrayIcon, SecondPulseRestartsTheAnimation) {
    application();
    struct Case {
        const char* name;
        std::size_t framesOfFirstPulse; // icons the first pulse shows before the second starts
    };
    const std::vector<Case> cases = {
        {"back to back", 1},
        {"on a normal frame", 2},
        {"on a highlighted frame", 3},
        {"on the last frame", onePulse.size() - 1},
        {"after the first has ended", onePulse.size()},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        TrayIcon tray;
        ShownIcons shown(tray);
        tray.pulse();
        ASSERT_TRUE(
            test::pumpUntil([&] { return shown.names.size() >= c.framesOfFirstPulse; }, 10s));
        const std::string first = shown.names;

        tray.pulse();
        EXPECT_TRUE(tray.isPulsing());
        ASSERT_TRUE(test::pumpUntil([&] { return settled(tray); }, 10s)) << shown.names;
        test::pumpUntil([] { return false; }, 3 * TrayIcon::pulseFrame);

        EXPECT_EQ(shown.names.substr(first.size()), onePulse) << shown.names;
        EXPECT_EQ(nameOf(tray, tray.shownIcon()), "N");
    }
}

// The services reach the tray through this hook, told also where no tray exists.
TEST(TrayIcon, AttachedHookReceivesTheTray) {
    application();
    QPointer<TrayIcon> attached;
    TrayIcon::Toggles toggles;
    toggles.attached = [&attached](TrayIcon& tray) { attached = &tray; };
    {
        TrayIcon tray(std::move(toggles));
        ASSERT_EQ(attached.data(), &tray);
        attached->pulse();
        EXPECT_TRUE(tray.isPulsing());
    }
    // What the services hold goes empty with the tray, so a late capture pulses nothing.
    EXPECT_TRUE(attached.isNull());
}

} // namespace
} // namespace marlune
