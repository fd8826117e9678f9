#pragma once

// One SNMPv1 GET of a set of OIDs to one printer, answered as a result
// dictionary keyed by names the caller chose:
//
//     talvo::OidMap oids{{u".1.3.6.1.2.1.1.5.0"_s, u"dnsName"_s}};
//     talvo::SNMPQuery::doQueryAsync(std::make_unique<talvo::SNMPQuery>(
//         addr, u"public"_s, oids,
//         [](talvo::SNMPQuery& q, const QVariant& context) { use(q.getResult()); },
//         printer, u"New Printer Query"_s));
//
// The result holds "SNMPOperationResult" (1 received, 2 timed out, 3 send
// failed, ...), its text, "SNMPError" (the reply's error status) and, for a
// good reply, each answered OID's value under the caller's key. A reply is good
// when the operation is 1 and the error 0.

#include "snmp/SnmpCodec.h"

#include <QString>
#include <QVariant>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <memory>

struct snmp_session;
struct snmp_pdu;

namespace talvo {

class SNMPSession;

class SNMPQuery
{
public:
    // Runs on the thread that pumps the library, with the query (its result
    // filled in) and the context given at creation.
    using Callback = std::function<void(SNMPQuery& query, const QVariant& context)>;

    // Obtains the cached session for the address and builds the GET request.
    SNMPQuery(uint32_t peer, const QString& community, OidMap oidsAndKeys, Callback callback = {},
              QVariant userContext = {}, QString name = {});
    ~SNMPQuery();
    SNMPQuery(const SNMPQuery&) = delete;
    SNMPQuery& operator=(const SNMPQuery&) = delete;

    // Sends the request. The query then belongs to the library until its reply,
    // time-out or failure has been delivered to the callback, and is freed
    // after that; a query whose send fails is freed at once, without callback.
    static void doQueryAsync(std::unique_ptr<SNMPQuery> query);

    // A blocking exchange on the calling thread; the result has "SNMPError"
    // (the library status when the exchange failed) and the answered OIDs.
    QVariantMap doQuerySync();

    const QVariantMap& getResult() const { return m_getResult; }
    uint32_t getTgtIp() const { return m_tgtIp; }
    uint32_t getPeer() const { return m_tgtIp; }
    const QString& getName() const { return m_reqName; }
    QString description() const;

    // Texts of the library's callback operation codes 0 to 5.
    static QString operationText(int operation);

private:
    static int snmpAsyncResponse(int operation, snmp_session* session, int reqid, snmp_pdu* pdu, void* magic);
    int doAsyncResponse(int operation, snmp_session* session, int reqid, snmp_pdu* pdu);
    void storeVariables(const snmp_pdu& reply);

    OidMap m_oidsAndKeys;
    QVariantMap m_getResult;
    std::shared_ptr<SNMPSession> m_sessObj;
    snmp_pdu* m_pdu = nullptr;
    int m_reqid = 0;
    QString m_reqName;
    uint32_t m_tgtIp = 0;
    Callback m_callback;
    QVariant m_userContext;
};

} // namespace talvo
