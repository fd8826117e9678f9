#include "pane/PrinterPresentation.h"

#include "foundation/DictionaryKeys.h"
#include "pane/Localization.h"
#include "pane/PaneLog.h"

#include <QFileInfo>
#include <QPixmap>

#include <utility>

namespace talvo {

namespace {

// Size at which an icon file is test-rendered: a file that exists but gives
// no picture (corrupt, unknown format) counts as missing.
constexpr int kProbeIconSize = 48;

std::optional<QIcon> loadIcon(const QString& path)
{
    if (!QFileInfo(path).isFile())
        return std::nullopt;
    QIcon icon(path);
    if (icon.isNull() || icon.pixmap(kProbeIconSize).isNull())
        return std::nullopt;
    return icon;
}

// Everything that came from a printer or the network is escaped: a location
// such as "<b>x</b>" is shown as typed, never as markup.
QString field(const QVariantMap& printer, QLatin1StringView key)
{
    return printer.value(key).toString().toHtmlEscaped();
}

} // namespace

PrinterPresentation::PrinterPresentation(QVariantMap supportedPrinters, QString imagesFolder)
    : m_supportedPrinters(std::move(supportedPrinters)), m_imagesFolder(std::move(imagesFolder))
{
    const QString genericPath =
        m_imagesFolder + u'/' + QString(genericPrinterImageKey) + QStringLiteral(".svg");
    const std::optional<QIcon> generic = loadIcon(genericPath);
    if (!generic)
        qCWarning(lcPane).noquote() << "cannot load the generic printer icon" << genericPath;
    storeIcon(genericPrinterImageKey, generic.value_or(QIcon()));
}

QIcon PrinterPresentation::genericIcon() const
{
    return cachedIcon(genericPrinterImageKey).value_or(QIcon());
}

std::optional<QIcon> PrinterPresentation::cachedIcon(const QString& key) const
{
    std::lock_guard lock(m_cacheLock);
    const auto it = m_iconCache.constFind(key);
    if (it == m_iconCache.cend())
        return std::nullopt;
    return *it;
}

void PrinterPresentation::storeIcon(const QString& key, const QIcon& icon)
{
    std::lock_guard lock(m_cacheLock);
    m_iconCache.insert(key, icon);
}

QIcon PrinterPresentation::iconForPrinter(const QVariantMap& printer)
{
    const QString model = printer.value(kPrinterModelStrKey).toString();
    if (const std::optional<QIcon> icon = cachedIcon(model))
        return *icon;
    qCInfo(lcPane).noquote() << QStringLiteral("Image not found in cache for printer model %1").arg(model);
    QVariantMap found{{kPrinterModelStrKey, model}};
    findPrinterIcon(found);
    return found.value(kPrinterIconImgKey).value<QIcon>();
}

void PrinterPresentation::addImageToPrinterDict(QVariantMap& printer)
{
    printer.insert(kPrinterIconImgKey, QVariant::fromValue(iconForPrinter(printer)));
}

void PrinterPresentation::findPrinterIcon(QVariantMap& printer)
{
    const QString model = printer.value(kPrinterModelStrKey).toString();
    const QString name = m_supportedPrinters.value(model).toMap().value(kPrinterIconImgKey).toString();

    // A model without an icon name must not load the folder itself.
    std::optional<QIcon> icon;
    if (!name.isEmpty())
        icon = loadIcon(m_imagesFolder + u'/' + name);
    if (icon) {
        storeIcon(model, *icon);
        printer.insert(kPrinterIconImgKey, QVariant::fromValue(*icon));
    } else {
        printer.insert(kPrinterIconImgKey, QVariant::fromValue(genericIcon()));
    }
}

QString PrinterPresentation::displayText(const QVariantMap& printer)
{
    // A printer without a connection type gets the USB text: discovery always
    // sets the type of a network printer.
    const auto type = printer.constFind(kQueueConnectionTypeStrKey);
    const bool usb = type == printer.cend() || type->toString() == kQueueTypeUSB;
    return usb ? usbDisplayText(printer) : socketDisplayText(printer);
}

void PrinterPresentation::addDisplayTextToPrinterDict(QVariantMap& printer)
{
    printer.insert(kPrinterPresentationStrKey, displayText(printer));
}

QString PrinterPresentation::usbDisplayText(const QVariantMap& printer)
{
    return QStringLiteral("<b>%1</b><br>").arg(field(printer, kPrinterModelStrKey)) +
           field(printer, kQueueConnectionTypeStrKey);
}

QString PrinterPresentation::socketDisplayText(const QVariantMap& printer)
{
    // Each arg() call substitutes all its values in one pass, so a value that
    // looks like "%2" stays as it is.
    QString text;
    if (printer.contains(kDnsNameKey))
        text = QStringLiteral("<b>%1 - %2 (%3)</b><br>")
                   .arg(field(printer, kPrinterModelStrKey), field(printer, kDnsNameKey),
                        field(printer, kIPAddrStrKey));
    else
        text = QStringLiteral("<b>%1 - %2</b><br>")
                   .arg(field(printer, kPrinterModelStrKey), field(printer, kIPAddrStrKey));

    const QString notSet = localizedStringForKey("Not Set");
    const QString location = field(printer, kPrinterLocationKey);
    if (!location.isEmpty())
        text += QStringLiteral("%1: %2;").arg(localizedStringForKey("Location"), location);
    else
        text += QStringLiteral("%1: <i>%2</i>;").arg(localizedStringForKey("Location"), notSet);

    const QString contact = field(printer, kPrinterContactKey);
    if (!contact.isEmpty())
        text += QStringLiteral(" %1: %2; ").arg(localizedStringForKey("Contact"), contact);
    else
        text += QStringLiteral(" %1: <i>%2</i>; ").arg(localizedStringForKey("Contact"), notSet);

    return text + field(printer, kQueueConnectionTypeStrKey);
}

} // namespace talvo
