#pragma once

// The host's side of the walkup exchange on UDP port 1204. While it runs, a
// thread of its own waits (never spinning) on the socket and a wake-up
// descriptor; it answers every printer's announcement with the user's name
// and remembers the printer. When the user picks that name on a remembered
// printer's panel, the printer is identified over SNMP and reported as a
// beaconed printer, and the session ends: the socket is closed, and a new
// session needs start() again.
//
//     talvo::WalkupListener walkup([&](const QVariantMap& printer) { post(printer); });
//     if (QString e = walkup.start(talvo::defaultWalkupUserName(), community); !e.isEmpty())
//         warn(e);                                 // listening anyway, as the engine expects
//     ...                                          // net-snmp pumped on some thread
//     walkup.stop();                               // at once; or it ends after a selection
//
// The beaconed printer holds "in_addr_t" (the address the selection arrived
// on: the host's own or a broadcast address, not the printer's), then
// "printerModel", "macAddr" and "ipAddr" from the printer's announcement, the
// SNMP answers when the query succeeded, queue name, URI and description, and
// "queueType" "Raw TCP". A printer whose agent stays silent is reported after
// the SNMP time-out with the walkup data alone.

#include "discovery/WalkupPacket.h"

#include <QMap>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace talvo {

// The name sent to printers by default: the full name of the user's passwd
// entry (its first comma-separated field), else the login name.
QString defaultWalkupUserName();

class WalkupListener
{
public:
    // Runs on the thread that pumps net-snmp, while the listener exists; it
    // must not wait for the thread that destroys the listener.
    using BeaconedCallback = std::function<void(const QVariantMap& printer)>;
    // Run on the listener's thread: each announcement once answered, and the
    // end of a session that a selection ended (the port is free by then; to
    // start again, post to the owner's thread).
    using AnnouncedCallback = std::function<void(const WalkupPacket& announcement)>;
    using EndedCallback = std::function<void()>;

    explicit WalkupListener(BeaconedCallback onBeaconed, AnnouncedCallback onAnnounced = {},
                            EndedCallback onEnded = {});
    ~WalkupListener();
    WalkupListener(const WalkupListener&) = delete;
    WalkupListener& operator=(const WalkupListener&) = delete;

    // Opens the socket in the caller's network namespace (IPv4 UDP, destination
    // and interface reported, non-blocking, bound to any address, port 1204)
    // and starts the thread. Packets carry the process-wide vendor word, read
    // now. Each failing step is logged and the next one tried; the first
    // failure's text is returned (empty when listening). While running, only
    // the user name and community are updated. start() and stop() belong to
    // the owner's thread.
    QString start(const QString& userName, const QString& community);
    // Ends the session at once: the thread is joined and the socket closed.
    void stop();
    // True from start() until a selection or stop() ends the session: the
    // engine's walkup switch.
    bool isRunning() const { return m_useSorlenWalkup; }

    // The name in the replies from the next announcement on.
    void setUserName(const QString& userName);
    // The printers that announced themselves and were not selected yet, by
    // dotted address from their packets. Kept across sessions.
    QMap<QString, WalkupPacket> walkupList() const;

private:
    struct Lifeline;

    void walkupThread(const std::stop_token& stop);
    // Reads every waiting datagram whole and handles it.
    void readSorlenWalkupPackets(int socket);
    void handleType0WalkupPacket(int socket, const WalkupPacket& packet);
    void handleType2WalkupPacket(const WalkupPacket& packet);
    void stopSorlenWalkup();

    AnnouncedCallback m_onAnnounced;
    EndedCallback m_onEnded;
    std::atomic<bool> m_useSorlenWalkup = false;
    std::atomic<int> m_sorlenWalkupSocket = -1;
    int m_wakeFd = -1;
    QString m_vendor; // set before the thread starts, then read by it only

    mutable std::mutex m_mutex; // the three below
    QString m_userName;
    QString m_community;
    QMap<QString, WalkupPacket> m_walkupList;

    std::jthread m_thread;
    // Shared with SNMP callbacks, which may run after the listener is gone.
    std::shared_ptr<Lifeline> m_lifeline;
};

} // namespace talvo
