#include "discovery/SearchTargetList.h"
#include "foundation/DictionaryKeys.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <cerrno>

namespace talvo {
namespace {

uint32_t ip(const char* dotted)
{
    return inet_addr(dotted);
}

QVariantMap printerAt(const char* dotted)
{
    return {{kIPAddressNumberKey, static_cast<qulonglong>(ip(dotted))}};
}

BroadcastAddr remote(const char* dotted)
{
    return BroadcastAddr(ip("10.1.2.5"), ip(dotted), BroadcastAddr::kNoNetmask);
}

TEST(SearchTargets, RepliesGoToTheirLocalNetworkElseTheClosestRemoteTarget)
{
    SearchTargetList targets;
    ASSERT_TRUE(targets.add(remote("10.9.9.9")));
    ASSERT_TRUE(targets.add(BroadcastAddr(ip("10.1.2.5"), ip("10.1.2.255"), ip("255.255.255.0"))));
    ASSERT_TRUE(targets.add(remote("192.168.0.1")));
    ASSERT_TRUE(targets.add(remote("192.168.7.1")));
    ASSERT_TRUE(targets.add(remote("192.168.7.2"))); // ties with the one before it

    const std::pair<const char*, const char*> cases[] = {
        {"10.1.2.3", "10.1.2.255"},      // the local network wins over an earlier remote target
        {"192.168.7.20", "192.168.7.1"}, // more leading bits; a tie keeps the earlier
        {"192.168.0.77", "192.168.0.1"},
        {"10.200.0.1", "10.9.9.9"},
    };
    for (const auto& [source, expected] : cases) {
        const auto found = targets.findBroadCastAddrForDstAddr(0, ip(source));
        ASSERT_TRUE(found) << source;
        EXPECT_EQ(found->broadCastAddr(), ip(expected)) << source;
    }

    SearchTargetList onlyRemote;
    onlyRemote.add(remote("10.9.9.9"));
    EXPECT_FALSE(onlyRemote.findBroadCastAddrForDstAddr(0, ip("200.0.0.1"))) << "no leading bit in common";
}

TEST(SearchTargets, SameBroadcastAddressIsOneTargetAndPrintersAreKnownOnce)
{
    SearchTargetList targets;
    ASSERT_TRUE(targets.add(BroadcastAddr(ip("10.1.2.5"), ip("10.1.2.255"), ip("255.255.255.0"))));
    EXPECT_FALSE(targets.add(remote("10.1.2.255")));
    EXPECT_EQ(targets.knownSearchSubnets(), QStringList{QStringLiteral("10.1.2.255")});

    EXPECT_EQ(targets.offerPrinter(printerAt("10.1.2.20"), ip("10.1.2.20")), SearchTargetList::Offer::New);
    EXPECT_EQ(targets.offerPrinter(printerAt("10.1.2.20"), ip("10.1.2.20")), SearchTargetList::Offer::Known);
    EXPECT_EQ(targets.offerPrinter(printerAt("172.16.0.1"), ip("172.16.0.1")),
              SearchTargetList::Offer::NoTarget);
    EXPECT_TRUE(targets.printerInAnyBroadcast(ip("10.1.2.20")));
    EXPECT_FALSE(targets.printerInAnyBroadcast(ip("10.1.2.21")));
}

TEST(SearchTargets, UnreachableTargetsAreDroppedOthersKept)
{
    SearchTargetList targets;
    targets.add(remote("10.50.0.255"));
    targets.add(remote("10.60.0.255"));
    targets.add(remote("10.70.0.255"));
    int requests = 0;
    targets.sendToAll([&](const BroadcastAddr& t, const QByteArray&) {
        ++requests;
        if (t.broadCastAddr() == ip("10.50.0.255"))
            return ENETUNREACH;
        return t.broadCastAddr() == ip("10.60.0.255") ? EPERM : 0;
    });
    EXPECT_EQ(requests, 3);
    EXPECT_EQ(targets.knownSearchSubnets(),
              (QStringList{QStringLiteral("10.60.0.255"), QStringLiteral("10.70.0.255")}));
}

TEST(SearchTargets, BackOffDoublesUpToSixtyFourSecondsAndResetsOnANewPrinter)
{
    BroadcastAddr target = remote("10.9.9.9");
    const double expected[] = {2, 4, 8, 16, 32, 64, 64};
    for (const double seconds : expected) {
        const QByteArray request = target.getBroadcastPacket();
        EXPECT_FALSE(request.isEmpty());
        EXPECT_NEAR(target.getTimeToNextBroadcast(), seconds, 0.5);
    }
    EXPECT_EQ(target.noReplyCount(), 6);
    EXPECT_FALSE(target.addPrinter(printerAt("10.9.9.9")));
    EXPECT_EQ(target.noReplyCount(), 0);
    EXPECT_NEAR(target.getTimeToNextBroadcast(), 2, 0.5);
    EXPECT_EQ(target.getKnownPrinters(), std::vector<uint32_t>{ip("10.9.9.9")});
}

} // namespace
} // namespace talvo
