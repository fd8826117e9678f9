#include "printer-sim/SimulatedPrinter.h"

#include "discovery/BroadcastPacket.h"
#include "foundation/DictionaryKeys.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtEndian>

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <map>
#include <tuple>
#include <utility>

namespace talvo::sim {
namespace {

constexpr std::pair<SnmpMode, const char*> kSnmpModes[] = {{SnmpMode::Normal, "normal"},
                                                           {SnmpMode::NoSuchName, "nosuchname"},
                                                           {SnmpMode::Silent, "silent"},
                                                           {SnmpMode::None, "none"}};
constexpr std::pair<ReplyMode, const char*> kReplyModes[] = {
    {ReplyMode::Normal, "normal"},      {ReplyMode::Duplicate, "duplicate"},
    {ReplyMode::BadMagic, "bad-magic"}, {ReplyMode::BadLength, "bad-length"},
    {ReplyMode::LongText, "long-text"}, {ReplyMode::Length0x80, "length-0x80"},
    {ReplyMode::Short, "short"},        {ReplyMode::Silent, "silent"}};
constexpr std::pair<CacheFirmware, const char*> kFirmwares[] = {{CacheFirmware::V3_5, "3.5"},
                                                                {CacheFirmware::V3_0, "3.0"}};

constexpr char kModelKey[] = "model";
constexpr char kAddressKey[] = "address";
constexpr char kReplyAddressKey[] = "reply-address";
constexpr char kMacKey[] = "mac";
constexpr char kSysNameKey[] = "sysname";
constexpr char kSysObjectIdKey[] = "sysobjectid";
constexpr char kCommunityKey[] = "community";
constexpr char kSnmpKey[] = "snmp";
constexpr char kCacheKey[] = "cache";
constexpr char kCacheFirmwareKey[] = "cache-firmware";
constexpr char kReplyKey[] = "reply";

constexpr const char* kKeys[] = {kModelKey,   kAddressKey,       kReplyAddressKey, kMacKey,
                                 kSysNameKey, kSysObjectIdKey,   kCommunityKey,    kSnmpKey,
                                 kCacheKey,   kCacheFirmwareKey, kReplyKey};

// snmpd keeps system texts in 256-byte buffers.
constexpr qsizetype kMaxTextLength = 255;

const QString kPrinterMibName = QStringLiteral(".1.3.6.1.2.1.43.5.1.1.16.1");
const QString kNoAddress = QStringLiteral("0.0.0.0");

template <typename E, std::size_t N>
std::optional<E> enumFromName(const std::pair<E, const char*> (&names)[N], const QString& text)
{
    for (const auto& [value, name] : names) {
        if (text == QLatin1StringView(name))
            return value;
    }
    return std::nullopt;
}

template <typename E, std::size_t N> QString namesOf(const std::pair<E, const char*> (&names)[N])
{
    QStringList list;
    for (const auto& entry : names)
        list << QLatin1StringView(entry.second);
    return list.join(QStringLiteral(" | "));
}

template <typename E, std::size_t N> QString nameOf(const std::pair<E, const char*> (&names)[N], E value)
{
    for (const auto& [v, name] : names) {
        if (v == value)
            return QLatin1StringView(name);
    }
    return {};
}

std::optional<uint32_t> ipv4(const QString& text)
{
    in_addr parsed{};
    if (::inet_pton(AF_INET, text.toLatin1().constData(), &parsed) != 1)
        return std::nullopt;
    return parsed.s_addr;
}

// The octets of a network-order address, first to last.
std::array<int, 4> octets(uint32_t networkOrder)
{
    const uint32_t value = qFromBigEndian(networkOrder);
    return {static_cast<int>(value >> 24), static_cast<int>((value >> 16) & 0xff),
            static_cast<int>((value >> 8) & 0xff), static_cast<int>(value & 0xff)};
}

QString checkText(const QString& key, const QString& value)
{
    if (value.size() > kMaxTextLength)
        return QStringLiteral("%1 is longer than %2 characters").arg(key).arg(kMaxTextLength);
    for (const QChar c : value) {
        if (c.category() == QChar::Other_Control)
            return QStringLiteral("%1 holds a control character").arg(key);
    }
    return {};
}

Parsed<SimulatedPrinter> fromFields(const std::vector<std::pair<QString, QString>>& fields)
{
    std::map<QString, QString> values;
    for (const auto& [key, value] : fields) {
        // A named copy: clang 14 cannot capture a structured binding.
        const QString& name = key;
        if (std::find_if(std::begin(kKeys), std::end(kKeys),
                         [&](const char* k) { return name == QLatin1StringView(k); }) == std::end(kKeys))
            return {std::nullopt, QStringLiteral("unknown key \"%1\" (keys: %2)")
                                      .arg(key, SimulatedPrinter::keys().join(QStringLiteral(", ")))};
        if (!values.emplace(key, value).second)
            return {std::nullopt, QStringLiteral("key \"%1\" given twice").arg(key)};
        if (QString problem = checkText(key, value); !problem.isEmpty())
            return {std::nullopt, problem};
    }
    auto take = [&](const char* key) -> std::optional<QString> {
        const auto found = values.find(QLatin1StringView(key));
        return found == values.end() ? std::nullopt : std::optional<QString>(found->second);
    };
    auto fail = [](const QString& error) { return Parsed<SimulatedPrinter>{std::nullopt, error}; };

    SimulatedPrinter p;
    p.model = take(kModelKey).value_or(QString());
    if (p.model.isEmpty())
        return fail(QStringLiteral("a printer needs a model (model=...)"));
    const QString address = take(kAddressKey).value_or(QString());
    const std::optional<uint32_t> addressValue = ipv4(address);
    if (!addressValue)
        return fail(
            QStringLiteral("a printer needs an IPv4 address (address=A.B.C.D), not \"%1\"").arg(address));
    p.addressValue = *addressValue;
    const auto o = octets(p.addressValue);
    p.address = QStringLiteral("%1.%2.%3.%4").arg(o[0]).arg(o[1]).arg(o[2]).arg(o[3]);
    p.replyAddress = take(kReplyAddressKey).value_or(p.address);
    p.mac = take(kMacKey).value_or(QStringLiteral("00:80:92:%1:%2:%3")
                                       .arg(o[1], 2, 16, QLatin1Char('0'))
                                       .arg(o[2], 2, 16, QLatin1Char('0'))
                                       .arg(o[3], 2, 16, QLatin1Char('0')));
    p.sysNameGiven = take(kSysNameKey).has_value();
    p.sysName = take(kSysNameKey).value_or(QStringLiteral("talvo-%1-%2").arg(o[2]).arg(o[3]));

    if (const auto oid = take(kSysObjectIdKey)) {
        static const QRegularExpression numericOid(QStringLiteral("^\\.?[0-9]+(\\.[0-9]+)+$"));
        if (!numericOid.match(*oid).hasMatch())
            return fail(QStringLiteral("sysobjectid must be a numeric OID such as .1.3.6.1.4.1.58101.1.4000, "
                                       "not \"%1\"")
                            .arg(*oid));
        p.sysObjectId = oid->startsWith(u'.') ? *oid : u'.' + *oid;
    }
    if (const auto community = take(kCommunityKey)) {
        static const QRegularExpression word(QStringLiteral("^[!-~]+$"));
        if (!word.match(*community).hasMatch())
            return fail(QStringLiteral("community must be one word of printable ASCII"));
        p.community = *community;
    }
    if (const auto cache = take(kCacheKey)) {
        if (!ipv4(*cache))
            return fail(QStringLiteral("cache must be a dotted IPv4 address, not \"%1\"").arg(*cache));
        p.cache = *cache;
    }

    // The three word-valued keys share their handling.
    const auto pick = [&](const char* key, auto& names, auto& target) -> QString {
        if (const auto text = take(key)) {
            const auto value = enumFromName(names, *text);
            if (!value)
                return QStringLiteral("%1 must be %2, not \"%3\"")
                    .arg(QLatin1StringView(key), namesOf(names), *text);
            target = *value;
        }
        return {};
    };
    for (const QString& problem : {pick(kSnmpKey, kSnmpModes, p.snmp), pick(kReplyKey, kReplyModes, p.reply),
                                   pick(kCacheFirmwareKey, kFirmwares, p.cacheFirmware)}) {
        if (!problem.isEmpty())
            return fail(problem);
    }
    return {p, {}};
}

} // namespace

QString SimulatedPrinter::defaultObjectId(const QVariantMap& settings, const QString& model)
{
    const QVariant ids =
        settings.value(kSupportedPrintersKey).toMap().value(model).toMap().value(kSysObjIDKey);
    const QString first =
        ids.typeId() == QMetaType::QVariantList ? ids.toList().value(0).toString() : ids.toString();
    return first.isEmpty() ? QStringLiteral(".1.3.6.1.4.1.58101.1.99999") : first;
}

QStringList SimulatedPrinter::keys()
{
    QStringList list;
    for (const char* key : kKeys)
        list << QLatin1StringView(key);
    return list;
}

Parsed<SimulatedPrinter> SimulatedPrinter::fromOption(const QString& text)
{
    std::vector<std::pair<QString, QString>> fields;
    for (const QString& item : text.split(u',', Qt::SkipEmptyParts)) {
        const qsizetype equals = item.indexOf(u'=');
        if (equals <= 0)
            return {std::nullopt, QStringLiteral("\"%1\" is not key=value").arg(item)};
        fields.emplace_back(item.left(equals), item.mid(equals + 1));
    }
    Parsed<SimulatedPrinter> parsed = fromFields(fields);
    if (!parsed.value)
        parsed.error = QStringLiteral("--printer %1: %2").arg(text, parsed.error);
    return parsed;
}

Parsed<std::vector<SimulatedPrinter>> SimulatedPrinter::fromJson(const QByteArray& json)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        return {std::nullopt,
                QStringLiteral("not JSON: %1 at offset %2").arg(error.errorString()).arg(error.offset)};
    if (!document.isArray())
        return {std::nullopt, QStringLiteral("not a JSON array of printer objects")};
    std::vector<SimulatedPrinter> printers;
    const QJsonArray array = document.array();
    for (qsizetype i = 0; i < array.size(); ++i) {
        const auto where = QStringLiteral("printer %1: ").arg(i + 1);
        if (!array[i].isObject())
            return {std::nullopt, where + QStringLiteral("not an object")};
        std::vector<std::pair<QString, QString>> fields;
        const QJsonObject object = array[i].toObject();
        for (auto it = object.begin(); it != object.end(); ++it) {
            if (!it->isString())
                return {std::nullopt,
                        where + QStringLiteral("the value of \"%1\" is not a string").arg(it.key())};
            fields.emplace_back(it.key(), it->toString());
        }
        Parsed<SimulatedPrinter> parsed = fromFields(fields);
        if (!parsed.value)
            return {std::nullopt, where + parsed.error};
        printers.push_back(*parsed.value);
    }
    return {std::move(printers), {}};
}

