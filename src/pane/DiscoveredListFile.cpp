#include "pane/DiscoveredListFile.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/PropertyList.h"
#include "pane/PaneLog.h"

#include <QDir>
#include <QFileInfo>
#include <QVariantList>

namespace talvo {
namespace {

// The value with every NULL (an invalid QVariant) left out of the maps and
// lists it holds, at any depth.
QVariant withoutNullValues(const QVariant& value)
{
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        QVariantMap map;
        const QVariantMap original = value.toMap();
        for (auto it = original.cbegin(); it != original.cend(); ++it) {
            if (it.value().isValid())
                map.insert(it.key(), withoutNullValues(it.value()));
        }
        return map;
    }
    case QMetaType::QVariantList: {
        QVariantList list;
        for (const QVariant& element : value.toList()) {
            if (element.isValid())
                list.append(withoutNullValues(element));
        }
        return list;
    }
    default:
        return value;
    }
}

} // namespace

QString discoveredListFilePath()
{
    return QDir::homePath() + QStringLiteral("/Desktop/DiscoveredPrinters.plist");
}

Status writeDiscoveredList(const QString& path, const QList<QVariantMap>& printers)
{
    // The list goes beside the user's files, not into a folder made for it.
    if (!QFileInfo(path).absoluteDir().exists()) {
        const Status missing =
            Status::error(QStringLiteral("Cannot write %1: its folder does not exist").arg(path));
        qCWarning(lcPane).noquote() << "cannot save the printer list:" << missing.message();
        return missing;
    }

    // The icon and the display text are made again on loading; they are not
    // property-list values and would make the whole write fail. So would the
    // NULL a printer answered to one query: that value is left out, and the
    // printer and the rest of the list are saved.
    QVariantList list;
    list.reserve(printers.size());
    for (QVariantMap printer : printers) {
        printer.remove(kPrinterIconImgKey);
        printer.remove(kPrinterPresentationStrKey);
        list.append(withoutNullValues(printer));
    }

    Status written = plist::writeXmlFile(path, list);
    if (!written)
        qCWarning(lcPane).noquote() << "cannot save the printer list:" << written.message();
    return written;
}

std::optional<QList<QVariantMap>> readDiscoveredList(const QString& path)
{
    const plist::Loaded content = plist::loadFile(path);
    if (content.outcome != plist::LoadOutcome::Loaded || content.value.typeId() != QMetaType::QVariantList) {
        qCWarning(lcPane).noquote() << "cannot load the printer list:"
                                    << (content.error.isEmpty() ? path + QStringLiteral(" holds no list")
                                                                : content.error);
        return std::nullopt;
    }
    QList<QVariantMap> printers;
    for (const QVariant& element : content.value.toList()) {
        if (element.typeId() == QMetaType::QVariantMap)
            printers.append(element.toMap());
    }
    return printers;
}

} // namespace talvo
