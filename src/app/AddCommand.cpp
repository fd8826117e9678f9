// talvo-printers add: the CUPS queue of a manual (--address) or USB
// (--usb-uri) printer created as the pane creates it, or only shown
// (--dry-run).

#include "app/CliSupport.h"
#include "app/PrinterJson.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/QueueNaming.h"
#include "queue/PrinterProbe.h"
#include "queue/QueueCreation.h"
#include "queue/SchedulerQueues.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <future>
#include <mutex>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace talvo::cli {
namespace {

// The write end of InterruptWatch's pipe, for its signal handler.
int g_interruptFd = -1;

extern "C" void noteInterrupt(int)
{
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const ssize_t n = ::write(g_interruptFd, &byte, 1);
    errno = saved;
}

// SIGINT and SIGTERM while the command works. Dying at once would leave
// lpadmin running in its own process group, so a queue could appear after the
// user gave up; instead the signal is noted here and the waiting thread stops
// the work and says what is left. One watch at a time.
class InterruptWatch
{
public:
    InterruptWatch()
    {
        if (::pipe2(m_pipe, O_CLOEXEC | O_NONBLOCK) != 0)
            return;
        g_interruptFd = m_pipe[1];
        struct sigaction action = {};
        action.sa_handler = noteInterrupt;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        sigaction(SIGINT, &action, &m_oldInt);
        sigaction(SIGTERM, &action, &m_oldTerm);
    }
    ~InterruptWatch()
    {
        if (g_interruptFd < 0)
            return;
        sigaction(SIGINT, &m_oldInt, nullptr);
        sigaction(SIGTERM, &m_oldTerm, nullptr);
        g_interruptFd = -1;
        ::close(m_pipe[0]);
        ::close(m_pipe[1]);
    }
    InterruptWatch(const InterruptWatch&) = delete;
    InterruptWatch& operator=(const InterruptWatch&) = delete;

    // The future's value, or nullopt when a signal came first.
    template <typename T> std::optional<T> wait(std::future<T>& future) const
    {
        using namespace std::chrono_literals;
        while (future.wait_for(0s) != std::future_status::ready) {
            pollfd fd{m_pipe[0], POLLIN, 0};
            if (::poll(&fd, 1, 50) > 0)
                return std::nullopt;
        }
        return future.get();
    }

private:
    int m_pipe[2] = {-1, -1};
    struct sigaction m_oldInt = {};
    struct sigaction m_oldTerm = {};
};

int interrupted(const QString& what)
{
    err() << "talvo-printers: interrupted; " << what << Qt::endl;
    return kInterrupted;
}

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
    return displayText(words.join(u' '));
}

// What the probe of a manual printer's address ended in.
struct ManualPrinter
{
    std::optional<QVariantMap> printer;
    int exitCode = kOk; // when there is no printer
};

// The manual printer at the address, made ready for creation; without one,
// the reason told and the exit code to end with.
ManualPrinter manualPrinter(const Context& context, const InterruptWatch& watch, const QString& address,
                            const QString& model, const QStringList& supported)
{
    if (!context.json)
        err() << "Probing " << address << " for its model" << Qt::endl;
    std::promise<ProbeOutcome> probed;
    PrinterProbe probe(ProbeSettings::fromPluginSettings(context.settings));
    if (!probe.start(address, [&probed](const ProbeOutcome& o) { probed.set_value(o); })) {
        err() << "talvo-printers: cannot start the probe's thread" << Qt::endl;
        return {std::nullopt, kFailed};
    }
    std::future<ProbeOutcome> future = probed.get_future();
    const auto outcome = watch.wait(future);
    if (!outcome) {
        probe.stop();
        return {std::nullopt, interrupted(QStringLiteral("no queue was created"))};
    }
    if (outcome->result == ProbeResult::InvalidAddress) {
        err() << "talvo-printers: add: " << address
              << " is neither an IPv4 address nor a host name that resolves" << Qt::endl;
        return {std::nullopt, kBadArguments};
    }
    const QString found = outcome->printer.value(kPrinterModelStrKey).toString();
    auto printer = prepareManualPrinter(outcome->printer, model, supported);
    if (!printer) {
        err() << "talvo-printers: the printer at " << address << " (" << probeResultName(outcome->result)
              << (found.isEmpty() ? QString() : QStringLiteral(", model ") + displayText(found))
              << ") names no supported model; give --model with one of: " << supportedList(supported)
              << Qt::endl;
        return {std::nullopt, kFailed};
    }
    if (!model.isEmpty() && model != found && outcome->result == ProbeResult::Supported)
        err() << "talvo-printers: the printer names its model, " << displayText(found) << "; --model "
              << model << " is not used" << Qt::endl;
    return {std::move(printer), kOk};
}

int dryRun(const Context& context, const QVariantMap& printer, const QueueCreationSettings& settings,
           const QueueCreationOptions& options)
{
    const QueuePlan plan = planPrintQueue(printer, settings, options);
    if (!plan.ok()) {
        err() << "talvo-printers: " << displayText(plan.errorText) << Qt::endl;
        return kFailed;
    }
    if (!plan.warning.isEmpty())
        err() << "talvo-printers: " << displayText(plan.warning) << "; the queue name shown may be taken"
              << Qt::endl;
    if (context.json) {
        const QJsonObject object{{QStringLiteral("dryRun"), true},
                                 {QStringLiteral("lpadmin"), QJsonArray::fromStringList(plan.lpadmin)},
                                 {QStringLiteral("ppd"), plan.ppdPath},
                                 {QStringLiteral("printer"), printerToJson(plan.printer)}};
        out() << QJsonDocument(object).toJson(QJsonDocument::Compact) << Qt::endl;
    } else {
        out() << "Would run: " << commandText(plan.lpadmin) << Qt::endl;
        out() << "with a copy of " << plan.ppdPath << " instantiated from the printer's answers" << Qt::endl;
    }
    return kOk;
}

