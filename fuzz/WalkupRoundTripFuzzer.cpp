// Walkup packets built from any fields must read back as what was put in:
// the host's answer as packetData writes it, and an announcement or a
// selection as a printer writes one ("<tag>value</tag>" after the prefix and
// channel byte). The format drops white space before a value; a value that
// holds its own closing tag, or a blank one before another tag, spoils what
// follows it, so those packets are only read, not compared.
#include "discovery/WalkupPacket.h"

#include <QLoggingCategory>
#include <QtEndian>

#include <fuzzer/FuzzedDataProvider.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

constexpr char16_t kVendor[] = u"talvo";

// A tag's value as the reader gives it back: without the white space before
// it. nullopt when the value spoils the packet's reading.
std::optional<QString> readBack(const QString& tag, const QString& value, bool last)
{
    if (value.contains(QStringLiteral("</") + tag + u'>'))
        return std::nullopt;
    qsizetype start = 0;
    while (start < value.size() && (value[start] == u' ' || (value[start] >= u'\t' && value[start] <= u'\r')))
        ++start;
    if (start == value.size() && !last)
        return std::nullopt;
    return value.sliced(start);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    // Unknown types and address mismatches are logged: silenced, for speed.
    QLoggingCategory::setFilterRules(QStringLiteral("talvo.*=false"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    using talvo::WalkupPacket;
    FuzzedDataProvider fuzz(data, size);
    const auto channel = fuzz.ConsumeIntegral<uint8_t>();
    const auto address = fuzz.ConsumeIntegral<uint32_t>();
    const auto type = fuzz.ConsumeIntegral<int32_t>();

    // The host's answer: characters outside ASCII are sent as '?'.
    WalkupPacket host;
    host.channel = channel;
    host.srcIpAddr = address;
    host.pktWalkupType = type;
    const QString user = QString::fromStdString(fuzz.ConsumeRandomLengthString(200));
    host.typeDataDict.insert(QString(talvo::walkupUserNameKey), user);
    QString sentUser = user;
    for (QChar& c : sentUser) {
        if (c.unicode() >= 0x80)
            c = u'?';
    }
    const auto hostBack = WalkupPacket::fromDatagram(host.packetData(kVendor), address, 7, 2, kVendor);
    const auto expectedUser = readBack(QStringLiteral("user"), sentUser, true);
    if (expectedUser &&
        (!hostBack || hostBack->channel != channel || hostBack->srcIpAddr != address ||
         hostBack->pktWalkupType != type || hostBack->dstIpAddr != 7 || hostBack->intfIdx != 2 ||
         hostBack->value(talvo::walkupUserNameKey) != *expectedUser))
        std::abort();

    // A printer's announcement (model, MAC) or selection (user, status), in
    // ASCII: any other byte makes the whole datagram malformed. Its address
    // is written without "0x", as some printers do.
    const bool announcement = fuzz.ConsumeBool();
    const QStringList tags = announcement ? QStringList{QStringLiteral("model"), QStringLiteral("macaddr")}
                                          : QStringList{QStringLiteral("user"), QStringLiteral("status")};
    QByteArray datagram = WalkupPacket::prefix(kVendor) + static_cast<char>(channel) + "<ipaddr>" +
                          QByteArray::number(qFromBigEndian(address), 16).rightJustified(8, '0') +
                          "</ipaddr><type>" + (announcement ? "0" : "2") + "</type>";
    bool comparable = true;
    QStringList expected;
    for (qsizetype i = 0; i < tags.size(); ++i) {
        QByteArray value = QByteArray::fromStdString(fuzz.ConsumeRandomLengthString(200));
        for (char& c : value)
            c = static_cast<char>(c & 0x7f);
        const auto back = readBack(tags[i], QString::fromLatin1(value), i + 1 == tags.size());
        comparable = comparable && back;
        expected << back.value_or(QString());
        datagram += '<' + tags[i].toLatin1() + '>' + value + "</" + tags[i].toLatin1() + '>';
    }
    const auto printerBack = WalkupPacket::fromDatagram(datagram, address, 7, 2, kVendor);
    if (!comparable)
        return 0;
    if (!printerBack || printerBack->channel != channel || printerBack->srcIpAddr != address ||
        printerBack->pktWalkupType != (announcement ? 0 : 2))
        std::abort();
    for (qsizetype i = 0; i < tags.size(); ++i) {
        if (printerBack->typeDataDict.value(tags[i]) != expected[i])
            std::abort();
    }
    return 0;
}
