#include "queue/PpdLookup.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"
#include "queue/QueueLog.h"

#include <QDir>
#include <QFileInfo>

namespace talvo {

QString defaultPPDFolder(const QVariantMap& settings)
{
    const QString resources = pathForPluginResources();
    const QString configured = settings.value(kPPDDirectoryKey).toString();
    if (!configured.isEmpty())
        return QDir::cleanPath(QDir(resources).absoluteFilePath(configured));
    QString vendorWord = settings.value(kVendorKey).toString().toLower();
    if (vendorWord.isEmpty())
        vendorWord = vendor();
    return QDir::cleanPath(resources + QStringLiteral("/../ppd/") + vendorWord);
}

std::optional<QString> getPPDPathForModel(const QString& model, const QVariantMap& supportedPrinters,
                                          const QString& ppdFolder, const QStringList& uiLanguages)
{
    const QString file = supportedPrinters.value(model).toMap().value(kPPDFileNameKey).toString();
    if (file.isEmpty()) {
        qCWarning(lcQueue).noquote()
            << QStringLiteral("getPPDPathForModel: cannot find PPD name for printer model %1").arg(model);
        return std::nullopt;
    }
    const QDir folder(ppdFolder);
    QStringList candidates{folder.filePath(file)};
    for (const QString& language : uiLanguages) {
        candidates << folder.filePath(language + u'/' + file);
        if (language.contains(u'-'))
            candidates << folder.filePath(QString(language).replace(u'-', u'_') + u'/' + file);
    }
    for (const QString& candidate : candidates) {
        if (QFileInfo(candidate).isFile())
            return candidate;
    }
    return std::nullopt;
}

} // namespace talvo
