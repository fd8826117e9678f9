// Bonjour discovery against real avahi daemons (one per host, each on a
// private D-Bus) and simulated printers whose broadcast side stays silent,
// so everything found here was found through DNS-SD.

#include "EventLoop.h"
#include "discovery/BonjourBrowser.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "fixtures/DaemonRunner.h"
#include "fixtures/MdnsHost.h"
#include "fixtures/NetworkSandbox.h"
#include "fixtures/ScopedNetns.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/Settings.h"

#include <gtest/gtest.h>

#include <QCoreApplication>

#include <chrono>
#include <thread>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using test::DaemonOptions;
using test::DaemonRunner;
using test::MdnsHost;
using test::NetworkSandbox;
using test::processEventsUntil;
using test::ScopedNetns;

// A simulated printer with its agent, answering no broadcast.
bool startPrinter(DaemonRunner& sim, const NetworkSandbox& sandbox, const QString& host, const QString& spec)
{
    DaemonOptions options;
    options.networkNamespace = sandbox.namespaceName(host);
    sim.start({QStringLiteral(TALVO_BIN_DIR "/talvo-printer-sim"), QStringLiteral("--settings"),
               QStringLiteral(TALVO_BUILD_RESOURCE_DIR "/PluginSettings.plist"), QStringLiteral("--printer"),
               spec + QStringLiteral(",reply=silent")},
              options);
    return sim.waitUntilReady([&] { return sim.logContains("\"event\":\"ready\""); }, 20s);
}

class BonjourTest : public testing::Test
{
protected:
    void SetUp() override
    {
        setVendor(QStringLiteral("Talvo"));
        m_sandbox.addHost(QStringLiteral("client"), QStringLiteral("10.77.0.10/24"));
        m_sandbox.addHost(QStringLiteral("printer"), QStringLiteral("10.77.0.30/24"));
        m_client = std::make_unique<MdnsHost>(m_sandbox, QStringLiteral("client"));
        m_printer = std::make_unique<MdnsHost>(m_sandbox, QStringLiteral("printer"));
        ASSERT_TRUE(m_client->ready()) << m_client->failureMessage().toStdString();
        ASSERT_TRUE(m_printer->ready()) << m_printer->failureMessage().toStdString();
        ASSERT_TRUE(startPrinter(m_sim, m_sandbox, QStringLiteral("printer"),
                                 QStringLiteral("model=Model 8560,address=10.77.0.30,sysname=office-8560,"
                                                "cache=10.78.0.20")))
            << m_sim.failureMessage().toStdString();
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", m_client->busAddress().toUtf8());
    }
    void TearDown() override { setVendor(QString()); }

    // An engine in the client host; only Bonjour, plus broadcast discovery
    // when asked (known-network queries need it).
    void startEngine(bool broadcast)
    {
        m_inside = std::make_unique<ScopedNetns>(m_sandbox, QStringLiteral("client"));
        m_engine = std::make_unique<PrinterDiscoveryEngine>(
            QVariantMap{{QString(useBonjourKey), true},
                        {QString(useSorlenDiscoveryKey), broadcast},
                        {QString(discoverPrinterTypesKey), QStringList{QStringLiteral("Model 8560")}},
                        {QString(snmpCommunityGetKey), QStringLiteral("public")}});
        QObject::connect(m_engine.get(), &PrinterDiscoveryEngine::printerDiscovered,
                         [this](const QVariantMap& p) { m_announced << p; });
        m_engine->startDiscovery();
    }

    NetworkSandbox m_sandbox;
    std::unique_ptr<MdnsHost> m_client;
    std::unique_ptr<MdnsHost> m_printer;
    DaemonRunner m_sim;
    std::unique_ptr<ScopedNetns> m_inside;
    std::unique_ptr<PrinterDiscoveryEngine> m_engine;
    QList<QVariantMap> m_announced;
};

