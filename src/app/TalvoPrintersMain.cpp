// talvo-printers: the command-line face of the printer setup (see cli.md in
// the project's shared documents for the contract).

#include "app/CliSupport.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/Settings.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

#include <arpa/inet.h>

namespace talvo::cli {

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

std::optional<Subnet> parseSubnet(const QString& text)
{
    const QStringList parts = text.split(u'/');
    const auto gateway = parts.size() == 2 ? parseIPv4Address(parts[0]) : std::nullopt;
    if (!gateway)
        return std::nullopt;
    Subnet subnet;
    subnet.gateway = *gateway;
    bool isNumber = false;
    const int prefix = parts[1].toInt(&isNumber);
    if (isNumber && !parts[1].contains(u'.')) {
        if (prefix < 0 || prefix > 32)
            return std::nullopt;
        subnet.mask = htonl(prefix == 0 ? 0u : ~0u << (32 - prefix));
        return subnet;
    }
    const auto mask = parseIPv4Address(parts[1]);
    if (!mask)
        return std::nullopt;
    subnet.mask = *mask;
    return subnet;
}

std::optional<double> secondsOption(const Context& context, double fallback)
{
    if (!context.parser.isSet(QStringLiteral("seconds")))
        return fallback;
    bool ok = false;
    const double seconds = context.parser.value(QStringLiteral("seconds")).toDouble(&ok);
    if (!ok || seconds <= 0 || seconds > 86400.0 * 24) {
        err() << "talvo-printers: --seconds takes a positive number of at most 24 days" << Qt::endl;
        return std::nullopt;
    }
    return seconds;
}

namespace {

void printTree(const QVariant& value, int indent)
{
    const QString pad(indent * 2, u' ');
    auto nested = [](const QVariant& v) {
        return v.typeId() == QMetaType::QVariantMap || v.typeId() == QMetaType::QVariantList;
    };
    if (value.typeId() == QMetaType::QVariantMap) {
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            out() << pad << it.key() << u':';
            if (nested(*it)) {
                out() << Qt::endl;
                printTree(*it, indent + 1);
            } else {
                out() << u' ' << it->toString() << Qt::endl;
            }
        }
    } else if (value.typeId() == QMetaType::QVariantList) {
        for (const QVariant& element : value.toList()) {
            out() << pad << QStringLiteral("- ");
            if (nested(element)) {
                out() << Qt::endl;
                printTree(element, indent + 1);
            } else {
                out() << element.toString() << Qt::endl;
            }
        }
    }
}

int showSettings(const Context& context)
{
    const QString prefs = filePathForUserPrefs().value_or(QString());
    if (context.json) {
        QJsonObject object = QJsonObject::fromVariantMap(context.settings);
        object.insert(QStringLiteral("userPreferencesFile"), prefs);
        out() << QJsonDocument(object).toJson(QJsonDocument::Compact) << Qt::endl;
    } else {
        out() << "User preferences: " << (prefs.isEmpty() ? QStringLiteral("(none)") : prefs) << Qt::endl;
        printTree(context.settings, 0);
    }
    return kOk;
}

struct Command
{
    const char* name;
    const char* summary;
    int (*run)(const Context&);
    int arguments = 0; // positional arguments after the command's name
};

const Command kCommands[] = {
    {"discover", "find printers and print each once as it is found", &runDiscover},
    {"walkup", "answer printers' walkup announcements until one is selected on its panel", &runWalkup},
    {"settings", "print the plug-in settings merged with the user preferences", &showSettings},
    {"probe", "probe ADDRESS: what answers at an address, and which printer", &runProbe, 1},
    {"add", "create the CUPS queue of a printer (--address or --usb-uri)", &runAdd},
    {"ppd", "write a model's PPD set up from the printer's answers (--model, --address)", &runPpd},
};

} // namespace
} // namespace talvo::cli

