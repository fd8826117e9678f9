// The walkup codec: the host's reply byte for byte, what a received datagram
// decodes to, and every way a datagram is rejected.

#include "discovery/WalkupPacket.h"
#include "LogCapture.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

const uint32_t kPrinter = inet_addr("192.168.1.50");
const uint32_t kHost = inet_addr("192.168.1.10");
constexpr char kAnnouncement[] =
    "<ipaddr>0xc0a80132</ipaddr><type>0</type><model>Model 4000</model><macaddr>00:80:92:01:02:03</macaddr>";
constexpr char kSelection[] = "<ipaddr>c0a80132</ipaddr><type>2</type><user>jane</user><status>1</status>";
// The host's reply of 192.168.1.10 for user jane, written out by hand.
const QByteArray kReply =
    QByteArray::fromHex("74616C766F0103") + "<ipaddr>0xc0a8010a</ipaddr><type>1</type><user>jane</user>";

QByteArray datagram(const QByteArray& body)
{
    return "talvo\x01\x03" + body;
}

std::optional<WalkupPacket> parse(const QByteArray& bytes, uint32_t udpSource = kPrinter)
{
    return WalkupPacket::fromDatagram(bytes, udpSource, kHost, 2, u"talvo");
}

TEST(WalkupReply, IsAddressedToTheAnnouncer)
{
    const auto announcement = parse(datagram(kAnnouncement));
    ASSERT_TRUE(announcement);
    const WalkupPacket reply = WalkupPacket::type1ReplyTo(*announcement, u"jane"_s);
    EXPECT_EQ(reply.packetData(u"talvo"), kReply);
    EXPECT_EQ(reply.dstIpAddr, kPrinter);
    EXPECT_EQ(reply.srcIpAddr, kHost);
    EXPECT_EQ(reply.value(walkupIPAddrKey), u"08X"_s); // never sent: the address comes from srcIpAddr
}

TEST(WalkupReply, AddressHasNoLeadingZerosAndNamesStayOneBytePerCharacter)
{
    WalkupPacket announcement = *parse(datagram(kAnnouncement));
    announcement.dstIpAddr = inet_addr("10.1.2.3");
    const QByteArray bytes = WalkupPacket::type1ReplyTo(announcement, u"José 100%1"_s).packetData(u"talvo");
    EXPECT_EQ(bytes, "talvo\x01\x03<ipaddr>0xa010203</ipaddr><type>1</type><user>Jos? 100%1</user>");
}

TEST(WalkupPacketParse, AnnouncementFieldsComeFromItsTextAndWhereItArrived)
{
    test::LogCapture log;
    const auto p = parse(datagram(kAnnouncement));
    ASSERT_TRUE(p);
    EXPECT_EQ(p->channel, 3);
    EXPECT_EQ(p->srcIpAddr, kPrinter);
    EXPECT_EQ(p->dstIpAddr, kHost);
    EXPECT_EQ(p->intfIdx, 2);
    EXPECT_EQ(p->pktWalkupType, 0);
    EXPECT_EQ(p->value(walkupModelKey), u"Model 4000"_s);
    EXPECT_EQ(p->value(walkupMacAddrKey), u"00:80:92:01:02:03"_s);
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().join(u'\n').toStdString();
}

TEST(WalkupPacketParse, AcceptedSpellings)
{
    struct Case
    {
        const char* name;
        QByteArray datagram;
        QString model;
    };
    const QByteArray rest = "<type>0</type><model>M</model><macaddr>m</macaddr>";
    const Case cases[] = {
        {"upper-case hex", datagram("<ipaddr>0XC0A80132</ipaddr>" + rest), u"M"_s},
        {"no 0x", datagram("<ipaddr>c0a80132</ipaddr>" + rest), u"M"_s},
        {"leading zeros", datagram("<ipaddr>0x0000c0a80132</ipaddr>" + rest), u"M"_s},
        {"blanks around items and values",
         datagram(" \n<ipaddr> 0xc0a80132 </ipaddr>\t<type>0</type><model>  M x </model><macaddr>m</macaddr> "
                  "\r\n"),
         u"M x "_s},
        {"later duplicate wins", datagram("<model>old</model><ipaddr>c0a80132</ipaddr>" + rest), u"M"_s},
        {"empty tag name skipped", datagram("<>x<ipaddr>c0a80132</ipaddr>" + rest), u"M"_s},
        {"value holding tags",
         datagram("<ipaddr>c0a80132</ipaddr><type>0</type><model>a<b>c</b></model><macaddr>m</macaddr>"),
         u"a<b>c</b>"_s},
    };
    for (const Case& c : cases) {
        const auto p = parse(c.datagram);
        ASSERT_TRUE(p) << c.name;
        EXPECT_EQ(p->srcIpAddr, kPrinter) << c.name;
        EXPECT_EQ(p->value(walkupModelKey), c.model) << c.name;
    }
}

