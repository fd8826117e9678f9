// talvo-printer-sim seen from the network, as discovery sees it: who answers
// which request, from which address, with which bytes; what its snmpd agents
// answer; what it logs; and that its agents never outlive it.
#include "discovery/BroadcastPacket.h"
#include "discovery/DatagramSocket.h"
#include "fixtures/DaemonRunner.h"
#include "fixtures/NetworkSandbox.h"
#include "fixtures/ScopedNetns.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

using namespace talvo;
using namespace talvo::test;
using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QString kSim = QStringLiteral(TALVO_BIN_DIR "/talvo-printer-sim");
const QString kSettings = QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/PluginSettings.plist");

sockaddr_in socketAddress(const QString& address, uint16_t port)
{
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(port);
    ::inet_pton(AF_INET, address.toLatin1().constData(), &result.sin_addr);
    return result;
}

// A socket in a sandbox host, opened and read as the discovery engine does.
class Client
{
public:
    Client(const NetworkSandbox& sandbox, const QString& host)
    {
        const ScopedNetns inside(sandbox, host);
        m_fd = openDiscoverySocket();
        sockaddr_in bound{};
        socklen_t length = sizeof bound;
        ::getsockname(m_fd, reinterpret_cast<sockaddr*>(&bound), &length);
        m_port = ntohs(bound.sin_port);
    }
    ~Client() { ::close(m_fd); }
    uint16_t port() const { return m_port; }

    void send(const QString& address, const QByteArray& payload) const
    {
        const sockaddr_in to = socketAddress(address, 1200);
        ASSERT_EQ(::sendto(m_fd, payload.constData(), static_cast<size_t>(payload.size()), 0,
                           reinterpret_cast<const sockaddr*>(&to), sizeof to),
                  payload.size());
    }
    // The next datagram; count -1 when none came in time.
    Datagram receive(std::chrono::milliseconds timeout) const
    {
        pollfd ready{m_fd, POLLIN, 0};
        if (::poll(&ready, 1, static_cast<int>(timeout.count())) != 1)
            return {};
        return readWithAddresses(m_fd, 2048);
    }

private:
    int m_fd = -1;
    uint16_t m_port = 0;
};

QByteArray request()
{
    return broadcast::buildRequest(socketAddress(u"10.77.0.12"_s, 0).sin_addr.s_addr, {}).datagram;
}

// The simulator's events so far, from the log its standard output goes to.
std::vector<QJsonObject> events(const DaemonRunner& sim)
{
    std::vector<QJsonObject> result;
    for (const QByteArray& line : sim.log().split('\n')) {
        if (line.startsWith('{'))
            result.push_back(QJsonDocument::fromJson(line).object());
    }
    return result;
}

std::optional<QJsonObject> findEvent(const DaemonRunner& sim, const QString& event, const QString& from)
{
    for (const QJsonObject& e : events(sim)) {
        if (e[u"event"_s] == event && e[u"from"_s] == from)
            return e;
    }
    return std::nullopt;
}

bool waitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

// True when no process `pid` is left, or only its zombie.
bool gone(pid_t pid)
{
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    return !stat.open(QIODevice::ReadOnly) || stat.readAll().split(')').value(1).startsWith(" Z");
}

// The simulator's children (its snmpd agents).
QList<pid_t> childrenOf(pid_t pid)
{
    QFile file(u"/proc/%1/task/%1/children"_s.arg(pid));
    QList<pid_t> result;
    if (file.open(QIODevice::ReadOnly)) {
        for (const QByteArray& item : file.readAll().split(' '))
            if (!item.trimmed().isEmpty())
                result << item.toInt();
    }
    return result;
}

