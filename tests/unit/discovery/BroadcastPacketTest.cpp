#include "discovery/BroadcastPacket.h"

#include <gtest/gtest.h>

#include <QtEndian>

#include <arpa/inet.h>

namespace talvo::broadcast {
namespace {

QByteArray bytes(std::initializer_list<int> values)
{
    QByteArray b;
    for (const int v : values)
        b.append(static_cast<char>(v));
    return b;
}

TEST(DiscoveryRequest, HeaderReplyAddressAndKnownPrintersByteForByte)
{
    const Request r = buildRequest(inet_addr("10.0.0.5"), {QStringLiteral("10.0.0.7")});
    const QByteArray expected =
        bytes({'k', 'v', 'o', 1, 0, 0, 0, 27, 6, 0x2a, 0, 10, 0, 0, 5, 0, 0, 0, 8}) + "10.0.0.7";
    EXPECT_EQ(r.datagram, expected);
    EXPECT_FALSE(r.exceeded);

    const auto parsed = parseRequest(r.datagram);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->replyAddr, inet_addr("10.0.0.5"));
    EXPECT_EQ(parsed->knownPrinterAddresses, QStringList{QStringLiteral("10.0.0.7")});
}

TEST(DiscoveryRequest, KnownPrintersStopAtThePayloadRule)
{
    QStringList known;
    for (int i = 0; i < 200; ++i)
        known << QStringLiteral("10.0.%1.%2").arg(i / 100).arg(100 + i % 100); // 10 or 11 characters
    const Request r = buildRequest(inet_addr("10.0.0.5"), known);
    EXPECT_TRUE(r.exceeded);
    const auto parsed = parseRequest(r.datagram);
    ASSERT_TRUE(parsed);
    const qsizetype listed = parsed->knownPrinterAddresses.size();
    ASSERT_LT(listed, known.size());
    EXPECT_EQ(parsed->knownPrinterAddresses, known.first(listed)); // in order, none skipped
    // The rule counts one byte for each 4-byte length field: the request ends
    // within three bytes past the payload limit, and the next entry would
    // have broken the rule.
    EXPECT_LE(r.datagram.size(), maxUDPPacketPayload + 3);
    EXPECT_GT(r.datagram.size() + known[listed].size() + 1, maxUDPPacketPayload);
}

QByteArray reply(const QByteArray& body, int lengthDelta = 0)
{
    QByteArray r = bytes({'k', 'v', 'o', 1, 0, 0, 0, 0}) + body;
    const auto length = static_cast<uint32_t>(r.size() + lengthDelta);
    qToBigEndian(length, r.data() + 4);
    return r;
}

TEST(DiscoveryReply, ParsedOnlyWhenEveryBoundHolds)
{
    const QByteArray good = bytes({10}) + "Model 4000" + bytes({9}) + "10.0.0.20" + bytes({6}) + "00:80:";
    const struct
    {
        const char* name;
        QByteArray datagram;
        std::optional<Reply> expected;
    } cases[] = {
        {"good", reply(good),
         Reply{QStringLiteral("Model 4000"), QStringLiteral("10.0.0.20"), QStringLiteral("00:80:")}},
        {"trailing bytes ignored", reply(good + "extra"),
         Reply{QStringLiteral("Model 4000"), QStringLiteral("10.0.0.20"), QStringLiteral("00:80:")}},
        {"three empty texts", reply(bytes({0, 0, 0})), Reply{}},
        {"length field one less", reply(good, -1), std::nullopt},
        {"length field one more", reply(good, +1), std::nullopt},
        {"model length 0x80", reply(bytes({0x80}) + QByteArray(130, 'x')), std::nullopt},
        {"MAC runs past the end", reply(bytes({1, 'M', 1, 'A', 5}) + "abcd"), std::nullopt},
        {"MAC length byte missing", reply(bytes({1, 'M', 1, 'A'})), std::nullopt},
        {"wrong magic", QByteArray("kvo\x02", 4) + reply(good).mid(4), std::nullopt},
        {"header only", reply(QByteArray()), std::nullopt},
        {"shorter than a header", QByteArray("kvo\x01\0\0\0", 7), std::nullopt},
        {"empty", QByteArray(), std::nullopt},
    };
    for (const auto& c : cases) {
        const auto parsed = parseReply(c.datagram);
        ASSERT_EQ(parsed.has_value(), c.expected.has_value()) << c.name;
        if (parsed) {
            EXPECT_EQ(parsed->model, c.expected->model) << c.name;
            EXPECT_EQ(parsed->address, c.expected->address) << c.name;
            EXPECT_EQ(parsed->mac, c.expected->mac) << c.name;
        }
    }
}

TEST(DiscoveryReply, EveryCutOfAGoodReplyIsRejected)
{
    const QByteArray good = buildReply(QStringLiteral("Model 8560"), QStringLiteral("10.0.0.21"),
                                       QStringLiteral("00:80:92:aa:bb:cc"));
    ASSERT_TRUE(parseReply(good));
    for (qsizetype n = 0; n < good.size(); ++n)
        EXPECT_FALSE(parseReply(good.first(n))) << n << " bytes";
}

} // namespace
} // namespace talvo::broadcast
