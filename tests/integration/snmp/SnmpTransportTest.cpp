#include "snmp/SnmpTransport.h"
#include "fixtures/SnmpAgent.h"
#include "foundation/DictionaryKeys.h"
#include "snmp/SnmpCodec.h"

#include <gtest/gtest.h>

#include <QDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <map>
#include <memory>

namespace talvo::snmp {
namespace {

using namespace std::chrono_literals;
using test::SnmpAgent;
using test::SnmpAgentConfig;

const OidMap kPrinterOids{
    {QStringLiteral(".1.3.6.1.2.1.1.5.0"), QString(kDnsNameKey)},
    {QStringLiteral(".1.3.6.1.4.1.58101.3.1.0"), QStringLiteral("trayCount")},
    {QStringLiteral(".1.3.6.1.4.1.58101.3.2.0"), QStringLiteral("counter")}, // a Counter32: left out
};

sockaddr_in endpoint(const char* address, uint16_t port)
{
    sockaddr_in sin{};
    sin.sin_family = AF_INET;
    sin.sin_addr.s_addr = inet_addr(address);
    sin.sin_port = htons(port);
    return sin;
}

// A UDP socket at an address and port of the test's own: a printer that
// hears but never answers, or a peer that forges replies.
class Peer
{
public:
    Peer(const char* address, uint16_t port)
    {
        m_fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const sockaddr_in sin = endpoint(address, port);
        m_bound = ::bind(m_fd, reinterpret_cast<const sockaddr*>(&sin), sizeof sin) == 0;
    }
    ~Peer() { ::close(m_fd); }
    bool bound() const { return m_bound; }

    // The next request that reached this peer, waiting up to a second.
    std::optional<Message> receive()
    {
        pollfd p{m_fd, POLLIN, 0};
        if (::poll(&p, 1, 1000) != 1)
            return std::nullopt;
        QByteArray buffer(65536, '\0');
        const ssize_t n = ::recv(m_fd, buffer.data(), static_cast<std::size_t>(buffer.size()), 0);
        return n < 0 ? std::nullopt : decodeMessage(buffer.first(n));
    }
    void sendTo(int transportFd, const QByteArray& datagram)
    {
        sockaddr_in local{};
        socklen_t length = sizeof local;
        ::getsockname(transportFd, reinterpret_cast<sockaddr*>(&local), &length);
        const sockaddr_in to = endpoint("127.0.0.1", ntohs(local.sin_port));
        ::sendto(m_fd, datagram.constData(), static_cast<std::size_t>(datagram.size()), 0,
                 reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }

private:
    int m_fd = -1;
    bool m_bound = false;
};

// Every completion by tag, so "exactly once" can be checked.
struct Ledger
{
    std::map<uint64_t, std::vector<Completion>> byTag;
    std::size_t maxInFlight = 0;

