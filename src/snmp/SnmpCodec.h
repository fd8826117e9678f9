#pragma once

// SNMP messages as values: a GET request turned into datagram bytes, and any
// datagram turned back into a message (or refused). net-snmp does the BER in
// both directions; nothing here keeps a session or touches the network, so
// every function is safe on any bytes and from any thread.
//
//     using namespace talvo::snmp;
//     const QByteArray datagram = encodeGetRequest({u"public"_s, 42, {u".1.3.6.1.2.1.1.5.0"_s}});
//     if (const std::optional<Message> reply = decodeMessage(received))
//         for (const Varbind& v : reply->varbinds)
//             if (v.converted) use(v.oid, v.value);

#include <QByteArray>
#include <QByteArrayView>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

struct variable_list;

namespace talvo {

// OID text in leading-dot numeric form (".1.3.6.1.2.1.1.5.0") to result key.
using OidMap = QMap<QString, QString>;

} // namespace talvo

namespace talvo::snmp {

// The version field of an SNMPv1 message (SNMPv2c carries 1).
inline constexpr long kVersion1 = 0;

// The PDU tags net-snmp parses; anything else is refused as malformed.
enum class PduType : int {
    GetRequest = 0xA0,
    GetNextRequest = 0xA1,
    GetResponse = 0xA2,
    SetRequest = 0xA3,
    Trap = 0xA4,
    GetBulkRequest = 0xA5,
    InformRequest = 0xA6,
    TrapV2 = 0xA7,
    Report = 0xA8,
};

// The tag of a varbind's value as it travels. Other tags may arrive too: they
// are kept as received and never converted.
enum class ValueType : uint8_t {
    Boolean = 0x01,
    Integer = 0x02,
    BitString = 0x03,
    OctetString = 0x04,
    Null = 0x05,
    ObjectId = 0x06,
    IpAddress = 0x40,
    Counter32 = 0x41,
    Gauge32 = 0x42,
    TimeTicks = 0x43,
    Opaque = 0x44,
    Counter64 = 0x46,
};

struct GetRequest
{
    QString community; // sent as Latin-1 bytes
    int32_t requestId = 0;
    QStringList oids; // ".1.3.6..." form
};

struct Varbind
{
    QString oid; // leading-dot form
    ValueType type = ValueType::Null;
    // Decoded: the converted value (invalid for NULL and for every type the
    // system does not convert). To encode: an integer for the integer types,
    // a QString (sent as UTF-8) or QByteArray (sent as is) for the string
    // types, "1.3.6..." text for an OID, four bytes or dotted text for an
    // IpAddress.
    QVariant value;
    bool converted = true;

    bool operator==(const Varbind&) const = default;
};

struct Message
{
    long version = kVersion1;
    QString community; // the bytes as Latin-1, so any community survives
    PduType pduType = PduType::GetResponse;
    int32_t requestId = 0;
    long errorStatus = 0;
    long errorIndex = 0;
    std::vector<Varbind> varbinds;

    bool operator==(const Message&) const = default;
};

// An SNMPv1 GET with a NULL value for each OID; empty when an OID is not
// numeric text or the library cannot build the message.
QByteArray encodeGetRequest(const GetRequest& request);

// Any SNMPv1 or SNMPv2c message; nullopt for anything else and for every
// malformed or truncated datagram.
std::optional<Message> decodeMessage(QByteArrayView datagram);

// The inverse of decodeMessage, for whatever message type `message` names
// (tests, the fuzzer's round trip and test agents); empty when a field or
// value cannot be encoded as given.
QByteArray encodeResponse(const Message& message);

// The value of one variable as the system uses it; nullopt for the types it
// does not convert (counters, gauges, time ticks, addresses, opaque, ...).
// Octet strings are UTF-8 text when the bytes are valid UTF-8, else one
// character per byte: printers send whatever encoding their firmware uses.
std::optional<QVariant> valueFromVariable(const variable_list& variable);

// ".1.3.6.1.2.1.1.5.0": a dot before every sub-identifier.
QString textForOid(const unsigned long* oid, std::size_t count);

// "1.3.6.1.4.1.58101.1": the value of an OID-valued reply, no leading dot;
// the length is in bytes, as the library gives it.
QString oidToString(const unsigned long* oid, std::size_t lengthInBytes);

} // namespace talvo::snmp
