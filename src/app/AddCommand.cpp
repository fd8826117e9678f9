// talvo-printers add: the CUPS queue of a manual (--address) or USB
// (--usb-uri) printer created as the pane creates it, or only shown
// (--dry-run).

#include "app/CliSupport.h"
#include "app/PrinterJson.h"
#include "foundation/DictionaryKeys.h"
#include "queue/PrinterProbe.h"
#include "queue/QueueCreation.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <future>

namespace talvo::cli {
namespace {

QString supportedList(const QStringList& models)
{
    return models.isEmpty() ? QStringLiteral("(none)") : models.join(QStringLiteral(", "));
}

// An argument vector as a person would type it; for reading only.
QString commandText(const QStringList& argv)
{
    QStringList words;
    for (const QString& a : argv) {
        const bool plain = !a.isEmpty() && std::all_of(a.cbegin(), a.cend(), [](QChar c) {
            return c.isLetterOrNumber() || QStringLiteral("-_./:@%=,+").contains(c);
        });
        words << (plain ? a : u'\'' + QString(a).replace(u'\'', QStringLiteral("'\\''")) + u'\'');
    }
    return words.join(u' ');
}

// The manual printer at the address, made ready for creation; nullopt (the
// reason told) when there is no address or no supported model.
std::optional<QVariantMap> manualPrinter(const Context& context, const QString& address, const QString& model,
                                         const QStringList& supported)
{
    if (!context.json)
        err() << "Probing " << address << " for its model" << Qt::endl;
    const auto outcome = probeAddressText(address, ProbeSettings::fromPluginSettings(context.settings));
    if (!outcome || outcome->result == ProbeResult::InvalidAddress) {
        err() << "talvo-printers: " << address << " is neither an IPv4 address nor a host name that resolves"
              << Qt::endl;
        return std::nullopt;
    }
    const QString found = outcome->printer.value(kPrinterModelStrKey).toString();
    const auto printer = prepareManualPrinter(outcome->printer, model, supported);
    if (!printer) {
        err() << "talvo-printers: the printer at " << address << " (" << probeResultName(outcome->result)
              << (found.isEmpty() ? QString() : QStringLiteral(", model ") + found)
              << ") names no supported model; give --model with one of: " << supportedList(supported)
              << Qt::endl;
        return std::nullopt;
    }
    if (!model.isEmpty() && model != found && outcome->result == ProbeResult::Supported)
        err() << "talvo-printers: the printer names its model, " << found << "; --model " << model
              << " is not used" << Qt::endl;
    return printer;
}

} // namespace

int runAdd(const Context& context)
{
    const QCommandLineParser& parser = context.parser;
    const QStringList addresses = parser.values(QStringLiteral("address"));
    const bool usb = parser.isSet(QStringLiteral("usb-uri"));
    const QString usbUri = parser.value(QStringLiteral("usb-uri"));
    const QString model = parser.value(QStringLiteral("model"));
    const auto badArguments = [](const char* why) {
        err() << "talvo-printers: add: " << why << "; see --help" << Qt::endl;
        return kBadArguments;
    };
    if (usb == !addresses.isEmpty())
        return badArguments("give either --address ADDRESS or --usb-uri URI");
    if (addresses.size() > 1)
        return badArguments("give one --address");
    if (addresses.value(0).trimmed().isEmpty() && !usb)
        return badArguments("--address needs an IPv4 address or host name");
    if (usb && !usbUri.startsWith(QStringLiteral("usb://")))
        return badArguments("--usb-uri takes a USB printer's device URI (usb://...)");
    if (usb && model.isEmpty())
        return badArguments("--usb-uri needs --model MODEL");
    if (parser.isSet(QStringLiteral("model")) && model.isEmpty())
        return badArguments("--model needs a model name");

    const QueueCreationSettings settings = QueueCreationSettings::fromPluginSettings(context.settings);
    const QStringList supported = settings.supportedModels();
    if (!model.isEmpty() && !supported.contains(model)) {
        err() << "talvo-printers: " << model
              << " is not a supported model; supported: " << supportedList(supported) << Qt::endl;
        return kFailed;
    }

    QVariantMap printer;
    if (usb) {
        printer = usbPrinterDict(usbUri, model);
    } else {
        const auto manual = manualPrinter(context, addresses.first().trimmed(), model, supported);
        if (!manual)
            return kFailed;
        printer = *manual;
    }

    if (parser.isSet(QStringLiteral("dry-run"))) {
        const QueuePlan plan = planPrintQueue(printer, settings);
        if (!plan.ok()) {
            err() << "talvo-printers: " << plan.errorText << Qt::endl;
            return kFailed;
        }
        if (context.json) {
            const QJsonObject object{{QStringLiteral("dryRun"), true},
                                     {QStringLiteral("lpadmin"), QJsonArray::fromStringList(plan.lpadmin)},
                                     {QStringLiteral("ppd"), plan.ppdPath},
                                     {QStringLiteral("printer"), printerToJson(plan.printer)}};
            out() << QJsonDocument(object).toJson(QJsonDocument::Compact) << Qt::endl;
        } else {
            out() << "Would run: " << commandText(plan.lpadmin) << Qt::endl;
            out() << "with a copy of " << plan.ppdPath << " instantiated from the printer's answers"
                  << Qt::endl;
        }
        return kOk;
    }

    // Created off this thread, as the pane does; this thread only waits.
    std::promise<QueueCreationResult> done;
    QueueCreator creator(settings);
    if (!creator.start(printer, [&done](const QueueCreationResult& r) { done.set_value(r); })) {
        err() << "talvo-printers: cannot start the queue creation's thread" << Qt::endl;
        return kFailed;
    }
    const QueueCreationResult result = done.get_future().get();
    if (!result.ok()) {
        err() << "talvo-printers: " << result.errorText << Qt::endl;
        return kFailed;
    }
    if (context.json)
        out() << QJsonDocument(printerToJson(result.printer)).toJson(QJsonDocument::Compact) << Qt::endl;
    else
        out() << "Created " << printerToText(result.printer) << Qt::endl;
    return kOk;
}

} // namespace talvo::cli
