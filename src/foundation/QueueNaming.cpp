#include "foundation/QueueNaming.h"

#include "foundation/DictionaryKeys.h"

namespace talvo {

QString convertStrForCupsQueueName(const QString& text)
{
    QString result = text;
    for (QChar& c : result) {
        const char16_t u = c.unicode();
        const bool keep =
            (u >= u'a' && u <= u'z') || (u >= u'A' && u <= u'Z') || (u >= u'0' && u <= u'9') || u == u'_';
        if (!keep)
            c = u'_';
    }
    return result;
}

void uriDescAndQueueNameForSocketPrinter(QVariantMap& printer)
{
    const QString model = printer.value(kPrinterModelStrKey).toString();
    const QString address = printer.value(kIPAddrStrKey).toString();
    const QString dnsName = printer.value(kDnsNameKey).toString();

    const bool named = !dnsName.isEmpty();
    const QString base = named ? dnsName : QStringLiteral("_%1").arg(address);
    const QString description = QStringLiteral("%1 \"%2\"").arg(model, named ? dnsName : address);

    printer.insert(kCUPSQueueNameKey, convertStrForCupsQueueName(base));
    printer.insert(kCUPSPrinterURIKey, QStringLiteral("lpd://%1").arg(address));
    printer.insert(kCUPSQueueDescKey, description);
}

} // namespace talvo
