#include "discovery/UsbPrinterMonitor.h"

#include "discovery/DiscoveryLog.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/QueueNaming.h"

#include <utility>

namespace talvo {

UsbPrinterMonitor::UsbPrinterMonitor(QString backendPath) : m_backendPath(std::move(backendPath)) {}

UsbPrinterMonitor::~UsbPrinterMonitor() = default;

Status UsbPrinterMonitor::start(Clock::time_point now)
{
    m_running = true;
    m_nextUSBDiscoveryTime = now;
    return Status::ok();
}

void UsbPrinterMonitor::stop()
{
    m_running = false;
    m_backend.reset();
}

void UsbPrinterMonitor::addDescriptors(std::vector<pollfd>& fds) const
{
    if (!m_backend)
        return;
    for (const int fd : m_backend->descriptors())
        fds.push_back({fd, POLLIN, 0});
}

std::optional<UsbPrinterMonitor::Clock::time_point> UsbPrinterMonitor::nextDeadline() const
{
    if (!m_running)
        return std::nullopt;
    return m_backend ? m_backend->deadline() : m_nextUSBDiscoveryTime;
}

void UsbPrinterMonitor::process(std::span<const pollfd>, Clock::time_point now, MethodOutput& out)
{
    if (!m_running)
        return;
    if (m_backend) {
        if (m_backend->process(now)) {
            const ProcessResult run = m_backend->result();
            m_backend.reset();
            finished(run, out);
        }
        return;
    }
    if (now < m_nextUSBDiscoveryTime)
        return;
    // The interval counts from the poll's start, so a slow backend does not
    // stretch it.
    m_nextUSBDiscoveryTime =
        now + std::chrono::duration_cast<Clock::duration>(kUSBDiscoveryCheckTimeInterval);
    QString error;
    m_backend = ChildProcess::start({m_backendPath}, kBackendTimeout, now, &error);
    if (!m_backend)
        note(QStringLiteral("USB backend cannot run: %1").arg(error));
}

void UsbPrinterMonitor::finished(const ProcessResult& run, MethodOutput& out)
{
    // A backend that cannot run, fails or is killed says nothing about the
    // devices: nothing changes and the next poll tries again.
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
        out.events.push_back({DiscoveryEvent::Kind::UsbPrinterDisconnected, {}, {}});
        return;
    }
    // One poll looks at the first device and no further.
    if (!listing.entries.empty())
        considerDevice(listing.entries.front(), out);
}

void UsbPrinterMonitor::considerDevice(const UsbListingEntry& entry, MethodOutput& out)
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
    if (!m_printerModels.contains(device.model))
        return;

    const QVariantMap printer{
        {kPrinterModelStrKey, device.model}, {kQueueConnectionTypeStrKey, QString(kQueueTypeUSB)},
        {kCUPSPrinterURIKey, device.uri},    {kCUPSQueueNameKey, convertStrForCupsQueueName(device.model)},
        {kCUPSQueueDescKey, device.model},
    };
    m_discoveredUSBPrinterList.insert(device.uri, printer);
    out.events.push_back({DiscoveryEvent::Kind::PrinterDiscovered, printer, {}});
}

void UsbPrinterMonitor::note(const QString& problem)
{
    if (problem == m_lastProblem)
        return;
    m_lastProblem = problem;
    qCDebug(lcDiscovery).noquote() << problem;
}

} // namespace talvo