TEST_F(BonjourTest, SupportedPrinterIsAnnouncedOnceAndAgainAfterARestartOfTheBrowse)
{
    ASSERT_TRUE(
        m_printer->publish(QStringLiteral("Office 8560"), QStringLiteral("_printer._tcp"), 515,
                           {QStringLiteral("product=(TALVO Model 8560)"), QStringLiteral("usb_MFG=TALVO")}))
        << m_printer->failureMessage().toStdString();
    // Short products are ignored whatever they name.
    ASSERT_TRUE(m_printer->publish(QStringLiteral("Short"), QStringLiteral("_printer._tcp"), 515,
                                   {QStringLiteral("product=(TALVO )")}));
    startEngine(false);
    ASSERT_TRUE(processEventsUntil([&] { return !m_announced.isEmpty(); }, 10s));
    processEventsUntil([] { return false; }, 1500ms);
    ASSERT_EQ(m_announced.size(), 1);

    const QVariantMap& printer = m_announced.first();
    EXPECT_EQ(printer.value(kQueueConnectionTypeStrKey), QStringLiteral("Bonjour"));
    EXPECT_EQ(printer.value(kPrinterModelStrKey), QStringLiteral("Model 8560"));
    EXPECT_EQ(printer.value(kIPAddrStrKey), QStringLiteral("10.77.0.30"));
    // The SNMP name replaces the host name, as for every identified printer.
    EXPECT_EQ(printer.value(kDnsNameKey), QStringLiteral("office-8560"));
    EXPECT_EQ(printer.value(kSNMPObjIDKey), QStringLiteral("1.3.6.1.4.1.58101.1.8560"));
    EXPECT_EQ(printer.value(kCUPSPrinterURIKey), QStringLiteral("lpd://10.77.0.30"));
    // No broadcast discovery: no known-network question, no learned target.
    EXPECT_TRUE(m_engine->knownSearchSubnets().isEmpty());

    m_engine->setBonjourEnabled(false);
    m_engine->setBonjourEnabled(true);
    EXPECT_TRUE(processEventsUntil([&] { return m_announced.size() == 2; }, 10s))
        << "the browse did not restart";
}

TEST_F(BonjourTest, VendorPrinterOfAnotherModelOnlyTeachesItsNetworks)
{
    ASSERT_TRUE(
        m_printer->publish(QStringLiteral("Old Talvo"), QStringLiteral("_printer._tcp"), 515,
                           {QStringLiteral("product=(TALVO Model 1200)"), QStringLiteral("usb_MFG=tal")}));
    startEngine(true);
    EXPECT_TRUE(processEventsUntil(
        [&] { return m_engine->knownSearchSubnets().contains(QStringLiteral("10.78.0.20")); }, 10s))
        << m_engine->knownSearchSubnets().join(u' ').toStdString();
    EXPECT_TRUE(m_announced.isEmpty());
}

// A printer's host name published by the test through the printer host's
// daemon, as the printer's own responder would, until the runner stops.
bool publishThrough(DaemonRunner& publisher, const NetworkSandbox& sandbox, const MdnsHost& host,
                    const QStringList& arguments)
{
    DaemonOptions options;
    options.networkNamespace = sandbox.namespaceName(QStringLiteral("printer"));
    options.environment = {QStringLiteral("DBUS_SYSTEM_BUS_ADDRESS=") + host.busAddress()};
    publisher.start(QStringList{QStringLiteral("avahi-publish")} + arguments, options);
    return publisher.waitUntilReady([&] { return publisher.logContains("Established"); }, 10s);
}

