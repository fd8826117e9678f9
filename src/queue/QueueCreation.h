#pragma once

// Creating the CUPS queue of a chosen printer: its model, its PPD found and
// instantiated from the printer's own SNMP answers, its queue name, and
// lpadmin run from an argument vector. The created printer is the one to
// publish as "InstalledPrinter".
//
//     auto settings = talvo::QueueCreationSettings::fromPluginSettings(pluginSettings);
//     auto printer = talvo::prepareManualPrinter(probed, chosenModel, settings.supportedModels());
//     talvo::QueueCreator creator(settings);
//     creator.start(*printer, [receiver](const talvo::QueueCreationResult& r) {
//         // on the worker thread: hand it over to your own
//         QMetaObject::invokeMethod(receiver, [=] { receiver->queueCreated(r); }, Qt::QueuedConnection);
//     });
//     // r.ok(): talvo::setInstalledPrinter(shared, r.printer); else show r.errorText
//
//     talvo::QueuePlan plan = talvo::planPrintQueue(*printer, settings); // dry run: nothing runs

#include "foundation/Worker.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <functional>
#include <optional>
#include <stop_token>

namespace talvo {

inline constexpr char kLpadminProgram[] = "/usr/sbin/lpadmin";

struct QueueCreationSettings
{
    QVariantMap supportedPrinters; // "SupportedPrinters"
    QString ppdFolder;             // where the model PPDs are
    QStringList uiLanguages;       // the user's languages, for localized PPDs
    QString community;             // the SNMP read community the engine uses
    QString vendorWithCaps;        // prefix of USB queue names

    QStringList supportedModels() const { return supportedPrinters.keys(); }

    // From the plug-in settings: the PPD folder they name, the read community
    // of "DiscoverySettings", the system's UI languages, and the vendor word
    // (vendorWithCaps() once set, else the settings' "Vendor" capitalised).
    static QueueCreationSettings fromPluginSettings(const QVariantMap& settings);
};

enum class QueueError {
    None,
    BadPrinter,        // the dictionary lacks what a queue needs
    ModelNotSupported, // no supported model for the printer
    PPDNotFound,       // no PPD for the model, or it could not be instantiated
    LpadminFailed,     // lpadmin did not run or exited with an error
    SchedulerUnknown,  // the scheduler could not be asked which names are taken
    NameTaken,         // the name asked for is a queue's already
    Stopped,           // stopped before the queue was created
};

// How a creation names its queue and what it tells its caller on the way.
struct QueueCreationOptions
{
    // The name asked for; empty for the printer's own ("queueName", or the
    // vendor and model of a USB printer). The printer's own name never
    // replaces a queue: when taken, the first free "NAME_2", "NAME_3", ... is
    // used. A name asked for that is taken is refused unless `replace`.
    QString queueName;
    // Update the queue called `queueName` when it exists.
    bool replace = false;
    // Called on the creating thread just before lpadmin starts, with the
    // final name: the queue an interrupted caller has to look for.
    std::function<void(const QString& queueName)> lpadminStarting;
};

struct QueueCreationResult
{
    QueueError error = QueueError::None;
    // Why nothing was created: lpadmin's own error text when it failed.
    QString errorText;
    // The created printer (queue name, URI and description set): the
    // "InstalledPrinter" entry. Empty when nothing was created.
    QVariantMap printer;

    bool ok() const { return error == QueueError::None; }
};

// What creating the queue would run, without running it.
struct QueuePlan
{
    QueueError error = QueueError::None;
    QString errorText;
    QVariantMap printer; // with its final queue name
    QString ppdPath;     // the model's PPD; creation instantiates a copy of it
    QStringList lpadmin; // the argument vector, with ppdPath after "-P"
    // Why the final name may differ at creation (the scheduler could not be
    // asked which names are taken); empty when it was asked.
    QString warning;

    bool ok() const { return error == QueueError::None; }
};

// /usr/sbin/lpadmin -p QUEUE -E -v URI -P PPD -D DESCRIPTION, from the
// dictionary's "queueName", "URI" and "cupsDesc". Nothing else is given.
QStringList lpadminArguments(const QVariantMap& printer, const QString& ppdPath);

// True for a USB printer's dictionary; one without "queueType" counts as USB
// too and is named the same way.
bool namesQueueAsUSB(const QVariantMap& printer);
// The queue name a printer gets: vendorWithCaps "_" and the model made safe
// for a USB printer, else its own "queueName".
QString queueNameForPrinter(const QVariantMap& printer, const QString& vendorWithCaps);

// The dictionary of a USB printer as USB discovery makes it: model, "USB",
// the device URI, the model made safe as queue name and as description.
QVariantMap usbPrinterDict(const QString& deviceUri, const QString& model);

// A manual printer made ready for creation: its own model when supported,
// else `chosenModel` when supported (stored as its model), then its queue
// name, URI and description as for every network printer. nullopt when
// neither model is supported.
std::optional<QVariantMap> prepareManualPrinter(QVariantMap printer, const QString& chosenModel,
                                                const QStringList& supportedModels);

// The queue name a creation with these options would use, given the names
// the scheduler has taken; NameTaken, or BadPrinter for a name the scheduler
// would refuse, as the error otherwise.
QueueCreationResult chooseQueueName(const QVariantMap& printer, const QueueCreationSettings& settings,
                                    const QueueCreationOptions& options, const QStringList& taken);

// The dry run: the PPD looked up and the queue named (the scheduler asked
// which names are taken), nothing instantiated, nothing run.
QueuePlan planPrintQueue(QVariantMap printer, const QueueCreationSettings& settings,
                         const QueueCreationOptions& options = {});

// Creates the queue on the calling thread: the PPD found and instantiated
// (SNMP queries), the name chosen against the scheduler's queues, lpadmin run
// and waited for. Blocks; a stop kills what runs (lpadmin's whole process
// group).
QueueCreationResult createPrintQueueForPrinter(QVariantMap printer, const QueueCreationSettings& settings,
                                               std::stop_token stop = {},
                                               const QueueCreationOptions& options = {});

// Stores the created printer in the installer's shared dictionary under
// "InstalledPrinter" (only for a created queue).
void setInstalledPrinter(QVariantMap& sharedDictionary, const QueueCreationResult& result);

// One queue creation at a time, off the caller's thread, with one completion
// (success with the printer, or an error with its text). The completion runs
// on the worker thread and is not called for a creation that was stopped; it
// must not call back into this object (post the result to your own thread).
class QueueCreator
{
public:
    using Completion = std::function<void(const QueueCreationResult&)>;

    explicit QueueCreator(QueueCreationSettings settings);
    ~QueueCreator();
    QueueCreator(const QueueCreator&) = delete;
    QueueCreator& operator=(const QueueCreator&) = delete;

    // False (and nothing started) while a creation is still running.
    bool start(QVariantMap printer, Completion completion, QueueCreationOptions options = {});
    // Stops the running creation (lpadmin and SNMP queries killed) and waits.
    void stop();
    bool isRunning() const;

private:
    QueueCreationSettings m_settings;
    Worker<QueueCreationResult> m_worker;
};

} // namespace talvo
