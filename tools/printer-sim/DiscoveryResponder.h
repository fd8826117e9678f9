#pragma once

// The printers' side of the broadcast discovery: ONE socket on 0.0.0.0:1200
// (a socket bound to a unicast address would hear no broadcasts) with
// IP_PKTINFO, so each request shows where it was sent and on which interface
// it arrived. A request to a printer's address is answered by that printer; a
// broadcast by every printer on the receiving interface. Each reply leaves
// from its printer's own address, to the request's source address and port.
//
//     talvo::sim::DiscoveryResponder responder(printers);
//     if (QString e = responder.open(1200); !e.isEmpty()) fail(e);
//     // poll responder.socket() for reading, and for writing while
//     // responder.hasPendingReplies():
//     responder.readRequests();
//     responder.sendPendingReplies();

#include "discovery/DatagramSocket.h"
#include "printer-sim/SimulatedPrinter.h"

#include <QByteArray>
#include <QString>

#include <netinet/in.h>

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <vector>

namespace talvo::sim {

class DiscoveryResponder
{
public:
    explicit DiscoveryResponder(const std::vector<SimulatedPrinter>& printers);
    ~DiscoveryResponder();
    DiscoveryResponder(const DiscoveryResponder&) = delete;
    DiscoveryResponder& operator=(const DiscoveryResponder&) = delete;

    // Maps every printer address to its interface (each must be an address
    // of this namespace) and binds the socket. The error text, or empty.
    QString open(uint16_t port);
    int socket() const { return m_socket; }

    // Reads every waiting request, logs it and queues the replies.
    void readRequests();
    // Sends queued replies until the socket's buffer is full.
    void sendPendingReplies();
    bool hasPendingReplies() const { return !m_pending.empty(); }

private:
    struct Responder
    {
        const SimulatedPrinter* printer = nullptr;
        in_addr source{};
        unsigned interfaceIndex = 0;
        std::vector<QByteArray> datagrams; // built once
    };
    struct PendingReply
    {
        const Responder* responder = nullptr;
        const QByteArray* datagram = nullptr;
        sockaddr_in destination{};
    };

    void handle(const Datagram& received);
    void queueReplies(const Responder& responder, const sockaddr_in& destination);

    const std::vector<SimulatedPrinter>& m_printers;
    std::vector<Responder> m_responders;
    std::map<uint32_t, const Responder*> m_byAddress;                // network order
    std::map<unsigned, std::vector<const Responder*>> m_byInterface; // interface index
    std::map<unsigned, std::set<uint32_t>> m_broadcastAddresses;     // per interface
    std::deque<PendingReply> m_pending;
    int m_socket = -1;
};

} // namespace talvo::sim