// One sandbox and one simulator for the suite: starting snmpd is what costs.
class PrinterSimTest : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        s_sandbox = std::make_unique<NetworkSandbox>();
        s_sandbox->addHost(u"printers"_s, u"10.77.0.11/24"_s);
        s_sandbox->addAddress(u"printers"_s, u"10.77.0.20/24"_s);
        s_sandbox->addAddress(u"printers"_s, u"10.77.0.22/24"_s);
        s_sandbox->addAddress(u"printers"_s, u"10.77.0.26/24"_s);
        s_sandbox->addHost(u"client"_s, u"10.77.0.12/24"_s);
        s_sandbox->addHost(u"other"_s, u"10.77.0.13/24"_s);
        s_sandbox->addAddress(u"other"_s, u"10.77.0.40/24"_s);

        s_sim = std::make_unique<DaemonRunner>();
        // The reply kinds and the agents' answers are checked through the
        // engine (DiscoveryEngineTest); here only routing and agents' lives.
        s_ready =
            startSim(*s_sim, u"printers"_s,
                     {u"model=Model 4000,address=10.77.0.20"_s, u"model=M,address=10.77.0.22,snmp=none"_s,
                      u"model=M,address=10.77.0.26,snmp=silent"_s});
    }
    static void TearDownTestSuite()
    {
        s_sim.reset();
        s_sandbox.reset();
    }
    void SetUp() override { ASSERT_TRUE(s_ready) << s_sim->failureMessage().toStdString(); }

    // Its work folder goes into the runner's, which is removed even after a SIGKILL.
    static bool startSim(DaemonRunner& sim, const QString& host, const QStringList& printers,
                         const QStringList& options = {})
    {
        QStringList argv{kSim, u"--settings"_s, kSettings};
        for (const QString& p : printers)
            argv << u"--printer"_s << p;
        sim.start(argv + options, {.networkNamespace = s_sandbox->namespaceName(host),
                                   .environment = {u"TMPDIR="_s + sim.directory()}});
        return sim.waitUntilReady([&] { return sim.logContains(R"({"event":"ready")"); }, 10s);
    }

    static CommandResult snmpget(const QString& address, const QStringList& oids)
    {
        return s_sandbox->runIn(u"client"_s, QStringList{u"snmpget"_s, u"-v1"_s, u"-cpublic"_s, u"-r1"_s,
                                                         u"-t1"_s, u"-Onqv"_s, u"-m"_s, QString(), address} +
                                                 oids);
    }

    static inline std::unique_ptr<NetworkSandbox> s_sandbox;
    static inline std::unique_ptr<DaemonRunner> s_sim;
    static inline bool s_ready = false;
};

TEST_F(PrinterSimTest, UnicastIsAnsweredOnlyByTheAddressedPrinter)
{
    const Client client(*s_sandbox, u"client"_s);
    client.send(u"10.77.0.11"_s, request()); // the host's own address: no printer's
    client.send(u"10.77.0.20"_s, request());

    const Datagram reply = client.receive(2s);
    ASSERT_GT(reply.count, 0);
    EXPECT_EQ(reply.source, ::inet_addr("10.77.0.20"));
    EXPECT_EQ(reply.sourcePort, 1200);
    EXPECT_LT(client.receive(100ms).count, 0) << "a second reply";
}

TEST_F(PrinterSimTest, MalformedRequestIsDroppedAndLogged)
{
    const Client client(*s_sandbox, u"client"_s);
    const QString from = u"10.77.0.12:"_s + QString::number(client.port());
    client.send(u"10.77.0.20"_s, request().chopped(1)); // its length field now says one byte more

    EXPECT_TRUE(waitFor([&] { return findEvent(*s_sim, u"dropped"_s, from).has_value(); }, 2s))
        << s_sim->logTail().toStdString();
    EXPECT_FALSE(findEvent(*s_sim, u"request"_s, from));
    EXPECT_LT(client.receive(100ms).count, 0) << "a malformed request was answered";
}

