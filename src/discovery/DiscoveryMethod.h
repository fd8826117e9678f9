#pragma once

// One way of finding printers (the broadcast discovery, Bonjour, walkup, USB),
// as the discovery loop drives it. The loop owns one work thread; every
// method's descriptors and deadlines are waited on there, in one poll, and a
// method never blocks: it reads what is ready, at most a bounded amount per
// call, and says what it found as values.
//
//     class UsbMethod : public talvo::DiscoveryMethod { ... };
//     std::vector<pollfd> fds;
//     method.addDescriptors(fds);
//     ::poll(fds.data(), fds.size(), untilDeadline);
//     talvo::MethodOutput out;
//     method.process(fds, Clock::now(), out);   // out.events, out.identify, out.learnFrom
//
// Everything here runs on the loop's work thread, or on the engine's thread
// while the loop is stopped: never on two threads at once.

#include "foundation/Status.h"

#include <QString>
#include <QVariantMap>

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace talvo {

using DiscoveryClock = std::chrono::steady_clock;

// What the engine tells its clients, as values.
struct DiscoveryEvent
{
    enum class Kind {
        PrinterDiscovered,      // printer: a complete printer dictionary
        PrinterBeaconed,        // printer: the printer selected on its panel by walkup
        UsbPrinterDisconnected, // the usb backend lists no device
        WalkupAnnounced,        // printer: "ipAddr", "printerModel", "macAddr" of an answered announcement
        WalkupSelected,         // a selection ended the walkup session (its printer follows, beaconed)
        WalkupEnded,            // text: why the walkup listener stopped on its own
    };
    Kind kind = Kind::PrinterDiscovered;
    QVariantMap printer;
    QString text;
};

// A printer to complete over SNMP before it is reported.
struct IdentifyRequest
{
    enum class Report { Discovered, Beaconed };
    QVariantMap printer;
    uint32_t address = 0; // network order: where its agent answers
    Report report = Report::Discovered;
};

struct MethodOutput
{
    std::vector<DiscoveryEvent> events;    // reported as they are
    std::vector<IdentifyRequest> identify; // identified over SNMP, then reported
    std::vector<uint32_t> learnFrom;       // asked only for the networks they know
};

class DiscoveryMethod
{
public:
    virtual ~DiscoveryMethod() = default;

    // Opens what the method needs (sockets, a browse). A failure is logged by
    // the caller and leaves the method stopped.
    virtual Status start(DiscoveryClock::time_point now) = 0;
    virtual void stop() = 0;
    virtual bool running() const = 0;

    // The descriptors to wait on, appended to `fds` (events set, revents 0).
    virtual void addDescriptors(std::vector<pollfd>& fds) const = 0;
    // When the method next needs to run without any descriptor being ready.
    virtual std::optional<DiscoveryClock::time_point> nextDeadline() const = 0;
    // Serves the ready descriptors among `fds` and whatever fell due by `now`.
    virtual void process(std::span<const pollfd> fds, DiscoveryClock::time_point now, MethodOutput& out) = 0;

protected:
    // True when `fd` is among `fds` with something to read (or an error).
    static bool isReady(std::span<const pollfd> fds, int fd)
    {
        for (const pollfd& p : fds) {
            if (p.fd == fd)
                return (p.revents & (POLLIN | POLLERR | POLLHUP)) != 0;
        }
        return false;
    }
};

} // namespace talvo
