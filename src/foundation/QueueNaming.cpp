#include "foundation/QueueNaming.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"

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

QString fitQueueName(const QString& name, QStringView suffix)
{
    const qsizetype room = kMaxQueueNameBytes - suffix.toUtf8().size();
    qsizetype bytes = 0;
    qsizetype end = 0;
    // Whole code points only: a surrogate pair is one character of 4 bytes.
    while (end < name.size()) {
        const bool pair =
            name[end].isHighSurrogate() && end + 1 < name.size() && name[end + 1].isLowSurrogate();
        const qsizetype width = pair ? 2 : 1;
        const qsizetype size = QStringView(name).mid(end, width).toUtf8().size();
        if (bytes + size > room)
            break;
        bytes += size;
        end += width;
    }
    return name.left(end) + suffix.toString();
}

QString queueNameProblem(const QString& name)
{
    if (name.isEmpty())
        return QStringLiteral("a queue name cannot be empty");
    if (name.toUtf8().size() > kMaxQueueNameBytes)
        return QStringLiteral("a queue name has at most %1 bytes").arg(kMaxQueueNameBytes);
    for (const QChar c : name) {
        const char16_t u = c.unicode();
        if (u <= u' ' || (u >= 0x7f && u < 0xa0) || QStringView(u"/\\?'\"#@").contains(c))
            return QStringLiteral(
                "a queue name cannot hold blanks, control characters or any of / \\ ? ' \" # @");
    }
    return {};
}

bool isQueueNameTaken(const QString& name, const QStringList& taken)
{
    return taken.contains(name, Qt::CaseInsensitive);
}

QString firstFreeQueueName(const QString& wanted, const QStringList& taken)
{
    QString candidate = fitQueueName(wanted);
    for (int n = 2; isQueueNameTaken(candidate, taken); ++n)
        candidate = fitQueueName(wanted, QStringLiteral("_%1").arg(n));
    return candidate;
}

bool uriDescAndQueueNameForSocketPrinter(QVariantMap& printer)
{
    const auto parsed = parseIPv4Address(printer.value(kIPAddrStrKey).toString());
    if (!parsed)
        return false;
    const QString model = printer.value(kPrinterModelStrKey).toString();
    const QString address = stringForInetAddr(*parsed);
    const QString dnsName = printer.value(kDnsNameKey).toString();

    const bool named = !dnsName.isEmpty();
    const QString base = named ? dnsName : QStringLiteral("_%1").arg(address);
    const QString description = QStringLiteral("%1 \"%2\"").arg(model, named ? dnsName : address);

    printer.insert(kCUPSQueueNameKey, fitQueueName(convertStrForCupsQueueName(base)));
    printer.insert(kCUPSPrinterURIKey, QStringLiteral("lpd://%1").arg(address));
    printer.insert(kCUPSQueueDescKey, description);
    return true;
}

} // namespace talvo