// After an interrupt: whether the queue lpadmin was making exists. lpadmin's
// whole process group is gone by now, so nothing will create it later.
QString whatIsLeft(const QString& queue)
{
    if (queue.isEmpty())
        return QStringLiteral("lpadmin had not started; no queue was created");
    QString why;
    const auto names = schedulerQueueNames(&why);
    if (!names)
        return QStringLiteral("lpadmin was stopped; whether the queue %1 exists is unknown (%2)")
            .arg(displayText(queue), displayText(why));
    return isQueueNameTaken(queue, *names)
               ? QStringLiteral("lpadmin was stopped; the queue %1 exists").arg(displayText(queue))
               : QStringLiteral("lpadmin was stopped; the queue %1 does not exist").arg(displayText(queue));
}

} // namespace

int runAdd(const Context& context)
{
    const QCommandLineParser& parser = context.parser;
    const QStringList addresses = parser.values(QStringLiteral("address"));
    const bool usb = parser.isSet(QStringLiteral("usb-uri"));
    const QString usbUri = parser.value(QStringLiteral("usb-uri"));
    const QString model = parser.value(QStringLiteral("model"));
    QueueCreationOptions options;
    options.queueName = parser.value(QStringLiteral("queue"));
    options.replace = parser.isSet(QStringLiteral("replace"));
    const auto badArguments = [](const QString& why) {
        err() << "talvo-printers: add: " << why << "; see --help" << Qt::endl;
        return kBadArguments;
    };
    if (usb == !addresses.isEmpty())
        return badArguments(QStringLiteral("give either --address ADDRESS or --usb-uri URI"));
    if (addresses.size() > 1)
        return badArguments(QStringLiteral("give one --address"));
    const QString address = addresses.value(0).trimmed();
    if (!usb && !isIPv4OrHostNameText(address))
        return badArguments(
            QStringLiteral("\"%1\" is neither an IPv4 address (four decimal octets) nor a host name")
                .arg(displayText(addresses.value(0))));
    if (usb && !usbUri.startsWith(QStringLiteral("usb://")))
        return badArguments(QStringLiteral("--usb-uri takes a USB printer's device URI (usb://...)"));
    if (usb && model.isEmpty())
        return badArguments(QStringLiteral("--usb-uri needs --model MODEL"));
    if (parser.isSet(QStringLiteral("model")) && model.isEmpty())
        return badArguments(QStringLiteral("--model needs a model name"));
    if (parser.isSet(QStringLiteral("queue"))) {
        if (const QString problem = queueNameProblem(options.queueName); !problem.isEmpty())
            return badArguments(
                QStringLiteral("--queue \"%1\": %2").arg(displayText(options.queueName), problem));
    }
    if (options.replace && options.queueName.isEmpty())
        return badArguments(QStringLiteral("--replace needs --queue NAME"));

    const QueueCreationSettings settings = QueueCreationSettings::fromPluginSettings(context.settings);
    const QStringList supported = settings.supportedModels();
    if (!model.isEmpty() && !supported.contains(model)) {
        err() << "talvo-printers: " << model
              << " is not a supported model; supported: " << supportedList(supported) << Qt::endl;
        return kFailed;
    }

    const InterruptWatch watch;
    QVariantMap printer;
    if (usb) {
        printer = usbPrinterDict(usbUri, model);
    } else {
        ManualPrinter manual = manualPrinter(context, watch, address, model, supported);
        if (!manual.printer)
            return manual.exitCode;
        printer = std::move(*manual.printer);
    }

    if (parser.isSet(QStringLiteral("dry-run")))
        return dryRun(context, printer, settings, options);

    // Created off this thread, as the pane does; this thread waits for the
    // result or a signal, and learns the final name before lpadmin starts.
    std::mutex nameLock;
    QString lpadminQueue;
    options.lpadminStarting = [&nameLock, &lpadminQueue](const QString& queue) {
        const std::lock_guard lock(nameLock);
        lpadminQueue = queue;
    };
    std::promise<QueueCreationResult> done;
    QueueCreator creator(settings);
    if (!creator.start(
            printer, [&done](const QueueCreationResult& r) { done.set_value(r); }, options)) {
        err() << "talvo-printers: cannot start the queue creation's thread" << Qt::endl;
        return kFailed;
    }
    std::future<QueueCreationResult> future = done.get_future();
    const auto result = watch.wait(future);
    if (!result) {
        creator.stop();
        const std::lock_guard lock(nameLock);
        return interrupted(whatIsLeft(lpadminQueue));
    }
    if (!result->ok()) {
        err() << "talvo-printers: " << displayText(result->errorText)
              << (result->error == QueueError::NameTaken ? QStringLiteral("; choose another --queue, or give "
                                                                          "--replace to update that queue")
                                                         : QString())
              << Qt::endl;
        return kFailed;
    }
    if (context.json)
        out() << QJsonDocument(printerToJson(result->printer)).toJson(QJsonDocument::Compact) << Qt::endl;
    else
        out() << "Created " << printerToText(result->printer) << Qt::endl;
    return kOk;
}

} // namespace talvo::cli
