#include "snmp/SnmpTransport.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "snmp/SnmpLibrary.h"

#include <QRandomGenerator>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <utility>

namespace talvo::snmp {
namespace {

// Printers answer from the SNMP agent port; a reply from any other port is
// not theirs.
constexpr uint16_t kAgentPort = 161;
// The largest UDP payload over IPv4: no reply is ever cut short.
constexpr qsizetype kReceiveBufferBytes = 65536;
// Kernel receive buffer asked for: a reply of up to 2 KiB for every request in
// flight (the kernel caps it at net.core.rmem_max).
constexpr int kSocketReceiveBytes = static_cast<int>(Transport::kMaxInFlight) * 2048;

// The operation codes and texts clients have always received.
struct OperationText
{
    int code;
    const char* text;
};

OperationText operationFor(Outcome outcome)
{
    switch (outcome) {
    case Outcome::Answered:
        return {1, "NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE"};
    case Outcome::TimedOut:
        return {2, "NETSNMP_CALLBACK_OP_TIMED_OUT"};
    case Outcome::SendFailed:
        return {3, "NETSNMP_CALLBACK_OP_SEND_FAILED"};
    case Outcome::Cancelled:
        break;
    }
    return {5, "NETSNMP_CALLBACK_OP_DISCONNECT"};
}

QString systemErrorText(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

} // namespace

QVariantMap Answer::resultDictionary() const
{
    const OperationText operation = operationFor(outcome);
    QVariantMap result = values;
    result.insert(SNMPQueryOperationResultKey, operation.code);
    result.insert(SNMPQueryOperationResultStringKey, QString::fromLatin1(operation.text));
    result.insert(SNMPQueryErrorKey, static_cast<int>(errorStatus));
    return result;
}

Transport::Transport()
    // A random start keeps a restarted process from matching replies meant for
    // its predecessor; ids stay positive and never 0.
    : m_nextRequestId(static_cast<int32_t>(QRandomGenerator::system()->bounded(1u, 0x80000000u))),
      m_receiveBuffer(kReceiveBufferBytes, Qt::Uninitialized)
{
    // Here, on the thread that builds the engine, not lazily on the loop's
    // thread: setting up the library writes the environment, which a child
    // started elsewhere at the same moment would be reading.
    ensureLibraryInitialised();
}

Transport::~Transport()
{
    if (m_fd >= 0)
        ::close(m_fd);
}

Status Transport::open()
{
    if (m_fd >= 0)
        return Status::ok();
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return Status::error(QStringLiteral("SNMP socket: %1").arg(systemErrorText(errno)));
    // Best effort: a smaller buffer only means a burst may lose replies, which
    // then time out.
    const int receiveBytes = kSocketReceiveBytes;
    ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &receiveBytes, sizeof receiveBytes);
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr.s_addr = htonl(INADDR_ANY);
    local.sin_port = 0;
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        const int error = errno;
        ::close(fd);
        return Status::error(QStringLiteral("SNMP socket bind: %1").arg(systemErrorText(error)));
    }
    m_fd = fd;
    return Status::ok();
}

void Transport::close()
{
    if (m_fd >= 0) {
        ::close(m_fd);
        m_fd = -1;
    }
    for (auto& [id, pending] : m_inFlight)
        complete(pending.query, Answer{});
    for (const Query& query : m_waiting)
        complete(query, Answer{});
    m_stats.cancelled += m_inFlight.size() + m_waiting.size();
    m_inFlight.clear();
    m_deadlines.clear();
    m_waiting.clear();
    m_retryAt.reset();
}

bool Transport::submit(Query query, Clock::time_point now)
{
    // Newest first, and a full queue gives up its oldest request: a flood of
    // queries for addresses that never answer cannot make a printer heard
    // after it wait behind them all.
    if (m_waiting.size() >= kMaxWaiting) {
        if (const std::size_t n = m_refusedLog.admit(now))
            qCWarning(lcSnmp) << "SNMP queue full:" << n << "oldest queries given up";
        Answer answer;
        answer.outcome = Outcome::Cancelled;
        ++m_stats.cancelled;
        complete(m_waiting.back(), std::move(answer));
        m_waiting.pop_back();
    }
    m_waiting.push_front(std::move(query));
    return true;
}

std::optional<Clock::time_point> Transport::nextDeadline() const
{
    if (!m_completed.empty())
        return Clock::time_point{};
    std::optional<Clock::time_point> next;
    if (m_fd >= 0 && !m_waiting.empty() && m_inFlight.size() < kMaxInFlight)
        next = m_retryAt.value_or(Clock::time_point{});
    if (!m_deadlines.empty()) {
        const Clock::time_point timeout = m_deadlines.begin()->first;
        next = next ? std::min(*next, timeout) : timeout;
    }
    return next;
}

std::vector<Completion> Transport::process(Clock::time_point now, bool readable)
{
    // Replies first, so one that arrived just before its deadline counts;
    // then time-outs, which free room for the waiting requests sent last.
    if (m_fd >= 0) {
        if (readable)
            readReplies(now);
        expire(now);
        sendWaiting(now);
    }
    return std::exchange(m_completed, {});
}

void Transport::readReplies(Clock::time_point now)
{
    for (int i = 0; i < kMaxReadsPerPass; ++i) {
        sockaddr_in from{};
        socklen_t fromLength = sizeof from;
        const ssize_t received =
            ::recvfrom(m_fd, m_receiveBuffer.data(), static_cast<std::size_t>(m_receiveBuffer.size()), 0,
                       reinterpret_cast<sockaddr*>(&from), &fromLength);
        if (received < 0) {
            if (errno == EINTR)
                continue;
            // Drained (EAGAIN), or an error report that names no request.
            return;
        }
        const QByteArrayView datagram(m_receiveBuffer.constData(), static_cast<qsizetype>(received));
        const bool fromIpv4 = fromLength >= sizeof from && from.sin_family == AF_INET;
        acceptDatagram(datagram, fromIpv4 ? from.sin_addr.s_addr : 0, fromIpv4 ? ntohs(from.sin_port) : 0,
                       now);
    }
}