TEST_F(PrinterSimTest, SilentAgentSwallowsQueriesWhereNoAgentRefusesThem)
{
    // A connected UDP socket learns of "port unreachable" as ECONNREFUSED.
    const auto refused = [](const QString& address) {
        const ScopedNetns inside(*s_sandbox, u"client"_s);
        const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        const sockaddr_in to = socketAddress(address, 161);
        ::connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof to);
        [[maybe_unused]] auto sent = ::send(fd, "x", 1, 0);
        pollfd ready{fd, POLLIN, 0};
        char byte = 0;
        const bool result =
            ::poll(&ready, 1, 300) == 1 && ::recv(fd, &byte, 1, 0) < 0 && errno == ECONNREFUSED;
        ::close(fd);
        return result;
    };
    EXPECT_TRUE(refused(u"10.77.0.22"_s));
    EXPECT_FALSE(refused(u"10.77.0.26"_s));
}

// 150 addresses: more than snmpd's "agentaddress" text holds.
TEST_F(PrinterSimTest, OneSharedAgentServesManyPrintersFromAJsonFileAndTermStopsIt)
{
    DaemonRunner sim;
    QJsonArray printers;
    QByteArray addresses;
    for (int last = 100; last < 250; ++last) {
        printers.append(
            QJsonObject{{u"model"_s, u"Model 4000"_s}, {u"address"_s, u"10.77.0.%1"_s.arg(last)}});
        addresses += "address add 10.77.0." + QByteArray::number(last) + "/24 brd + dev eth0\n";
    }
    const CommandResult added =
        s_sandbox->runIn(u"other"_s, {u"ip"_s, u"-batch"_s, sim.writeFile(u"addresses"_s, addresses)});
    ASSERT_TRUE(added.succeeded()) << added.describe().toStdString();
    const QString json = sim.writeFile(u"printers.json"_s, QJsonDocument(printers).toJson());

    ASSERT_TRUE(
        startSim(sim, u"other"_s, {}, {u"--printers"_s, json, u"--shared-snmpd"_s, u"--minimal-snmpd"_s}))
        << sim.failureMessage().toStdString();
    EXPECT_TRUE(sim.logContains(R"({"event":"ready","printers":150,"agents":1})"))
        << sim.logTail().toStdString();
    const QList<pid_t> agents = childrenOf(sim.pid());
    ASSERT_EQ(agents.size(), 1);
    const CommandResult r = snmpget(u"10.77.0.249"_s, {u".1.3.6.1.2.1.1.5.0"_s, u".1.3.6.1.2.1.1.2.0"_s,
                                                       u".1.3.6.1.4.1.58101.8.64.4.2.1.5.2.22510000"_s});
    EXPECT_EQ(r.standardOutput, "\"talvo-0-100\"\n.1.3.6.1.4.1.58101.1.4000\n0\n")
        << r.describe().toStdString();

    sim.stop();
    EXPECT_TRUE(gone(agents[0])) << "snmpd outlived the simulator";
}

TEST_F(PrinterSimTest, AgentsDieWithAKilledSimulator)
{
    DaemonRunner sim;
    ASSERT_TRUE(startSim(sim, u"other"_s, {u"model=Model 4000,address=10.77.0.40"_s}))
        << sim.failureMessage().toStdString();
    const QList<pid_t> agents = childrenOf(sim.pid());
    ASSERT_EQ(agents.size(), 1);

    ::kill(sim.pid(), SIGKILL);
    EXPECT_TRUE(waitFor([&] { return gone(agents[0]); }, 2s)) << "snmpd outlived the simulator";
}

TEST_F(PrinterSimTest, AnAddressTheNamespaceLacksIsAClearError)
{
    const CommandResult r =
        s_sandbox->runIn(u"client"_s, {kSim, u"--printer"_s, u"model=M,address=10.77.0.99,snmp=none"_s});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_TRUE(r.standardError.contains("10.77.0.99 is not an address of this network namespace"))
        << r.describe().toStdString();
}

} // namespace
