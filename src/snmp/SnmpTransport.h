#pragma once

// Every SNMP GET the system sends, to any number of printers, through one
// non-blocking UDP socket: a queue paced by a bound on the requests in flight,
// a 5 s time-out each, and exactly one completion for every request accepted
// (answered, timed out, send failed or cancelled). The owner's loop polls the
// descriptor and drives it with the current time:
//
//     talvo::snmp::Transport snmp;
//     if (Status s = snmp.open(); !s) return s;
//     snmp.submit({printerAddress, u"public"_s, oids, tag}, Clock::now());
//     for (;;) {
//         const bool readable = waitReadable(snmp.descriptor(), snmp.nextDeadline());
//         for (Completion& done : snmp.process(Clock::now(), readable))
//             deliver(done.tag, done.answer.resultDictionary());
//     }
//
// Not thread-safe: one thread (the discovery engine's work thread) owns a
// transport and makes every call.

#include "foundation/LogThrottle.h"
#include "foundation/Status.h"
#include "snmp/SnmpCodec.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <unordered_map>
#include <vector>

namespace talvo::snmp {

using Clock = std::chrono::steady_clock;

enum class Outcome { Answered, TimedOut, SendFailed, Cancelled };

struct Answer
{
    Outcome outcome = Outcome::Cancelled;
    long errorStatus = 0; // the reply's error-status when Answered
    QVariantMap values;   // caller's key -> value, filled only for a good answer
    int systemError = 0;  // errno of a failed send

    bool good() const { return outcome == Outcome::Answered && errorStatus == 0; }
    // The dictionary clients receive: "SNMPOperationResult" (1 received,
    // 2 timed out, 3 send failed, 5 disconnect for a cancelled request), its
    // text, "SNMPError" and the values.
    QVariantMap resultDictionary() const;
};

struct Query
{
    uint32_t address = 0; // network byte order
    QString community;
    OidMap oids;      // leading-dot OIDs, as replies name them; shared, not copied
    uint64_t tag = 0; // the caller's name for the request, returned in its completion
};

struct Completion
{
    uint64_t tag = 0;
    uint32_t address = 0;
    Answer answer;
};

class Transport
{
public:
    // Bounds the burst of replies a pass must absorb and the table a hostile
    // LAN can fill; 256 replies fit the socket's receive buffer.
    static constexpr std::size_t kMaxInFlight = 256;
    // A discovery sweep of a large network fits; beyond it the oldest
    // waiting queries are given up instead of the queue growing without end.
    static constexpr std::size_t kMaxWaiting = 10'000;
    // A printer that has not answered in 5 s is not going to: no retry.
    static constexpr std::chrono::seconds kTimeout{5};
    // A flood of datagrams cannot hold the owner's loop.
    static constexpr int kMaxReadsPerPass = 64;
    // How soon a send the kernel could not take (full buffer) is tried again.
    static constexpr std::chrono::milliseconds kSendRetryDelay{10};

    struct Stats
    {
        uint64_t sent = 0;
        uint64_t answered = 0;
        uint64_t timedOut = 0;
        uint64_t sendFailed = 0;
        uint64_t cancelled = 0;
        uint64_t repliesDropped = 0;
    };

    Transport();
    // Closes the socket and frees every request; no completion is delivered.
    ~Transport();
    Transport(const Transport&) = delete;
    Transport& operator=(const Transport&) = delete;

    // An IPv4 UDP socket on an ephemeral port of every address; broadcasting
    // stays off, so a broadcast address fails to send instead of reaching a
    // whole network. Opening an open transport does nothing.
    Status open();
    // Closes the socket; every request waiting or in flight ends as Cancelled,
    // returned by the next process().
    void close();
    int descriptor() const { return m_fd; }

    // Queues a request ahead of those waiting (newest first). When
    // kMaxWaiting wait already, the oldest of them ends as Cancelled. Requests
    // queued while closed wait for open(). Always true.
    bool submit(Query query, Clock::time_point now);
    // When process() has work without the descriptor becoming readable: the
    // earliest time-out or send retry, a time already past when it should run
    // at once, nullopt when nothing but a reply can end a request.
    std::optional<Clock::time_point> nextDeadline() const;
    // Reads at most kMaxReadsPerPass datagrams when `readable`, ends the
    // requests timed out by `now`, sends waiting requests while fewer than
    // kMaxInFlight are in flight, and returns every request that ended since
    // the last call, each exactly once.
    std::vector<Completion> process(Clock::time_point now, bool readable);

    const Stats& stats() const { return m_stats; }
    std::size_t inFlight() const { return m_inFlight.size(); }
    std::size_t waiting() const { return m_waiting.size(); }

private:
    using Deadlines = std::multimap<Clock::time_point, int32_t>;
    struct Pending
    {
        Query query;
        Deadlines::iterator deadline;
    };
    enum class Drop { Malformed, NotAResponse, UnknownRequest, WrongSource };

    void readReplies(Clock::time_point now);
    void acceptDatagram(QByteArrayView datagram, uint32_t fromAddress, uint16_t fromPort,
                        Clock::time_point now);
    void expire(Clock::time_point now);
    void sendWaiting(Clock::time_point now);
    int32_t takeRequestId();
    void finish(std::unordered_map<int32_t, Pending>::iterator pending, Answer answer);
    void complete(const Query& query, Answer answer);
    void drop(Drop reason, uint32_t fromAddress, Clock::time_point now);

    int m_fd = -1;
    std::deque<Query> m_waiting;
    std::unordered_map<int32_t, Pending> m_inFlight; // by request id
    Deadlines m_deadlines;
    std::vector<Completion> m_completed;
    std::optional<Clock::time_point> m_retryAt;
    int32_t m_nextRequestId = 1;
    Stats m_stats;
    QByteArray m_receiveBuffer;
    LogThrottle m_dropLog;
    LogThrottle m_refusedLog;
    LogThrottle m_unconvertedLog;
};

} // namespace talvo::snmp