void Transport::acceptDatagram(QByteArrayView datagram, uint32_t fromAddress, uint16_t fromPort,
                               Clock::time_point now)
{
    // Anyone on the network can send to this port: a datagram ends a request
    // only when it is the answer to it, from the address and port it went to.
    const std::optional<Message> reply = decodeMessage(datagram);
    if (!reply)
        return drop(Drop::Malformed, fromAddress, now);
    if (reply->version != kVersion1 || reply->pduType != PduType::GetResponse)
        return drop(Drop::NotAResponse, fromAddress, now);
    const auto pending = m_inFlight.find(reply->requestId);
    if (pending == m_inFlight.end())
        return drop(Drop::UnknownRequest, fromAddress, now);
    const Query& query = pending->second.query;
    if (fromAddress != query.address || fromPort != kAgentPort)
        return drop(Drop::WrongSource, fromAddress, now);

    Answer answer;
    answer.outcome = Outcome::Answered;
    answer.errorStatus = reply->errorStatus;
    if (answer.errorStatus == 0) {
        for (const Varbind& varbind : reply->varbinds) {
            const auto key = query.oids.constFind(varbind.oid);
            if (key == query.oids.cend())
                continue;
            if (varbind.converted)
                answer.values.insert(*key, varbind.value);
            else if (m_unconvertedLog.admit(now))
                qCWarning(lcSnmp, "getObjectFromSNMPVar: Unknown ASN type: %d",
                          static_cast<int>(varbind.type));
        }
    }
    ++m_stats.answered;
    finish(pending, std::move(answer));
}

void Transport::expire(Clock::time_point now)
{
    while (!m_deadlines.empty() && m_deadlines.begin()->first <= now) {
        const auto pending = m_inFlight.find(m_deadlines.begin()->second);
        Answer answer;
        answer.outcome = Outcome::TimedOut;
        ++m_stats.timedOut;
        finish(pending, std::move(answer));
    }
}

void Transport::sendWaiting(Clock::time_point now)
{
    if (m_retryAt && now < *m_retryAt)
        return;
    m_retryAt.reset();
    while (!m_waiting.empty() && m_inFlight.size() < kMaxInFlight) {
        const Query& next = m_waiting.front();
        const int32_t requestId = takeRequestId();
        const QByteArray datagram = encodeGetRequest({next.community, requestId, next.oids.keys()});
        int error = EINVAL; // a request the codec cannot encode (an OID that is not numeric)
        if (!datagram.isEmpty()) {
            sockaddr_in to{};
            to.sin_family = AF_INET;
            to.sin_addr.s_addr = next.address;
            to.sin_port = htons(kAgentPort);
            const ssize_t sent =
                ::sendto(m_fd, datagram.constData(), static_cast<std::size_t>(datagram.size()), MSG_NOSIGNAL,
                         reinterpret_cast<const sockaddr*>(&to), sizeof to);
            error = sent < 0 ? errno : 0;
        }
        // A full send buffer is the kernel asking us to slow down: the request
        // keeps its place and the next pass tries again.
        if (error == EAGAIN || error == ENOBUFS || error == EINTR) { // EWOULDBLOCK is EAGAIN here
            m_retryAt = now + kSendRetryDelay;
            return;
        }
        Query query = std::move(m_waiting.front());
        m_waiting.pop_front();
        if (error != 0) {
            // No route, a broadcast address, a bad OID: the request ends now,
            // and the caller learns why.
            Answer answer;
            answer.outcome = Outcome::SendFailed;
            answer.systemError = error;
            ++m_stats.sendFailed;
            complete(query, std::move(answer));
            continue;
        }
        ++m_stats.sent;
        const auto deadline = m_deadlines.emplace(now + kTimeout, requestId);
        m_inFlight.emplace(requestId, Pending{std::move(query), deadline});
    }
}

int32_t Transport::takeRequestId()
{
    // At most kMaxInFlight ids are in use, so the search ends quickly.
    int32_t id = 0;
    do {
        id = m_nextRequestId;
        m_nextRequestId = id == std::numeric_limits<int32_t>::max() ? 1 : id + 1;
    } while (m_inFlight.contains(id));
    return id;
}

void Transport::finish(std::unordered_map<int32_t, Pending>::iterator pending, Answer answer)
{
    m_deadlines.erase(pending->second.deadline);
    complete(pending->second.query, std::move(answer));
    m_inFlight.erase(pending);
}

void Transport::complete(const Query& query, Answer answer)
{
    m_completed.push_back(Completion{query.tag, query.address, std::move(answer)});
}

void Transport::drop(Drop reason, uint32_t fromAddress, Clock::time_point now)
{
    ++m_stats.repliesDropped;
    const std::size_t dropped = m_dropLog.admit(now);
    if (!dropped)
        return;
    const char* why = "";
    switch (reason) {
    case Drop::Malformed:
        why = "not an SNMP message";
        break;
    case Drop::NotAResponse:
        why = "not an SNMPv1 response";
        break;
    case Drop::UnknownRequest:
        why = "no such request in flight";
        break;
    case Drop::WrongSource:
        why = "not from the address and port asked";
        break;
    }
    qCWarning(lcSnmp).noquote() << "SNMP:" << dropped << "datagrams dropped; the last from"
                                << stringForInetAddr(fromAddress) << "-" << why;
}

} // namespace talvo::snmp
