// What the engine asks a printer's agent, in which order, and what it makes
// of the answers.

#include "discovery/PrinterIdentification.h"
#include "foundation/DictionaryKeys.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

namespace talvo {
namespace {

using Output = PrinterIdentification::Output;
using snmp::Outcome;
const auto kNow = PrinterIdentification::Clock::now();

uint32_t ip(const char* dotted)
{
    return inet_addr(dotted);
}

snmp::Completion finished(const snmp::Query& query, Outcome outcome, long errorStatus = 0,
                          QVariantMap values = {})
{
    snmp::Completion c;
    c.tag = query.tag;
    c.address = query.address;
    c.answer.outcome = outcome;
    c.answer.errorStatus = errorStatus;
    c.answer.values = std::move(values);
    return c;
}

IdentifyRequest discovered(const char* address,
                           IdentifyRequest::Report report = IdentifyRequest::Report::Discovered)
{
    const QVariantMap printer{{kPrinterModelStrKey, QStringLiteral("Model 4000")},
                              {kIPAddrStrKey, QString::fromLatin1(address)},
                              {kQueueConnectionTypeStrKey, QStringLiteral("Raw TCP")}};
    return {printer, ip(address), report};
}

class PrinterIdentificationTest : public testing::Test
{
protected:
    PrinterIdentificationTest()
    {
        rules.setCommunity(QStringLiteral("public"));
        rules.setLearnNetworks(true);
    }
    // Ends the only query of `out` and returns what followed.
    Output answer(const Output& out, Outcome outcome, long errorStatus = 0, QVariantMap values = {})
    {
        EXPECT_EQ(out.queries.size(), 1u);
        Output next;
        rules.completed(finished(out.queries.at(0), outcome, errorStatus, std::move(values)), kNow, next);
        return next;
    }
    PrinterIdentification rules;
};

// A printer selected by walkup teaches networks exactly as one found by
// broadcast discovery does, and every query carries the community current
// when it is sent (the user may change it while printers are being asked).
TEST_F(PrinterIdentificationTest, IdentityThenOlderThenNewerCacheEachAfterAnAnswer)
{
    using Kind = DiscoveryEvent::Kind;
    using Report = IdentifyRequest::Report;
    for (const auto& [report, kind] : {std::pair{Report::Discovered, Kind::PrinterDiscovered},
                                       std::pair{Report::Beaconed, Kind::PrinterBeaconed}}) {
        SCOPED_TRACE(static_cast<int>(report));
        rules.setCommunity(QStringLiteral("public"));
        Output asked;
        rules.identify(discovered("10.1.0.20", report), asked);
        ASSERT_EQ(asked.queries.size(), 1u);
        EXPECT_EQ(asked.queries[0].oids, PrinterIdentification::printerQueryOids());
        EXPECT_EQ(asked.queries[0].community, QStringLiteral("public"));
        EXPECT_EQ(asked.queries[0].address, ip("10.1.0.20"));

        rules.setCommunity(QStringLiteral("changed"));
        const Output identified =
            answer(asked, Outcome::Answered, 0, {{QString(kDnsNameKey), QStringLiteral("office")}});
        ASSERT_EQ(identified.events.size(), 1u);
        const QVariantMap& printer = identified.events[0].printer;
        EXPECT_EQ(identified.events[0].kind, kind);
        EXPECT_EQ(printer.value(kDnsNameKey), QStringLiteral("office"));
        EXPECT_EQ(printer.value(kCUPSQueueNameKey), QStringLiteral("office"));
        EXPECT_EQ(printer.value(kCUPSPrinterURIKey), QStringLiteral("lpd://10.1.0.20"));
        EXPECT_EQ(printer.value(SNMPQueryOperationResultKey), 1);
        EXPECT_EQ(identified.answered, std::vector<uint32_t>{ip("10.1.0.20")});
        ASSERT_EQ(identified.queries.size(), 1u);
        EXPECT_EQ(identified.queries[0].oids, PrinterIdentification::olderKnownNetworkOids());
        EXPECT_EQ(identified.queries[0].community, QStringLiteral("changed"));

        // Newer firmware answers the older numbering with noSuchName (2).
        const Output older = answer(identified, Outcome::Answered, 2);
        ASSERT_EQ(older.queries.size(), 1u);
        EXPECT_EQ(older.queries[0].oids, PrinterIdentification::newerKnownNetworkOids());
        EXPECT_EQ(older.queries[0].community, QStringLiteral("changed"));
        const Output newer = answer(
            older, Outcome::Answered, 0,
            {{QString(CacheEnabledKey), 1}, {QString(AddressCache1Key), QStringLiteral("10.78.0.255")}});
        EXPECT_EQ(newer.learnedNetworks, std::vector<uint32_t>{ip("10.78.0.255")});
        EXPECT_TRUE(newer.queries.empty());
        EXPECT_EQ(rules.pendingCount(), 0u);
    }
}

TEST_F(PrinterIdentificationTest, ASilentAddressCostsOnePacketAndIsStillReported)
{
    Output asked;
    rules.identify(discovered("10.1.0.66"), asked);
    const Output after = answer(asked, Outcome::TimedOut);
    ASSERT_EQ(after.events.size(), 1u);
    EXPECT_FALSE(after.events[0].printer.contains(SNMPQueryOperationResultKey));
    EXPECT_EQ(after.events[0].printer.value(kCUPSPrinterURIKey), QStringLiteral("lpd://10.1.0.66"));
    EXPECT_TRUE(after.queries.empty());
    EXPECT_TRUE(after.answered.empty());

    Output learn;
    rules.learnFrom(ip("10.1.0.67"), learn);
    EXPECT_TRUE(answer(learn, Outcome::SendFailed).queries.empty());
}

TEST_F(PrinterIdentificationTest, CutShortIdentityIsAbandonedNotReported)
{
    for (const bool refused : {false, true}) {
        Output asked;
        rules.identify(discovered("10.1.0.20"), asked);
        Output after;
        if (refused)
            rules.refused(asked.queries.at(0).tag, after);
        else
            after = answer(asked, Outcome::Cancelled);
        EXPECT_TRUE(after.events.empty()) << refused;
        EXPECT_EQ(after.abandoned, std::vector<uint32_t>{ip("10.1.0.20")}) << refused;
    }
    EXPECT_EQ(rules.pendingCount(), 0u);
}

TEST_F(PrinterIdentificationTest, BeaconedPrinterKeepsSnmpValuesOverItsAnnouncement)
{
    Output asked;
    IdentifyRequest request = discovered("10.1.0.20", IdentifyRequest::Report::Beaconed);
    request.printer.remove(kQueueConnectionTypeStrKey);
    request.printer.insert(kDnsNameKey, QStringLiteral("claimed"));
    rules.identify(request, asked);
    const Output after =
        answer(asked, Outcome::Answered, 0, {{QString(kDnsNameKey), QStringLiteral("real")}});
    ASSERT_EQ(after.events.size(), 1u);
    EXPECT_EQ(after.events[0].kind, DiscoveryEvent::Kind::PrinterBeaconed);
    EXPECT_EQ(after.events[0].printer.value(kDnsNameKey), QStringLiteral("real"));
    EXPECT_EQ(after.events[0].printer.value(kQueueConnectionTypeStrKey), QStringLiteral("Raw TCP"));
}

TEST_F(PrinterIdentificationTest, WithoutBroadcastDiscoveryNoNetworkIsAsked)
{
    rules.setLearnNetworks(false);
    Output asked;
    rules.learnFrom(ip("10.1.0.20"), asked);
    EXPECT_TRUE(asked.queries.empty());
    rules.identify(discovered("10.1.0.20"), asked);
    EXPECT_TRUE(answer(asked, Outcome::Answered).queries.empty());
}

TEST(KnownNetworks, OnlySearchableAddressesFromAnEnabledCacheAreLearned)
{
    using Lesson = PrinterIdentification::Lesson;
    const std::tuple<QVariant, QString, Lesson> cases[] = {
        {1, QStringLiteral("10.78.0.20"), Lesson::Learned},
        {1, QStringLiteral("10.78.0.255"), Lesson::Learned}, // a directed broadcast
        {QStringLiteral("1"), QStringLiteral("192.168.5.0"), Lesson::Learned},
        {0, QStringLiteral("10.78.0.20"), Lesson::CacheOff},
        {QVariant(), QStringLiteral("10.78.0.20"), Lesson::CacheOff},
        {1, QString(), Lesson::NoAddress},
        {1, QStringLiteral("0.0.0.0"), Lesson::NoAddress},
        {1, QStringLiteral("10.x.y.z"), Lesson::NoAddress},
        {1, QStringLiteral("010.0.0.1"), Lesson::NoAddress},
        {1, QStringLiteral("tcp:h:161"), Lesson::NoAddress},
        {1, QStringLiteral("255.255.255.255"), Lesson::Unsearchable},
        {1, QStringLiteral("127.0.0.1"), Lesson::Unsearchable},
        {1, QStringLiteral("224.0.0.251"), Lesson::Unsearchable},
        {1, QStringLiteral("240.1.2.3"), Lesson::Unsearchable},
        {1, QStringLiteral("0.1.2.3"), Lesson::Unsearchable},
    };
    for (const auto& [enabled, entry, lesson] : cases) {
        QVariantMap values{{QString(AddressCache1Key), entry}};
        if (enabled.isValid())
            values.insert(CacheEnabledKey, enabled);
        const auto learned = PrinterIdentification::learnedNetwork(values);
        EXPECT_EQ(learned.lesson, lesson) << entry.toStdString();
        if (lesson == Lesson::Learned) {
            EXPECT_EQ(learned.address, ip(entry.toLatin1().constData()));
        }
    }
}

} // namespace
} // namespace talvo
