// The walkup rules without a socket: who is answered, what is remembered and
// for how long, and whose selection counts.

#include "discovery/WalkupExchange.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <algorithm>
#include <utility>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;
using Clock = WalkupExchange::Clock;

const uint32_t kHost = inet_addr("192.168.1.10");
const uint32_t kPrinter = inet_addr("192.168.1.50");
const uint32_t kLanBroadcast = inet_addr("192.168.1.255");
const Clock::time_point kStart = Clock::time_point{} + 1h;

QByteArray hex(uint32_t address)
{
    return "0x" + QByteArray::number(ntohl(address), 16);
}

QByteArray announcement(uint32_t tagged,
                        const QByteArray& rest = "<model>M4</model><macaddr>00:80:92:01:02:03</macaddr>")
{
    return "talvo\x01\x03<ipaddr>" + hex(tagged) + "</ipaddr><type>0</type>" + rest;
}

QByteArray selection(uint32_t tagged)
{
    return "talvo\x01\x03<ipaddr>" + hex(tagged) +
           "</ipaddr><type>2</type><user>Jane</user><status>1</status>";
}

WalkupDatagram received(const QByteArray& bytes, uint32_t source, Clock::time_point now = kStart,
                        uint32_t arrivedOn = kHost)
{
    return {bytes, source, 1204, arrivedOn, 2, now};
}

WalkupExchange makeExchange()
{
    WalkupExchange exchange;
    exchange.setVendorWord(u"talvo"_s);
    exchange.setUserName(u"Jane"_s);
    exchange.setConnectedNetworks({{kHost, inet_addr("255.255.255.0")},
                                   {inet_addr("10.0.0.5"), inet_addr("255.255.0.0")},
                                   {inet_addr("172.20.0.0"), inet_addr("255.255.255.254")},
                                   {inet_addr("127.0.0.1"), inet_addr("255.0.0.0")},
                                   // Nonsense an interface list may still hold: neither may widen the rules.
                                   {inet_addr("10.9.9.9"), 0},
                                   {inet_addr("224.0.0.5"), inet_addr("240.0.0.0")}});
    return exchange;
}

int countLines(const QStringList& lines, const QString& part)
{
    return static_cast<int>(
        std::count_if(lines.cbegin(), lines.cend(), [&](const QString& l) { return l.contains(part); }));
}

TEST(WalkupExchange, AnswersOnlyTheNeighbourThatSentTheAnnouncement)
{
    struct Case
    {
        const char* name;
        const char* source;
        const char* tagged;
        bool answered;
    };
    const Case cases[] = {
        {"neighbour", "192.168.1.50", "192.168.1.50", true},
        {"neighbour on another connected network", "10.0.200.1", "10.0.200.1", true},
        {"peer on a point-to-point link", "172.20.0.1", "172.20.0.1", true},
        {"tag names another neighbour", "192.168.1.51", "192.168.1.50", false},
        {"tag names a far address", "192.168.1.50", "8.8.8.8", false},
        {"not on a connected network", "172.16.0.5", "172.16.0.5", false},
        {"network's broadcast address", "192.168.1.255", "192.168.1.255", false},
        {"network's own address", "192.168.1.0", "192.168.1.0", false},
        {"0.0.0.0", "0.0.0.0", "0.0.0.0", false},
        {"255.255.255.255", "255.255.255.255", "255.255.255.255", false},
        {"loopback, though connected", "127.0.0.1", "127.0.0.1", false},
        {"multicast, though \"connected\"", "224.0.0.1", "224.0.0.1", false},
    };
    test::LogCapture quiet;
    for (const Case& c : cases) {
        WalkupExchange exchange = makeExchange();
        const uint32_t source = inet_addr(c.source);
        const auto actions = exchange.handle(received(announcement(inet_addr(c.tagged)), source));
        EXPECT_FALSE(actions.selected) << c.name;
        if (!c.answered) {
            EXPECT_FALSE(actions.reply) << c.name;
            EXPECT_FALSE(actions.announced) << c.name;
            EXPECT_EQ(exchange.announcementCount(), 0u) << c.name;
            continue;
        }
        // The user's name, from the address the announcement arrived on, to the sender's port 1204.
        ASSERT_TRUE(actions.reply) << c.name;
        EXPECT_EQ(actions.reply->destination, source) << c.name;
        EXPECT_EQ(actions.reply->port, 1204) << c.name;
        EXPECT_EQ(actions.reply->datagram,
                  "talvo\x01\x03<ipaddr>0xc0a8010a</ipaddr><type>1</type><user>Jane</user>")
            << c.name;
        ASSERT_TRUE(actions.announced) << c.name;
        EXPECT_EQ(actions.announced->printerAddress, source) << c.name;
        EXPECT_EQ(actions.announced->model, u"M4"_s) << c.name;
        EXPECT_EQ(actions.announced->macAddress, u"00:80:92:01:02:03"_s) << c.name;
        EXPECT_EQ(exchange.announcementCount(), 1u) << c.name;
    }
}

