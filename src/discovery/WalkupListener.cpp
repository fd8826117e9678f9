#include "discovery/WalkupListener.h"

#include "discovery/DatagramSocket.h"
#include "discovery/DiscoveryLog.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/QueueNaming.h"
#include "foundation/Settings.h"
#include "snmp/SNMPQuery.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <pwd.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

namespace talvo {

struct WalkupListener::Lifeline
{
    std::mutex mutex;
    BeaconedCallback onBeaconed; // empty once the listener is gone
};

namespace {

std::optional<QString> valueOf(const WalkupPacket& packet, Key tag)
{
    const auto found = packet.typeDataDict.constFind(tag);
    return found == packet.typeDataDict.cend() ? std::nullopt : std::optional<QString>(*found);
}

bool goodReply(const QVariantMap& result)
{
    return result.value(SNMPQueryOperationResultKey).toInt() == 1 &&
           result.value(SNMPQueryErrorKey).toInt() == 0;
}

} // namespace

QString defaultWalkupUserName()
{
    const long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    while (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) == ERANGE)
        buffer.resize(buffer.size() * 2);
    if (!found)
        return qEnvironmentVariable("LOGNAME", qEnvironmentVariable("USER"));
    const QString fullName =
        QString::fromLocal8Bit(found->pw_gecos ? found->pw_gecos : "").section(u',', 0, 0).trimmed();
    return fullName.isEmpty() ? QString::fromLocal8Bit(found->pw_name) : fullName;
}

WalkupListener::WalkupListener(BeaconedCallback onBeaconed, AnnouncedCallback onAnnounced,
                               EndedCallback onEnded)
    : m_onAnnounced(std::move(onAnnounced)), m_onEnded(std::move(onEnded)),
      m_wakeFd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), m_lifeline(std::make_shared<Lifeline>())
{
    m_lifeline->onBeaconed = std::move(onBeaconed);
    if (m_wakeFd < 0)
        logSystemError(errno);
}

WalkupListener::~WalkupListener()
{
    stop();
    {
        std::lock_guard lock(m_lifeline->mutex);
        m_lifeline->onBeaconed = nullptr;
    }
    if (m_wakeFd >= 0)
        ::close(m_wakeFd);
}

void WalkupListener::setUserName(const QString& userName)
{
    std::lock_guard lock(m_mutex);
    m_userName = userName;
}

QMap<QString, WalkupPacket> WalkupListener::walkupList() const
{
    std::lock_guard lock(m_mutex);
    return m_walkupList;
}

QString WalkupListener::start(const QString& userName, const QString& community)
{
    {
        std::lock_guard lock(m_mutex);
        m_userName = userName;
        m_community = community;
    }
    if (m_useSorlenWalkup)
        return {};
    if (m_thread.get_id() == std::this_thread::get_id())
        return QStringLiteral("walkup cannot restart from its own thread");
    if (m_thread.joinable())
        m_thread.join(); // a session that a selection ended

    QString firstError;
    const auto step = [&firstError](bool ok, const char* what) {
        if (ok)
            return;
        const int error = errno;
        logSystemError(error);
        if (firstError.isEmpty())
            firstError = QStringLiteral("%1: %2").arg(QLatin1StringView(what),
                                                      QString::fromLocal8Bit(std::strerror(error)));
    };
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    step(fd >= 0, "cannot create the walkup socket");
    if (fd >= 0) {
        const int on = 1;
        step(::setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &on, sizeof on) == 0, "IP_PKTINFO");
        step(::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK) == 0, "O_NONBLOCK");
        sockaddr_in any{};
        any.sin_family = AF_INET;
        any.sin_addr.s_addr = htonl(INADDR_ANY);
        any.sin_port = htons(sorlenWalkupUDPPortNum);
        step(::bind(fd, reinterpret_cast<const sockaddr*>(&any), sizeof any) == 0,
             "cannot listen on UDP port 1204");
    }
    m_sorlenWalkupSocket = fd;
    m_vendor = vendor();
    // Drop a wake-up left by an earlier stop().
    uint64_t count = 0;
    [[maybe_unused]] const auto n = ::read(m_wakeFd, &count, sizeof count);
    m_useSorlenWalkup = true;
    m_thread = std::jthread([this](std::stop_token stop) { walkupThread(stop); });
    return firstError;
}

void WalkupListener::stop()
{
    m_useSorlenWalkup = false;
    if (m_thread.joinable()) {
        m_thread.request_stop();
        const uint64_t one = 1;
        [[maybe_unused]] const auto n = ::write(m_wakeFd, &one, sizeof one);
        // A callback of the thread itself may stop it: the thread then ends
        // on its own when the callback returns.
        if (m_thread.get_id() == std::this_thread::get_id())
            return;
        m_thread.join();
    }
    stopSorlenWalkup();
}

void WalkupListener::stopSorlenWalkup()
{
    const int fd = m_sorlenWalkupSocket.exchange(-1);
    if (fd >= 0)
        ::close(fd);
}

