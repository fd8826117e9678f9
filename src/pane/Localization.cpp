#include "pane/Localization.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QLocale>
#include <QTranslator>

#include <memory>

namespace talvo {

using namespace Qt::StringLiterals;

namespace {

// Marks the translators installTranslations owns, so a later call finds them.
constexpr QLatin1StringView kTranslatorName("talvo-translation");

// The names a file for the user's languages may carry, most wanted first:
// each UI language, then the same with its country and script cut off one
// at a time, as QTranslator looks them up ("de-Latn-CH": de_Latn_CH,
// de_Latn, de). English, or the C locale, ends the list: its texts are the
// base, so a language the user ranks below it is never shown.
QStringList preferredLanguageNames()
{
    QStringList names;
    for (QString language : QLocale().uiLanguages()) {
        language.replace(u'-', u'_');
        if (language == "C"_L1 || language == "en"_L1 || language.startsWith("en_"_L1))
            break;
        for (;;) {
            if (!names.contains(language))
                names << language;
            const qsizetype cut = language.lastIndexOf(u'_');
            if (cut <= 0)
                break;
            language.truncate(cut);
        }
    }
    return names;
}

bool install(std::unique_ptr<QTranslator> translator)
{
    // Owned by the application: translations stay installed for its life.
    translator->setObjectName(kTranslatorName);
    translator->setParent(QCoreApplication::instance());
    return QCoreApplication::installTranslator(translator.release());
}

bool loadInto(const QString& file, const QString& folder)
{
    auto translator = std::make_unique<QTranslator>();
    return translator->load(file, folder) && install(std::move(translator));
}

void removeInstalledTranslations()
{
    for (QTranslator* translator : QCoreApplication::instance()->findChildren<QTranslator*>(
             kTranslatorName, Qt::FindDirectChildrenOnly)) {
        QCoreApplication::removeTranslator(translator);
        delete translator;
    }
}

} // namespace

bool installTranslations(const QString& resourcesFolder)
{
    removeInstalledTranslations();
    const QString folder = resourcesFolder + u"/translations"_s;
    const bool english = loadInto(u"talvo_en"_s, folder);

    QStringList found;
    for (const QString& name : preferredLanguageNames()) {
        if (QFileInfo::exists(folder + u"/talvo_"_s + name + u".qm"_s))
            found << name;
    }
    // Installed later wins: the least wanted first, the user's first choice
    // last, each over the English base.
    for (auto it = found.crbegin(); it != found.crend(); ++it)
        loadInto(u"talvo_"_s + *it, folder);

    // Qt's buttons and menus in the language of our texts, not in the next
    // one Qt happens to have, so one window never mixes two languages.
    // Without Qt's translations installed they stay English.
    if (!found.isEmpty()) {
        auto qt = std::make_unique<QTranslator>();
        if (qt->load(QLocale(found.first()), u"qtbase"_s, u"_"_s,
                     QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
            install(std::move(qt));
    }
    return english;
}

QString localizedStringForKey(const char* key)
{
    return qtTrId(key);
}

QString localizedResourcePath(const QString& folder, const QString& base, const QString& extension)
{
    for (const QString& name : preferredLanguageNames()) {
        const QString path = u"%1/%2_%3.%4"_s.arg(folder, base, name, extension);
        if (QFileInfo::exists(path))
            return path;
    }
    return u"%1/%2.%3"_s.arg(folder, base, extension);
}

} // namespace talvo
