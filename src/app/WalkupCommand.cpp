// talvo-printers walkup: printers' announcements answered with the user's
// name until one printer is selected on its panel.

#include "app/CliSupport.h"
#include "app/PrinterJson.h"
#include "discovery/WalkupListener.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "snmp/SNMPPump.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMap>
#include <QTimer>

#include <chrono>
#include <thread>

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
    const QString community =
        context.settings.value(kDiscoverySettingsKey).toMap().value(snmpCommunityGetKey).toString();

    // The selected printer's SNMP reply is read, and the printer reported, on
    // this pump's thread (the engine's work thread, once the engine drives
    // walkup).
    std::jthread pumpThread([](std::stop_token stop) {
        SNMPPump pump;
        while (!stop.stop_requested())
            pump.pass({}, std::chrono::milliseconds(100));
    });

    // Output is written on the main thread only; the listener's threads post.
    QMap<QString, QStringList> announced; // address -> model and MAC last printed
    const auto onAnnounced = [&](const WalkupPacket& packet) {
        const QString address = stringForInetAddr(packet.srcIpAddr);
        const QStringList what{packet.value(walkupModelKey), packet.value(walkupMacAddrKey)};
        QMetaObject::invokeMethod(
            qApp,
            [&, address, what] {
                // Printers repeat their announcements: each is printed when new.
                if (announced.value(address) == what)
                    return;
                announced.insert(address, what);
                const QJsonObject json{{QStringLiteral("event"), QStringLiteral("announced")},
                                       {QString(kIPAddrStrKey), address},
                                       {QString(kPrinterModelStrKey), what[0]},
                                       {QString(kMacAddrStrKey), what[1]}};
                printLine(context, json,
                          QStringLiteral("Announced: %1 at %2 (%3)").arg(what[0], address, what[1]));
            },
            Qt::QueuedConnection);
    };
    const auto onBeaconed = [&](const QVariantMap& printer) {
        QMetaObject::invokeMethod(
            qApp,
            [&, printer] {
                const QJsonObject json{{QStringLiteral("event"), QStringLiteral("selected")},
                                       {QStringLiteral("printer"), printerToJson(printer)}};
                printLine(context, json, QStringLiteral("Selected: ") + printerToText(printer));
                QCoreApplication::exit(kOk);
            },
            Qt::QueuedConnection);
    };
    WalkupListener listener(onBeaconed, onAnnounced);
    if (const QString error = listener.start(user, community); !error.isEmpty()) {
        err() << "talvo-printers: walkup: " << error << Qt::endl;
        return kFailed;
    }
    if (!context.json)
        err() << "Answering walkup announcements as \"" << user << "\" for " << seconds
              << " s: pick that name on the printer's panel." << Qt::endl;

    QTimer::singleShot(static_cast<int>(seconds * 1000), qApp, [] { QCoreApplication::exit(kTimedOut); });
    const int exitCode = QCoreApplication::exec();
    listener.stop();
    if (exitCode == kTimedOut && !context.json)
        err() << "No printer was selected in " << seconds << " s." << Qt::endl;
    return exitCode;
}

} // namespace talvo::cli
