// The discovery engine against simulated printers (talvo-printer-sim with a
// real snmpd per printer) in a sandbox network.

#include "EventLoop.h"
#include "HostileHost.h"
#include "LogCapture.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "fixtures/DaemonRunner.h"
#include "fixtures/NetworkSandbox.h"
#include "fixtures/PrinterSim.h"
#include "fixtures/ScopedNetns.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <sys/resource.h>

#include <chrono>
#include <memory>
#include <thread>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using test::DaemonOptions;
using test::DaemonRunner;
using test::NetworkSandbox;
using test::processEventsFor;
using test::processEventsUntil;
using test::ScopedNetns;

// Simulated printers in one host of the sandbox.
class PrinterSim : public test::PrinterSim
{
public:
    PrinterSim(const NetworkSandbox& sandbox, const QString& host, const QStringList& printers,
               const QStringList& extraArguments = {})
        : test::PrinterSim(sandbox, host, printers, extraArguments,
                           QStringLiteral(TALVO_BIN_DIR "/talvo-printer-sim"),
                           QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/PluginSettings.plist"))
    {}
};

// An engine living in the sandbox's client host, collecting announcements.
class EngineInHost
{
public:
    EngineInHost(const NetworkSandbox& sandbox, const QString& host) : m_inside(sandbox, host)
    {
        const QVariantMap settings{{QString(useSorlenDiscoveryKey), true},
                                   {QString(discoverPrinterTypesKey),
                                    QStringList{QStringLiteral("Model 4000"), QStringLiteral("Model 8560")}},
                                   {QString(snmpCommunityGetKey), QStringLiteral("public")},
                                   {QString(snmpCommunitySetKey), QStringLiteral("private")}};
        engine = std::make_unique<PrinterDiscoveryEngine>(settings);
        QObject::connect(engine.get(), &PrinterDiscoveryEngine::printerDiscovered,
                         [this](const QVariantMap& p) { announced << p; });
    }
    ~EngineInHost() { engine.reset(); }

    void start()
    {
        engine->addSubnetsForInterfaces();
        engine->startDiscovery();
    }
    QVariantMap byAddress(const QString& address) const
    {
        for (const QVariantMap& p : announced) {
            if (p.value(kIPAddrStrKey).toString() == address)
                return p;
        }
        return {};
    }

