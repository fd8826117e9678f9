#pragma once

// The Talvo walkup datagrams (UDP port 1204), as pure functions over bytes. A
// printer announces itself with type 0, the host answers with type 1 carrying
// its user name, and the printer sends type 2 when that name is picked on its
// front panel.
//
//     using talvo::WalkupPacket;
//     auto packet = WalkupPacket::fromDatagram(bytes, udpSource, arrivedOn, ifIndex, u"talvo");
//     if (packet && packet->pktWalkupType == 0) {
//         QString model = packet->value(talvo::walkupModelKey);
//         QByteArray reply = WalkupPacket::type1ReplyTo(*packet, u"Jane Doe"_s).packetData(u"talvo");
//         send(reply, packet->srcIpAddr);   // the reply's dstIpAddr, port 1204
//     }
//
// Wire format: the vendor word (lower case), the byte 01, a channel byte (03
// from hosts), then tagged values written "<tag>value</tag>" with no
// separators and no terminating zero. Every packet carries "ipaddr" (the
// sender's IPv4 address as one hexadecimal number, first octet most
// significant, "0x" optional) and "type" (decimal); type 0 usually also
// carries "model" and "macaddr", type 1 "user", type 2 "user" and "status".
// Those others are optional: printers that leave one out are still served.

#include "foundation/DictionaryKeys.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QMap>
#include <QString>
#include <QStringView>

#include <cstdint>
#include <optional>

namespace talvo {

inline constexpr uint16_t sorlenWalkupUDPPortNum = 1204;

// Tag name to value, as read from a packet's body.
using WalkupValues = QMap<QString, QString>;

struct WalkupPacket
{
    int32_t channel = 0;       // the channel byte (3 in packets hosts build)
    uint32_t srcIpAddr = 0;    // network order: the sender's address from the "ipaddr" tag
    uint32_t dstIpAddr = 0;    // network order: where a received packet arrived, or where a reply goes
    int32_t intfIdx = 0;       // the interface a received packet arrived on
    int32_t pktWalkupType = 0; // 0 announcement, 1 host's answer, 2 selection
    WalkupValues typeDataDict;

    QString value(Key tag) const { return typeDataDict.value(tag); }

    // A received datagram, or nullopt when it is malformed: no vendor prefix,
    // a body that is not well-formed tagged ASCII text, an address tag that
    // is missing or not one 32-bit hexadecimal number, or a type that is
    // missing or not a decimal number. Each reason is logged. Any other value
    // may be missing: value() is then empty. A packet whose address tag
    // differs from the UDP source is kept (and logged), as is a type other
    // than 0 and 1 (logged as unknown).
    static std::optional<WalkupPacket> fromDatagram(QByteArrayView datagram, uint32_t udpSource,
                                                    uint32_t destination, int interfaceIndex,
                                                    QStringView vendorWord);

    // The host's answer to an announcement: channel 3, type 1, from the
    // address the announcement arrived on, to the printer's address from its
    // text. Its "ipaddr" value is the literal "08X": packetData() writes the
    // address from srcIpAddr instead, as printers expect.
    static WalkupPacket type1ReplyTo(const WalkupPacket& announcement, const QString& userName);

    // The datagram of a host's answer: vendor word, 01, the channel byte,
    // "<ipaddr>0x%x</ipaddr><type>%1d</type><user>%@</user>" from srcIpAddr,
    // pktWalkupType and "user". Characters outside ASCII are sent as '?', so
    // the byte count is the text's length.
    QByteArray packetData(QStringView vendorWord) const;

    // The datagram's first bytes: the vendor word in UTF-8 and the byte 01.
    static QByteArray prefix(QStringView vendorWord);

    // The tagged values of a body. Each item is read as the text up to '<',
    // a tag name up to '>' and a value up to the tag's closing tag, white space
    // before each skipped; a later duplicate wins. An empty value is not
    // stored and its closing tag is then read as a tag of its own, which
    // spoils any text after it. nullopt (logged "Got malformed Sorlen Walkup
    // packet.") when non-blank text follows the last value, a '<' has no '>'
    // after it, or a value has no closing tag.
    static std::optional<WalkupValues> readTaggedValues(QByteArrayView body);
};

} // namespace talvo
