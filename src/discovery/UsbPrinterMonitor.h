#pragma once

// Finds a supported printer attached by USB by running the CUPS usb backend
// every five seconds and reading the first device it lists; a discovery
// method the loop drives. The backend runs as a child the loop waits on
// without blocking, and one that hangs is killed after kBackendTimeout.
//
//     talvo::UsbPrinterMonitor usb;   // tests pass the path of a scripted backend
//     usb.setPrinterModels(models);
//     usb.start(now);                 // the first poll is due at once
//     ...                             // the discovery loop polls and calls process()
//
// A printer whose model is supported is reported once, as a printer
// dictionary with "queueType" "USB", for as long as it stays attached. When
// the backend lists no device at all, every USB printer counts as gone: the
// disconnection is reported (on every such poll) and a printer that comes
// back is reported again. A backend that fails, a line that cannot be read or
// a model that is not supported changes nothing and reports nothing. The
// printers reported stay known across stop() and start().
#include "discovery/DiscoveryMethod.h"
#include "discovery/UsbListing.h"

#include "foundation/ChildProcess.h"

#include <QLatin1StringView>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <chrono>
#include <memory>

namespace talvo {

class UsbPrinterMonitor : public DiscoveryMethod
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::duration<double> kUSBDiscoveryCheckTimeInterval{5.0};
    // The backend lists devices in tens of milliseconds; one still running
    // after this is hung, and is killed.
    static constexpr std::chrono::seconds kBackendTimeout{10};
    static constexpr QLatin1StringView kUSBBackendPath{"/usr/lib/cups/backend/usb"};

    explicit UsbPrinterMonitor(QString backendPath = QString(kUSBBackendPath));
    ~UsbPrinterMonitor() override;

    // Models are compared exactly, case included; none means no printer is
    // supported.
    void setPrinterModels(const QStringList& models) { m_printerModels = models; }

    // Polls at once, then every interval (counted from each poll's start).
    Status start(Clock::time_point now) override;
    // Kills a backend still running; nothing it said is used.
    void stop() override;
    bool running() const override { return m_running; }
    void addDescriptors(std::vector<pollfd>& fds) const override;
    std::optional<Clock::time_point> nextDeadline() const override;
    void process(std::span<const pollfd> fds, Clock::time_point now, MethodOutput& out) override;

private:
    void finished(const ProcessResult& run, MethodOutput& out);
    void considerDevice(const UsbListingEntry& entry, MethodOutput& out);
    void note(const QString& problem);

    QString m_backendPath;
    QStringList m_printerModels;
    bool m_running = false;
    Clock::time_point m_nextUSBDiscoveryTime{};
    std::unique_ptr<ChildProcess> m_backend;
    // The printers reported, under their device URI.
    QMap<QString, QVariantMap> m_discoveredUSBPrinterList;
    // The problem logged last, so that one that persists is logged once.
    QString m_lastProblem;
};

} // namespace talvo
