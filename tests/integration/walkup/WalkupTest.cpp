// The walkup listener and `talvo-printers walkup` against simulated printers
// (talvo-printer-sim, with a real snmpd) in a sandbox network: the client
// host 10.77.0.10 listens, the printers live in 10.77.0.20 and .21.

#include "EventLoop.h"
#include "LogCapture.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "discovery/WalkupPacket.h"
#include "fixtures/DaemonRunner.h"
#include "fixtures/NetworkSandbox.h"
#include "fixtures/PrinterSim.h"
#include "fixtures/ScopedNetns.h"
#include "fixtures/Subprocess.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"

#include <gtest/gtest.h>

#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <mutex>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

const QString kSimulator = QStringLiteral(TALVO_BIN_DIR "/talvo-printer-sim");
const QString kSettings = QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/PluginSettings.plist");
const QString kPrinter = u"model=Model 4000,address=10.77.0.20,mac=00:80:92:00:00:20,sysname=office-4000"_s;

// The host's reply from 10.77.0.10 for "Jane Doe", written out by hand.
QByteArray replyFrom(const char* hexAddress)
{
    return "talvo\x01\x03<ipaddr>0x" + QByteArray(hexAddress) +
           "</ipaddr><type>1</type><user>Jane Doe</user>";
}

// Simulated printers in the "printers" host; events read from their log.
class PrinterSim
{
public:
    PrinterSim(const test::NetworkSandbox& sandbox, const QStringList& printers, const QStringList& walkups)
    {
        QStringList argv{kSimulator, u"--settings"_s, kSettings};
        for (const QString& p : printers)
            argv << u"--printer"_s << p;
        for (const QString& w : walkups)
            argv << u"--walkup"_s << w;
        m_daemon.start(argv, {.networkNamespace = sandbox.namespaceName(u"printers"_s)});
        m_ready =
            m_daemon.waitUntilReady([this] { return m_daemon.logContains("\"event\":\"ready\""); }, 20s);
    }
    bool ready() const { return m_ready; }
    std::string failure() const { return m_daemon.failureMessage().toStdString(); }
    std::string log() const { return m_daemon.log().toStdString(); }
    QList<QJsonObject> events(const char* kind) const
    {
        QList<QJsonObject> found;
        for (const QByteArray& line : m_daemon.log().split('\n')) {
            const QJsonObject event = QJsonDocument::fromJson(line).object();
            if (event.value(u"event"_s).toString() == QLatin1StringView(kind))
                found << event;
        }
        return found;
    }

private:
    test::DaemonRunner m_daemon;
    bool m_ready = false;
};

// A UDP socket on port 1204 of a sandbox host, closed with the object.
struct Socket
{
    Socket(const test::NetworkSandbox& sandbox, const QString& host, const char* address = "0.0.0.0")
    {
        test::ScopedNetns inside(sandbox, host);
        fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_port = htons(sorlenWalkupUDPPortNum);
        at.sin_addr.s_addr = inet_addr(address);
        bound = ::bind(fd, reinterpret_cast<const sockaddr*>(&at), sizeof at) == 0;
    }
    ~Socket() { ::close(fd); }
    void sendTo(const QByteArray& datagram, const char* address) const
    {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(sorlenWalkupUDPPortNum);
        to.sin_addr.s_addr = inet_addr(address);
        ::sendto(fd, datagram.constData(), static_cast<size_t>(datagram.size()), 0,
                 reinterpret_cast<const sockaddr*>(&to), sizeof to);
    }
    QByteArray receive(std::chrono::milliseconds limit = 3s) const
    {
        pollfd p{fd, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(limit.count())) != 1)
            return {};
        QByteArray buffer(65536, '\0');
        const ssize_t n = ::recv(fd, buffer.data(), static_cast<size_t>(buffer.size()), 0);
        return buffer.left(n < 0 ? 0 : n);
    }
    int fd = -1;
    bool bound = false;
};

// The engine with walkup alone (plus `settings`) in the client host,
// recording what it reports.
class Client
{
public:
    explicit Client(const test::NetworkSandbox& sandbox, const QVariantMap& settings = {})
        : m_inside(sandbox, u"client"_s)
    {
        QVariantMap all{{QString(useSorlenWalkupKey), true}, {QString(snmpCommunityGetKey), u"public"_s}};
        all.insert(settings);
        engine = std::make_unique<PrinterDiscoveryEngine>(all);
        engine->setUserName(u"Jane Doe"_s);
        QObject::connect(engine.get(), &PrinterDiscoveryEngine::printerBeaconed,
                         [this](const QVariantMap& p) { beaconed << p; });
        QObject::connect(engine.get(), &PrinterDiscoveryEngine::printerDiscovered,
                         [this](const QVariantMap& p) { discovered << p; });
        QObject::connect(
            engine.get(), &PrinterDiscoveryEngine::walkupAnnounced,
            [this](const QVariantMap& a) { announced << a.value(kPrinterModelStrKey).toString(); });
        engine->startDiscovery();
    }
    test::ScopedNetns m_inside; // the engine's sockets and thread live in the client host
    std::unique_ptr<PrinterDiscoveryEngine> engine;
    QList<QVariantMap> beaconed;
    QList<QVariantMap> discovered;
    QStringList announced;
};

class WalkupTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_sandbox.addHost(u"client"_s, u"10.77.0.10/24"_s);
        m_sandbox.addHost(u"printers"_s, u"10.77.0.20/24"_s);
        m_sandbox.addAddress(u"printers"_s, u"10.77.0.21/24"_s);
        setVendor(u"Talvo"_s);
    }
    void TearDown() override { setVendor(QString()); }
    test::NetworkSandbox m_sandbox;
};

TEST_F(WalkupTest, AnnouncementsAreAnsweredAndOnlyTheAnnouncerIsReportedWhenSelected)
{
    test::LogCapture log;
    Client client(m_sandbox);
    // 10.77.0.21 selects at once without ever announcing itself: ignored,
    // and the session goes on. 10.77.0.20 announces every 0.2 s and selects
    // after 1.5 s: reported, and that ends the session.
    PrinterSim sim(m_sandbox, {kPrinter, u"model=Model 8560,address=10.77.0.21"_s},
                   {u"printer=10.77.0.21,to=10.77.0.10,count=0,select-at=0,user=Jane Doe"_s,
                    u"printer=10.77.0.20,to=10.77.0.10,interval=0.2,select-at=1.5"_s});
    ASSERT_TRUE(sim.ready()) << sim.failure();
    ASSERT_TRUE(test::processEventsUntil([&] { return !client.beaconed.isEmpty(); }, 10s))
        << sim.log() << log.lines().join(u'\n').toStdString();
    EXPECT_FALSE(client.engine->walkupEnabled());
    ASSERT_EQ(client.beaconed.size(), 1);
    const QVariantMap p = client.beaconed.first();
    EXPECT_EQ(p.value(kIPAddressNumberKey).toULongLong(), inet_addr("10.77.0.10")); // where it arrived
    EXPECT_EQ(p.value(kPrinterModelStrKey), u"Model 4000"_s);
    EXPECT_EQ(p.value(kMacAddrStrKey), u"00:80:92:00:00:20"_s);
    EXPECT_EQ(p.value(kIPAddrStrKey), u"10.77.0.20"_s);
    EXPECT_EQ(p.value(kQueueConnectionTypeStrKey), u"Raw TCP"_s);
    EXPECT_EQ(p.value(kDnsNameKey), u"office-4000"_s);
    EXPECT_EQ(p.value(kSNMPObjIDKey), u"1.3.6.1.4.1.58101.1.4000"_s);
    EXPECT_EQ(p.value(kCUPSQueueNameKey), u"office_4000"_s);
    EXPECT_EQ(p.value(kCUPSPrinterURIKey), u"lpd://10.77.0.20"_s);

    // Every announcement answered, byte for byte (the last reply may still be on its way).
    EXPECT_TRUE(test::processEventsUntil(
        [&] { return sim.events("walkup-reply").size() == client.announced.size(); }, 2s));
    for (const QJsonObject& r : sim.events("walkup-reply")) {
        EXPECT_EQ(r.value(u"printer"_s).toString(), u"10.77.0.20"_s);
        EXPECT_EQ(r.value(u"from"_s).toString(), u"10.77.0.10:1204"_s);
        EXPECT_EQ(r.value(u"hex"_s).toString().toLatin1(), replyFrom("a4d000a").toHex());
    }

    // The port is free again: a socket of our own takes it and hears the
    // printer's announcements, which nobody answers any more.
    Socket own(m_sandbox, u"client"_s);
    ASSERT_TRUE(own.bound) << std::strerror(errno);
    EXPECT_TRUE(own.receive().contains("<model>Model 4000</model>"));
}

