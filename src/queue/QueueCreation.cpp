#include "queue/QueueCreation.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/QueueNaming.h"
#include "foundation/Settings.h"
#include "foundation/SystemCommand.h"
#include "queue/PpdInstantiation.h"
#include "queue/PpdLookup.h"
#include "queue/QueueLog.h"

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
    if (!namesQueueAsUSB(printer))
        return printer.value(kCUPSQueueNameKey).toString();
    return QStringLiteral("%1_%2").arg(
        vendorWithCaps, convertStrForCupsQueueName(printer.value(kPrinterModelStrKey).toString()));
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
    uriDescAndQueueNameForSocketPrinter(printer);
    return printer;
}

QueuePlan planPrintQueue(QVariantMap printer, const QueueCreationSettings& settings)
{
    QueuePlan plan;
    if (const QString missing = missingForQueue(printer); !missing.isEmpty()) {
        plan.error = QueueError::BadPrinter;
        plan.errorText = missing;
        return plan;
    }
    const QString model = printer.value(kPrinterModelStrKey).toString();
    const auto ppd =
        getPPDPathForModel(model, settings.supportedPrinters, settings.ppdFolder, settings.uiLanguages);
    if (!ppd) {
        plan.error = QueueError::PPDNotFound;
        plan.errorText = QStringLiteral("%1 (%2)").arg(ppdNotFoundText(), model);
        return plan;
    }
    printer.insert(kCUPSQueueNameKey, queueNameForPrinter(printer, settings.vendorWithCaps));
    plan.ppdPath = *ppd;
    plan.lpadmin = lpadminArguments(printer, *ppd);
    plan.printer = printer;
    return plan;
}

QueueCreationResult createPrintQueueForPrinter(QVariantMap printer, const QueueCreationSettings& settings,
                                               std::stop_token stop)
{
    qCInfo(lcQueue).noquote()
        << QStringLiteral("createPrintQueueForPrinter: %1").arg(printer.value(kIPAddrStrKey).toString());
    if (const QString missing = missingForQueue(printer); !missing.isEmpty())
        return failure(QueueError::BadPrinter, missing);

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

    printer.insert(kCUPSQueueNameKey, queueNameForPrinter(printer, settings.vendorWithCaps));

    // lpadmin reaches the scheduler the usual way (CUPS_SERVER, client.conf).
    ProcessOptions options;
    options.stopToken = stop;
    const ProcessResult run = runProcess(lpadminArguments(printer, ppd.path), options);
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

bool QueueCreator::start(QVariantMap printer, Completion completion)
{
    return m_worker.start(
        [this, printer = std::move(printer)](std::stop_token stop) {
            return std::optional(createPrintQueueForPrinter(printer, m_settings, stop));
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
