#pragma once

// How a printer dictionary is shown: its model's icon and a one- or two-line
// rich text, the same in the list, the manual mode and for the printer handed
// to later pages (which get both stored in its dictionary).
//
//     talvo::PrinterPresentation presentation(settings.value(talvo::kSupportedPrintersKey).toMap(),
//                                             resources + QStringLiteral("/images"));
//     QIcon icon = presentation.iconForPrinter(printer);
//     QString html = talvo::PrinterPresentation::displayText(printer);
//     presentation.addImageToPrinterDict(printer);       // "printerIcon": QIcon
//     presentation.addDisplayTextToPrinterDict(printer); // "presentationText": HTML

#include <QHash>
#include <QIcon>
#include <QString>
#include <QVariantMap>

#include <mutex>
#include <optional>

namespace talvo {

class PrinterPresentation
{
public:
    // supportedPrinters: the settings' "SupportedPrinters" (model name to its
    // record, whose "printerIcon" names the icon file); imagesFolder: where
    // those files and "Generic Printer icon.svg" live.
    PrinterPresentation(QVariantMap supportedPrinters, QString imagesFolder);
    PrinterPresentation(const PrinterPresentation&) = delete;
    PrinterPresentation& operator=(const PrinterPresentation&) = delete;

    // The icon a printer is shown with: its model's, from the cache or its
    // file, else the generic one.
    QIcon iconForPrinter(const QVariantMap& printer);
    // The rich text a printer is shown with (see addDisplayTextToPrinterDict).
    static QString displayText(const QVariantMap& printer);

    // Sets "printerIcon" from the per-model cache, else through findPrinterIcon.
    void addImageToPrinterDict(QVariantMap& printer);
    // Loads the model's icon file and caches it; the generic icon when the
    // model has none or its file cannot be loaded (not cached: the next
    // printer of that model tries again).
    void findPrinterIcon(QVariantMap& printer);

    // Sets "presentationText": the USB text for a "USB" printer or one without
    // "queueType", the network text otherwise.
    void addDisplayTextToPrinterDict(QVariantMap& printer);
    static QString usbDisplayText(const QVariantMap& printer);
    static QString socketDisplayText(const QVariantMap& printer);

    QIcon genericIcon() const;

private:
    std::optional<QIcon> cachedIcon(const QString& key) const;
    void storeIcon(const QString& key, const QIcon& icon);

    const QVariantMap m_supportedPrinters;
    const QString m_imagesFolder;
    // Model name to icon, plus the generic icon. The lock is held only around
    // single reads and writes, never while a file loads.
    mutable std::mutex m_cacheLock;
    QHash<QString, QIcon> m_iconCache;
};

} // namespace talvo
