// Which Bonjour services are resolved, and when one is tried again.

#include "discovery/BonjourInstances.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using Begin = BonjourInstances::Begin;
using Service = BonjourInstances::Service;
const auto kNow = BonjourInstances::Clock::now();
const QString kOffice = QStringLiteral("Office._printer._tcp.local.");
const Service kOfficeService{"Office", "_printer._tcp.", "local.", 2};

TEST(BonjourInstances, EachServiceIsResolvedOnceUntilItFailsExpiresOrGoesAway)
{
    BonjourInstances instances;
    EXPECT_EQ(instances.announced(kOffice, kOfficeService, kNow), Begin::Resolve);
    EXPECT_EQ(instances.announced(kOffice, kOfficeService, kNow), Begin::Known)
        << "seen on a second interface";
    instances.evaluated(kOffice);
    EXPECT_EQ(instances.announced(kOffice, kOfficeService, kNow + 1s), Begin::Known);
    EXPECT_EQ(instances.pending(), 0u);

    // Withdrawn and announced again (with a new address, say): evaluated
    // afresh, and a withdrawal drops a resolve in progress.
    instances.withdrawn(kOffice);
    EXPECT_EQ(instances.announced(kOffice, kOfficeService, kNow + 2s), Begin::Resolve);
    instances.withdrawn(kOffice);
    EXPECT_FALSE(instances.isPending(kOffice));
    EXPECT_EQ(instances.announced(kOffice, kOfficeService, kNow + 2s), Begin::Resolve);
    // A failed resolve or look-up is tried at once when announced again.
    instances.failed(kOffice, kNow + 3s);
    EXPECT_EQ(instances.announced(kOffice, kOfficeService, kNow + 3s), Begin::Resolve);
}

// DNS-SD announces a service that stays only once: one that failed is tried
// again on its own, later after each further failure.
TEST(BonjourInstances, AFailedServiceIsTriedAgainLaterAndLaterUntilEvaluated)
{
    BonjourInstances instances;
    instances.announced(kOffice, kOfficeService, kNow);
    auto at = kNow;
    for (const auto delay : {10s, 20s, 40s, 80s, 160s, 300s, 300s}) {
        instances.failed(kOffice, at);
        EXPECT_EQ(instances.nextDeadline(), at + delay);
        EXPECT_TRUE(instances.due(at + delay - 1ms).empty());
        at += delay;
        EXPECT_EQ(instances.due(at), (std::vector<std::pair<QString, Service>>{{kOffice, kOfficeService}}));
        EXPECT_TRUE(instances.isPending(kOffice));
    }
    instances.evaluated(kOffice);
    EXPECT_FALSE(instances.nextDeadline());
    EXPECT_EQ(instances.waiting(), 0u);
}

TEST(BonjourInstances, APendingLookupExpiresAtItsDeadlineAndIsTriedAgain)
{
    BonjourInstances instances;
    const QString other = QStringLiteral("Other._printer._tcp.local.");
    instances.announced(kOffice, kOfficeService, kNow);
    instances.announced(other, {"Other", "_printer._tcp.", "local.", 2}, kNow + 1s);
    EXPECT_EQ(instances.nextDeadline(), kNow + BonjourInstances::kLookupDeadline);
    EXPECT_TRUE(instances.expired(kNow + BonjourInstances::kLookupDeadline - 1ms).empty());
    EXPECT_EQ(instances.expired(kNow + BonjourInstances::kLookupDeadline), std::vector<QString>{kOffice});
    EXPECT_EQ(instances.nextDeadline(), kNow + 1s + BonjourInstances::kLookupDeadline);
    EXPECT_EQ(instances.announced(kOffice, kOfficeService, kNow + 6s), Begin::Resolve);
    instances.evaluated(kOffice);
    instances.evaluated(other);
    EXPECT_FALSE(instances.nextDeadline());
}

TEST(BonjourInstances, PendingLookupsAreBoundedAndAFullTableLeavesServicesForLater)
{
    BonjourInstances instances;
    auto name = [](std::size_t i) { return QStringLiteral("P%1._printer._tcp.local.").arg(i); };
    const Service late{"Late", "_printer._tcp.", "local.", 3};
    for (std::size_t i = 0; i < BonjourInstances::kMaxPending; ++i)
        ASSERT_EQ(instances.announced(name(i), kOfficeService, kNow), Begin::Resolve);
    const QString lateName = name(BonjourInstances::kMaxPending);
    EXPECT_EQ(instances.announced(lateName, late, kNow), Begin::Busy);
    EXPECT_FALSE(instances.isPending(lateName));
    // No room: waking for the waiting one would change nothing.
    EXPECT_EQ(instances.nextDeadline(), kNow + BonjourInstances::kLookupDeadline);
    EXPECT_TRUE(instances.due(kNow + 1s).empty());
    instances.evaluated(name(0));
    EXPECT_EQ(instances.nextDeadline(), kNow) << "room again: due at once";
    EXPECT_EQ(instances.due(kNow + 1s), (std::vector<std::pair<QString, Service>>{{lateName, late}}));
    EXPECT_TRUE(instances.isPending(lateName));
}

TEST(BonjourInstances, RememberedServicesAreBoundedOldestForgottenFirst)
{
    BonjourInstances instances;
    auto name = [](std::size_t i) { return QStringLiteral("R%1._printer._tcp.local.").arg(i); };
    for (std::size_t i = 0; i <= BonjourInstances::kMaxRemembered; ++i) {
        instances.announced(name(i), kOfficeService, kNow);
        instances.evaluated(name(i));
    }
    EXPECT_EQ(instances.announced(name(0), kOfficeService, kNow), Begin::Resolve)
        << "the oldest was forgotten";
    EXPECT_EQ(instances.announced(name(1), kOfficeService, kNow), Begin::Known);
}

} // namespace
} // namespace talvo