    ScopedNetns m_inside; // sockets and threads the engine makes live in the host
    std::unique_ptr<PrinterDiscoveryEngine> engine;
    QList<QVariantMap> announced;
};

QString printerSpec(const char* spec)
{
    return QString::fromLatin1(spec);
}

class LocalNetworkTest : public testing::Test
{
protected:
    void SetUp() override
    {
        m_sandbox.addHost(QStringLiteral("client"), QStringLiteral("10.77.0.10/24"));
        m_sandbox.addHost(QStringLiteral("printers"), QStringLiteral("10.77.0.20/24"));
        for (const char* extra : {"10.77.0.21/24", "10.77.0.22/24", "10.77.0.23/24", "10.77.0.24/24",
                                  "10.77.0.25/24", "10.77.0.26/24", "10.77.0.27/24", "10.79.0.5/24"})
            m_sandbox.addAddress(QStringLiteral("printers"), QString::fromLatin1(extra));
    }
    NetworkSandbox m_sandbox;
};

TEST_F(LocalNetworkTest, SupportedPrintersAreIdentifiedAndAnnouncedOnceEach)
{
    PrinterSim sim(
        m_sandbox, QStringLiteral("printers"),
        {printerSpec("model=Model 4000,address=10.77.0.20,mac=00:80:92:00:00:20,sysname=office-4000"),
         printerSpec("model=Model 8560,address=10.77.0.21,mac=00:80:92:00:00:21,snmp=nosuchname"),
         printerSpec("model=Model 1200,address=10.77.0.22,mac=00:80:92:00:00:22")});
    ASSERT_TRUE(sim.ready()) << sim.failure().toStdString();
    EngineInHost client(m_sandbox, QStringLiteral("client"));
    client.start();

    ASSERT_TRUE(processEventsUntil([&] { return client.announced.size() >= 2; }, 8s));
    client.engine->broadcast(); // a second round: nothing new may be announced
    processEventsFor(1500ms);
    ASSERT_EQ(client.announced.size(), 2);

    const QVariantMap named = client.byAddress(QStringLiteral("10.77.0.20"));
    EXPECT_EQ(named.value(kPrinterModelStrKey), QStringLiteral("Model 4000"));
    EXPECT_EQ(named.value(kMacAddrStrKey), QStringLiteral("00:80:92:00:00:20"));
    EXPECT_EQ(named.value(kQueueConnectionTypeStrKey), QStringLiteral("Raw TCP"));
    EXPECT_EQ(named.value(kIPAddressNumberKey).toULongLong(), inet_addr("10.77.0.20"));
    EXPECT_EQ(named.value(kSNMPObjIDKey), QStringLiteral("1.3.6.1.4.1.58101.1.4000"));
    EXPECT_EQ(named.value(kDnsNameKey), QStringLiteral("office-4000"));
    EXPECT_FALSE(named.value(kSNMPDescKey).toString().isEmpty());
    EXPECT_EQ(named.value(kCUPSQueueNameKey), QStringLiteral("office_4000"));
    EXPECT_EQ(named.value(kCUPSPrinterURIKey), QStringLiteral("lpd://10.77.0.20"));
    EXPECT_EQ(named.value(kCUPSQueueDescKey), QStringLiteral("Model 4000 \"office-4000\""));

    // noSuchName from its agent: announced with what discovery gave it.
    const QVariantMap unnamed = client.byAddress(QStringLiteral("10.77.0.21"));
    EXPECT_EQ(unnamed.value(kPrinterModelStrKey), QStringLiteral("Model 8560"));
    EXPECT_FALSE(unnamed.contains(kDnsNameKey));
    EXPECT_FALSE(unnamed.contains(kSNMPObjIDKey));
    EXPECT_EQ(unnamed.value(kCUPSQueueNameKey), QStringLiteral("_10_77_0_21"));
    EXPECT_EQ(unnamed.value(kCUPSPrinterURIKey), QStringLiteral("lpd://10.77.0.21"));
    EXPECT_EQ(unnamed.value(kCUPSQueueDescKey), QStringLiteral("Model 8560 \"10.77.0.21\""));

    // Requests name the client's address and, once printers answered, them.
    const QList<QJsonObject> requests = sim.events("request");
    ASSERT_GE(requests.size(), 2);
    EXPECT_EQ(requests.first().value(QStringLiteral("replyAddr")).toString(), QStringLiteral("10.77.0.10"));
    const QJsonArray known = requests.last().value(QStringLiteral("known")).toArray();
    QStringList knownTexts;
    for (const QJsonValue& v : known)
        knownTexts << v.toString();
    knownTexts.sort();
    EXPECT_EQ(knownTexts, (QStringList{QStringLiteral("10.77.0.20"), QStringLiteral("10.77.0.21"),
                                       QStringLiteral("10.77.0.22")}));
}

TEST_F(LocalNetworkTest, SilentAgentIsAnnouncedAfterTheTimeOut)
{
    PrinterSim sim(m_sandbox, QStringLiteral("printers"),
                   {printerSpec("model=Model 4000,address=10.77.0.23,mac=00:80:92:00:00:23,snmp=silent")});
    ASSERT_TRUE(sim.ready()) << sim.failure().toStdString();
    EngineInHost client(m_sandbox, QStringLiteral("client"));
    const auto start = std::chrono::steady_clock::now();
    client.start();
    ASSERT_TRUE(processEventsUntil([&] { return !client.announced.isEmpty(); }, 9s));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 4500ms);
    EXPECT_EQ(client.announced.first().value(kCUPSQueueNameKey), QStringLiteral("_10_77_0_23"));
}

TEST_F(LocalNetworkTest, MalformedRepeatedAndStrayRepliesAnnounceNothingMore)
{
    PrinterSim sim(m_sandbox, QStringLiteral("printers"),
                   {printerSpec("model=Model 4000,address=10.77.0.20,mac=00:80:92:00:00:20,reply=duplicate"),
                    printerSpec("model=Model 4000,address=10.77.0.22,mac=m,reply=bad-magic,snmp=none"),
                    printerSpec("model=Model 4000,address=10.77.0.23,mac=m,reply=bad-length,snmp=none"),
                    printerSpec("model=Model 4000,address=10.77.0.24,mac=m,reply=long-text,snmp=none"),
                    printerSpec("model=Model 4000,address=10.77.0.25,mac=m,reply=length-0x80,snmp=none"),
                    printerSpec("model=Model 4000,address=10.77.0.26,mac=m,reply=short,snmp=none"),
                    // On the client's wire but from no network the client searches.
                    printerSpec("model=Model 4000,address=10.79.0.5,mac=m,snmp=none")});
    ASSERT_TRUE(sim.ready()) << sim.failure().toStdString();
    test::LogCapture log;
    EngineInHost client(m_sandbox, QStringLiteral("client"));
    client.start();
    ASSERT_TRUE(processEventsUntil([&] { return !client.announced.isEmpty(); }, 8s));
    client.engine->broadcast();
    processEventsFor(1500ms);
    ASSERT_EQ(client.announced.size(), 1);
    EXPECT_EQ(client.announced.first().value(kIPAddrStrKey), QStringLiteral("10.77.0.20"));
    EXPECT_GE(sim.events("reply").size(), 14); // every printer did answer, twice over
    EXPECT_TRUE(log.lines().contains(QStringLiteral("can't figure out where packet came from: 10.79.0.5")))
        << log.lines().join(u'\n').toStdString();
}