void WalkupListener::walkupThread(const std::stop_token& stop)
{
    const int socket = m_sorlenWalkupSocket;
    while (m_useSorlenWalkup) {
        // poll ignores a negative descriptor: without a socket only stop() wakes.
        pollfd watched[] = {{socket, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            qCWarning(lcDiscovery, "select failed %s", std::strerror(errno));
            m_useSorlenWalkup = false;
            break;
        }
        if (watched[0].revents != 0)
            readSorlenWalkupPackets(socket);
    }
    stopSorlenWalkup();
    if (!stop.stop_requested() && m_onEnded)
        m_onEnded();
}

void WalkupListener::readSorlenWalkupPackets(int socket)
{
    for (;;) {
        // The waiting datagram's size first, so every datagram is read whole
        // whatever came before it.
        const ssize_t size = ::recv(socket, nullptr, 0, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
        if (size < 0) {
            if (errno != EAGAIN && errno != EINTR)
                logSystemError(errno);
            return;
        }
        const Datagram d = readWithAddresses(socket, std::max(static_cast<int>(size), 1));
        if (d.count < 0) {
            if (d.error != EAGAIN)
                logSystemError(d.error);
            return;
        }
        if (d.count == 0)
            continue;
        const std::optional<WalkupPacket> packet =
            WalkupPacket::fromDatagram(d.bytes, d.source, d.destination, d.interfaceIndex, m_vendor);
        if (!packet)
            continue;
        switch (packet->pktWalkupType) {
        case 0:
            handleType0WalkupPacket(socket, *packet);
            break;
        case 1:
            qCInfo(lcDiscovery, "Received walkup packet type 1, ignored (type 1 only comes from hosts)");
            break;
        case 2:
            handleType2WalkupPacket(*packet);
            // The session ends once the datagrams already waiting are handled.
            m_useSorlenWalkup = false;
            break;
        default:
            break;
        }
    }
}

void WalkupListener::handleType0WalkupPacket(int socket, const WalkupPacket& packet)
{
    const QString address = stringForInetAddr(packet.srcIpAddr);
    qCInfo(lcDiscovery, "Received type 0 walkup packet from: %s, model = %s", qUtf8Printable(address),
           qUtf8Printable(packet.value(walkupModelKey)));
    QString userName;
    {
        std::lock_guard lock(m_mutex);
        m_walkupList.insert(address, packet);
        userName = m_userName;
    }
    const WalkupPacket reply = WalkupPacket::type1ReplyTo(packet, userName);
    const QByteArray datagram = reply.packetData(m_vendor);
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_port = htons(sorlenWalkupUDPPortNum);
    to.sin_addr.s_addr = reply.dstIpAddr;
    if (::sendto(socket, datagram.constData(), static_cast<std::size_t>(datagram.size()), 0,
                 reinterpret_cast<const sockaddr*>(&to), sizeof to) < 0)
        logSystemError(errno);
    if (m_onAnnounced)
        m_onAnnounced(packet);
}

void WalkupListener::handleType2WalkupPacket(const WalkupPacket& packet)
{
    const QString address = stringForInetAddr(packet.srcIpAddr);
    // The name picked is only logged: the printer shows this host's name.
    qCInfo(lcDiscovery, "Received type 2 walkup packet from: %s, user = %s", qUtf8Printable(address),
           qUtf8Printable(packet.value(walkupUserNameKey)));
    WalkupPacket announcement;
    QString community;
    {
        std::lock_guard lock(m_mutex);
        const auto found = m_walkupList.constFind(address);
        if (found == m_walkupList.cend())
            return;
        announcement = *found;
        m_walkupList.erase(found);
        community = m_community;
    }

    QVariantMap printer{{QString(kIPAddressNumberKey), static_cast<qulonglong>(packet.dstIpAddr)}};
    // In this order, up to the first value the announcement lacks.
    const std::pair<Key, std::optional<QString>> fields[] = {
        {kPrinterModelStrKey, valueOf(announcement, walkupModelKey)},
        {kMacAddrStrKey, valueOf(announcement, walkupMacAddrKey)},
        {kIPAddrStrKey, address}};
    for (const auto& [key, value] : fields) {
        if (!value)
            break;
        printer.insert(key, *value);
    }

    const std::weak_ptr<Lifeline> lifeline = m_lifeline;
    auto reply = [lifeline](SNMPQuery& query, const QVariant& context) {
        QVariantMap beaconed = context.toMap();
        const QVariantMap& result = query.getResult();
        if (goodReply(result)) {
            for (auto it = result.cbegin(); it != result.cend(); ++it)
                beaconed.insert(it.key(), it.value());
        }
        uriDescAndQueueNameForSocketPrinter(beaconed);
        beaconed.insert(kQueueConnectionTypeStrKey, QString(kQueueTypeRawTCP));
        if (const auto line = lifeline.lock()) {
            std::lock_guard lock(line->mutex);
            if (line->onBeaconed)
                line->onBeaconed(beaconed);
        }
    };
    SNMPQuery::doQueryAsync(std::make_unique<SNMPQuery>(
        packet.srcIpAddr, community, PrinterDiscoveryEngine::printerQueryOids(), std::move(reply),
        QVariant(printer), QStringLiteral("New Printer Query")));
}

} // namespace talvo