TEST(WalkupPacketParse, SelectionsUnknownTypesAndForeignAddressesAreKeptAndLogged)
{
    test::LogCapture log;
    const auto selection = parse(datagram(kSelection));
    ASSERT_TRUE(selection);
    EXPECT_EQ(selection->pktWalkupType, 2);
    EXPECT_EQ(selection->value(walkupUserNameKey), u"jane"_s);
    EXPECT_EQ(selection->value(walkupStatusKey), u"1"_s);
    ASSERT_TRUE(parse(datagram("<ipaddr>c0a80132</ipaddr><type>7</type>")));
    const auto translated = parse(datagram(kAnnouncement), inet_addr("192.168.1.99"));
    ASSERT_TRUE(translated);
    EXPECT_EQ(translated->srcIpAddr, kPrinter); // the text's address, not the UDP source
    EXPECT_EQ(log.lines(), (QStringList{u"Received unknown walkup packet type (2)"_s,
                                        u"Received unknown walkup packet type (7)"_s,
                                        u"Walkup packet recieved with source addr 192.168.1.50 but packet "
                                        u"data source addr 192.168.1.99"_s}));
}

TEST(WalkupPacketParse, OnlyAddressAndTypeAreRequired)
{
    struct Case
    {
        const char* name;
        QByteArray body;
        int32_t type;
        QString model;
    };
    const Case cases[] = {
        {"announcement without model", "<ipaddr>c0a80132</ipaddr><type>0</type><macaddr>m</macaddr>", 0, {}},
        {"announcement without macaddr", "<ipaddr>c0a80132</ipaddr><type>0</type><model>M</model>", 0,
         u"M"_s},
        {"bare announcement", "<ipaddr>c0a80132</ipaddr><type>0</type>", 0, {}},
        {"bare host answer", "<ipaddr>c0a80132</ipaddr><type>1</type>", 1, {}},
        {"selection without status", "<ipaddr>c0a80132</ipaddr><type>2</type><user>u</user>", 2, {}},
    };
    test::LogCapture quiet;
    for (const Case& c : cases) {
        const auto p = parse(datagram(c.body));
        ASSERT_TRUE(p) << c.name;
        EXPECT_EQ(p->srcIpAddr, kPrinter) << c.name;
        EXPECT_EQ(p->pktWalkupType, c.type) << c.name;
        EXPECT_EQ(p->value(walkupModelKey), c.model) << c.name;
    }
}