TEST_F(WalkupTest, OnlyThePrinterItselfIsAnsweredAndLargeDatagramsAreReadWhole)
{
    Client client(m_sandbox);
    const Socket printer(m_sandbox, u"printers"_s, "10.77.0.21");
    ASSERT_TRUE(printer.bound);
    const auto announcement = [](const QByteArray& tag, const QByteArray& model) {
        return "talvo\x01\x01<ipaddr>0x" + tag + "</ipaddr><type>0</type><model>" + model +
               "</model><macaddr>00:80:92:00:00:21</macaddr>";
    };
    const QByteArray longModel(4000, 'L');
    printer.sendTo(announcement("0a4d0016", "Forged"), "10.77.0.10"); // claims 10.77.0.22
    printer.sendTo("no prefix at all", "10.77.0.10");
    printer.sendTo("talvo\x01\x01<ipaddr>0a4d0014</ipaddr><type>2</type><user>Jane Doe</user>", "10.77.0.10");
    printer.sendTo(announcement("0a4d0015", longModel), "10.77.0.10");

    EXPECT_EQ(printer.receive(), replyFrom("a4d000a")); // the only reply: to the long one
    EXPECT_TRUE(printer.receive(500ms).isEmpty());
    ASSERT_TRUE(test::processEventsUntil([&] { return client.announced.size() == 1; }, 1s));
    EXPECT_EQ(client.announced, QStringList{QString::fromLatin1(longModel)});
    EXPECT_TRUE(client.engine->walkupEnabled()) << "a stray selection ended the session";
    EXPECT_TRUE(client.beaconed.isEmpty());

    const auto start = std::chrono::steady_clock::now();
    client.engine->stopDiscovery();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 100ms);
    EXPECT_TRUE(Socket(m_sandbox, u"client"_s).bound);
}

TEST_F(WalkupTest, AnnouncementWithoutModelAndMacIsAnsweredAndItsSelectionReported)
{
    // The printer's agent answers at once; its walkup side is the test's.
    PrinterSim sim(m_sandbox, {u"model=Model 8560,address=10.77.0.21,sysname=bare"_s}, {});
    ASSERT_TRUE(sim.ready()) << sim.failure();
    Client client(m_sandbox);
    const Socket printer(m_sandbox, u"printers"_s, "10.77.0.21");
    ASSERT_TRUE(printer.bound);
    printer.sendTo("talvo\x01\x01<ipaddr>0x0a4d0015</ipaddr><type>0</type>", "10.77.0.10");
    EXPECT_EQ(printer.receive(), replyFrom("a4d000a"));
    printer.sendTo("talvo\x01\x01<ipaddr>0x0a4d0015</ipaddr><type>2</type><user>Jane Doe</user>",
                   "10.77.0.10");
    ASSERT_TRUE(test::processEventsUntil([&] { return !client.beaconed.isEmpty(); }, 8s));
    EXPECT_EQ(client.announced, QStringList{QString()});
    const QVariantMap p = client.beaconed.first();
    EXPECT_EQ(p.value(kIPAddrStrKey), u"10.77.0.21"_s);
    EXPECT_FALSE(p.contains(kPrinterModelStrKey));
    EXPECT_FALSE(p.contains(kMacAddrStrKey));
    EXPECT_EQ(p.value(kDnsNameKey), u"bare"_s);
    EXPECT_EQ(p.value(kCUPSPrinterURIKey), u"lpd://10.77.0.21"_s);
}

// The printer selected by walkup knows a network behind a router: the
// printer there is found through that knowledge alone, and the walkup printer
// is asked with the read community the user set after the start.
TEST_F(WalkupTest, SelectedPrinterTeachesItsKnownNetworkWithTheCurrentCommunity)
{
    m_sandbox.addHost(u"router"_s, u"10.77.0.1/24"_s, {.segment = {}, .defaultRoute = false});
    m_sandbox.addInterface(u"router"_s, u"far"_s, u"10.78.0.1/24"_s);
    m_sandbox.addHost(u"remote"_s, u"10.78.0.20/24"_s, {.segment = u"far"_s, .defaultRoute = false});
    for (const auto& [host, via] :
         {std::pair{u"client"_s, u"10.77.0.1"_s}, std::pair{u"remote"_s, u"10.78.0.1"_s}}) {
        const auto r =
            m_sandbox.runIn(host, {u"ip"_s, u"route"_s, u"replace"_s, u"default"_s, u"via"_s, via});
        ASSERT_TRUE(r.succeeded()) << r.describe().toStdString();
    }
    ASSERT_TRUE(
        m_sandbox.runIn(u"router"_s, {u"sysctl"_s, u"-qw"_s, u"net.ipv4.ip_forward=1"_s}).succeeded());

    // Broadcast discovery on, but with no network of its own to search.
    Client client(m_sandbox, {{QString(useSorlenDiscoveryKey), true},
                              {QString(discoverPrinterTypesKey), QStringList{u"Model 8560"_s}},
                              {QString(snmpCommunityGetKey), u"stale"_s}});
    client.engine->setReadCommunity(u"public"_s);
    test::PrinterSim remote(m_sandbox, u"remote"_s,
                            {u"model=Model 8560,address=10.78.0.20,sysname=far-8560"_s}, {}, kSimulator,
                            kSettings);
    ASSERT_TRUE(remote.ready()) << remote.failure().toStdString();
    PrinterSim sim(m_sandbox, {kPrinter + u",cache=10.78.0.20"_s},
                   {u"printer=10.77.0.20,to=10.77.0.10,interval=0.2,select=0.3"_s});
    ASSERT_TRUE(sim.ready()) << sim.failure();

    ASSERT_TRUE(test::processEventsUntil([&] { return !client.discovered.isEmpty(); }, 10s))
        << client.engine->knownSearchSubnets().join(u' ').toStdString();
    ASSERT_EQ(client.beaconed.size(), 1);
    EXPECT_EQ(client.beaconed.first().value(kDnsNameKey), u"office-4000"_s);
    ASSERT_EQ(client.discovered.size(), 1);
    EXPECT_EQ(client.discovered.first().value(kIPAddrStrKey), u"10.78.0.20"_s);
    EXPECT_EQ(client.discovered.first().value(kDnsNameKey), u"far-8560"_s);
    EXPECT_EQ(client.engine->knownSearchSubnets(), QStringList{u"10.78.0.20"_s});
}