int main(int argc, char** argv)
{
    using namespace talvo::cli;
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("talvo-printers"));

    QString description = QStringLiteral("Finds Talvo printers and creates their CUPS queues.\n\nCommands:");
    for (const Command& c : kCommands)
        description +=
            QStringLiteral("\n  %1  %2").arg(QLatin1StringView(c.name), -9).arg(QLatin1StringView(c.summary));
    QCommandLineParser parser;
    parser.setApplicationDescription(description);
    parser.addHelpOption();
    auto option = [&](QStringList names, const char* text, const char* value = nullptr) {
        parser.addOption(QCommandLineOption(names, QString::fromLatin1(text),
                                            value ? QString::fromLatin1(value) : QString()));
    };
    // Not addVersionOption(): it would take -v, which is --verbose here.
    option({QStringLiteral("version")}, "Shows the version.");
    option({QStringLiteral("settings")}, "The plug-in settings file.", "PATH");
    option({QStringLiteral("resources")}, "The resources folder.", "DIR");
    option({QStringLiteral("json")}, "One JSON object per line on standard output.");
    option({QStringLiteral("v"), QStringLiteral("verbose")}, "The system's log lines on standard error.");
    option({QStringLiteral("seconds")}, "discover, walkup: how long to run (default 12; walkup 300).", "S");
    option({QStringLiteral("no-broadcast")}, "discover: without the broadcast discovery.");
    option({QStringLiteral("no-bonjour")}, "discover: without Bonjour.");
    option({QStringLiteral("no-usb")}, "discover: without USB.");
    option({QStringLiteral("user")}, "walkup: the name sent to printers (default: your full name).", "NAME");
    option({QStringLiteral("subnet")}, "discover: also search this network (repeatable).", "GATEWAY/MASK");
    option({QStringLiteral("address")},
           "discover: also ask the printer at this address (repeatable); add: the printer's address.", "IP");
    option({QStringLiteral("usb-uri")}, "add: the USB printer's device URI.", "URI");
    option({QStringLiteral("model")},
           "add: the model when the printer names no supported one; ppd: the model.", "MODEL");
    option({QStringLiteral("queue")}, "add: the queue's name (default: the printer's own, made unique).",
           "NAME");
    option({QStringLiteral("replace")}, "add: update the queue called NAME when it exists.");
    option({QStringLiteral("dry-run")}, "add: print what would be run and create nothing.");
    option({QStringLiteral("output")}, "ppd: the file to write (default: standard output).", "FILE");
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("The command to run."));

    if (!parser.parse(QCoreApplication::arguments())) {
        err() << "talvo-printers: " << parser.errorText() << Qt::endl;
        return kBadArguments;
    }
    if (parser.isSet(QStringLiteral("help")))
        parser.showHelp(kOk);
    if (parser.isSet(QStringLiteral("resources")))
        talvo::setPluginResourcesPath(parser.value(QStringLiteral("resources")));
    if (parser.isSet(QStringLiteral("version"))) {
        out() << "talvo-printers " << talvo::getVersionInfoString().value_or(QStringLiteral("(unknown)"))
              << Qt::endl;
        return kOk;
    }
    if (!parser.isSet(QStringLiteral("verbose")))
        QLoggingCategory::setFilterRules(
            QStringLiteral("talvo.*.debug=false\ntalvo.*.info=false\ntalvo.*.warning=false"));

    const QStringList positional = parser.positionalArguments();
    if (positional.isEmpty()) {
        err() << "talvo-printers: give one command; see --help" << Qt::endl;
        return kBadArguments;
    }
    const Command* command = nullptr;
    for (const Command& c : kCommands) {
        if (positional.first() == QLatin1StringView(c.name))
            command = &c;
    }
    if (!command) {
        err() << "talvo-printers: unknown command " << positional.first() << "; see --help" << Qt::endl;
        return kBadArguments;
    }
    if (positional.size() != 1 + command->arguments) {
        err() << "talvo-printers: " << positional.first() << ": wrong number of arguments; see --help"
              << Qt::endl;
        return kBadArguments;
    }

    const QString settingsFile = parser.value(QStringLiteral("settings"));
    const auto settings =
        settingsFile.isEmpty() ? talvo::getSettingsDict() : talvo::getSettingsDict(settingsFile);
    if (!settings) {
        err() << "talvo-printers: cannot read the settings file "
              << (settingsFile.isEmpty() ? talvo::pathForPluginResources() + QStringLiteral("/") +
                                               QLatin1StringView(talvo::kSettingsFileName)
                                         : settingsFile)
              << Qt::endl;
        return kFailed;
    }
    // The vendor word names the user preferences that later saves write.
    talvo::setVendor(settings->value(talvo::kVendorKey).toString());
    return command->run(Context{parser, *settings, parser.isSet(QStringLiteral("json"))});
}