TEST(WalkupPacketParse, MalformedDatagramsGiveNoPacketAndSayWhy)
{
    struct Case
    {
        const char* name;
        QByteArray datagram;
        QString logged;
    };
    const QByteArray typed = "<ipaddr>c0a80132</ipaddr><type>0</type>";
    const QString body = u"Got malformed Sorlen Walkup packet."_s;
    const QString address = u"NSGenericException Bad walkup packet IP address tag"_s;
    const QString fields = u"Received malformed walkup packet: "_s;
    const Case cases[] = {
        {"other vendor", "kvo\x01\x03" + QByteArray(kAnnouncement), u"without the vendor prefix"_s},
        {"vendor in capitals", "TALVO\x01\x03" + QByteArray(kAnnouncement), u"without the vendor prefix"_s},
        {"shorter than the prefix", "talvo", u"without the vendor prefix"_s},
        {"one byte after the prefix is body text", "talvo\x01x", body},
        {"text after the last value", datagram(kAnnouncement + QByteArray("x")), body},
        {"a '<' ends the text", datagram(kAnnouncement + QByteArray("<")), body},
        {"tag name never closed", datagram(kAnnouncement + QByteArray("<user")), body},
        {"value never closed", datagram(typed + "<model>M</model><macaddr>m"), body},
        {"empty value spoils what follows", datagram(typed + "<model></model><macaddr>m</macaddr>"), body},
        {"no address", datagram("<type>0</type><model>M</model><macaddr>m</macaddr>"), address},
        {"address not hex", datagram("<ipaddr>0xc0a8013g</ipaddr><type>1</type><user>u</user>"), address},
        {"address over 32 bits", datagram("<ipaddr>0x1c0a80132</ipaddr><type>1</type><user>u</user>"),
         address},
        {"address only 0x", datagram("<ipaddr>0x</ipaddr><type>1</type><user>u</user>"), address},
        {"no type", datagram("<ipaddr>c0a80132</ipaddr><user>u</user>"), fields + u"the type"_s},
        {"type not a number", datagram("<ipaddr>c0a80132</ipaddr><type>one</type><user>u</user>"),
         fields + u"the type"_s},
        {"body not ASCII", datagram(typed + "<model>Mod\xc3\xa9le</model><macaddr>m</macaddr>"),
         fields + u"the body is not ASCII"_s},
    };
    for (const Case& c : cases) {
        test::LogCapture log;
        EXPECT_FALSE(parse(c.datagram)) << c.name;
        EXPECT_TRUE(log.lines().join(u'\n').contains(c.logged))
            << c.name << ": " << log.lines().join(u'\n').toStdString();
    } // Address text of any other form in the tag is refused too.
    for (const QByteArray claimed : {"10.x.y.z", "10.0.0.256", "tcp:h:161", "-v3", "010.0.0.1"}) {
        test::LogCapture log;
        EXPECT_FALSE(parse(datagram("<ipaddr>" + claimed + "</ipaddr><type>2</type><user>u</user>")))
            << claimed.toStdString();
        EXPECT_TRUE(log.lines().join(u'\n').contains(address)) << claimed.toStdString();
    }
}

// Values being optional, a packet cut after a whole value still decodes; a cut
// inside a value never does, so no truncated value is ever taken for the real one.
TEST(WalkupPacketParse, ACutPacketKeepsOnlyWholeValues)
{
    test::LogCapture quiet;
    for (const QByteArray& good : {datagram(kAnnouncement), datagram(kSelection), kReply}) {
        const auto whole = parse(good);
        ASSERT_TRUE(whole) << good.toStdString();
        int accepted = 0;
        for (qsizetype n = 0; n < good.size(); ++n) {
            const auto cut = parse(good.first(n));
            if (!cut)
                continue;
            ++accepted;
            EXPECT_EQ(cut->srcIpAddr, whole->srcIpAddr) << good.first(n).toStdString();
            EXPECT_EQ(cut->pktWalkupType, whole->pktWalkupType) << good.first(n).toStdString();
            for (auto it = cut->typeDataDict.cbegin(); it != cut->typeDataDict.cend(); ++it)
                EXPECT_EQ(it.value(), whole->typeDataDict.value(it.key())) << good.first(n).toStdString();
        }
        EXPECT_GT(accepted, 0) << "a cut right after </type> is a whole packet: " << good.toStdString();
    }
}

TEST(WalkupTaggedValues, ReadAsTheScannerReadsThem)
{
    struct Case
    {
        QByteArray body;
        std::optional<WalkupValues> values;
    };
    test::LogCapture quiet;
    const Case cases[] = {
        {"", WalkupValues{}},
        {" \t\r\n", WalkupValues{}},
        {"<a>1</a><b> 2 </b>", WalkupValues{{u"a"_s, u"1"_s}, {u"b"_s, u"2 "_s}}},
        {"junk<a>1</a>", WalkupValues{{u"a"_s, u"1"_s}}},
        {"<a>", WalkupValues{}},     // a tag whose value is still to come
        {"<a></a>", WalkupValues{}}, // its closing tag read as a tag "/a" with no value
        {"<a>1</a> x", std::nullopt},
        {"<a>1</a><", std::nullopt},
        {"<a>1</b>", std::nullopt},
    };
    for (const Case& c : cases)
        EXPECT_EQ(WalkupPacket::readTaggedValues(c.body), c.values) << c.body.toStdString();
}

} // namespace
} // namespace talvo
