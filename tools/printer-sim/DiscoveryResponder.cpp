#include "printer-sim/DiscoveryResponder.h"
#include "foundation/NetworkAddress.h"
#include "printer-sim/SimSocket.h"

#include "discovery/BroadcastPacket.h"
#include "discovery/DatagramSocket.h"
#include "printer-sim/EventLog.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace talvo::sim {
namespace {

// Far more than a burst of answers to one broadcast; beyond it a flood of
// requests is shed instead of growing without bound.
constexpr std::size_t kMaxPendingReplies = 200000;
constexpr int kSocketBuffer = 4 * 1024 * 1024;

uint32_t ipv4Of(const sockaddr* address)
{
    sockaddr_in copy{}; // copied: a sockaddr is not aligned for a sockaddr_in
    std::memcpy(&copy, address, sizeof copy);
    return copy.sin_addr.s_addr;
}

void warn(const QString& message)
{
    std::fprintf(stderr, "talvo-printer-sim: %s\n", message.toLocal8Bit().constData());
}

// A buffer as large as the kernel lets us have: bursts of thousands of
// requests or replies. SO_RCVBUFFORCE passes rmem_max when we are root.
void enlargeBuffers(int socket)
{
    for (const auto& [force, plain] : {std::pair{SO_RCVBUFFORCE, SO_RCVBUF}, {SO_SNDBUFFORCE, SO_SNDBUF}}) {
        if (::setsockopt(socket, SOL_SOCKET, force, &kSocketBuffer, sizeof kSocketBuffer) != 0)
            ::setsockopt(socket, SOL_SOCKET, plain, &kSocketBuffer, sizeof kSocketBuffer);
    }
}

} // namespace

DiscoveryResponder::DiscoveryResponder(const std::vector<SimulatedPrinter>& printers) : m_printers(printers)
{}

DiscoveryResponder::~DiscoveryResponder()
{
    if (m_socket >= 0)
        ::close(m_socket);
}

QString DiscoveryResponder::open(uint16_t port)
{
    // Which interface holds each address, and each interface's broadcast addresses.
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0)
        return QStringLiteral("getifaddrs: ") + QString::fromLocal8Bit(std::strerror(errno));
    std::map<uint32_t, unsigned> interfaceOf;
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next) {
        if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != AF_INET)
            continue;
        // An address label ("eth0:1") names its interface before the colon.
        const QByteArray name = QByteArray(entry->ifa_name).split(':').value(0);
        const unsigned index = ::if_nametoindex(name.constData());
        interfaceOf.emplace(ipv4Of(entry->ifa_addr), index);
        if ((entry->ifa_flags & IFF_BROADCAST) != 0 && entry->ifa_broadaddr != nullptr)
            m_broadcastAddresses[index].insert(ipv4Of(entry->ifa_broadaddr));
    }
    ::freeifaddrs(list);

    m_responders.reserve(m_printers.size());
    for (const SimulatedPrinter& printer : m_printers) {
        const auto found = interfaceOf.find(printer.addressValue);
        if (found == interfaceOf.end())
            return QStringLiteral("%1 is not an address of this network namespace (see ip -4 addr); "
                                  "the simulator never adds addresses")
                .arg(printer.address);
        Responder responder;
        responder.printer = &printer;
        responder.source.s_addr = printer.addressValue;
        responder.interfaceIndex = found->second;
        responder.datagrams = printer.replyDatagrams();
        m_responders.push_back(std::move(responder));
    }
    for (const Responder& responder : m_responders) {
        if (!m_byAddress.emplace(responder.source.s_addr, &responder).second)
            return QStringLiteral("two printers have the address %1").arg(responder.printer->address);
        m_byInterface[responder.interfaceIndex].push_back(&responder);
    }

    m_socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_socket < 0)
        return QStringLiteral("socket: ") + QString::fromLocal8Bit(std::strerror(errno));
    const int on = 1;
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(port);
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    if (::setsockopt(m_socket, IPPROTO_IP, IP_PKTINFO, &on, sizeof on) != 0 ||
        ::bind(m_socket, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0)
        return QStringLiteral("cannot bind UDP 0.0.0.0:%1: %2")
            .arg(port)
            .arg(QString::fromLocal8Bit(std::strerror(errno)));
    enlargeBuffers(m_socket);
    return {};
}

void DiscoveryResponder::readRequests()
{
    // A bounded batch, so signals and the replies' sending get their turn.
    for (int i = 0; i < 256; ++i) {
        const Datagram d = readWithAddresses(m_socket, 65536); // any UDP datagram whole
        if (d.count < 0) {
            if (d.error != EAGAIN && d.error != EINTR)
                warn(QStringLiteral("recvmsg: ") + QString::fromLocal8Bit(std::strerror(d.error)));
            return;
        }
        handle(d);
    }
}

void DiscoveryResponder::handle(const Datagram& received)
{
    const sockaddr_in from = received.sourceAddress();
    const uint32_t destination = received.destination;
    const QString to = stringForInetAddr(destination);
    const std::optional<broadcast::ParsedRequest> request = broadcast::parseRequest(received.bytes);
    if (!request) {
        EventLog::dropped(endpointText(from), to, received.bytes.size(), QStringLiteral("malformed request"));
        return;
    }
    const auto interfaceIndex = static_cast<unsigned>(received.interfaceIndex);
    EventLog::request(endpointText(from), to, interfaceIndex, stringForInetAddr(request->replyAddr),
                      request->knownPrinterAddresses);

    const auto broadcasts = m_broadcastAddresses.find(interfaceIndex);
    const bool isBroadcast =
        destination == htonl(INADDR_BROADCAST) ||
        (broadcasts != m_broadcastAddresses.end() && broadcasts->second.contains(destination));
    const auto onInterface = m_byInterface.find(interfaceIndex);
    if (const auto printer = m_byAddress.find(destination); printer != m_byAddress.end()) {
        queueReplies(*printer->second, from);
    } else if (isBroadcast && onInterface != m_byInterface.end()) {
        for (const Responder* responder : onInterface->second)
            queueReplies(*responder, from);
    }
    sendPendingReplies();
}

void DiscoveryResponder::queueReplies(const Responder& responder, const sockaddr_in& destination)
{
    for (const QByteArray& datagram : responder.datagrams) {
        if (m_pending.size() >= kMaxPendingReplies) {
            warn(QStringLiteral("too many replies waiting: the reply of %1 to %2 is dropped")
                     .arg(responder.printer->address, endpointText(destination)));
            continue;
        }
        m_pending.push_back({&responder, &datagram, destination});
    }
}

void DiscoveryResponder::sendPendingReplies()
{
    while (!m_pending.empty()) {
        const PendingReply& reply = m_pending.front();
        if (!sendFrom(m_socket, *reply.datagram, reply.destination, reply.responder->source.s_addr)) {
            if (errno == EAGAIN || errno == EINTR)
                return; // again when the socket is writable
            warn(QStringLiteral("cannot send the reply of %1 to %2: %3")
                     .arg(reply.responder->printer->address, endpointText(reply.destination),
                          QString::fromLocal8Bit(std::strerror(errno))));
        } else {
            EventLog::reply(reply.responder->printer->address, reply.responder->printer->replyKind());
        }
        m_pending.pop_front();
    }
}

} // namespace talvo::sim
