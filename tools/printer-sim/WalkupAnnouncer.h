#pragma once

// The printers' side of the walkup exchange (UDP port 1204): announcements
// (type 0) sent to a host or a broadcast address at an interval, the host's
// replies (type 1) recorded as events with their bytes, and the selection
// (type 2) a user would make on the printer's panel, sent on a timer. ONE
// socket on 0.0.0.0:1204 with IP_PKTINFO: each datagram leaves from its
// printer's address, and a reply is matched to the printer it was sent to.
//
//     auto plan = talvo::sim::WalkupPlan::fromOption(
//         QStringLiteral("printer=10.77.0.20,to=10.77.0.10,interval=0.2,select=0.5"));
//     talvo::sim::WalkupAnnouncer walkup({*plan.value}, printers);
//     if (QString e = walkup.open(); !e.isEmpty()) fail(e);
//     // poll every walkup.descriptors() for reading; once ready:
//     walkup.start();
//     if (walkup.owns(fd)) walkup.handle(fd);

#include "printer-sim/SimulatedPrinter.h"

#include <QByteArray>
#include <QString>

#include <netinet/in.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

namespace talvo::sim {

// One --walkup option.
struct WalkupPlan
{
    QString printer;           // a simulated printer's address
    uint32_t printerValue = 0; // the same, network order
    QString to;                // where announcements go
    uint32_t toValue = 0;      // the same, network order
    std::chrono::milliseconds interval{1000};
    int count = -1; // announcements in all; -1: no end
    std::optional<std::chrono::milliseconds> selectAfterReply;
    std::optional<std::chrono::milliseconds> selectAt; // after start()
    QString user{QStringLiteral("walkup")};            // the selection's name when no reply came
    QString status{QStringLiteral("1")};

    // From "key=value,key=value,...".
    static Parsed<WalkupPlan> fromOption(const QString& text);
    // The option's help: keys and events.
    static QString helpText();
};

class WalkupAnnouncer
{
public:
    WalkupAnnouncer(std::vector<WalkupPlan> plans, const std::vector<SimulatedPrinter>& printers);
    ~WalkupAnnouncer();
    WalkupAnnouncer(const WalkupAnnouncer&) = delete;
    WalkupAnnouncer& operator=(const WalkupAnnouncer&) = delete;

    // Checks that each plan names a simulated printer, binds the socket and
    // makes the timer. The error text, or empty. Nothing to do without plans.
    QString open();
    // The socket and the timer, once open.
    std::vector<int> descriptors() const;
    bool owns(int fd) const { return fd >= 0 && (fd == m_socket || fd == m_timer); }

    // The first announcements go out now; timers count from now.
    void start();
    // Reads what waits on `fd`: replies, or the timer's expiry.
    void handle(int fd);

private:
    using Clock = std::chrono::steady_clock;
    struct State
    {
        WalkupPlan plan;
        const SimulatedPrinter* printer = nullptr;
        int announcementsLeft = -1;
        std::optional<Clock::time_point> nextAnnouncement;
        std::optional<Clock::time_point> selection;
        bool replied = false;
        sockaddr_in replier{};
        QString repliedUser;
    };

    void readReplies();
    void runDueActions();
    void rearm();
    bool send(const State& state, const QByteArray& datagram, const sockaddr_in& to);
    QByteArray packet(const State& state, const QByteArray& tags) const;

    std::vector<State> m_states;
    const std::vector<SimulatedPrinter>& m_printers;
    int m_socket = -1;
    int m_timer = -1;
};

} // namespace talvo::sim