// `talvo-printers walkup` in the client host, as a script runs it.
class WalkupCommandTest : public WalkupTest
{
protected:
    test::CommandResult run(const QStringList& arguments)
    {
        const QStringList argv = QStringList{QStringLiteral(TALVO_BIN_DIR "/talvo-printers"), u"walkup"_s,
                                             u"--settings"_s, kSettings} +
                                 arguments;
        return test::Subprocess::run(test::DaemonRunner::wrappedCommand(
                                         argv, {.networkNamespace = m_sandbox.namespaceName(u"client"_s)}),
                                     20s, {u"XDG_CONFIG_HOME="_s + m_config.path()});
    }
    QTemporaryDir m_config;
};

TEST_F(WalkupCommandTest, PrintsTheAnnouncementAndTheSelectedPrinter)
{
    // Announced to the broadcast address: the reply then names that address
    // as the host's, the address the announcement arrived on.
    PrinterSim sim(m_sandbox, {kPrinter}, {u"printer=10.77.0.20,to=10.77.0.255,interval=0.2,select=0.2"_s});
    ASSERT_TRUE(sim.ready()) << sim.failure();
    const test::CommandResult r = run({u"--json"_s, u"--seconds"_s, u"15"_s, u"--user"_s, u"Jane Doe"_s});
    ASSERT_EQ(r.exitCode, 0) << r.describe().toStdString();
    const QList<QByteArray> lines = r.standardOutput.trimmed().split('\n');
    ASSERT_EQ(lines.size(), 2) << r.standardOutput.toStdString();
    const QJsonObject announced = QJsonDocument::fromJson(lines[0]).object();
    EXPECT_EQ(announced.value(u"event"_s).toString(), u"announced"_s);
    EXPECT_EQ(announced.value(u"ipAddr"_s).toString(), u"10.77.0.20"_s);
    EXPECT_EQ(announced.value(u"printerModel"_s).toString(), u"Model 4000"_s);
    EXPECT_EQ(announced.value(u"macAddr"_s).toString(), u"00:80:92:00:00:20"_s);
    const QJsonObject selected = QJsonDocument::fromJson(lines[1]).object();
    EXPECT_EQ(selected.value(u"event"_s).toString(), u"selected"_s);
    const QJsonObject printer = selected.value(u"printer"_s).toObject();
    EXPECT_EQ(printer.value(u"ipAddr"_s).toString(), u"10.77.0.20"_s);
    EXPECT_EQ(printer.value(u"queueName"_s).toString(), u"office_4000"_s);
    EXPECT_EQ(printer.value(u"in_addr_t"_s).toDouble(), inet_addr("10.77.0.10"));
    const QList<QJsonObject> replies = sim.events("walkup-reply");
    ASSERT_FALSE(replies.isEmpty());
    EXPECT_EQ(replies.first().value(u"hex"_s).toString().toLatin1(), replyFrom("a4d00ff").toHex());
}

TEST_F(WalkupCommandTest, SaysSoAndExitsAtOnceWhenTheListenerCannotRun)
{
    const Socket taken(m_sandbox, u"client"_s); // port 1204 is someone else's
    ASSERT_TRUE(taken.bound);
    const auto start = std::chrono::steady_clock::now();
    const test::CommandResult r = run({u"--seconds"_s, u"30"_s, u"--user"_s, u"Jane Doe"_s});
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_EQ(r.exitCode, 1) << r.describe().toStdString();
    EXPECT_TRUE(r.standardError.contains("cannot listen on UDP port 1204")) << r.describe().toStdString();
}

TEST_F(WalkupCommandTest, TimesOutWithStatusThreeAndRejectsBadArguments)
{
    EXPECT_EQ(run({u"--seconds"_s, u"0.3"_s}).exitCode, 3);
    EXPECT_EQ(run({u"--seconds"_s, u"0"_s}).exitCode, 2);
    EXPECT_EQ(run({u"--user"_s, u" "_s}).exitCode, 2);
}

} // namespace
} // namespace talvo
