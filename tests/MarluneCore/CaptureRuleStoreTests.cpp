#include "MarluneCore/CaptureRuleStore.h"
#include "support/LibraryFixture.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using test::Library;
using test::testNow;

TEST(CaptureRuleStore, ExclusionFollowsEnabledRulesOnlyAndIgnoresCase) {
    Library library;
    CaptureRuleStore store(library.context());
    const CaptureRule keepass = store.add("KeePassXC", "KeePassXC", testNow());
    const CaptureRule term = store.add("Gnome-terminal", std::nullopt, testNow());
    ASSERT_TRUE(store.setEnabled(term.id, false));

    struct Case {
        std::string_view bundleID;
        bool excluded;
    };
    const Case cases[] = {
        {"KeePassXC", true},       {"keepassxc", true}, // toolkits disagree on the class's capitals
        {"KeePassXC2", false},                          // whole identifier, not a prefix
        {"Gnome-terminal", false},                      // the rule exists but is switched off
        {"firefox", false},        {"", false},         // no active window: never excluded
    };
    for (const Case& c : cases) {
        EXPECT_EQ(store.isExcluded(c.bundleID), c.excluded) << c.bundleID;
    }

    ASSERT_TRUE(store.remove(keepass.id));
    EXPECT_FALSE(store.isExcluded("KeePassXC"));
    EXPECT_FALSE(store.remove(keepass.id));
    EXPECT_FALSE(store.setEnabled(keepass.id, true));
}

TEST(CaptureRuleStore, AddingAnApplicationTwiceReenablesItsRuleInsteadOfDuplicating) {
    Library library;
    CaptureRuleStore store(library.context());
    const CaptureRule first = store.add("Signal", std::nullopt, testNow());
    store.setEnabled(first.id, false);
    const CaptureRule again = store.add("signal", "Signal", testNow());
    EXPECT_EQ(again.id, first.id);
    EXPECT_TRUE(again.isEnabled);

    const auto rules = store.list();
    ASSERT_EQ(rules.size(), 1U);
    EXPECT_EQ(rules[0].bundleID, "Signal");
    EXPECT_EQ(rules[0].appName, "Signal");
    EXPECT_TRUE(rules[0].isEnabled);
    EXPECT_EQ(rules[0].createdAt, testNow());
    EXPECT_TRUE(store.isExcluded("Signal"));
}

} // namespace
} // namespace marlune
