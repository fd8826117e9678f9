#include "discovery/BroadcastPacket.h"

#include "foundation/DictionaryKeys.h"

#include <QtEndian>

#include <cstring>

namespace talvo::broadcast {
namespace {

constexpr char kMagic[] = {'k', 'v', 'o', '\x01'};
constexpr char kRequestFixed[] = {'\x06', '\x2a', '\x00'};
constexpr qsizetype kLengthOffset = 4;
constexpr qsizetype kRequestHeaderSize = 15; // magic, length, fixed bytes, reply address
constexpr qsizetype kReplyHeaderSize = 8;    // magic, length
constexpr qsizetype kMaxTextLength = 127;    // length bytes are signed

void appendBigEndian(QByteArray& out, uint32_t value)
{
    char bytes[4];
    qToBigEndian(value, bytes);
    out.append(bytes, 4);
}

uint32_t readBigEndian(QByteArrayView in, qsizetype at)
{
    return qFromBigEndian<uint32_t>(in.data() + at);
}

void writeLength(QByteArray& datagram)
{
    qToBigEndian(static_cast<uint32_t>(datagram.size()), datagram.data() + kLengthOffset);
}

bool startsWithMagic(QByteArrayView datagram)
{
    return datagram.size() >= kReplyHeaderSize && datagram.first(4) == QByteArrayView(kMagic, 4);
}

// One length-prefixed text at `pos`, advancing it; nullopt when the text would
// run past the end of the datagram.
std::optional<QString> readLengthString(QByteArrayView datagram, qsizetype& pos)
{
    if (pos >= datagram.size())
        return std::nullopt;
    const auto length = static_cast<signed char>(datagram[pos]);
    if (length < 0 || length > datagram.size() - pos - 1)
        return std::nullopt;
    const QString text = QString::fromLatin1(datagram.sliced(pos + 1, length));
    pos += 1 + length;
    return text;
}

} // namespace

Request buildRequest(uint32_t replyAddr, const QStringList& knownPrinterAddresses)
{
    Request request;
    QByteArray& out = request.datagram;
    out.append(kMagic, 4);
    out.append("XXXX", 4); // the length, written last
    out.append(kRequestFixed, 3);
    // The reply address is stored in network order and sent as it is stored.
    out.append(reinterpret_cast<const char*>(&replyAddr), 4);
    for (const QString& address : knownPrinterAddresses) {
        const QByteArray text = address.toLatin1();
        // The limit counts one byte for the 4-byte length field: the printers'
        // firmware was built against exactly this rule.
        if (out.size() + text.size() + 1 > maxUDPPacketPayload) {
            request.exceeded = true;
            break;
        }
        appendBigEndian(out, static_cast<uint32_t>(text.size()));
        out.append(text);
    }
    writeLength(out);
    return request;
}

std::optional<ParsedRequest> parseRequest(QByteArrayView datagram)
{
    if (datagram.size() < kRequestHeaderSize || !startsWithMagic(datagram) ||
        readBigEndian(datagram, kLengthOffset) != static_cast<uint32_t>(datagram.size()) ||
        datagram.sliced(8, 3) != QByteArrayView(kRequestFixed, 3))
        return std::nullopt;
    ParsedRequest request;
    std::memcpy(&request.replyAddr, datagram.data() + 11, 4);
    for (qsizetype pos = kRequestHeaderSize; pos < datagram.size();) {
        if (datagram.size() - pos < 4)
            return std::nullopt;
        const uint32_t length = readBigEndian(datagram, pos);
        if (length > static_cast<uint32_t>(datagram.size() - pos - 4))
            return std::nullopt;
        request.knownPrinterAddresses << QString::fromLatin1(datagram.sliced(pos + 4, length));
        pos += 4 + static_cast<qsizetype>(length);
    }
    return request;
}

std::optional<Reply> parseReply(QByteArrayView datagram)
{
    if (!startsWithMagic(datagram) ||
        readBigEndian(datagram, kLengthOffset) != static_cast<uint32_t>(datagram.size()))
        return std::nullopt;
    qsizetype pos = kReplyHeaderSize;
    auto model = readLengthString(datagram, pos);
    auto address = model ? readLengthString(datagram, pos) : std::nullopt;
    auto mac = address ? readLengthString(datagram, pos) : std::nullopt;
    if (!mac)
        return std::nullopt;
    return Reply{*model, *address, *mac};
}

QByteArray buildReply(const QString& model, const QString& address, const QString& mac)
{
    QByteArray out;
    out.append(kMagic, 4);
    out.append("XXXX", 4);
    for (const QString& text : {model, address, mac}) {
        const QByteArray bytes = text.toLatin1().left(kMaxTextLength);
        out.append(static_cast<char>(bytes.size()));
        out.append(bytes);
    }
    writeLength(out);
    return out;
}

QVariantMap printerFromReply(const Reply& reply)
{
    return {{kPrinterModelStrKey, reply.model},
            {kIPAddrStrKey, reply.address},
            {kMacAddrStrKey, reply.mac},
            {kQueueConnectionTypeStrKey, QString(kQueueTypeRawTCP)}};
}

} // namespace talvo::broadcast
