#include "snmp/SNMPQuery.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/Log.h"
#include "foundation/NetworkAddress.h"
#include "snmp/SNMPSession.h"
#include "snmp/SnmpLibrary.h"

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <cstring>

namespace talvo {
namespace {

constexpr const char* snmpOperationTextStrings[] = {
    "Unknown",
    "NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE",
    "NETSNMP_CALLBACK_OP_TIMED_OUT",
    "NETSNMP_CALLBACK_OP_SEND_FAILED",
    "NETSNMP_CALLBACK_OP_CONNECT",
    "NETSNMP_CALLBACK_OP_DISCONNECT",
};

} // namespace

SNMPQuery::SNMPQuery(uint32_t peer, const QString& community, OidMap oidsAndKeys, Callback callback,
                     QVariant userContext, QString name)
    : m_oidsAndKeys(std::move(oidsAndKeys)), m_reqName(std::move(name)), m_tgtIp(peer),
      m_callback(std::move(callback)), m_userContext(std::move(userContext))
{
    m_sessObj = SNMPSession::sessionForPeer(peer, community);

    std::lock_guard lock(snmp::libraryMutex());
    m_pdu = snmp_pdu_create(SNMP_MSG_GET);
    for (auto it = m_oidsAndKeys.cbegin(); it != m_oidsAndKeys.cend(); ++it) {
        oid parsed[MAX_OID_LEN];
        size_t length = MAX_OID_LEN;
        if (!read_objid(it.key().toLatin1().constData(), parsed, &length)) {
            qCWarning(lcSnmp).noquote()
                << "NSGenericException" << SNMPSession::getSNMPErrorString(nullptr) << it.key();
            // The variable is still asked for, with what the parser left: the
            // printer answers with an error the callback sees.
            length = std::min<size_t>(length, MAX_OID_LEN);
        }
        snmp_add_null_var(m_pdu, parsed, length);
    }
}

SNMPQuery::~SNMPQuery()
{
    // A request never handed to the library is still ours to free.
    if (m_pdu) {
        std::lock_guard lock(snmp::libraryMutex());
        snmp_free_pdu(m_pdu);
    }
}

void SNMPQuery::doQueryAsync(std::unique_ptr<SNMPQuery> query)
{
    if (!query)
        return;
    if (!query->m_callback) {
        reportAssertionFailure("SNMPQuery: doQueryAsync: Callback object cannot be nil", __FILE__, __LINE__);
        return;
    }
    snmp_session* session = query->m_sessObj ? query->m_sessObj->session() : nullptr;
    if (!session) {
        qCWarning(lcSnmp).noquote() << "NSGenericException" << SNMPSession::getSNMPErrorString(nullptr)
                                    << "(no session for" << stringForInetAddr(query->m_tgtIp) << ")";
        return;
    }

    std::lock_guard lock(snmp::libraryMutex());
    SNMPQuery* raw = query.get();
    raw->m_reqid = snmp_async_send(session, raw->m_pdu, &SNMPQuery::snmpAsyncResponse, raw);
    if (raw->m_reqid == 0) {
        qCWarning(lcSnmp).noquote() << "NSGenericException" << SNMPSession::getSNMPErrorString(session);
        return; // the destructor frees the request: no callback will come
    }
    raw->m_pdu = nullptr; // the library owns the request now
    query.release();      // and the query, until snmpAsyncResponse
}

int SNMPQuery::snmpAsyncResponse(int operation, snmp_session* session, int reqid, snmp_pdu* pdu, void* magic)
{
    std::unique_ptr<SNMPQuery> query(static_cast<SNMPQuery*>(magic));
    try {
        return query->doAsyncResponse(operation, session, reqid, pdu);
    } catch (const std::exception& e) {
        // Nothing may unwind through net-snmp's C frames.
        qCCritical(lcSnmp) << "SNMP reply handler failed:" << e.what();
    } catch (...) {
        qCCritical(lcSnmp) << "SNMP reply handler failed";
    }
    return 1;
}

int SNMPQuery::doAsyncResponse(int operation, snmp_session*, int reqid, snmp_pdu* pdu)
{
    const long errorStatus = pdu ? pdu->errstat : 0;
    m_getResult = {{SNMPQueryOperationResultKey, operation},
                   {SNMPQueryOperationResultStringKey, operationText(operation)},
                   {SNMPQueryErrorKey, static_cast<int>(errorStatus)}};
    if (reqid != m_reqid) {
        const QByteArray text = QStringLiteral("Callback req ID %1 does not match session req id %2")
                                    .arg(reqid)
                                    .arg(m_reqid)
                                    .toLatin1();
        reportAssertionFailure(text.constData(), __FILE__, __LINE__);
    }
    if (operation == NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE && errorStatus == SNMP_ERR_NOERROR && pdu)
        storeVariables(*pdu);
    m_callback(*this, m_userContext);
    return 1;
}

void SNMPQuery::storeVariables(const snmp_pdu& reply)
{
    for (const netsnmp_variable_list* var = reply.variables; var; var = var->next_variable) {
        const auto key = m_oidsAndKeys.constFind(snmp::textForOid(var->name, var->name_length));
        if (key == m_oidsAndKeys.cend())
            continue;
        if (auto value = snmp::valueFromVariable(*var))
            m_getResult.insert(*key, *value);
        else
            qCWarning(lcSnmp, "getObjectFromSNMPVar: Unknown ASN type: %d", var->type);
    }
}

QVariantMap SNMPQuery::doQuerySync()
{
    qCDebug(lcSnmp).noquote() << "SNMPQuery: doQuerySync for address"
                              << (m_sessObj ? m_sessObj->description() : QString());
    snmp_session* session = m_sessObj ? m_sessObj->session() : nullptr;
    if (!session || !m_pdu) {
        m_getResult = {{SNMPQueryErrorKey, static_cast<int>(STAT_ERROR)}};
        return m_getResult;
    }
    std::lock_guard lock(snmp::libraryMutex());
    netsnmp_pdu* reply = nullptr;
    const int status = snmp_synch_response(session, m_pdu, &reply);
    m_pdu = nullptr; // freed by the library, answered or not
    const long error = (status != STAT_SUCCESS || !reply) ? status : reply->errstat;
    m_getResult = {{SNMPQueryErrorKey, static_cast<int>(error)}};
    qCDebug(lcSnmp) << "SNMPQuery complete - status =" << status;
    if (status == STAT_SUCCESS && reply && reply->errstat == SNMP_ERR_NOERROR)
        storeVariables(*reply);
    if (reply)
        snmp_free_pdu(reply);
    return m_getResult;
}

QString SNMPQuery::description() const
{
    const QString address =
        QString::number(reinterpret_cast<quintptr>(this), 16).toUpper().rightJustified(8, u'0');
    return QStringLiteral("SNMPQuery object at %1, name = %2, peer ip = %3")
        .arg(address, m_reqName, stringForInetAddr(m_tgtIp));
}

QString SNMPQuery::operationText(int operation)
{
    if (operation < 0 || operation >= static_cast<int>(std::size(snmpOperationTextStrings)))
        return QString::fromLatin1(snmpOperationTextStrings[0]);
    return QString::fromLatin1(snmpOperationTextStrings[operation]);
}

} // namespace talvo