TEST_F(LocalNetworkTest, AddressesHandedOverInQuickSuccessionAreEachAskedForTheirNetworks)
{
    PrinterSim sim(
        m_sandbox, QStringLiteral("printers"),
        {printerSpec("model=Model 1200,address=10.77.0.26,mac=m,cache=10.80.0.1,cache-firmware=3.0"),
         printerSpec("model=Model 1200,address=10.77.0.27,mac=m,cache=10.81.0.1")});
    ASSERT_TRUE(sim.ready()) << sim.failure().toStdString();
    EngineInHost client(m_sandbox, QStringLiteral("client"));
    client.engine->startDiscovery(); // no local networks: only what is handed over
    client.engine->askForKnownNetworks(inet_addr("10.77.0.26"));
    client.engine->askForKnownNetworks(inet_addr("10.77.0.27"));
    EXPECT_TRUE(processEventsUntil(
        [&] {
            const QStringList targets = client.engine->knownSearchSubnets();
            return targets.contains(QStringLiteral("10.80.0.1")) &&
                   targets.contains(QStringLiteral("10.81.0.1"));
        },
        5s))
        << client.engine->knownSearchSubnets().join(u' ').toStdString();
}

// A host on the LAN floods the engine's discovery socket with well-formed
// replies from spoofed addresses while a real printer answers too. The flood
// may cost replies, but the real printer is still identified over SNMP, no
// address is announced twice, and the engine stops when asked. This is also
// the engine's busiest threading (receive, identify, announce) for the
// ThreadSanitizer build.
TEST_F(LocalNetworkTest, FloodOfSpoofedRepliesLeavesTheRealPrinterFound)
{
    PrinterSim sim(m_sandbox, QStringLiteral("printers"),
                   {printerSpec("model=Model 4000,address=10.77.0.20,mac=00:80:92:00:00:20,sysname=office")});
    ASSERT_TRUE(sim.ready()) << sim.failure().toStdString();
    m_sandbox.addHost(QStringLiteral("hostile"), QStringLiteral("10.77.0.250/24"));

    int floodResult = -1;
    std::thread flood([&] {
        ScopedNetns inHostile(m_sandbox, QStringLiteral("hostile"));
        bench::FloodOptions options;
        options.network = ntohl(inet_addr("10.77.0.0"));
        options.prefixLength = 24;
        for (const char* real : {"10.77.0.10", "10.77.0.20", "10.77.0.21", "10.77.0.22", "10.77.0.23",
                                 "10.77.0.24", "10.77.0.25", "10.77.0.26", "10.77.0.27", "10.77.0.250"})
            options.skip.push_back(ntohl(inet_addr(real)));
        options.count = 20000;
        options.waitSeconds = 20;
        floodResult = bench::runFlood(options);
    });
    std::this_thread::sleep_for(200ms); // the hostile host binds port 1200 first

    {
        EngineInHost client(m_sandbox, QStringLiteral("client"));
        client.start();
        const bool found = processEventsUntil(
            [&] { return !client.byAddress(QStringLiteral("10.77.0.20")).isEmpty(); }, 20s);
        flood.join();
        ASSERT_EQ(floodResult, 0);
        ASSERT_TRUE(found);
        EXPECT_EQ(client.byAddress(QStringLiteral("10.77.0.20")).value(kDnsNameKey),
                  QStringLiteral("office"));

        // The spoofed addresses have no agent: they are announced once the
        // identification times out, each once although each replied ~80 times.
        constexpr qsizetype kSpoofedSources = 254 - 10;
        EXPECT_TRUE(processEventsUntil([&] { return client.announced.size() > kSpoofedSources / 2; }, 20s))
            << client.announced.size() << " announced: the flood did not reach the engine";
        processEventsFor(1s);
        QSet<QString> addresses;
        for (const QVariantMap& p : client.announced)
            addresses.insert(p.value(kIPAddrStrKey).toString());
        EXPECT_EQ(addresses.size(), client.announced.size()) << "an address announced twice";
        EXPECT_LE(client.announced.size(), kSpoofedSources + 1);
    } // the engine stops here
}

