// talvo-printers walkup: printers' announcements answered with the user's
// name until one printer is selected on its panel.

#include "app/CliSupport.h"
#include "app/PrinterJson.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "discovery/WalkupMethod.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTimer>

#include <chrono>

namespace talvo::cli {
namespace {

void printLine(const Context& context, const QJsonObject& json, const QString& text)
{
    if (context.json)
        out() << QJsonDocument(json).toJson(QJsonDocument::Compact) << Qt::endl;
    else
        out() << text << Qt::endl;
}

} // namespace

int runWalkup(const Context& context)
{
    const QCommandLineParser& parser = context.parser;
    const std::optional<double> secondsGiven = secondsOption(context, 300.0);
    if (!secondsGiven)
        return kBadArguments;
    const double seconds = *secondsGiven;
    const QString user =
        parser.isSet(QStringLiteral("user")) ? parser.value(QStringLiteral("user")) : defaultWalkupUserName();
    if (user.trimmed().isEmpty()) {
        err() << "talvo-printers: --user takes a name (the one to pick on the printer's panel)" << Qt::endl;
        return kBadArguments;
    }

    // The engine with walkup alone: the selected printer is identified over
    // its SNMP socket, as in the wizard.
    PrinterDiscoveryEngine engine(context.settings.value(kDiscoverySettingsKey).toMap());
    engine.setBroadcastDiscoveryEnabled(false);
    engine.setBonjourEnabled(false);
    engine.setUsbDiscoveryEnabled(false);
    engine.setWalkupEnabled(true);
    engine.setUserName(user);

    QMap<QString, QStringList> announced; // address -> model and MAC last printed
    QObject::connect(&engine, &PrinterDiscoveryEngine::walkupAnnounced, [&](const QVariantMap& announcement) {
        const QString address = announcement.value(kIPAddrStrKey).toString();
        const QStringList what{announcement.value(kPrinterModelStrKey).toString(),
                               announcement.value(kMacAddrStrKey).toString()};
        // Printers repeat their announcements: each is printed when new.
        if (announced.value(address) == what)
            return;
        announced.insert(address, what);
        const QJsonObject json{{QStringLiteral("event"), QStringLiteral("announced")},
                               {QString(kIPAddrStrKey), address},
                               {QString(kPrinterModelStrKey), what[0]},
                               {QString(kMacAddrStrKey), what[1]}};
        printLine(context, json,
                  QStringLiteral("Announced: %1 at %2 (%3)")
                      .arg(displayText(what[0]), address, displayText(what[1])));
    });
    QObject::connect(&engine, &PrinterDiscoveryEngine::printerBeaconed, [&](const QVariantMap& printer) {
        const QJsonObject json{{QStringLiteral("event"), QStringLiteral("selected")},
                               {QStringLiteral("printer"), printerToJson(printer)}};
        printLine(context, json, QStringLiteral("Selected: ") + printerToText(printer));
        QCoreApplication::exit(kOk);
    });
    QObject::connect(&engine, &PrinterDiscoveryEngine::walkupEnded, [&](const QString& reason) {
        err() << "talvo-printers: walkup: " << reason << Qt::endl;
        QCoreApplication::exit(kFailed);
    });

    engine.startDiscovery();
    if (!context.json)
        err() << "Answering walkup announcements as \"" << user << "\" for " << seconds
              << " s: pick that name on the printer's panel." << Qt::endl;

    QTimer deadline;
    deadline.setSingleShot(true);
    deadline.setTimerType(Qt::PreciseTimer);
    QObject::connect(&deadline, &QTimer::timeout, [] { QCoreApplication::exit(kTimedOut); });
    deadline.start(std::chrono::milliseconds(static_cast<qint64>(seconds * 1000)));
    const int exitCode = QCoreApplication::exec();
    engine.stopDiscovery();
    if (exitCode == kTimedOut && !context.json)
        err() << "No printer was selected in " << seconds << " s." << Qt::endl;
    return exitCode;
}

} // namespace talvo::cli
