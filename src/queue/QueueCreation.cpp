#include "queue/QueueCreation.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/QueueNaming.h"
#include "foundation/Settings.h"
#include "foundation/SystemCommand.h"
#include "queue/PpdInstantiation.h"
#include "queue/PpdLookup.h"
#include "queue/QueueLog.h"
#include "queue/SchedulerQueues.h"

#include <QLocale>

namespace talvo {
namespace {

// The translated text of an id of the pane's strings table, or the English
// text while no translation is loaded (qtTrId gives back the id then, which
// reads badly in an alert or on a terminal).
QString text(const char* id, const char* english)
{
    const QString translated = qtTrId(id);
    return translated == QLatin1StringView(id) ? QString::fromUtf8(english) : translated;
}

QString ppdNotFoundText()
{
    return text("PPDNotFoundErrorMessage", "The PPD file for this printer model could not be found.");
}

QString lpadminErrorText()
{
    return text("LpAdminErrorMessage", "The print queue could not be created.");
}

QString lpadminUnknownErrorText()
{
    return text("LpAdminUnknownError", "lpadmin failed without saying why.");
}

// lpadmin's standard error less its deprecation notice for "-P", which it
// prints on success as well: the notice is not the reason for a failure.
QString lpadminReason(const QByteArray& standardError)
{
    QStringList lines;
    for (const QString& line : QString::fromLocal8Bit(standardError).split(u'\n', Qt::SkipEmptyParts)) {
        if (!line.contains(QStringLiteral("Printer drivers are deprecated")))
            lines << line;
    }
    const QString reason = lines.join(u'\n').trimmed();
    return reason.isEmpty() ? QString::fromLocal8Bit(standardError).trimmed() : reason;
}

QueueCreationResult failure(QueueError error, const QString& errorText)
{
    QueueCreationResult result;
    result.error = error;
    result.errorText = errorText;
    return result;
}

// What a dictionary needs before a PPD is looked for; empty when complete.
QString missingForQueue(const QVariantMap& printer)
{
    QStringList missing;
    for (const Key key : {kPrinterModelStrKey, kCUPSPrinterURIKey, kCUPSQueueDescKey}) {
        if (printer.value(key).toString().isEmpty())
            missing << QString(key);
    }
    if (!namesQueueAsUSB(printer) && printer.value(kCUPSQueueNameKey).toString().isEmpty())
        missing << QString(kCUPSQueueNameKey);
    if (missing.isEmpty())
        return {};
    return QStringLiteral("The printer has no %1.").arg(missing.join(QStringLiteral(", ")));
}

// A network printer is reached at its address, so its URI is made here from
// that address once more: the dictionary may come from a saved list, and
// neither lpadmin nor snmpget may be handed text that only claims to be an
// address. Empty when the address is good; why not otherwise.
QString useCheckedAddress(QVariantMap& printer)
{
    if (namesQueueAsUSB(printer))
        return {};
    const QString text = printer.value(kIPAddrStrKey).toString();
    const auto address = parseIPv4Address(text);
    if (!address)
        return QStringLiteral("The printer's address \"%1\" is not an IPv4 address.").arg(text);
    printer.insert(kIPAddrStrKey, stringForInetAddr(*address));
    printer.insert(kCUPSPrinterURIKey, QStringLiteral("lpd://%1").arg(stringForInetAddr(*address)));
    return {};
}

// The final name, chosen against the scheduler's queues as they are now.
QueueCreationResult nameAgainstScheduler(const QVariantMap& printer, const QueueCreationSettings& settings,
                                         const QueueCreationOptions& options)
{
    QString why;
    const auto taken = schedulerQueueNames(&why);
    if (!taken)
        return failure(QueueError::SchedulerUnknown, why);
    return chooseQueueName(printer, settings, options, *taken);
}

} // namespace

QueueCreationSettings QueueCreationSettings::fromPluginSettings(const QVariantMap& settings)
{
    QueueCreationSettings queue;
    queue.supportedPrinters = settings.value(kSupportedPrintersKey).toMap();
    queue.ppdFolder = defaultPPDFolder(settings);
    queue.uiLanguages = QLocale::system().uiLanguages();
    queue.community = settings.value(kDiscoverySettingsKey).toMap().value(snmpCommunityGetKey).toString();
    queue.vendorWithCaps = talvo::vendorWithCaps();
    if (queue.vendorWithCaps.isEmpty())
        queue.vendorWithCaps = capitalizedWords(settings.value(kVendorKey).toString());
    return queue;
}

QStringList lpadminArguments(const QVariantMap& printer, const QString& ppdPath)
{
    return {QLatin1StringView(kLpadminProgram),
            QStringLiteral("-p"),
            printer.value(kCUPSQueueNameKey).toString(),
            QStringLiteral("-E"),
            QStringLiteral("-v"),
            printer.value(kCUPSPrinterURIKey).toString(),
            QStringLiteral("-P"),
            ppdPath,
            QStringLiteral("-D"),
            printer.value(kCUPSQueueDescKey).toString()};
}

bool namesQueueAsUSB(const QVariantMap& printer)
{
    const QVariant type = printer.value(kQueueConnectionTypeStrKey);
    return !type.isValid() || type.toString() == kQueueTypeUSB;
}

QString queueNameForPrinter(const QVariantMap& printer, const QString& vendorWithCaps)
{
    // A saved list may hold any text as a name: it is made safe again.
    if (!namesQueueAsUSB(printer))
        return fitQueueName(convertStrForCupsQueueName(printer.value(kCUPSQueueNameKey).toString()));
    return fitQueueName(QStringLiteral("%1_%2").arg(
        vendorWithCaps, convertStrForCupsQueueName(printer.value(kPrinterModelStrKey).toString())));
}

QueueCreationResult chooseQueueName(const QVariantMap& printer, const QueueCreationSettings& settings,
                                    const QueueCreationOptions& options, const QStringList& taken)
{
    QueueCreationResult result;
    result.printer = printer;
    if (options.queueName.isEmpty()) {
        result.printer.insert(
            kCUPSQueueNameKey,
            firstFreeQueueName(queueNameForPrinter(printer, settings.vendorWithCaps), taken));
        return result;
    }
    if (const QString problem = queueNameProblem(options.queueName); !problem.isEmpty())
        return failure(QueueError::BadPrinter, QStringLiteral("\"%1\": %2").arg(options.queueName, problem));
    if (!options.replace && isQueueNameTaken(options.queueName, taken))
        return failure(QueueError::NameTaken,
                       QStringLiteral("a print queue called \"%1\" exists already").arg(options.queueName));
    result.printer.insert(kCUPSQueueNameKey, options.queueName);
    return result;
}

QVariantMap usbPrinterDict(const QString& deviceUri, const QString& model)
{
    return {{kPrinterModelStrKey, model},
            {kQueueConnectionTypeStrKey, QString(kQueueTypeUSB)},
            {kCUPSPrinterURIKey, deviceUri},
            {kCUPSQueueNameKey, convertStrForCupsQueueName(model)},
            {kCUPSQueueDescKey, model}};
}

std::optional<QVariantMap> prepareManualPrinter(QVariantMap printer, const QString& chosenModel,
                                                const QStringList& supportedModels)
{
    if (!supportedModels.contains(printer.value(kPrinterModelStrKey).toString())) {
        if (!supportedModels.contains(chosenModel))
            return std::nullopt;
        printer.insert(kPrinterModelStrKey, chosenModel);
    }
    if (!uriDescAndQueueNameForSocketPrinter(printer))
        return std::nullopt;
    return printer;
}

QueuePlan planPrintQueue(QVariantMap printer, const QueueCreationSettings& settings,
                         const QueueCreationOptions& options)
{
    QueuePlan plan;
    const auto refuse = [&plan](QueueError error, const QString& text) {
        plan.error = error;
        plan.errorText = text;
        return plan;
    };
    if (QString missing = missingForQueue(printer); !missing.isEmpty())
        return refuse(QueueError::BadPrinter, missing);
    if (QString bad = useCheckedAddress(printer); !bad.isEmpty())
        return refuse(QueueError::BadPrinter, bad);
    const QString model = printer.value(kPrinterModelStrKey).toString();
    const auto ppd =
        getPPDPathForModel(model, settings.supportedPrinters, settings.ppdFolder, settings.uiLanguages);
    if (!ppd)
        return refuse(QueueError::PPDNotFound, QStringLiteral("%1 (%2)").arg(ppdNotFoundText(), model));

    // Nothing is created, so a scheduler that cannot be asked only makes the
    // shown name a guess.
    QueueCreationResult named = nameAgainstScheduler(printer, settings, options);
    if (named.error == QueueError::SchedulerUnknown) {
        plan.warning = named.errorText;
        named = chooseQueueName(printer, settings, options, {});
    }
    if (!named.ok())
        return refuse(named.error, named.errorText);
    plan.ppdPath = *ppd;
    plan.lpadmin = lpadminArguments(named.printer, *ppd);
    plan.printer = named.printer;
    return plan;
}

QueueCreationResult createPrintQueueForPrinter(QVariantMap printer, const QueueCreationSettings& settings,
                                               std::stop_token stop, const QueueCreationOptions& options)
{
    qCInfo(lcQueue).noquote()
        << QStringLiteral("createPrintQueueForPrinter: %1").arg(printer.value(kIPAddrStrKey).toString());
    if (const QString missing = missingForQueue(printer); !missing.isEmpty())
        return failure(QueueError::BadPrinter, missing);
    if (const QString bad = useCheckedAddress(printer); !bad.isEmpty())
        return failure(QueueError::BadPrinter, bad);
    // A name that cannot be had, or a scheduler that cannot be asked, is
    // told before the printer is queried for its options.
    if (QueueCreationResult named = nameAgainstScheduler(printer, settings, options); !named.ok())
        return named;

    // The PPD: the model's file, instantiated with the printer's own answers.
    // The copy is removed when `ppd` goes, once lpadmin has read it.
    const QString model = printer.value(kPrinterModelStrKey).toString();
    const auto ppdPath =
        getPPDPathForModel(model, settings.supportedPrinters, settings.ppdFolder, settings.uiLanguages);
    if (!ppdPath) {
        qCInfo(lcQueue) << "after instantiating";
        qCInfo(lcQueue) << "ppdPath (null)";
        qCWarning(lcQueue).noquote() << "NSGenericException" << ppdNotFoundText();
        return failure(QueueError::PPDNotFound, QStringLiteral("%1 (%2)").arg(ppdNotFoundText(), model));
    }
    const InstantiatedPPD ppd =
        instantiatePPD(*ppdPath, printer.value(kIPAddrStrKey).toString(), settings.community, stop);
    if (stop.stop_requested())
        return failure(QueueError::Stopped, QStringLiteral("stopped"));
    qCInfo(lcQueue) << "after instantiating";
    qCInfo(lcQueue).noquote()
        << QStringLiteral("ppdPath %1").arg(ppd.ok() ? ppd.path : QStringLiteral("(null)"));
    if (!ppd.ok()) {
        qCWarning(lcQueue).noquote() << "NSGenericException" << ppdNotFoundText();
        return failure(QueueError::PPDNotFound,
                       ppd.error.isEmpty() ? ppdNotFoundText()
                                           : QStringLiteral("%1 (%2)").arg(ppdNotFoundText(), ppd.error));
    }

    // The name is chosen again just before lpadmin runs: the queries above
    // take seconds, and a queue made meanwhile must not be overwritten.
    QueueCreationResult named = nameAgainstScheduler(printer, settings, options);
    if (!named.ok())
        return named;
    printer = named.printer;
    if (options.lpadminStarting)
        options.lpadminStarting(printer.value(kCUPSQueueNameKey).toString());

    // lpadmin reaches the scheduler the usual way (CUPS_SERVER, client.conf).
    ProcessOptions process;
    process.stopToken = stop;
    const ProcessResult run = runProcess(lpadminArguments(printer, ppd.path), process);
    if (run.status == ProcessResult::Status::Stopped)
        return failure(QueueError::Stopped, QStringLiteral("stopped"));
    if (!run.succeeded()) {
        QString reason;
        if (run.status == ProcessResult::Status::FailedToStart)
            reason = run.errorText;
        else if (!run.standardError.isEmpty())
            reason = lpadminReason(run.standardError);
        else
            reason = lpadminUnknownErrorText();
        qCWarning(lcQueue).noquote() << "NSGenericException" << lpadminErrorText();
        return failure(QueueError::LpadminFailed, reason);
    }

    QueueCreationResult result;
    result.printer = printer;
    return result;
}

void setInstalledPrinter(QVariantMap& sharedDictionary, const QueueCreationResult& result)
{
    if (result.ok())
        sharedDictionary.insert(kInstalledPrinterDictKey, result.printer);
}

QueueCreator::QueueCreator(QueueCreationSettings settings) : m_settings(std::move(settings)) {}

QueueCreator::~QueueCreator()
{
    stop();
}

bool QueueCreator::start(QVariantMap printer, Completion completion, QueueCreationOptions options)
{
    return m_worker.start(
        [this, printer = std::move(printer), options = std::move(options)](std::stop_token stop) {
            return std::optional(createPrintQueueForPrinter(printer, m_settings, stop, options));
        },
        std::move(completion));
}

void QueueCreator::stop()
{
    m_worker.stop();
}

bool QueueCreator::isRunning() const
{
    return m_worker.isRunning();
}

} // namespace talvo
