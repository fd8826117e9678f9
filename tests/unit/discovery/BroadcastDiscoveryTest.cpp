// The broadcast discovery's rules: which target a reply belongs to, which
// reply is a new printer, and what a flood of replies can make us keep.

#include "discovery/BroadcastDiscovery.h"
#include "discovery/BroadcastPacket.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <cerrno>

namespace talvo {
namespace {

using Verdict = BroadcastDiscovery::Verdict;
const auto kNow = BroadcastDiscovery::Clock::now();

uint32_t ip(const char* dotted)
{
    return inet_addr(dotted);
}

BroadcastAddr remote(const char* dotted)
{
    return BroadcastAddr(ip("10.1.2.5"), ip(dotted), BroadcastAddr::kNoNetmask);
}

BroadcastAddr lan(const char* local, const char* broadcast, const char* mask)
{
    return BroadcastAddr(ip(local), ip(broadcast), ip(mask));
}

BroadcastDiscovery::Reply replyFrom(uint32_t source, const QString& model = QStringLiteral("Model 4000"),
                                    const QString& claimed = {})
{
    const QString address = claimed.isNull() ? stringForInetAddr(source) : claimed;
    return {broadcast::buildReply(model, address, QStringLiteral("00:80:92:00:00:01")), source, 0};
}

class BroadcastDiscoveryTest : public testing::Test
{
protected:
    BroadcastDiscoveryTest()
    {
        rules.setPrinterModels({QStringLiteral("Model 4000")});
        rules.addTarget(lan("10.1.0.5", "10.1.255.255", "255.255.0.0"), kNow);
    }
    BroadcastDiscovery rules;
};

TEST(SearchTargets, RepliesGoToTheirLocalNetworkElseTheClosestRemoteTarget)
{
    BroadcastDiscovery rules;
    for (const BroadcastAddr& t : {remote("10.9.9.9"), lan("10.1.2.5", "10.1.2.255", "255.255.255.0"),
                                   remote("192.168.0.1"), remote("192.168.7.1"), remote("192.168.7.2")})
        ASSERT_EQ(rules.addTarget(t, kNow), BroadcastDiscovery::AddResult::Added);
    EXPECT_EQ(rules.addTarget(remote("10.1.2.255"), kNow), BroadcastDiscovery::AddResult::Known);

    const std::pair<const char*, const char*> cases[] = {
        {"10.1.2.3", "10.1.2.255"},      // the local network wins over an earlier remote target
        {"192.168.7.20", "192.168.7.1"}, // more leading bits; a tie keeps the earlier
        {"192.168.0.77", "192.168.0.1"},
        {"10.200.0.1", "10.9.9.9"},
    };
    for (const auto& [source, expected] : cases) {
        const auto found = rules.targetFor(ip(source));
        ASSERT_TRUE(found) << source;
        EXPECT_EQ(rules.targets()[*found].broadCastAddr(), ip(expected)) << source;
    }
    BroadcastDiscovery onlyRemote;
    onlyRemote.addTarget(remote("10.9.9.9"), kNow);
    EXPECT_FALSE(onlyRemote.targetFor(ip("200.0.0.1"))) << "no leading bit in common";
}

TEST_F(BroadcastDiscoveryTest, ANewPrinterIsDecidedOnceAndItsAddressIsTheOneItCameFrom)
{
    const auto first = rules.onReply(replyFrom(ip("10.1.0.20")), kNow);
    ASSERT_EQ(first.verdict, Verdict::Identify);
    EXPECT_EQ(first.address, ip("10.1.0.20"));
    EXPECT_EQ(first.printer.value(kPrinterModelStrKey), QStringLiteral("Model 4000"));
    EXPECT_EQ(first.printer.value(kIPAddrStrKey), QStringLiteral("10.1.0.20"));
    EXPECT_EQ(first.printer.value(kIPAddressNumberKey).toULongLong(), ip("10.1.0.20"));
    EXPECT_EQ(first.printer.value(kQueueConnectionTypeStrKey), QStringLiteral("Raw TCP"));
    EXPECT_EQ(rules.onReply(replyFrom(ip("10.1.0.20")), kNow).verdict, Verdict::Known);
    EXPECT_EQ(rules.onReply(replyFrom(ip("10.1.0.21"), QStringLiteral("Model 1200")), kNow).verdict,
              Verdict::LearnOnly);
    EXPECT_TRUE(rules.printerInAnyBroadcast(ip("10.1.0.21")));
    EXPECT_EQ(rules.targets()[0].getKnownPrinters(),
              (std::vector<uint32_t>{ip("10.1.0.20"), ip("10.1.0.21")}));
}

TEST_F(BroadcastDiscoveryTest, RepliesThatLieAboutTheirAddressOrComeFromNowhereAreDropped)
{
    const std::pair<BroadcastDiscovery::Reply, const char*> cases[] = {
        {replyFrom(ip("10.1.0.66"), QStringLiteral("Model 4000"), QStringLiteral("10.1.0.99")),
         "another address"},
        {replyFrom(ip("10.1.0.66"), QStringLiteral("Model 4000"), QStringLiteral("tcp:host.example:161")),
         "a transport prefix"},
        {replyFrom(ip("10.1.0.66"), QStringLiteral("Model 4000"), QStringLiteral("010.1.0.66")),
         "a leading zero"},
        {{QByteArray("kvo\x01garbage"), ip("10.1.0.66"), 0}, "malformed"},
        {replyFrom(ip("172.16.0.1")), "no target covers the source"},
    };
    for (const auto& [reply, why] : cases)
        EXPECT_EQ(rules.onReply(reply, kNow).verdict, Verdict::Dropped) << why;
    EXPECT_EQ(rules.knownPrinterCount(), 0u);
}

TEST_F(BroadcastDiscoveryTest, AFullTableForgetsTheOldestSilentPrinterButNeverOneThatAnswered)
{
    const uint32_t base = ntohl(ip("10.1.0.0"));
    auto address = [&](uint32_t i) { return htonl(base + 1 + i); };
    rules.onReply(replyFrom(address(0)), kNow);
    rules.printerAnswered(address(0)); // a real printer, first in the table
    for (uint32_t i = 1; i < BroadcastDiscovery::kMaxKnownPrinters; ++i)
        ASSERT_EQ(rules.onReply(replyFrom(address(i)), kNow).verdict, Verdict::Identify) << i;
    ASSERT_EQ(rules.knownPrinterCount(), BroadcastDiscovery::kMaxKnownPrinters);

    // A printer that shows up after the flood still gets in, in place of the
    // oldest printer whose agent never answered.
    const uint32_t late = address(50'000);
    EXPECT_EQ(rules.onReply(replyFrom(late), kNow).verdict, Verdict::Identify);
    EXPECT_EQ(rules.knownPrinterCount(), BroadcastDiscovery::kMaxKnownPrinters);
    EXPECT_TRUE(rules.printerInAnyBroadcast(address(0)));
    EXPECT_FALSE(rules.printerInAnyBroadcast(address(1)));
    EXPECT_TRUE(rules.printerInAnyBroadcast(late));
    const auto& known = rules.targets()[0].getKnownPrinters();
    EXPECT_EQ(std::count(known.begin(), known.end(), address(1)), 0);

    // Once every printer in the table has answered, a newcomer is dropped.
    for (uint32_t i = 0; i < 60'000; ++i)
        rules.printerAnswered(address(i));
    rules.printerAnswered(late);
    EXPECT_EQ(rules.onReply(replyFrom(address(60'001)), kNow).verdict, Verdict::Dropped);
    EXPECT_EQ(rules.knownPrinterCount(), BroadcastDiscovery::kMaxKnownPrinters);
}

TEST_F(BroadcastDiscoveryTest, ForgottenPrinterIsNewAgainOnItsNextReply)
{
    rules.onReply(replyFrom(ip("10.1.0.20")), kNow);
    rules.forgetPrinter(ip("10.1.0.20"));
    EXPECT_EQ(rules.onReply(replyFrom(ip("10.1.0.20")), kNow).verdict, Verdict::Identify);
}

TEST_F(BroadcastDiscoveryTest, SearchTargetsAreBoundedAndUnreachableOnesDropped)
{
    const uint32_t base = ntohl(ip("10.50.0.255"));
    std::size_t added = rules.targets().size();
    for (uint32_t i = 0; added < BroadcastDiscovery::kMaxSearchTargets; ++i, ++added)
        ASSERT_EQ(rules.addTarget(
                      BroadcastAddr(ip("10.1.0.5"), htonl(base + (i << 8)), BroadcastAddr::kNoNetmask), kNow),
                  BroadcastDiscovery::AddResult::Added);
    EXPECT_EQ(rules.addTarget(remote("192.168.99.255"), kNow), BroadcastDiscovery::AddResult::Full);

    rules.sendFailed(htonl(base), ENETUNREACH);
    rules.sendFailed(htonl(base + 0x100), EPERM); // not a routing answer: kept
    EXPECT_EQ(rules.targets().size(), BroadcastDiscovery::kMaxSearchTargets - 1);
    EXPECT_FALSE(rules.knownSearchSubnets().contains(QStringLiteral("10.50.0.255")));
    EXPECT_TRUE(rules.knownSearchSubnets().contains(QStringLiteral("10.50.1.255")));
    EXPECT_EQ(rules.buildRequests().size(), rules.targets().size());
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
    EXPECT_FALSE(target.addPrinter({{kIPAddressNumberKey, static_cast<qulonglong>(ip("10.9.9.9"))}}));
    EXPECT_EQ(target.noReplyCount(), 0);
    EXPECT_NEAR(target.getTimeToNextBroadcast(), 2, 0.5);
}

} // namespace
} // namespace talvo
