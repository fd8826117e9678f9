#include "snmp/SNMPSession.h"

#include "foundation/NetworkAddress.h"
#include "snmp/SnmpLibrary.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <cstdlib>
#include <map>
#include <mutex>

namespace talvo {
namespace {

using SessionCache = std::map<QString, std::shared_ptr<SNMPSession>>;

SessionCache& sessionList()
{
    static SessionCache cache;
    return cache;
}

} // namespace

std::shared_ptr<SNMPSession> SNMPSession::sessionForPeer(uint32_t peer, const QString& community)
{
    snmp::ensureLibraryInitialised();
    // The library's lock guards the cache too: reply callbacks, which run
    // holding it, may look sessions up for new queries, so a second lock
    // would invite a lock-order deadlock.
    std::lock_guard lock(snmp::libraryMutex());
    const QString key = stringForInetAddr(peer);
    auto& cache = sessionList();
    if (auto found = cache.find(key); found != cache.end())
        return found->second;
    auto session = std::make_shared<SNMPSession>(key, community);
    cache.emplace(key, session);
    return session;
}

SNMPSession::SNMPSession(const QString& peer, const QString& community)
    : m_peerAddrStr(peer), m_communityStr(community)
{
    snmp::ensureLibraryInitialised();
    QByteArray peerName = peer.toLatin1();
    QByteArray communityBytes = community.toLatin1();

    // snmp_sess_init first: this net-snmp refuses a description without its
    // message sizes. Then exactly what the system needs: SNMPv1, one try and a
    // 5 s time-out; the port stays the library's default (161).
    netsnmp_session description;
    snmp_sess_init(&description);
    description.version = SNMP_VERSION_1;
    description.peername = peerName.data();
    description.community = reinterpret_cast<u_char*>(communityBytes.data());
    description.community_len = static_cast<size_t>(communityBytes.size());
    description.timeout = static_cast<long>(SNMPRequestTimeoutSeconds * 1000000.0);
    description.retries = 0;

    std::lock_guard lock(snmp::libraryMutex());
    m_sess = snmp_open(&description);
    if (!m_sess)
        qCWarning(lcSnmp).noquote() << "NSGenericException" << getSNMPErrorString(nullptr);
}

SNMPSession::~SNMPSession()
{
    qCDebug(lcSnmp).noquote() << "Deallocating SNMPSession for" << m_peerAddrStr;
    if (m_sess) {
        std::lock_guard lock(snmp::libraryMutex());
        snmp_close(m_sess);
        m_sess = nullptr;
    }
}

QString SNMPSession::description() const
{
    return QStringLiteral("SNMPSession object for peer %1").arg(m_peerAddrStr);
}

QString SNMPSession::getSNMPErrorString(snmp_session* session)
{
    std::lock_guard lock(snmp::libraryMutex());
    if (!session)
        return QString::fromLatin1(snmp_api_errstring(snmp_errno));
    char* text = nullptr;
    int systemError = 0;
    int snmpError = 0;
    snmp_error(session, &systemError, &snmpError, &text);
    const QString result = QString::fromLatin1(text ? text : "");
    std::free(text);
    return result;
}

void SNMPSession::closeAllAndTerminate()
{
    std::lock_guard lock(snmp::libraryMutex());
    sessionList().clear();
    snmp_shutdown(snmp::sorlenDiscoverySNMPType);
}

} // namespace talvo
