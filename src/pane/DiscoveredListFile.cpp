#include "pane/DiscoveredListFile.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/PropertyList.h"
#include "pane/PaneLog.h"

#include <QDir>
#include <QFileInfo>
#include <QVariantList>

namespace talvo {

QString discoveredListFilePath()
{
    return QDir::homePath() + QStringLiteral("/Desktop/DiscoveredPrinters.plist");
}

bool writeDiscoveredList(const QString& path, const QList<QVariantMap>& printers)
{
    // The list goes beside the user's files, not into a folder made for it.
    if (!QFileInfo(path).absoluteDir().exists()) {
        qCWarning(lcPane).noquote() << "cannot save the printer list, no folder for" << path;
        return false;
    }

    // The icon and the display text are made again on loading; they are not
    // property-list values and would make the whole write fail.
    QVariantList list;
    list.reserve(printers.size());
    for (QVariantMap printer : printers) {
        printer.remove(kPrinterIconImgKey);
        printer.remove(kPrinterPresentationStrKey);
        list.append(printer);
    }

    const Status written = plist::writeXmlFile(path, list);
    if (!written)
        qCWarning(lcPane).noquote() << "cannot save the printer list:" << written.message();
    return written.isOk();
}

std::optional<QList<QVariantMap>> readDiscoveredList(const QString& path)
{
    const std::optional<QVariant> content = plist::readFile(path);
    if (!content || content->typeId() != QMetaType::QVariantList)
        return std::nullopt;
    QList<QVariantMap> printers;
    for (const QVariant& element : content->toList()) {
        if (element.typeId() == QMetaType::QVariantMap)
            printers.append(element.toMap());
    }
    return printers;
}

} // namespace talvo
