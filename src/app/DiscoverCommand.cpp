// talvo-printers discover: the engine run for a while, every printer printed
// once as it is announced.

#include "app/CliSupport.h"
#include "app/PrinterJson.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"

#include <QCoreApplication>
#include <QJsonDocument>
#include <QSet>
#include <QTimer>

#include <arpa/inet.h>

namespace talvo::cli {

int runDiscover(const Context& context)
{
    const QCommandLineParser& parser = context.parser;
    const std::optional<double> secondsGiven = secondsOption(context, 12.0);
    if (!secondsGiven)
        return kBadArguments;
    const double seconds = *secondsGiven;
    std::vector<Subnet> subnets;
    for (const QString& text : parser.values(QStringLiteral("subnet"))) {
        const auto subnet = parseSubnet(text);
        if (!subnet) {
            err() << "talvo-printers: --subnet " << text
                  << ": expected GATEWAY/MASK, e.g. 10.1.2.0/255.255.255.0" << Qt::endl;
            return kBadArguments;
        }
        subnets.push_back(*subnet);
    }
    std::vector<uint32_t> addresses;
    for (const QString& text : parser.values(QStringLiteral("address"))) {
        const auto address = parseIPv4Address(text);
        if (!address) {
            err() << "talvo-printers: --address " << displayText(text)
                  << ": not an IPv4 address (four decimal numbers 0-255, e.g. 10.1.2.3)" << Qt::endl;
            return kBadArguments;
        }
        addresses.push_back(*address);
    }

    PrinterDiscoveryEngine engine(context.settings.value(kDiscoverySettingsKey).toMap());
    if (parser.isSet(QStringLiteral("no-broadcast")))
        engine.setBroadcastDiscoveryEnabled(false);
    if (parser.isSet(QStringLiteral("no-bonjour")))
        engine.setBonjourEnabled(false);
    if (parser.isSet(QStringLiteral("no-usb")))
        engine.setUsbDiscoveryEnabled(false);
    // Walkup answers printers with the user's name: it has its own command.
    engine.setWalkupEnabled(false);

    // A set, not a list to scan: thousands of printers may be announced.
    QSet<QString> seen;
    QObject::connect(&engine, &PrinterDiscoveryEngine::printerDiscovered, [&](const QVariantMap& printer) {
        const QString identity = printerIdentity(printer);
        if (!identity.isEmpty()) {
            if (seen.contains(identity))
                return;
            seen.insert(identity);
        }
        if (context.json)
            out() << QJsonDocument(printerToJson(printer)).toJson(QJsonDocument::Compact) << Qt::endl;
        else
            out() << printerToText(printer) << Qt::endl;
    });

    engine.addSubnetsForInterfaces();
    engine.startDiscovery();
    for (const Subnet& s : subnets)
        engine.addSearchAddress(s.broadcast());
    for (const uint32_t a : addresses)
        engine.askForKnownNetworks(a);
    if (!context.json)
        err() << "Searching for printers for " << seconds << " s on "
              << (engine.knownSearchSubnets().isEmpty()
                      ? QStringLiteral("no network")
                      : engine.knownSearchSubnets().join(QStringLiteral(", ")))
              << Qt::endl;

    // A precise timer: Qt's default may fire up to 5% early.
    QTimer deadline;
    deadline.setSingleShot(true);
    deadline.setTimerType(Qt::PreciseTimer);
    QObject::connect(&deadline, &QTimer::timeout, qApp, &QCoreApplication::quit);
    deadline.start(std::chrono::milliseconds(static_cast<qint64>(seconds * 1000)));
    QCoreApplication::exec();
    engine.stopDiscovery();
    if (!context.json)
        err() << seen.size() << (seen.size() == 1 ? " printer" : " printers") << " found." << Qt::endl;
    return kOk;
}

} // namespace talvo::cli
