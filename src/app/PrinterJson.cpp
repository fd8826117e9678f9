#include "app/PrinterJson.h"

#include "foundation/DictionaryKeys.h"

#include <QJsonValue>

namespace talvo::cli {

QJsonObject printerToJson(const QVariantMap& printer)
{
    QJsonObject object;
    for (auto it = printer.cbegin(); it != printer.cend(); ++it) {
        const QVariant& v = it.value();
        switch (v.typeId()) {
        case QMetaType::QString:
        case QMetaType::Bool:
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Double:
            object.insert(it.key(), QJsonValue::fromVariant(v));
            break;
        default:
            break; // images, styled text and other values that are not plain
        }
    }
    return object;
}

QString displayText(const QString& text)
{
    QString shown;
    shown.reserve(text.size());
    for (const QChar c : text) {
        const char16_t u = c.unicode();
        if (u < 0x20 || u == 0x7f || (u >= 0x80 && u < 0xa0))
            shown += QStringLiteral("\\x%1").arg(u, 2, 16, QLatin1Char('0'));
        else if (u == u'\\')
            shown += QStringLiteral("\\\\");
        else
            shown += c;
    }
    return shown;
}

QString printerToText(const QVariantMap& printer)
{
    const auto field = [&](Key key) { return displayText(printer.value(key).toString()); };
    const QString name = field(kDnsNameKey).isEmpty() ? QStringLiteral("-") : field(kDnsNameKey);
    QString line = QStringLiteral("%1  %2  %3  %4")
                       .arg(field(kPrinterModelStrKey), -16)
                       .arg(field(kIPAddrStrKey), -15)
                       .arg(name, -16)
                       .arg(field(kQueueConnectionTypeStrKey), -7);
    if (!field(kCUPSQueueNameKey).isEmpty())
        line += QStringLiteral("  queue %1 at %2").arg(field(kCUPSQueueNameKey), field(kCUPSPrinterURIKey));
    return line.trimmed();
}

QString printerIdentity(const QVariantMap& printer)
{
    const QString address = printer.value(kIPAddrStrKey).toString();
    if (address.isEmpty())
        return {};
    // An absent connection type is a type of its own, unlike an empty one.
    const QString type = printer.contains(kQueueConnectionTypeStrKey)
                             ? printer.value(kQueueConnectionTypeStrKey).toString()
                             : QStringLiteral("\x01");
    return type + u'\n' + address;
}

} // namespace talvo::cli
