// Notices through a notification service of our own on the private session bus.
#include "AppUI/DesktopNotifier.h"
#include "Marlune/ExpansionService.h"
#include "support/Desktop.h"
#include "support/Process.h"
#include "support/TempDir.h"

#include <QCoreApplication>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <sstream>
#include <thread>

namespace marlune {
namespace {

using namespace std::chrono_literals;

TEST(DesktopNotifier, NoticesReachTheServiceAndAreWithdrawnOrReportedMissing) {
    if (std::getenv("DBUS_SESSION_BUS_ADDRESS") == nullptr) {
        GTEST_SKIP() << "needs a session bus (run through scripts/test-session.sh)";
    }
    int argc = 1;
    char name[] = "DesktopNotifierTests";
    char* argv[] = {name, nullptr};
    QCoreApplication app(argc, argv);
    DesktopNotifier notifier;

    // No service yet: the notice says why instead of vanishing.
    const auto unanswered = notifier.notify("title", "body", "board.due");
    EXPECT_FALSE(unanswered.id);
    EXPECT_TRUE(unanswered.error);

    test::TempDir dir;
    const auto log = dir.path() / "notifications.log";
    test::BackgroundProcess server({MARLUNE_FAKE_NOTIFICATIONS, log.string()}, {},
                                   dir.path() / "server.log");
    ASSERT_TRUE(test::waitUntil([&] { return server.log().find("ready") != std::string::npos; }))
        << server.log();

    const auto shown = notifier.notify("Due on your Board", "Send the invoice", "board.due");
    ASSERT_TRUE(shown.id) << shown.error.value_or("");
    notifier.suggestSnippet(ExpansionService::kSuggestionMessage, "see you tomorrow then");
    notifier.close(*shown.id);
    const std::string expected = "Notify 1 Due on your Board|Send the invoice\n"
                                 "Notify 2 You've typed this a few times — make it a snippet?|"
                                 "“see you tomorrow then”\n"
                                 "Close 1\n";
    EXPECT_TRUE(test::waitUntil([&] { return test::readFile(log) == expected; })) << test::readFile(log);
}

} // namespace
} // namespace marlune
