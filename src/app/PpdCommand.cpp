// talvo-printers ppd: a model's PPD set up from the printer's own SNMP
// answers, written to a file or to standard output.

#include "app/CliSupport.h"
#include "app/PrinterJson.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/FileAccess.h"
#include "foundation/NetworkAddress.h"
#include "queue/PpdInstantiation.h"
#include "queue/PpdLookup.h"
#include "queue/PrinterProbe.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>

#include <unistd.h>

namespace talvo::cli {

int runPpd(const Context& context)
{
    const QCommandLineParser& parser = context.parser;
    const QString model = parser.value(QStringLiteral("model"));
    const QStringList addresses = parser.values(QStringLiteral("address"));
    const QString addressText = addresses.value(0).trimmed();
    if (model.isEmpty() || addresses.size() != 1 || addressText.isEmpty()) {
        err() << "talvo-printers: ppd takes --model MODEL and one --address ADDRESS" << Qt::endl;
        return kBadArguments;
    }
    // Refused before any lookup or program runs: snmpget would read a host
    // such as "tcp:h:161" as a transport, or "-v3" as an option.
    if (!isIPv4OrHostNameText(addressText)) {
        err() << "talvo-printers: ppd: \"" << displayText(addressText)
              << "\" is neither an IPv4 address (four decimal octets) nor a host name" << Qt::endl;
        return kBadArguments;
    }
    const QVariantMap supported = context.settings.value(kSupportedPrintersKey).toMap();
    if (!supported.contains(model)) {
        err() << "talvo-printers: " << model
              << " is not a supported model; these are: " << supported.keys().join(QStringLiteral(", "))
              << Qt::endl;
        return kFailed;
    }
    const QString folder = defaultPPDFolder(context.settings);
    const auto source = getPPDPathForModel(model, supported, folder, QLocale::system().uiLanguages());
    if (!source) {
        err() << "talvo-printers: no PPD file for " << model << " in " << folder << Qt::endl;
        return kFailed;
    }

    // snmpget is asked at the address itself, never at the text typed.
    const std::optional<uint32_t> resolved = resolveManualAddress(addressText);
    if (!resolved) {
        err() << "talvo-printers: ppd: \"" << addressText << "\" is a host name that does not resolve"
              << Qt::endl;
        return kBadArguments;
    }
    const QString address = stringForInetAddr(*resolved);

    // The community the pane would use: the settings' one, with the user's
    // preference merged in.
    QString community =
        context.settings.value(kDiscoverySettingsKey).toMap().value(snmpCommunityGetKey).toString();
    if (community.trimmed().isEmpty())
        community = QStringLiteral("public");
    const InstantiatedPPD ppd = instantiatePPD(*source, address, community);
    if (!ppd.ok()) {
        err() << "talvo-printers: " << ppd.error << Qt::endl;
        return kFailed;
    }
    QFile instantiated(ppd.path);
    if (!instantiated.open(QIODevice::ReadOnly)) {
        err() << "talvo-printers: cannot read " << ppd.path << ": " << instantiated.errorString() << Qt::endl;
        return kFailed;
    }
    const QByteArray bytes = instantiated.readAll();

    // The bytes as they are: the PPD keeps its own encoding. Success is
    // reported only once they are on disk; a full disk, a device or a pipe
    // given as the output is an error, and an existing file is left whole.
    const QString output = parser.value(QStringLiteral("output"));
    if (output.isEmpty() || output == u'-') {
        const Status written = file::writeAll(STDOUT_FILENO, bytes, QStringLiteral("standard output"));
        if (!written) {
            err() << "talvo-printers: " << written.message() << Qt::endl;
            return kFailed;
        }
        return kOk;
    }
    if (const Status written = file::writeAtomically(output, bytes); !written) {
        err() << "talvo-printers: " << written.message() << Qt::endl;
        return kFailed;
    }
    if (context.json)
        out() << QJsonDocument(QJsonObject{{QStringLiteral("model"), model},
                                           {QStringLiteral("address"), address},
                                           {QStringLiteral("ppd"), *source},
                                           {QStringLiteral("output"), output}})
                     .toJson(QJsonDocument::Compact)
              << Qt::endl;
    else
        err() << "Wrote the PPD of " << model << " for " << address << " to " << output << Qt::endl;
    return kOk;
}

} // namespace talvo::cli
