#pragma once

// The Talvo broadcast discovery datagrams (UDP port 1200), as pure functions
// over bytes. The engine asks every printer of a network to identify itself
// with a request; each printer answers with a reply.
//
//     auto request = talvo::broadcast::buildRequest(replyAddr, {u"10.0.0.7"_s});
//     if (auto reply = talvo::broadcast::parseReply(datagram))
//         QVariantMap printer = talvo::broadcast::printerFromReply(*reply);
//
// Request: "kvo" 01, total length (4 bytes), 06 2A 00, the reply address (4
// bytes, network order), then one entry per known printer: a 4-byte length
// and the printer's dotted address. Reply: "kvo" 01, total length, then the
// model, the printer's dotted address and its MAC text, each a length byte and
// the text. Integers are big-endian; texts are 8-bit and not terminated.

#include <QByteArray>
#include <QByteArrayView>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <cstdint>
#include <optional>

namespace talvo::broadcast {

inline constexpr uint16_t sorlenDiscoveryUDPPortNum = 1200;
// An Ethernet frame's UDP payload; the request stops adding printers there.
inline constexpr int maxUDPPacketPayload = 1472;

struct Request
{
    QByteArray datagram;
    // The known printers that did not fit (the request lists the others).
    bool exceeded = false;
};

// The request for a target reached through the local address `replyAddr`
// (network order), listing its known printers in order as long as the length
// rule allows: an entry is added while the length so far, plus its text, plus
// one stays within maxUDPPacketPayload.
Request buildRequest(uint32_t replyAddr, const QStringList& knownPrinterAddresses);

// A request read back (for simulated printers and tests).
struct ParsedRequest
{
    uint32_t replyAddr = 0; // network order
    QStringList knownPrinterAddresses;
};
std::optional<ParsedRequest> parseRequest(QByteArrayView datagram);

struct Reply
{
    QString model;
    QString address; // dotted text, as the printer sent it
    QString mac;
};

// The reply's three texts, or nullopt for a malformed reply: too short, wrong
// magic, a length field other than the datagram's size, or a text that runs
// past the end (a length byte of 0x80 or more never fits). Bytes after the
// third text are ignored.
std::optional<Reply> parseReply(QByteArrayView datagram);

// A reply as a printer sends it. Texts longer than 127 bytes are cut.
QByteArray buildReply(const QString& model, const QString& address, const QString& mac);

// The printer dictionary of a reply: model, address text, MAC and "queueType"
// "Raw TCP" (the source address is added by whoever read the datagram).
QVariantMap printerFromReply(const Reply& reply);

} // namespace talvo::broadcast
