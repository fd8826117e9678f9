#include "discovery/UsbPrinterMonitor.h"

#include "discovery/DiscoveryLog.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/QueueNaming.h"
#include "foundation/SystemCommand.h"

#include <utility>

namespace talvo {

UsbPrinterMonitor::UsbPrinterMonitor(QString backendPath) : m_backendPath(std::move(backendPath)) {}

void UsbPrinterMonitor::setPrinterModels(std::function<QStringList()> models)
{
    m_printerModels = std::move(models);
}

void UsbPrinterMonitor::setOnPrinterFound(std::function<void(const QVariantMap&)> callback)
{
    m_onPrinterFound = std::move(callback);
}

void UsbPrinterMonitor::setOnPrinterDisconnected(std::function<void()> callback)
{
    m_onPrinterDisconnected = std::move(callback);
}

void UsbPrinterMonitor::reset()
{
    m_nextUSBDiscoveryTime = Clock::time_point::min();
}

void UsbPrinterMonitor::runIfDue(Clock::time_point now, std::stop_token stop)
{
    if (!(m_nextUSBDiscoveryTime < now) || stop.stop_requested())
        return;
    // The interval counts from before the backend runs, so a slow backend
    // does not stretch it.
    m_nextUSBDiscoveryTime =
        now + std::chrono::duration_cast<Clock::duration>(kUSBDiscoveryCheckTimeInterval);
    checkForSupportedUSBPrinter(std::move(stop));
}

void UsbPrinterMonitor::checkForSupportedUSBPrinter(std::stop_token stop)
{
    // A backend that cannot run, fails or is stopped says nothing about the
    // devices: nothing changes and the next poll tries again.
    ProcessOptions options;
    options.stopToken = std::move(stop);
    const ProcessResult run = runProcess({m_backendPath}, options);
    switch (run.status) {
    case ProcessResult::Status::Exited:
        if (run.exitCode == 0)
            break;
        note(QStringLiteral("USB backend %1 exited with status %2").arg(m_backendPath).arg(run.exitCode));
        return;
    case ProcessResult::Status::FailedToStart:
        note(QStringLiteral("USB backend cannot run: %1").arg(run.errorText));
        return;
    case ProcessResult::Status::Signalled:
    case ProcessResult::Status::TimedOut:
        note(QStringLiteral("USB backend %1 was killed").arg(m_backendPath));
        return;
    case ProcessResult::Status::Stopped:
        return;
    }

    // A backend that lists nothing at all has no device: every USB printer
    // is gone, and one reported before will be reported again on its return.
    const UsbListing listing = parseUsbListing(run.standardOutput);
    if (listing.reportsNoDevice) {
        m_discoveredUSBPrinterList.clear();
        m_lastProblem.clear();
        if (m_onPrinterDisconnected)
            m_onPrinterDisconnected();
        return;
    }
    // One poll looks at the first device and no further.
    if (!listing.entries.empty())
        considerDevice(listing.entries.front());
}

void UsbPrinterMonitor::considerDevice(const UsbListingEntry& entry)
{
    if (!entry.device) {
        note(QStringLiteral("USB device line not understood, ignored: %1").arg(entry.text));
        return;
    }
    m_lastProblem.clear();

    // Reported once per URI while attached; a model is supported only when
    // spelt exactly as configured.
    const UsbDevice& device = *entry.device;
    if (m_discoveredUSBPrinterList.contains(device.uri))
        return;
    const QStringList models = m_printerModels ? m_printerModels() : QStringList();
    if (!models.contains(device.model))
        return;

    const QVariantMap printer{
        {kPrinterModelStrKey, device.model}, {kQueueConnectionTypeStrKey, QString(kQueueTypeUSB)},
        {kCUPSPrinterURIKey, device.uri},    {kCUPSQueueNameKey, convertStrForCupsQueueName(device.model)},
        {kCUPSQueueDescKey, device.model},
    };
    m_discoveredUSBPrinterList.insert(device.uri, printer);
    if (m_onPrinterFound)
        m_onPrinterFound(printer);
}

void UsbPrinterMonitor::note(const QString& problem)
{
    if (problem == m_lastProblem)
        return;
    m_lastProblem = problem;
    qCDebug(lcDiscovery).noquote() << problem;
}

} // namespace talvo
