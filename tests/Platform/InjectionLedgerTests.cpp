#include "Platform/InjectionLedger.h"

#include <gtest/gtest.h>

namespace marlune {
namespace {

using namespace std::chrono_literals;

TEST(InjectionLedgerTest, OurKeysAreClaimedInOrderAndOthersAreNot) {
    InjectionLedger ledger;
    const auto t0 = InjectionLedger::Clock::time_point{} + 100s;
    ledger.expect(22, true, t0);
    ledger.expect(22, false, t0);

    // Another program's key arriving first is not ours and does not consume our entry.
    EXPECT_FALSE(ledger.claim(38, true, t0));
    // A release before its press is not the next one we expect.
    EXPECT_FALSE(ledger.claim(22, false, t0));
    EXPECT_TRUE(ledger.claim(22, true, t0));
    EXPECT_TRUE(ledger.claim(22, false, t0));
    // The same key again, once ours have all come back, is someone else's.
    EXPECT_FALSE(ledger.claim(22, true, t0));
    EXPECT_EQ(ledger.pending(), 0U);
}

TEST(InjectionLedgerTest, EntriesNeverSeenExpireSoLaterKeysAreNotSwallowed) {
    InjectionLedger ledger;
    const auto t0 = InjectionLedger::Clock::time_point{} + 100s;
    ledger.expect(22, true, t0);
    EXPECT_FALSE(ledger.claim(22, true, t0 + InjectionLedger::kLifetime + 1ms));
    EXPECT_EQ(ledger.pending(), 0U);
}

} // namespace
} // namespace marlune
