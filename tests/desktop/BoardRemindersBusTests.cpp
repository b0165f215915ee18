// Board reminders through a notification service of our own on the private session bus: a
// future due date waits for its time and is shown once, a past one is never scheduled, and
// clearing the date takes the pending reminder away.
#include "AppUI/DesktopNotifier.h"
#include "AppUI/QtScheduler.h"
#include "Marlune/BoardReminders.h"
#include "MarluneCore/BoardStore.h"
#include "MarluneCore/Settings.h"
#include "support/LibraryFixture.h"
#include "support/Desktop.h"
#include "support/Process.h"

#include <QCoreApplication>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>

namespace marlune {
namespace {

using namespace std::chrono_literals;

TEST(BoardRemindersOnTheBus, FutureDueDatesAreShownOncePastOnesNeverAndClearedOnesWithdrawn) {
    if (std::getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) {
        GTEST_SKIP() << "needs a session bus (run through scripts/test-session.sh)";
    }
    int argc = 1;
    char name[] = "BoardRemindersBusTests";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);

    test::Library library(true);
    const auto log = library.dir.path() / "notifications.log";
    test::BackgroundProcess server({MARLUNE_FAKE_NOTIFICATIONS, log.string()}, {},
                                   library.dir.path() / "server.log");
    ASSERT_TRUE(test::pumpUntil([&] { return server.log().find("ready") != std::string::npos; }, 5s))
        << server.log();

    Settings settings =
        Settings::load(library.dir.path() / "settings.json", std::chrono::system_clock::now());
    BoardStore board(library.context(), settings);
    const Date now = dateNow();
    const auto section = board.activeSection(now);
    const auto soon = board.addText("Send the invoice", section, {}, now).clip.id;
    const auto past = board.addText("Water the plants", section, {}, now).clip.id;
    const auto cleared = board.addText("Call the plumber", section, {}, now).clip.id;
    board.setDue({soon}, addSeconds(now, 0.6));
    board.setDue({past}, addSeconds(now, -3600));
    board.setDue({cleared}, addSeconds(now, 0.6));

    DesktopNotifier notifier;
    QtScheduler scheduler;
    ScheduledReminderCenter center(notifier, scheduler, dateNow);
    BoardReminders reminders(center, library.context());
    reminders.reconcile(dateNow());
    ASSERT_EQ(center.pending().size(), 2U);
    EXPECT_EQ(center.pending()[0].title, "Due on your Board");

    board.setDue({cleared}, std::nullopt);
    reminders.reconcile(dateNow());
    ASSERT_EQ(center.pending().size(), 1U);
    EXPECT_EQ(center.pending()[0].identifier, "board.due." + soon.string());
    EXPECT_EQ(test::readFile(log), "") << "shown before its time";

    EXPECT_TRUE(test::pumpUntil([&] { return !test::readFile(log).empty(); }, 5s));
    test::pumpUntil([] { return false; }, 800ms);
    EXPECT_EQ(test::readFile(log), "Notify 1 Due on your Board|Send the invoice\n");
    EXPECT_TRUE(center.pending().empty());
}

} // namespace
} // namespace marlune