TEST(WalkupExchange, AFloodOfForgedAnnouncementsCostsALineEveryFewSeconds)
{
    WalkupExchange exchange = makeExchange();
    test::LogCapture log;
    for (int i = 0; i < 100; ++i)
        exchange.handle(received(announcement(kPrinter), inet_addr("192.168.1.66"), kStart + 1ms * i));
    EXPECT_EQ(countLines(log.lines(), u"dropped"_s), 1);
    exchange.handle(received(announcement(kPrinter), inet_addr("192.168.1.66"), kStart + 10s));
    EXPECT_EQ(countLines(log.lines(), u"100 dropped since the last line"_s), 1)
        << log.lines().join(u'\n').toStdString();
}

TEST(WalkupExchange, RepeatsAreAnsweredAndKeepThePrinterRemembered)
{
    WalkupExchange exchange = makeExchange();
    ASSERT_TRUE(exchange.handle(received(announcement(kPrinter), kPrinter)).reply);
    exchange.setUserName(u"Joe"_s);
    const auto repeat = exchange.handle(received(announcement(kPrinter), kPrinter, kStart + 9min));
    ASSERT_TRUE(repeat.reply);
    EXPECT_TRUE(repeat.reply->datagram.endsWith("<user>Joe</user>"));
    EXPECT_EQ(exchange.announcementCount(), 1u);
    // Ten minutes after the first announcement, but not after the repeat.
    EXPECT_TRUE(exchange.handle(received(selection(kPrinter), kPrinter, kStart + 18min)).selected);
}

TEST(WalkupExchange, AnnouncementsExpireTenMinutesAfterTheLast)
{
    test::LogCapture quiet;
    const std::pair<Clock::duration, bool> cases[] = {{10min - 1ms, true}, {10min, false}};
    for (const auto& [age, kept] : cases) {
        WalkupExchange exchange = makeExchange();
        exchange.handle(received(announcement(kPrinter), kPrinter));
        EXPECT_EQ(exchange.handle(received(selection(kPrinter), kPrinter, kStart + age)).selected.has_value(),
                  kept);
        EXPECT_EQ(exchange.announcementCount(), 0u);
    }
}

TEST(WalkupExchange, PastTheBoundNewPrintersAreNeitherAnsweredNorRemembered)
{
    test::LogCapture log;
    WalkupExchange exchange = makeExchange();
    const auto printer = [](uint32_t n) { return htonl(ntohl(inet_addr("10.0.1.0")) + n); };
    for (uint32_t n = 0; n < WalkupExchange::kMaxAnnouncements; ++n)
        ASSERT_TRUE(exchange.handle(received(announcement(printer(n)), printer(n), kStart + 1s * n)).reply);

    const uint32_t late = printer(200);
    for (int attempt = 0; attempt < 2; ++attempt) {
        const auto dropped = exchange.handle(received(announcement(late), late, kStart + 2min));
        EXPECT_FALSE(dropped.reply);
        EXPECT_FALSE(dropped.announced);
    }
    EXPECT_EQ(exchange.announcementCount(), WalkupExchange::kMaxAnnouncements);
    EXPECT_EQ(countLines(log.lines(), u"dropped"_s), 1);
    EXPECT_FALSE(exchange.handle(received(selection(late), late, kStart + 2min)).selected);
    // The printers kept are still answered.
    EXPECT_TRUE(exchange.handle(received(announcement(printer(0)), printer(0), kStart + 2min)).reply);

    // Once the first ones expire there is room again.
    EXPECT_TRUE(exchange.handle(received(announcement(late), late, kStart + 10min + 5s)).reply);
}

