#pragma once

// Finds a supported printer attached by USB by running the CUPS usb backend
// every five seconds and reading the first device it lists. The engine keeps
// one monitor for its life and its work thread calls it once per pass:
//
//     talvo::UsbPrinterMonitor usb;   // tests pass the path of a scripted backend
//     usb.setPrinterModels([this] { return printerModels(); });
//     usb.setOnPrinterFound([this](const QVariantMap& printer) { forwardToMainThread(printer); });
//     usb.setOnPrinterDisconnected([this] { forwardDisconnectionToMainThread(); });
//     usb.reset();                    // at start: the first pass polls at once
//     ...
//     if (m_useUSBDiscovery)          // every pass of the work thread
//         usb.runIfDue(std::chrono::steady_clock::now(), stop);
//
// A printer whose model is supported is reported once, as a printer
// dictionary with "queueType" "USB", for as long as it stays attached. When
// the backend lists no device at all, every USB printer counts as gone: the
// disconnection is reported (on every such poll) and a printer that comes
// back is reported again. A backend that fails, a line that cannot be read or
// a model that is not supported changes nothing and reports nothing.
//
// Not thread-safe: one thread calls everything, and the callbacks run on it.

#include "discovery/UsbListing.h"

#include <QLatin1StringView>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <chrono>
#include <functional>
#include <stop_token>

namespace talvo {

class UsbPrinterMonitor
{
public:
    using Clock = std::chrono::steady_clock;

    static constexpr std::chrono::duration<double> kUSBDiscoveryCheckTimeInterval{5.0};
    static constexpr QLatin1StringView kUSBBackendPath{"/usr/lib/cups/backend/usb"};

    explicit UsbPrinterMonitor(QString backendPath = QString(kUSBBackendPath));

    // Asked on every poll, on the polling thread; no models means no printer
    // is supported. Models are compared exactly, case included.
    void setPrinterModels(std::function<QStringList()> models);
    void setOnPrinterFound(std::function<void(const QVariantMap& printer)> callback);
    void setOnPrinterDisconnected(std::function<void()> callback);

    // Makes the next call to runIfDue poll (a new monitor is due too). The
    // printers already reported stay reported.
    void reset();

    // Polls when the interval since the previous poll's start has passed
    // (strictly); the next poll is due an interval after `now`. Blocks
    // until the backend exits; a stop request kills it and reports nothing.
    void runIfDue(Clock::time_point now, std::stop_token stop);

private:
    void checkForSupportedUSBPrinter(std::stop_token stop);
    void considerDevice(const UsbListingEntry& entry);
    void note(const QString& problem);

    QString m_backendPath;
    std::function<QStringList()> m_printerModels;
    std::function<void(const QVariantMap&)> m_onPrinterFound;
    std::function<void()> m_onPrinterDisconnected;
    Clock::time_point m_nextUSBDiscoveryTime = Clock::time_point::min();
    // The printers reported, under their device URI.
    QMap<QString, QVariantMap> m_discoveredUSBPrinterList;
    // The problem logged last, so that one that persists is logged once.
    QString m_lastProblem;
};

} // namespace talvo
