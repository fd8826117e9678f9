// talvo-printers: the command-line face of the printer setup.

#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QTextStream>

#include <cstdio>

namespace {

enum ExitCode { kOk = 0, kFailed = 1, kBadArguments = 2 };

QTextStream& out()
{
    static QTextStream stream(stdout);
    return stream;
}

QTextStream& err()
{
    static QTextStream stream(stderr);
    return stream;
}

void printTree(const QVariant& value, int indent)
{
    const QString pad(indent * 2, u' ');
    if (value.typeId() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            const bool nested =
                it->typeId() == QMetaType::QVariantMap || it->typeId() == QMetaType::QVariantList;
            out() << pad << it.key() << u':';
            if (nested) {
                out() << Qt::endl;
                printTree(*it, indent + 1);
            } else {
                out() << u' ' << it->toString() << Qt::endl;
            }
        }
    } else if (value.typeId() == QMetaType::QVariantList) {
        for (const QVariant& element : value.toList()) {
            out() << pad << QStringLiteral("- ");
            if (element.typeId() == QMetaType::QVariantMap || element.typeId() == QMetaType::QVariantList) {
                out() << Qt::endl;
                printTree(element, indent + 1);
            } else {
                out() << element.toString() << Qt::endl;
            }
        }
    }
}

int showSettings(const QString& settingsFile, bool json)
{
    const auto settings =
        settingsFile.isEmpty() ? talvo::getSettingsDict() : talvo::getSettingsDict(settingsFile);
    if (!settings) {
        err() << "talvo-printers: cannot read the settings file "
              << (settingsFile.isEmpty()
                      ? talvo::pathForPluginResources() + u'/' + QLatin1StringView(talvo::kSettingsFileName)
                      : settingsFile)
              << Qt::endl;
        return kFailed;
    }
    talvo::setVendor(settings->value(talvo::kVendorKey).toString());
    const QString prefs = talvo::filePathForUserPrefs().value_or(QString());
    if (json) {
        QJsonObject object = QJsonObject::fromVariantMap(*settings);
        object.insert(QStringLiteral("userPreferencesFile"), prefs);
        out() << QJsonDocument(object).toJson(QJsonDocument::Compact) << Qt::endl;
    } else {
        out() << "User preferences: " << (prefs.isEmpty() ? QStringLiteral("(none)") : prefs) << Qt::endl;
        printTree(*settings, 0);
    }
    return kOk;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("talvo-printers"));
    QCoreApplication::setApplicationVersion(
        talvo::getVersionInfoString().value_or(QStringLiteral("(unknown)")));

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Finds Talvo printers and creates their CUPS queues.\n\n"
                       "Commands:\n"
                       "  settings   print the plug-in settings merged with the user preferences"));
    parser.addHelpOption();
    // Not addVersionOption(): it would take -v, which is --verbose here.
    const QCommandLineOption versionOption(QStringLiteral("version"), QStringLiteral("Shows the version."));
    const QCommandLineOption settingsOption(
        QStringLiteral("settings"), QStringLiteral("The plug-in settings file."), QStringLiteral("PATH"));
    const QCommandLineOption resourcesOption(QStringLiteral("resources"),
                                             QStringLiteral("The resources folder."), QStringLiteral("DIR"));
    const QCommandLineOption jsonOption(QStringLiteral("json"), QStringLiteral("One JSON object per line."));
    const QCommandLineOption verboseOption({QStringLiteral("v"), QStringLiteral("verbose")},
                                           QStringLiteral("The system's log lines on standard error."));
    parser.addOptions({versionOption, settingsOption, resourcesOption, jsonOption, verboseOption});
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("The command to run."));

    if (!parser.parse(QCoreApplication::arguments())) {
        err() << "talvo-printers: " << parser.errorText() << Qt::endl;
        return kBadArguments;
    }
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(kOk);
    if (parser.isSet(versionOption)) {
        out() << QCoreApplication::applicationName() << u' ' << QCoreApplication::applicationVersion()
              << Qt::endl;
        return kOk;
    }

    if (!parser.isSet(verboseOption))
        QLoggingCategory::setFilterRules(QStringLiteral("talvo.*.debug=false\ntalvo.*.info=false"));
    if (parser.isSet(resourcesOption))
        talvo::setPluginResourcesPath(parser.value(resourcesOption));

    const QStringList commands = parser.positionalArguments();
    if (commands.size() != 1) {
        err() << "talvo-printers: give one command; see --help" << Qt::endl;
        return kBadArguments;
    }
    if (commands.first() == u"settings")
        return showSettings(parser.value(settingsOption), parser.isSet(jsonOption));

    err() << "talvo-printers: unknown command " << commands.first() << Qt::endl;
    return kBadArguments;
}