TEST(WalkupExchange, OnlyTheAnnouncerSelectsAndOthersDoNotEndTheSession)
{
    WalkupExchange exchange = makeExchange();
    exchange.handle(received(announcement(kPrinter), kPrinter));
    const uint32_t other = inet_addr("192.168.1.51");
    test::LogCapture log;
    const WalkupDatagram refused[] = {
        received(selection(kPrinter), other), // forged in the printer's name
        received(selection(other), other),    // never announced
        received(selection(inet_addr("172.16.0.5")), inet_addr("172.16.0.5")),
        received("talvo\x01\x03<ipaddr>c0a80132</ipaddr><type>1</type><user>x</user>", kPrinter),
    };
    for (const WalkupDatagram& d : refused) {
        const auto actions = exchange.handle(d);
        EXPECT_FALSE(actions.selected || actions.reply || actions.announced) << d.bytes.toStdString();
    }
    EXPECT_TRUE(
        log.lines().contains(u"Received walkup packet type 1, ignored (type 1 only comes from hosts)"_s));
    EXPECT_EQ(exchange.announcementCount(), 1u);

    // The printer's own selection, arriving on the LAN's broadcast address.
    const auto actions = exchange.handle(received(selection(kPrinter), kPrinter, kStart + 1s, kLanBroadcast));
    ASSERT_TRUE(actions.selected);
    EXPECT_EQ(actions.selected->printerAddress, kPrinter);
    EXPECT_EQ(actions.selected->arrivedOn, kLanBroadcast);
    EXPECT_EQ(actions.selected->printer,
              (QVariantMap{{u"in_addr_t"_s, static_cast<qulonglong>(kLanBroadcast)},
                           {u"printerModel"_s, u"M4"_s},
                           {u"macAddr"_s, u"00:80:92:01:02:03"_s},
                           {u"ipAddr"_s, u"192.168.1.50"_s}}));
    EXPECT_FALSE(actions.reply);
    EXPECT_EQ(exchange.announcementCount(), 0u);
    EXPECT_FALSE(exchange.handle(received(selection(kPrinter), kPrinter, kStart + 2s)).selected);
}

TEST(WalkupExchange, MissingModelOrMacIsAnsweredAndReportedWithWhatItGave)
{
    struct Case
    {
        QByteArray rest;
        QStringList keys;
    };
    const Case cases[] = {
        {"<macaddr>m</macaddr>", {u"in_addr_t"_s, u"ipAddr"_s, u"macAddr"_s}},
        {"<model>M</model>", {u"in_addr_t"_s, u"ipAddr"_s, u"printerModel"_s}},
        {"", {u"in_addr_t"_s, u"ipAddr"_s}},
    };
    test::LogCapture quiet;
    for (const Case& c : cases) {
        WalkupExchange exchange = makeExchange();
        EXPECT_TRUE(exchange.handle(received(announcement(kPrinter, c.rest), kPrinter)).reply)
            << c.rest.toStdString();
        const auto actions = exchange.handle(received(selection(kPrinter), kPrinter));
        ASSERT_TRUE(actions.selected) << c.rest.toStdString();
        EXPECT_EQ(actions.selected->printer.keys(), c.keys) << c.rest.toStdString();
    }
}

TEST(WalkupExchange, PrintersOnANetworkThatWentAwayAreForgotten)
{
    WalkupExchange exchange = makeExchange();
    const uint32_t far = inet_addr("10.0.200.1");
    exchange.handle(received(announcement(kPrinter), kPrinter));
    exchange.handle(received(announcement(far), far));
    exchange.setConnectedNetworks({{kHost, inet_addr("255.255.255.0")}});
    EXPECT_EQ(exchange.announcementCount(), 1u);
    test::LogCapture quiet;
    EXPECT_FALSE(exchange.handle(received(selection(far), far)).selected);
    EXPECT_FALSE(exchange.handle(received(announcement(far), far)).reply);
    EXPECT_TRUE(exchange.handle(received(selection(kPrinter), kPrinter)).selected);
}

} // namespace
} // namespace talvo