    void add(std::vector<Completion> completions)
    {
        for (Completion& c : completions)
            byTag[c.tag].push_back(std::move(c));
    }
    std::size_t endedOnce() const
    {
        return static_cast<std::size_t>(
            std::count_if(byTag.begin(), byTag.end(), [](const auto& e) { return e.second.size() == 1; }));
    }
    const Answer& answer(uint64_t tag) const { return byTag.at(tag).front().answer; }
};

// Runs the owner's loop as the engine does: poll the descriptor until the
// next deadline (capped), then process with the real time.
void runUntil(Transport& transport, Ledger& ledger, const std::function<bool()>& done,
              std::chrono::milliseconds limit)
{
    const auto end = Clock::now() + limit;
    while (!done() && Clock::now() < end) {
        auto wait = 50ms;
        if (const auto deadline = transport.nextDeadline())
            wait =
                std::clamp(std::chrono::ceil<std::chrono::milliseconds>(*deadline - Clock::now()), 0ms, wait);
        pollfd p{transport.descriptor(), POLLIN, 0};
        const bool readable = ::poll(&p, 1, static_cast<int>(wait.count())) == 1;
        ledger.add(transport.process(Clock::now(), readable));
        ledger.maxInFlight = std::max(ledger.maxInFlight, transport.inFlight());
    }
}

std::size_t openDescriptors()
{
    return static_cast<std::size_t>(QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files).size());
}

TEST(SnmpTransport, ManyQueriesToSeveralAgentsAreAllAnsweredThroughOneSocket)
{
    std::vector<std::unique_ptr<SnmpAgent>> agents;
    for (const int host : {31, 32, 33}) {
        SnmpAgentConfig config;
        config.listen = {QStringLiteral("udp:127.0.0.%1:161").arg(host)};
        config.sysName = QStringLiteral("printer-%1").arg(host);
        config.overrides = {
            {QStringLiteral(".1.3.6.1.4.1.58101.3.1.0"), QStringLiteral("integer"), QString::number(host)},
            {QStringLiteral(".1.3.6.1.4.1.58101.3.2.0"), QStringLiteral("counter"), QStringLiteral("9")}};
        agents.push_back(std::make_unique<SnmpAgent>(config));
        ASSERT_TRUE(agents.back()->ready()) << agents.back()->failureMessage().toStdString();
    }

    Transport transport;
    ASSERT_TRUE(transport.open());
    const int fd = transport.descriptor();
    const std::size_t descriptors = openDescriptors();
    constexpr uint64_t kQueries = 900;
    for (uint64_t tag = 0; tag < kQueries; ++tag) {
        const QByteArray address = QStringLiteral("127.0.0.%1").arg(31 + tag % 3).toLatin1();
        ASSERT_TRUE(transport.submit(
            {inet_addr(address.constData()), QStringLiteral("public"), kPrinterOids, tag}, Clock::now()));
    }
    Ledger ledger;
    runUntil(
        transport, ledger, [&] { return ledger.byTag.size() == kQueries; }, 30s);

    EXPECT_EQ(ledger.endedOnce(), kQueries);
    EXPECT_EQ(ledger.maxInFlight, Transport::kMaxInFlight);
    for (const auto& [tag, completions] : ledger.byTag) {
        const int host = 31 + static_cast<int>(tag % 3);
        const QVariantMap expected{{QString(SNMPQueryOperationResultKey), 1},
                                   {QString(SNMPQueryOperationResultStringKey),
                                    QStringLiteral("NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE")},
                                   {QString(SNMPQueryErrorKey), 0},
                                   {QString(kDnsNameKey), QStringLiteral("printer-%1").arg(host)},
                                   {QStringLiteral("trayCount"), host}};
        ASSERT_EQ(completions.front().answer.resultDictionary(), expected) << tag;
        ASSERT_EQ(completions.front().address, inet_addr(QStringLiteral("127.0.0.%1").arg(host).toLatin1()));
    }
    EXPECT_EQ(transport.stats().sent, kQueries);
    EXPECT_EQ(transport.stats().answered, kQueries);
    EXPECT_EQ(transport.descriptor(), fd);
    EXPECT_EQ(openDescriptors(), descriptors);
}

TEST(SnmpTransport, SilentPrinterTimesOutOnceWhenNowPassesFiveSeconds)
{
    Peer silent("127.0.0.34", 161);
    ASSERT_TRUE(silent.bound());
    Transport transport;
    ASSERT_TRUE(transport.open());
    const Clock::time_point start = Clock::now();
    ASSERT_TRUE(
        transport.submit({inet_addr("127.0.0.34"), QStringLiteral("public"), kPrinterOids, 7}, start));
    EXPECT_EQ(transport.nextDeadline(), Clock::time_point{}) << "a waiting request asks for a pass at once";

    Ledger ledger;
    ledger.add(transport.process(start, false));
    const std::optional<Message> request = silent.receive();
    ASSERT_TRUE(request);
    EXPECT_EQ(request->pduType, PduType::GetRequest);
    EXPECT_NE(request->requestId, 0);
    EXPECT_EQ(request->varbinds.size(), 3u);
    EXPECT_EQ(transport.nextDeadline(), start + Transport::kTimeout);

    ledger.add(transport.process(start + 4999ms, false));
    EXPECT_TRUE(ledger.byTag.empty());
    ledger.add(transport.process(start + Transport::kTimeout, false));
    ledger.add(transport.process(start + 2 * Transport::kTimeout, false));
    ASSERT_EQ(ledger.endedOnce(), 1u);
    EXPECT_EQ(ledger.answer(7).resultDictionary(),
              (QVariantMap{{QString(SNMPQueryOperationResultKey), 2},
                           {QString(SNMPQueryOperationResultStringKey),
                            QStringLiteral("NETSNMP_CALLBACK_OP_TIMED_OUT")},
                           {QString(SNMPQueryErrorKey), 0}}));
    EXPECT_EQ(transport.inFlight(), 0u);
    EXPECT_EQ(transport.nextDeadline(), std::nullopt);
}

TEST(SnmpTransport, OnlyTheReplyFromTheAskedAddressAndPortWithTheRequestIdCounts)
{
    Peer printer("127.0.0.35", 161);
    Peer otherHost("127.0.0.36", 161);
    Peer otherPort("127.0.0.35", 1161);
    ASSERT_TRUE(printer.bound() && otherHost.bound() && otherPort.bound());
    Transport transport;
    ASSERT_TRUE(transport.open());
    ASSERT_TRUE(
        transport.submit({inet_addr("127.0.0.35"), QStringLiteral("public"), kPrinterOids, 1}, Clock::now()));
    Ledger ledger;
    ledger.add(transport.process(Clock::now(), false));
    const std::optional<Message> request = printer.receive();
    ASSERT_TRUE(request);

    Message answer = *request;
    answer.pduType = PduType::GetResponse;
    answer.varbinds = {{QStringLiteral(".1.3.6.1.2.1.1.5.0"), ValueType::OctetString,
                        QStringLiteral("office-printer"), true}};
    Message unknownId = answer;
    unknownId.requestId = request->requestId + 1;
    Message notAResponse = answer;
    notAResponse.pduType = PduType::GetRequest;
    Message v2c = answer;
    v2c.version = 1;
    const int fd = transport.descriptor();
    otherHost.sendTo(fd, encodeResponse(answer));
    otherPort.sendTo(fd, encodeResponse(answer));
    printer.sendTo(fd, encodeResponse(unknownId));
    printer.sendTo(fd, encodeResponse(notAResponse));
    printer.sendTo(fd, encodeResponse(v2c));
    printer.sendTo(fd, QByteArray("\x30\x03garbage"));
    runUntil(
        transport, ledger, [&] { return transport.stats().repliesDropped == 6; }, 2s);
    EXPECT_EQ(transport.stats().repliesDropped, 6u);
    EXPECT_TRUE(ledger.byTag.empty());

    printer.sendTo(fd, encodeResponse(answer));
    printer.sendTo(fd, encodeResponse(answer)); // a duplicate finds nothing in flight
    runUntil(
        transport, ledger, [&] { return transport.stats().repliesDropped == 7; }, 2s);
    ASSERT_EQ(ledger.endedOnce(), 1u);
    EXPECT_TRUE(ledger.answer(1).good());
    EXPECT_EQ(ledger.answer(1).values,
              (QVariantMap{{QString(kDnsNameKey), QStringLiteral("office-printer")}}));
    EXPECT_EQ(transport.stats().repliesDropped, 7u);
}

TEST(SnmpTransport, FailedSendsEndOnceAsSendFailedWithTheirErrno)
{
    Peer silent("127.0.0.37", 161);
    Transport transport;
    ASSERT_TRUE(transport.open());
    const Clock::time_point now = Clock::now();
    const auto submit = [&](const char* address, OidMap oids, uint64_t tag) {
        ASSERT_TRUE(
            transport.submit({inet_addr(address), QStringLiteral("public"), std::move(oids), tag}, now));
    };
    submit("255.255.255.255", kPrinterOids, 1); // no route in a namespace with loopback only
    submit("127.255.255.255", kPrinterOids, 2); // a broadcast address, and broadcasting is off
    submit("127.0.0.37", {{QStringLiteral("sysName.0"), QStringLiteral("name")}}, 3); // not numeric
    submit("127.0.0.37", kPrinterOids, 4);

    Ledger ledger;
    ledger.add(transport.process(now, false));
    ledger.add(transport.process(now + 1s, false));
    EXPECT_EQ(ledger.endedOnce(), 3u);
    const std::pair<uint64_t, int> expected[] = {{1, ENETUNREACH}, {2, EACCES}, {3, EINVAL}};
    for (const auto& [tag, error] : expected) {
        EXPECT_EQ(ledger.answer(tag).outcome, Outcome::SendFailed) << tag;
        EXPECT_EQ(ledger.answer(tag).systemError, error) << tag;
        EXPECT_EQ(ledger.answer(tag).resultDictionary().value(QString(SNMPQueryOperationResultKey)), 3)
            << tag;
    }
    EXPECT_EQ(transport.stats().sendFailed, 3u);
    // The good request is still in flight when the transport goes: it is freed
    // without a completion (the sanitizer build checks for leaks).
    EXPECT_EQ(transport.inFlight(), 1u);
}

TEST(SnmpTransport, NewestQueryGoesFirstAFullQueueGivesUpItsOldestAndCloseCancelsTheRestOnce)
{
    SnmpAgentConfig config;
    config.listen = {QStringLiteral("udp:127.0.0.38:161")};
    SnmpAgent agent(config);
    ASSERT_TRUE(agent.ready()) << agent.failureMessage().toStdString();
    Peer silent("127.0.0.39", 161);
    ASSERT_TRUE(silent.bound());

    // A full queue of queries to a silent printer (a flood), then one to the
    // real agent: it is asked first, and the oldest flood query makes room.
    Transport transport;
    ASSERT_TRUE(transport.open());
    const Clock::time_point now = Clock::now();
    constexpr uint64_t kAgentTag = Transport::kMaxWaiting + 1;
    for (uint64_t tag = 1; tag < kAgentTag; ++tag)
        ASSERT_TRUE(
            transport.submit({inet_addr("127.0.0.39"), QStringLiteral("public"), kPrinterOids, tag}, now));
    const OidMap sysName{{QStringLiteral(".1.3.6.1.2.1.1.5.0"), QString(kDnsNameKey)}};
    ASSERT_TRUE(
        transport.submit({inet_addr("127.0.0.38"), QStringLiteral("public"), sysName, kAgentTag}, now));
    EXPECT_EQ(transport.waiting(), Transport::kMaxWaiting);

    Ledger ledger;
    runUntil(
        transport, ledger, [&] { return ledger.byTag.contains(kAgentTag); }, 3s);
    EXPECT_EQ(ledger.answer(kAgentTag).values,
              (QVariantMap{{QString(kDnsNameKey), QStringLiteral("printer")}}));
    EXPECT_EQ(ledger.answer(1).outcome, Outcome::Cancelled) << "the oldest query gave way";
    EXPECT_EQ(transport.inFlight(), Transport::kMaxInFlight) << "the freed place went to the next query";

    transport.close();
    EXPECT_EQ(transport.descriptor(), -1);
    EXPECT_EQ(transport.nextDeadline(), Clock::time_point{}) << "cancellations wait to be collected";
    ledger.add(transport.process(now, false));
    ledger.add(transport.process(now + 10s, false));
    EXPECT_EQ(ledger.byTag.size(), Transport::kMaxWaiting + 1);
    EXPECT_EQ(ledger.endedOnce(), Transport::kMaxWaiting + 1);
    for (uint64_t tag = 1; tag < kAgentTag; ++tag)
        ASSERT_EQ(ledger.answer(tag).resultDictionary().value(QString(SNMPQueryOperationResultKey)), 5)
            << tag;
    EXPECT_EQ(transport.stats().cancelled, Transport::kMaxWaiting);
    EXPECT_EQ(transport.inFlight() + transport.waiting(), 0u);
}

} // namespace
} // namespace talvo::snmp
