#include "installer/TestPage.h"

#include "foundation/Settings.h"

#include <QDir>
#include <QFileInfo>

namespace talvo {

QStringList testPageArguments(const QString& queue, const QString& file)
{
    return {QStringLiteral("-d"), queue, QStringLiteral("-t"), QStringLiteral("Test Page"), file};
}

QString testPageFile()
{
    const QString cupsPage = QString::fromLatin1(kCupsTestPageFile);
    if (QFileInfo(cupsPage).isFile())
        return cupsPage;
    return QDir(pathForPluginResources()).filePath(QString::fromLatin1(kFallbackTestPageName));
}

} // namespace talvo
