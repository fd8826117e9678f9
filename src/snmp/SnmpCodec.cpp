#include "snmp/SnmpCodec.h"

#include "snmp/SnmpLibrary.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <QStringDecoder>

#include <arpa/inet.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <mutex>
#include <type_traits>

static_assert(std::is_same_v<oid, unsigned long>, "the OID helpers take net-snmp's sub-identifier type");

namespace talvo::snmp {
namespace {

// Type codes of the values the system converts.
enum AsnType : int {
    kBoolean = 1,
    kInteger = 2,
    kBitString = 3,
    kOctetString = 4,
    kNull = 5,
    kObjectId = 6,
    kCounter64 = 0x46,
    kFloat = 0x48,
    kDouble = 0x49,
};

// Room for a typical request or reply; net-snmp's reverse encoder grows the
// buffer itself when a message needs more.
constexpr std::size_t kInitialBuildBuffer = 1500;
// A sub-identifier is an unsigned 32-bit number on the wire.
constexpr qulonglong kMaxSubIdentifier = 0xffffffffu;

struct PduDeleter
{
    void operator()(netsnmp_pdu* pdu) const { snmp_free_pdu(pdu); }
};
using PduPointer = std::unique_ptr<netsnmp_pdu, PduDeleter>;

struct MallocDeleter
{
    void operator()(u_char* bytes) const { std::free(bytes); }
};

QString textFromOctets(const u_char* bytes, std::size_t length)
{
    const QByteArrayView view(reinterpret_cast<const char*>(bytes), static_cast<qsizetype>(length));
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8.decode(view);
    if (utf8.hasError())
        text = QString::fromLatin1(view);
    return text;
}

// Numeric OID text, with or without the leading dot. Names are never looked
// up in MIB files: the system speaks numbers only, and text that is not a
// plain number list is refused instead of being guessed at.
std::optional<std::vector<oid>> parseOid(QStringView text)
{
    if (text.startsWith(u'.'))
        text = text.mid(1);
    if (text.isEmpty())
        return std::nullopt;
    std::vector<oid> parsed;
    for (const QStringView part : text.split(u'.')) {
        if (part.isEmpty() || parsed.size() == MAX_OID_LEN)
            return std::nullopt;
        qulonglong value = 0;
        for (const QChar c : part) {
            if (c < u'0' || c > u'9')
                return std::nullopt;
            value = value * 10 + static_cast<qulonglong>(c.unicode() - u'0');
            if (value > kMaxSubIdentifier)
                return std::nullopt;
        }
        parsed.push_back(static_cast<oid>(value));
    }
    // BER writes the first two sub-identifiers as one byte (40 * first +
    // second): an OID shorter than two, or whose first two do not fit that
    // rule, would be read back as another OID, and is refused.
    if (parsed.size() < 2 || parsed[0] > 2 || (parsed[0] < 2 && parsed[1] >= 40))
        return std::nullopt;
    return parsed;
}

// Encodes a PDU with the community given. The PDU carries the community
// itself: net-snmp takes the session's only for some message types. The
// reverse encoder leaves the message at the end of its buffer, the forward one
// (chosen when a configuration file turns reverse encoding off) at the start.
QByteArray build(netsnmp_pdu& pdu, const QByteArray& community)
{
    netsnmp_session session;
    snmp_sess_init(&session);
    session.version = pdu.version;
    if (!community.isEmpty()) {
        pdu.community = static_cast<u_char*>(std::malloc(static_cast<std::size_t>(community.size())));
        if (!pdu.community)
            return {};
        std::memcpy(pdu.community, community.constData(), static_cast<std::size_t>(community.size()));
        pdu.community_len = static_cast<std::size_t>(community.size());
    }

    size_t capacity = kInitialBuildBuffer;
    size_t offset = 0;
    u_char* buffer = static_cast<u_char*>(std::malloc(capacity));
    if (!buffer)
        return {};
    const int status = snmp_build(&buffer, &capacity, &offset, &session, &pdu);
    const std::unique_ptr<u_char, MallocDeleter> owner(buffer); // snmp_build may have moved it
    if (status != 0)
        return {};
    if (pdu.flags & UCD_MSG_FLAG_FORWARD_ENCODE)
        return QByteArray(reinterpret_cast<const char*>(buffer), static_cast<qsizetype>(capacity));
    return QByteArray(reinterpret_cast<const char*>(buffer + capacity - offset),
                      static_cast<qsizetype>(offset));
}

// Adds one varbind in the form encodeResponse documents.
bool addVariable(netsnmp_pdu& pdu, const Varbind& varbind)
{
    const std::optional<std::vector<oid>> name = parseOid(varbind.oid);
    if (!name)
        return false;
    const auto add = [&](const void* value, std::size_t length) {
        return snmp_pdu_add_variable(&pdu, name->data(), name->size(), static_cast<u_char>(varbind.type),
                                     value, length) != nullptr;
    };
    const QVariant& value = varbind.value;
    switch (varbind.type) {
    case ValueType::Boolean:
    case ValueType::Integer: {
        const long number = static_cast<long>(value.toLongLong());
        return add(&number, sizeof number);
    }
    case ValueType::Counter32:
    case ValueType::Gauge32:
    case ValueType::TimeTicks: {
        const u_long number = static_cast<u_long>(value.toULongLong() & 0xffffffffu);
        return add(&number, sizeof number);
    }
    case ValueType::Counter64: {
        const qulonglong number = value.toULongLong();
        counter64 big{};
        big.high = static_cast<u_long>(number >> 32);
        big.low = static_cast<u_long>(number & 0xffffffffu);
        return add(&big, sizeof big);
    }
    case ValueType::Null:
        return add(nullptr, 0);
    case ValueType::ObjectId: {
        const std::optional<std::vector<oid>> target = parseOid(value.toString());
        return target && add(target->data(), target->size() * sizeof(oid));
    }
    case ValueType::IpAddress: {
        QByteArray address = value.toByteArray();
        if (value.typeId() != QMetaType::QByteArray) {
            in_addr parsed{};
            if (::inet_pton(AF_INET, value.toString().toLatin1().constData(), &parsed) != 1)
                parsed.s_addr = 0;
            address = QByteArray(reinterpret_cast<const char*>(&parsed), sizeof parsed);
        }
        if (address.size() != 4)
            address = QByteArray(4, '\0');
        return add(address.constData(), 4);
    }
    default: {
        // The string types, and any other tag with the bytes the caller gave.
        const QByteArray bytes =
            value.typeId() == QMetaType::QByteArray ? value.toByteArray() : value.toString().toUtf8();
        return add(bytes.constData(), static_cast<std::size_t>(bytes.size()));
    }
    }
}

bool isKnownPduType(int command)
{
    switch (static_cast<PduType>(command)) {
    case PduType::GetRequest:
    case PduType::GetNextRequest:
    case PduType::GetResponse:
    case PduType::SetRequest:
    case PduType::Trap:
    case PduType::GetBulkRequest:
    case PduType::InformRequest:
    case PduType::TrapV2:
    case PduType::Report:
        return true;
    }
    return false;
}

bool fitsIn32Bits(long value)
{
    return value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max();
}

std::optional<Message> messageFromPdu(const netsnmp_pdu& pdu)
{
    // Every integer of an SNMP message has 32 bits. The library reads up to
    // the width of a long and cuts the value to 32 bits, but a negative one
    // it leaves outside them: a malformed message, refused (written again it
    // would not say the same).
    if (!fitsIn32Bits(pdu.reqid) || !fitsIn32Bits(pdu.errstat) || !fitsIn32Bits(pdu.errindex) ||
        !isKnownPduType(pdu.command))
        return std::nullopt;
    Message message;
    message.version = pdu.version;
    message.community = QString::fromLatin1(reinterpret_cast<const char*>(pdu.community),
                                            static_cast<qsizetype>(pdu.community ? pdu.community_len : 0));
    message.pduType = static_cast<PduType>(pdu.command);
    message.requestId = static_cast<int32_t>(pdu.reqid);
    message.errorStatus = pdu.errstat;
    message.errorIndex = pdu.errindex;
    for (const netsnmp_variable_list* var = pdu.variables; var; var = var->next_variable) {
        Varbind varbind;
        varbind.oid = textForOid(var->name, var->name_length);
        varbind.type = static_cast<ValueType>(var->type);
        if (std::optional<QVariant> value = valueFromVariable(*var))
            varbind.value = std::move(*value);
        else
            varbind.converted = false;
        message.varbinds.push_back(std::move(varbind));
    }
    return message;
}

} // namespace

QByteArray encodeGetRequest(const GetRequest& request)
{
    ensureLibraryInitialised();
    std::vector<std::vector<oid>> names;
    names.reserve(static_cast<std::size_t>(request.oids.size()));
    for (const QString& text : request.oids) {
        std::optional<std::vector<oid>> name = parseOid(text);
        if (!name)
            return {};
        names.push_back(std::move(*name));
    }

    std::lock_guard lock(libraryMutex());
    PduPointer pdu(snmp_pdu_create(SNMP_MSG_GET));
    if (!pdu)
        return {};
    pdu->version = SNMP_VERSION_1;
    pdu->reqid = request.requestId;
    for (const std::vector<oid>& name : names) {
        if (!snmp_add_null_var(pdu.get(), name.data(), name.size()))
            return {};
    }
    return build(*pdu, request.community.toLatin1());
}

std::optional<Message> decodeMessage(QByteArrayView datagram)
{
    ensureLibraryInitialised();
    // The parser takes a writable pointer; it gets a copy of its own.
    QByteArray bytes = datagram.toByteArray();
    u_char* data = reinterpret_cast<u_char*>(bytes.data());
    const auto length = static_cast<std::size_t>(bytes.size());

    // A session description with a fixed version keeps snmp_parse on the
    // community-based path: it refuses other versions before reading further,
    // and never reaches the SNMPv3 code that wants an open session. A message
    // that is not SNMPv1 gets one more try as SNMPv2c.
    std::lock_guard lock(libraryMutex());
    for (const long version : {long{SNMP_VERSION_1}, long{SNMP_VERSION_2c}}) {
        netsnmp_session session;
        snmp_sess_init(&session);
        session.version = version;
        PduPointer pdu(snmp_pdu_create(0));
        if (!pdu)
            return std::nullopt;
        if (snmp_parse(nullptr, &session, pdu.get(), data, length) == 0)
            return messageFromPdu(*pdu);
        if (session.s_snmp_errno != SNMPERR_BAD_VERSION)
            return std::nullopt;
    }
    return std::nullopt;
}

QByteArray encodeResponse(const Message& message)
{
    // net-snmp reads -1 in these fields as "not set" and sends 0: refused, so
    // that whatever this returns decodes to the message given.
    if (message.errorStatus == SNMP_DEFAULT_ERRSTAT || message.errorIndex == SNMP_DEFAULT_ERRINDEX)
        return {};
    ensureLibraryInitialised();
    std::lock_guard lock(libraryMutex());
    PduPointer pdu(snmp_pdu_create(static_cast<int>(message.pduType)));
    if (!pdu)
        return {};
    pdu->version = message.version;
    pdu->reqid = message.requestId;
    pdu->errstat = message.errorStatus;
    pdu->errindex = message.errorIndex;
    for (const Varbind& varbind : message.varbinds) {
        if (!addVariable(*pdu, varbind))
            return {};
    }
    return build(*pdu, message.community.toLatin1());
}

std::optional<QVariant> valueFromVariable(const variable_list& var)
{
    switch (var.type) {
    case kBoolean:
    case kInteger:
        // What the library left outside 32 bits (a wide negative value) is no
        // SNMP integer, and cutting it once more would change it again.
        if (!var.val.integer || !fitsIn32Bits(*var.val.integer))
            return std::nullopt;
        return QVariant(static_cast<int32_t>(*var.val.integer));
    case kBitString:
        return QVariant(QByteArray(reinterpret_cast<const char*>(var.val.bitstring),
                                   static_cast<qsizetype>(var.val_len)));
    case kOctetString:
        return QVariant(textFromOctets(var.val.string, var.val_len));
    case kNull:
        return QVariant();
    case kObjectId:
        return QVariant(oidToString(var.val.objid, var.val_len));
    case kCounter64: {
        if (!var.val.counter64)
            return std::nullopt;
        const uint64_t value =
            (uint64_t{var.val.counter64->high} << 32) | (var.val.counter64->low & 0xffffffffu);
        return QVariant(static_cast<qint64>(value));
    }
#ifdef NETSNMP_WITH_OPAQUE_SPECIAL_TYPES
    case kFloat:
        if (!var.val.floatVal)
            return std::nullopt;
        return QVariant(static_cast<double>(*var.val.floatVal));
    case kDouble:
        if (!var.val.doubleVal)
            return std::nullopt;
        return QVariant(*var.val.doubleVal);
#endif
    default:
        return std::nullopt;
    }
}

QString textForOid(const unsigned long* oid, std::size_t count)
{
    QString text;
    for (std::size_t i = 0; i < count; ++i)
        text += u'.' + QString::number(oid[i]);
    return text;
}

QString oidToString(const unsigned long* oid, std::size_t lengthInBytes)
{
    QStringList parts;
    for (std::size_t i = 0; i < lengthInBytes / sizeof(*oid); ++i)
        parts += QString::number(oid[i]);
    return parts.join(u'.');
}

} // namespace talvo::snmp
