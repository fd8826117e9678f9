#pragma once

// One open net-snmp session per printer address, cached for the life of the
// process so every query to a printer reuses one session (one UDP socket).
//
//     auto session = talvo::SNMPSession::sessionForPeer(addr, u"public"_s);
//     if (netsnmp_session* s = session->session()) ...   // null: open failed

#include <QString>

#include <cstdint>
#include <memory>

struct snmp_session;

namespace talvo {

class SNMPSession
{
public:
    static constexpr float SNMPRequestTimeoutSeconds = 5.0f;

    // The cached session for the address (network byte order), opened on the
    // first call. The cache is keyed by the address alone: a later call with
    // another community gets the session opened with the first one. A failed
    // open is cached too, so later calls get a session whose handle is null.
    static std::shared_ptr<SNMPSession> sessionForPeer(uint32_t peer, const QString& community);

    // Opens a session (SNMPv1, 5 s time-out, no retry) to a dotted address.
    SNMPSession(const QString& peer, const QString& community);
    ~SNMPSession();
    SNMPSession(const SNMPSession&) = delete;
    SNMPSession& operator=(const SNMPSession&) = delete;

    snmp_session* session() const { return m_sess; }
    const QString& peerAddress() const { return m_peerAddrStr; }
    const QString& community() const { return m_communityStr; }
    QString description() const;

    // The session's last error, or the library's global one without a session.
    static QString getSNMPErrorString(snmp_session* session);

    // Empties the cache (sessions still used by a query close when it ends)
    // and shuts the library down.
    static void closeAllAndTerminate();

private:
    snmp_session* m_sess = nullptr;
    QString m_peerAddrStr;
    QString m_communityStr;
};

} // namespace talvo
