// Walkup datagrams come from anyone on the network. The decoder must never
// read past the datagram, and an announcement it accepts must get a reply
// that reads back as the host's answer to it.
#include "discovery/WalkupPacket.h"

#include <QLoggingCategory>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Every rejected datagram is logged: silenced, so the fuzzer runs at speed.
    QLoggingCategory::setFilterRules(QStringLiteral("talvo.*=false"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using talvo::WalkupPacket;
    const QByteArrayView bytes(reinterpret_cast<const char*>(data), static_cast<qsizetype>(size));
    WalkupPacket::readTaggedValues(bytes);
    const auto packet = WalkupPacket::fromDatagram(bytes, 0x0100007f, 0x0a4d000a, 1, u"talvo");
    if (!packet || packet->pktWalkupType != 0)
        return 0;
    const QString user = QStringLiteral("Jane Doe");
    const WalkupPacket reply = WalkupPacket::type1ReplyTo(*packet, user);
    const auto back =
        WalkupPacket::fromDatagram(reply.packetData(u"talvo"), reply.srcIpAddr, reply.dstIpAddr, 0, u"talvo");
    if (!back || back->pktWalkupType != 1 || back->channel != 3 || back->srcIpAddr != packet->dstIpAddr ||
        back->value(talvo::walkupUserNameKey) != user)
        std::abort();
    return 0;
}