// The service first names a host that has no address yet (the resolve fails,
// and the service stays announced: nothing but a retry finds it), then goes
// away and comes back with its host at a new address.
TEST_F(BonjourTest, ServiceIsFoundAfterAFailedResolveAndAtItsNewAddressAfterAMove)
{
    m_sandbox.addHost(QStringLiteral("moved"), QStringLiteral("10.77.0.31/24"));
    DaemonRunner movedSim;
    ASSERT_TRUE(startPrinter(movedSim, m_sandbox, QStringLiteral("moved"),
                             QStringLiteral("model=Model 8560,address=10.77.0.31,sysname=moved-8560")))
        << movedSim.failureMessage().toStdString();
    const QStringList service{QStringLiteral("-s"),
                              QStringLiteral("-H"),
                              QStringLiteral("lobby.local"),
                              QStringLiteral("Lobby 8560"),
                              QStringLiteral("_printer._tcp"),
                              QStringLiteral("515"),
                              QStringLiteral("product=(TALVO Model 8560)")};
    const auto address = [](const char* at) {
        return QStringList{QStringLiteral("-a"), QStringLiteral("-R"), QStringLiteral("lobby.local"),
                           QString::fromLatin1(at)};
    };

    DaemonRunner firstService;
    DaemonRunner firstAddress;
    ASSERT_TRUE(publishThrough(firstService, m_sandbox, *m_printer, service))
        << firstService.failureMessage().toStdString();
    startEngine(false);
    processEventsUntil([] { return false; }, 6s); // the resolve gives up
    ASSERT_TRUE(m_announced.isEmpty());
    ASSERT_TRUE(publishThrough(firstAddress, m_sandbox, *m_printer, address("10.77.0.30")))
        << firstAddress.failureMessage().toStdString();
    ASSERT_TRUE(processEventsUntil([&] { return !m_announced.isEmpty(); }, 20s)) << "never tried again";
    EXPECT_EQ(m_announced.first().value(kIPAddrStrKey), QStringLiteral("10.77.0.30"));
    EXPECT_EQ(m_announced.first().value(kDnsNameKey), QStringLiteral("office-8560"));

    // Withdrawn (its goodbye leaves the caches a second later), then back.
    firstService.stop();
    firstAddress.stop();
    processEventsUntil([] { return false; }, 2500ms);
    DaemonRunner secondAddress;
    DaemonRunner secondService;
    ASSERT_TRUE(publishThrough(secondAddress, m_sandbox, *m_printer, address("10.77.0.31")));
    ASSERT_TRUE(publishThrough(secondService, m_sandbox, *m_printer, service));
    ASSERT_TRUE(processEventsUntil([&] { return m_announced.size() == 2; }, 10s)) << "not evaluated afresh";
    EXPECT_EQ(m_announced.last().value(kIPAddrStrKey), QStringLiteral("10.77.0.31"));
    EXPECT_EQ(m_announced.last().value(kDnsNameKey), QStringLiteral("moved-8560"));
}

TEST(BonjourTxt, ProductAndManufacturerRules)
{
    const QString vendor = QStringLiteral("Talvo");
    const std::pair<const char*, std::optional<QString>> products[] = {
        {"(TALVO Model 8560)", QStringLiteral("Model 8560")},
        {"(Model 8560)", QStringLiteral("Model 8560")},
        {"(talvo Model 9300 MFP)", QStringLiteral("Model 9300 MFP")},
        {"(TALVO )", std::nullopt},
        {"(ABC)", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto& [product, model] : products)
        EXPECT_EQ(BonjourBrowser::modelFromProduct(product, vendor), model) << product;

    for (const char* matching : {"TALVO", "tal", ""})
        EXPECT_TRUE(BonjourBrowser::manufacturerMatches(matching, vendor)) << matching;
    for (const char* other : {"Talvo Inc", "Acme", "talx"})
        EXPECT_FALSE(BonjourBrowser::manufacturerMatches(other, vendor)) << other;

    const QByteArray txt = QByteArray("\x0eproduct=(ABC)x\x08usb_MFG=", 24);
    EXPECT_EQ(BonjourBrowser::txtValue(txt, "product"), QByteArray("(ABC)x"));
    EXPECT_EQ(BonjourBrowser::txtValue(txt, "usb_MFG"), QByteArray());
    EXPECT_FALSE(BonjourBrowser::txtValue(txt, "usb_MDL"));
}

} // namespace
} // namespace talvo