// Walkup through the engine: the printer the user selects at its panel is
// identified and reported once, and walkup switches itself off.
TEST_F(LocalNetworkTest, SelectedWalkupPrinterIsBeaconedOnce)
{
    PrinterSim sim(
        m_sandbox, QStringLiteral("printers"),
        {printerSpec("model=Model 4000,address=10.77.0.20,mac=00:80:92:00:00:20,sysname=lobby,"
                     "reply=silent")},
        {QStringLiteral("--walkup"), QStringLiteral("printer=10.77.0.20,to=10.77.0.10,select=0.5")});
    ASSERT_TRUE(sim.ready()) << sim.failure().toStdString();
    setVendor(QStringLiteral("Talvo")); // walkup packets carry the vendor word
    EngineInHost client(m_sandbox, QStringLiteral("client"));
    QList<QVariantMap> beaconed;
    QObject::connect(client.engine.get(), &PrinterDiscoveryEngine::printerBeaconed,
                     [&](const QVariantMap& p) { beaconed << p; });
    client.engine->setUserName(QStringLiteral("Ada Lovelace"));
    client.engine->setWalkupEnabled(true);
    client.start();
    ASSERT_TRUE(processEventsUntil([&] { return !beaconed.isEmpty(); }, 8s));
    processEventsFor(1s);
    ASSERT_EQ(beaconed.size(), 1);
    EXPECT_EQ(beaconed.first().value(kIPAddrStrKey), QStringLiteral("10.77.0.20"));
    EXPECT_EQ(beaconed.first().value(kDnsNameKey), QStringLiteral("lobby"));
    EXPECT_EQ(beaconed.first().value(kQueueConnectionTypeStrKey), QStringLiteral("Raw TCP"));
    EXPECT_FALSE(client.engine->walkupEnabled());
    EXPECT_EQ(sim.events("walkup-reply").first().value(QStringLiteral("user")).toString(),
              QStringLiteral("Ada Lovelace"));
    setVendor(QString());
}

TEST_F(LocalNetworkTest, IdleEngineSleeps)
{
    EngineInHost client(m_sandbox, QStringLiteral("client"));
    client.start();
    processEventsFor(300ms);
    rusage before{};
    getrusage(RUSAGE_SELF, &before);
    std::this_thread::sleep_for(3s); // the work thread alone, waiting
    rusage after{};
    getrusage(RUSAGE_SELF, &after);
    const auto cpu = [](const rusage& r) {
        return std::chrono::seconds(r.ru_utime.tv_sec + r.ru_stime.tv_sec) +
               std::chrono::microseconds(r.ru_utime.tv_usec + r.ru_stime.tv_usec);
    };
    EXPECT_LT(cpu(after) - cpu(before), 30ms) << "more than 1% of a core while idle";
}