std::vector<QByteArray> SimulatedPrinter::replyDatagrams() const
{
    QByteArray d = broadcast::buildReply(model, replyAddress, mac);
    const auto setLength = [&d](qsizetype length) {
        qToBigEndian(static_cast<uint32_t>(length), d.data() + 4);
    };
    switch (reply) {
    case ReplyMode::Normal:
        return {d};
    case ReplyMode::Duplicate:
        return {d, d};
    case ReplyMode::BadMagic:
        d.replace(0, 4, QByteArrayView("KVO\x00", 4));
        return {d};
    case ReplyMode::BadLength:
        setLength(d.size() + 1);
        return {d};
    case ReplyMode::LongText:
        // The datagram ends one byte early: the MAC's length byte points past the end.
        d.chop(1);
        setLength(d.size());
        return {d};
    case ReplyMode::Length0x80:
        d[8] = static_cast<char>(0x80); // the model's length byte
        return {d};
    case ReplyMode::Short:
        return {d.left(6)};
    case ReplyMode::Silent:
        return {};
    }
    return {};
}

QString SimulatedPrinter::replyKind() const
{
    return nameOf(kReplyModes, reply);
}

SnmpdConfig SimulatedPrinter::agentConfig() const
{
    SnmpdConfig config;
    config.community = community;
    config.sysDescr = QStringLiteral("Talvo ") + model;
    config.sysObjectId = sysObjectId;
    config.sysName = sysName;
    config.sysContact = QStringLiteral("support@talvo.example");
    config.sysLocation = QStringLiteral("Talvo printer simulator");
    config.logRequests = false;
    if (snmp != SnmpMode::NoSuchName)
        config.overrides.push_back(
            {kPrinterMibName, QStringLiteral("octet_str"), SnmpdConfig::quoted(sysName)});

    // The installed options, as a printer with some extras reports them: the
    // model PPDs ask these OIDs for their InstallableOptions defaults.
    const QString options = QStringLiteral(".1.3.6.1.4.1.58101.3.1.");
    for (const auto& [oid, type, value] : {std::tuple{"1.0", "integer", "524288"},
                                           {"2.0", "integer", "1"},
                                           {"3.0", "integer", "1"},
                                           {"4.0", "integer", "0"},
                                           {"5.0", "octet_str", "\"absent\""},
                                           {"6.0", "octet_str", "\"stapler\""}})
        config.overrides.push_back(
            {options + QLatin1StringView(oid), QLatin1StringView(type), QLatin1StringView(value)});

    // The known-network cache: an enabled flag and four addresses, numbered
    // differently by the two firmware generations.
    const bool v35 = cacheFirmware == CacheFirmware::V3_5;
    const QString base = QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.");
    const QString enabledOid = base + (v35 ? QStringLiteral("5.2.22510000") : QStringLiteral("5.2.99"));
    config.overrides.push_back(
        {enabledOid, QStringLiteral("integer"), cache.isEmpty() ? QStringLiteral("0") : QStringLiteral("1")});
    for (int entry = 0; entry < 4; ++entry) {
        const QString oid =
            base + QStringLiteral("7.2.") + QString::number(v35 ? 22521000 + entry * 1000 : 100 + entry);
        const QString value = entry == 0 && !cache.isEmpty() ? cache : kNoAddress;
        config.overrides.push_back({oid, QStringLiteral("octet_str"), SnmpdConfig::quoted(value)});
    }
    return config;
}

QString SimulatedPrinter::agentGroupKey() const
{
    return QStringList{model,
                       sysObjectId,
                       community,
                       nameOf(kSnmpModes, snmp),
                       cache,
                       nameOf(kFirmwares, cacheFirmware),
                       sysNameGiven ? sysName : QString()}
        .join(u'\x1f');
}

} // namespace talvo::sim
