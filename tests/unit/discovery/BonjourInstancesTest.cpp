// Which Bonjour services are resolved, and when one is tried again.

#include "discovery/BonjourInstances.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using Begin = BonjourInstances::Begin;
const auto kNow = BonjourInstances::Clock::now();
const QString kOffice = QStringLiteral("Office._printer._tcp.local.");

TEST(BonjourInstances, EachServiceIsResolvedOnceUntilItFailsExpiresOrGoesAway)
{
    BonjourInstances instances;
    EXPECT_EQ(instances.announced(kOffice, kNow), Begin::Resolve);
    EXPECT_EQ(instances.announced(kOffice, kNow), Begin::Known) << "seen on a second interface";
    instances.evaluated(kOffice);
    EXPECT_EQ(instances.announced(kOffice, kNow + 1s), Begin::Known);
    EXPECT_EQ(instances.pending(), 0u);

    // Withdrawn and announced again (with a new address, say): evaluated afresh.
    instances.withdrawn(kOffice);
    EXPECT_EQ(instances.announced(kOffice, kNow + 2s), Begin::Resolve);
    // A failed resolve or look-up is tried again on the next announcement.
    instances.failed(kOffice);
    EXPECT_EQ(instances.announced(kOffice, kNow + 3s), Begin::Resolve);
}

TEST(BonjourInstances, APendingLookupExpiresAtItsDeadlineAndIsTriedAgain)
{
    BonjourInstances instances;
    const QString other = QStringLiteral("Other._printer._tcp.local.");
    instances.announced(kOffice, kNow);
    instances.announced(other, kNow + 1s);
    EXPECT_EQ(instances.nextDeadline(), kNow + BonjourInstances::kLookupDeadline);
    EXPECT_TRUE(instances.expired(kNow + BonjourInstances::kLookupDeadline - 1ms).empty());
    EXPECT_EQ(instances.expired(kNow + BonjourInstances::kLookupDeadline), std::vector<QString>{kOffice});
    EXPECT_EQ(instances.nextDeadline(), kNow + 1s + BonjourInstances::kLookupDeadline);
    EXPECT_EQ(instances.announced(kOffice, kNow + 6s), Begin::Resolve);
    instances.evaluated(kOffice);
    instances.evaluated(other);
    EXPECT_FALSE(instances.nextDeadline());
}

TEST(BonjourInstances, PendingLookupsAreBoundedAndAFullTableLeavesServicesForLater)
{
    BonjourInstances instances;
    auto name = [](std::size_t i) { return QStringLiteral("P%1._printer._tcp.local.").arg(i); };
    for (std::size_t i = 0; i < BonjourInstances::kMaxPending; ++i)
        ASSERT_EQ(instances.announced(name(i), kNow), Begin::Resolve);
    const QString late = name(BonjourInstances::kMaxPending);
    EXPECT_EQ(instances.announced(late, kNow), Begin::Busy);
    EXPECT_FALSE(instances.isPending(late));
    instances.evaluated(name(0));
    EXPECT_EQ(instances.announced(late, kNow + 1s), Begin::Resolve) << "room again: its next announcement";
}

TEST(BonjourInstances, RememberedServicesAreBoundedOldestForgottenFirst)
{
    BonjourInstances instances;
    auto name = [](std::size_t i) { return QStringLiteral("R%1._printer._tcp.local.").arg(i); };
    for (std::size_t i = 0; i <= BonjourInstances::kMaxRemembered; ++i) {
        instances.announced(name(i), kNow);
        instances.evaluated(name(i));
    }
    EXPECT_EQ(instances.announced(name(0), kNow), Begin::Resolve) << "the oldest was forgotten";
    EXPECT_EQ(instances.announced(name(1), kNow), Begin::Known);
}

} // namespace
} // namespace talvo
