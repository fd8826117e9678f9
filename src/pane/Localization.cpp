#include "pane/Localization.h"

#include <QCoreApplication>
#include <QLocale>
#include <QTranslator>

namespace talvo {

namespace {

bool loadInto(const QString& file, const QString& folder)
{
    // Owned by the application: translations stay installed for its life.
    auto* translator = new QTranslator(QCoreApplication::instance());
    if (translator->load(file, folder)) {
        QCoreApplication::installTranslator(translator);
        return true;
    }
    delete translator;
    return false;
}

} // namespace

bool installTranslations(const QString& resourcesFolder)
{
    const QString folder = resourcesFolder + QStringLiteral("/translations");
    const bool english = loadInto(QStringLiteral("talvo_en"), folder);
    // Installed later wins: the user's own language over the English base.
    const QStringList languages = QLocale().uiLanguages();
    for (auto it = languages.crbegin(); it != languages.crend(); ++it) {
        QString name = *it;
        name.replace(QLatin1Char('-'), QLatin1Char('_'));
        if (!name.startsWith(QLatin1StringView("en")))
            loadInto(QStringLiteral("talvo_") + name, folder);
    }
    return english;
}

QString localizedStringForKey(const char* key)
{
    return qtTrId(key);
}

} // namespace talvo