// A printer on a local network knows of a network behind a router; the
// printer there is found through that knowledge alone.
TEST(RemoteNetworkTest, KnownNetworkCacheLeadsToAPrinterBehindARouter)
{
    NetworkSandbox sandbox;
    sandbox.addHost(QStringLiteral("client"), QStringLiteral("10.77.0.10/24"),
                    {.segment = {}, .defaultRoute = false});
    sandbox.addHost(QStringLiteral("local"), QStringLiteral("10.77.0.22/24"));
    sandbox.addHost(QStringLiteral("router"), QStringLiteral("10.77.0.1/24"),
                    {.segment = {}, .defaultRoute = false});
    sandbox.addInterface(QStringLiteral("router"), QStringLiteral("far"), QStringLiteral("10.78.0.1/24"));
    sandbox.addHost(QStringLiteral("remote"), QStringLiteral("10.78.0.20/24"),
                    {.segment = QStringLiteral("far"), .defaultRoute = false});
    const auto route = [&](const char* host, const char* via) {
        const auto r =
            sandbox.runIn(QString::fromLatin1(host),
                          {QStringLiteral("ip"), QStringLiteral("route"), QStringLiteral("replace"),
                           QStringLiteral("default"), QStringLiteral("via"), QString::fromLatin1(via)});
        ASSERT_TRUE(r.succeeded()) << r.describe().toStdString();
    };
    route("client", "10.77.0.1");
    route("remote", "10.78.0.1");
    ASSERT_TRUE(sandbox
                    .runIn(QStringLiteral("router"), {QStringLiteral("sysctl"), QStringLiteral("-qw"),
                                                      QStringLiteral("net.ipv4.ip_forward=1")})
                    .succeeded());

    PrinterSim local(
        sandbox, QStringLiteral("local"),
        {printerSpec("model=Model 1200,address=10.77.0.22,mac=00:80:92:00:00:22,cache=10.78.0.20")});
    PrinterSim remote(
        sandbox, QStringLiteral("remote"),
        {printerSpec("model=Model 8560,address=10.78.0.20,mac=00:80:92:00:01:20,sysname=far-8560")});
    ASSERT_TRUE(local.ready()) << local.failure().toStdString();
    ASSERT_TRUE(remote.ready()) << remote.failure().toStdString();

    EngineInHost client(sandbox, QStringLiteral("client"));
    client.start();
    ASSERT_TRUE(processEventsUntil([&] { return !client.announced.isEmpty(); }, 8s));
    EXPECT_EQ(client.announced.size(), 1);
    EXPECT_EQ(client.announced.first().value(kIPAddrStrKey), QStringLiteral("10.78.0.20"));
    EXPECT_EQ(client.announced.first().value(kDnsNameKey), QStringLiteral("far-8560"));
    EXPECT_TRUE(client.engine->knownSearchSubnets().contains(QStringLiteral("10.78.0.20")));
}

// The engine's side of USB: the monitor's findings reach the main thread as
// the same signals the network methods use.
TEST(EngineUsb, AttachedPrinterAndItsRemovalArriveAsSignals)
{
    QTemporaryDir dir;
    const QString backend = dir.filePath(QStringLiteral("usb"));
    QFile script(backend);
    ASSERT_TRUE(script.open(QIODevice::WriteOnly));
    // Lists the printer on the first run only, then nothing: unplugged.
    script.write("#!/bin/sh\n"
                 "[ -e \"$0.seen\" ] && exit 0\n"
                 ": > \"$0.seen\"\n"
                 "echo 'direct usb://TALVO/4000 \"TALVO 4000\" \"4000\" \"MFG:TALVO;MDL:Model 4000;\"'\n");
    script.close();
    script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);

    PrinterDiscoveryEngine engine(
        {{QString(useUSBDiscoveryKey), true},
         {QString(discoverPrinterTypesKey), QStringList{QStringLiteral("Model 4000")}}},
        backend);
    QList<QVariantMap> found;
    int removals = 0;
    QObject::connect(&engine, &PrinterDiscoveryEngine::printerDiscovered,
                     [&](const QVariantMap& p) { found << p; });
    QObject::connect(&engine, &PrinterDiscoveryEngine::usbPrinterDisconnected, [&] { ++removals; });
    engine.startDiscovery();
    ASSERT_TRUE(processEventsUntil([&] { return !found.isEmpty(); }, 3s));
    EXPECT_EQ(found.first().value(kQueueConnectionTypeStrKey), QStringLiteral("USB"));
    EXPECT_EQ(found.first().value(kCUPSPrinterURIKey), QStringLiteral("usb://TALVO/4000"));
    EXPECT_TRUE(processEventsUntil([&] { return removals > 0; }, 8s));
    EXPECT_EQ(found.size(), 1);
}

TEST(EngineSettings, UnchangedOrNeverSetCommunitiesAreNotSaved)
{
    PrinterDiscoveryEngine engine({{QString(snmpCommunityGetKey), QStringLiteral("public")}});
    engine.setReadCommunity(QStringLiteral("public"));
    engine.setWriteCommunity(QStringLiteral("secret")); // never set: cannot be set later
    EXPECT_EQ(engine.writeCommunity(), QString());
    setVendor(QStringLiteral("Talvo"));
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    EXPECT_TRUE(engine.saveUserPreferences().isOk());
    EXPECT_TRUE(QDir(config.path()).isEmpty());
    engine.setReadCommunity(QStringLiteral("secret"));
    EXPECT_TRUE(engine.saveUserPreferences().isOk());
    EXPECT_EQ(getSettingsDict(QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/PluginSettings.plist"))
                  ->value(kDiscoverySettingsKey)
                  .toMap()
                  .value(snmpCommunityGetKey),
              QStringLiteral("secret"));
    setVendor(QString());
}

} // namespace
} // namespace talvo
