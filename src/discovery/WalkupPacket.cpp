#include "discovery/WalkupPacket.h"

#include "discovery/DiscoveryLog.h"
#include "foundation/NetworkAddress.h"

#include <QtEndian>

#include <algorithm>
#include <string>
#include <string_view>

namespace talvo {
namespace {

constexpr int32_t kHostChannel = 3;

bool isBlank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

bool isHexDigit(QChar c)
{
    return (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
}

// The "ipaddr" value: hexadecimal digits, "0x" optional, at most 32 bits
// (leading zeros aside). Network order.
std::optional<uint32_t> addressFromHex(const QString& value)
{
    QStringView digits = QStringView(value).trimmed();
    if (digits.startsWith(u"0x", Qt::CaseInsensitive))
        digits = digits.sliced(2);
    if (digits.isEmpty() || !std::all_of(digits.begin(), digits.end(), isHexDigit))
        return std::nullopt;
    while (digits.size() > 1 && digits.front() == u'0')
        digits = digits.sliced(1);
    if (digits.size() > 8)
        return std::nullopt;
    bool ok = false;
    const uint32_t hostOrder = digits.toUInt(&ok, 16);
    if (!ok)
        return std::nullopt;
    return qToBigEndian(hostOrder);
}

QString describe(const WalkupValues& values)
{
    QString text = QStringLiteral("{");
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        text += QStringLiteral(" %1 = %2;").arg(it.key(), it.value());
    return text + QStringLiteral(" }");
}

std::optional<WalkupPacket> malformed(const QString& reason, const WalkupValues& valuesSoFar)
{
    qCWarning(lcDiscovery, "Received malformed walkup packet: %s\n%s", qUtf8Printable(reason),
              qUtf8Printable(describe(valuesSoFar)));
    return std::nullopt;
}

// ASCII with '?' for every other character: one byte per character.
QByteArray asciiBytes(QStringView text)
{
    QByteArray bytes(text.size(), '?');
    for (qsizetype i = 0; i < text.size(); ++i) {
        if (text[i].unicode() < 0x80)
            bytes[i] = static_cast<char>(text[i].unicode());
    }
    return bytes;
}

} // namespace

QByteArray WalkupPacket::prefix(QStringView vendorWord)
{
    return vendorWord.toUtf8() + '\x01';
}

std::optional<WalkupValues> WalkupPacket::readTaggedValues(QByteArrayView body)
{
    const std::string_view text(body.data(), static_cast<std::size_t>(body.size()));
    std::size_t pos = 0;
    const auto skipBlanks = [&] {
        while (pos < text.size() && isBlank(text[pos]))
            ++pos;
    };
    // Reads up to `stop` or the end, after white space; empty: nothing read.
    const auto readUpTo = [&](std::string_view stop) {
        skipBlanks();
        const std::size_t end = std::min(text.find(stop, pos), text.size());
        const std::string_view read = text.substr(pos, end - pos);
        pos = end;
        return read;
    };
    // Stepping past the end of the text is what makes a body malformed.
    const auto stepOver = [&](std::size_t count) {
        if (count > text.size() - pos)
            return false;
        pos += count;
        return true;
    };
    const auto malformedBody = [] {
        qCWarning(lcDiscovery, "Got malformed Sorlen Walkup packet.");
        return std::nullopt;
    };

    WalkupValues values;
    for (skipBlanks(); pos < text.size(); skipBlanks()) {
        readUpTo("<");
        if (!stepOver(1))
            return malformedBody();
        // A name with no '>' after it would run past the end, and so would a
        // '<' that ends the text.
        if (text.find('>', pos) == std::string_view::npos)
            return malformedBody();
        const std::string_view name = readUpTo(">");
        if (name.empty())
            continue;
        stepOver(1);
        const std::string closing = "</" + std::string(name) + ">";
        const std::string_view value = readUpTo(closing);
        if (value.empty())
            continue;
        values.insert(QString::fromLatin1(name.data(), static_cast<qsizetype>(name.size())),
                      QString::fromLatin1(value.data(), static_cast<qsizetype>(value.size())));
        if (!stepOver(closing.size()))
            return malformedBody();
    }
    return values;
}

std::optional<WalkupPacket> WalkupPacket::fromDatagram(QByteArrayView datagram, uint32_t udpSource,
                                                       uint32_t destination, int interfaceIndex,
                                                       QStringView vendorWord)
{
    const QByteArray expected = prefix(vendorWord);
    if (datagram.size() < expected.size() || datagram.first(expected.size()) != QByteArrayView(expected)) {
        qCDebug(lcDiscovery).noquote()
            << "walkup datagram from" << stringForInetAddr(udpSource) << "without the vendor prefix dropped";
        return std::nullopt;
    }
    WalkupPacket packet;
    QByteArrayView rest = datagram.sliced(expected.size());
    // A single byte after the prefix is body text, not a channel.
    if (rest.size() > 1) {
        packet.channel = static_cast<unsigned char>(rest.front());
        rest = rest.sliced(1);
    }
    packet.dstIpAddr = destination;
    packet.intfIdx = interfaceIndex;

    if (std::any_of(rest.begin(), rest.end(), [](char c) { return static_cast<unsigned char>(c) >= 0x80; }))
        return malformed(QStringLiteral("the body is not ASCII text"), {});
    std::optional<WalkupValues> values = readTaggedValues(rest);
    if (!values)
        return std::nullopt;
    packet.typeDataDict = std::move(*values);

    const std::optional<uint32_t> address = addressFromHex(packet.value(walkupIPAddrKey));
    if (!address) {
        qCWarning(lcDiscovery, "NSGenericException Bad walkup packet IP address tag");
        return std::nullopt;
    }
    packet.srcIpAddr = *address;
    // Kept: a printer behind address translation writes its own address. The
    // line names the packet's address first, then the UDP source.
    if (packet.srcIpAddr != udpSource)
        qCWarning(lcDiscovery, "Walkup packet recieved with source addr %s but packet data source addr %s",
                  qUtf8Printable(stringForInetAddr(packet.srcIpAddr)),
                  qUtf8Printable(stringForInetAddr(udpSource)));

    bool isNumber = false;
    packet.pktWalkupType = packet.value(walkupTypeKey).trimmed().toInt(&isNumber);
    if (!isNumber)
        return malformed(QStringLiteral("the type is not a decimal number"), packet.typeDataDict);
    // Selections are logged as unknown too, and handled all the same.
    if (packet.pktWalkupType != 0 && packet.pktWalkupType != 1)
        qCInfo(lcDiscovery, "Received unknown walkup packet type (%d)", packet.pktWalkupType);
    return packet;
}

WalkupPacket WalkupPacket::type1ReplyTo(const WalkupPacket& announcement, const QString& userName)
{
    WalkupPacket reply;
    reply.channel = kHostChannel;
    reply.pktWalkupType = 1;
    reply.srcIpAddr = announcement.dstIpAddr;
    reply.dstIpAddr = announcement.srcIpAddr;
    reply.typeDataDict = {{QString(walkupUserNameKey), userName},
                          {QString(walkupIPAddrKey), QStringLiteral("08X")},
                          {QString(walkupTypeKey), QStringLiteral("1")}};
    return reply;
}

QByteArray WalkupPacket::packetData(QStringView vendorWord) const
{
    // One pass over the markers: a '%' in the user name stays text.
    const QString body = QStringLiteral("<ipaddr>0x%1</ipaddr><type>%2</type><user>%3</user>")
                             .arg(QString::number(qFromBigEndian(srcIpAddr), 16),
                                  QString::number(pktWalkupType), value(walkupUserNameKey));
    return asciiBytes(vendorWord) + '\x01' + static_cast<char>(channel) + asciiBytes(body);
}

} // namespace talvo
