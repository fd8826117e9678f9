// The manual address probe against real peers in a sandbox: snmpd agents
// (SNMPv1, SNMPv3 only), a TCP listener on port 9100, a host that only
// answers ping, an address where nothing is, and text that is no address.

#include "LogCapture.h"
#include "ProbeTestSupport.h"

#include "queue/PrinterProbe.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <future>
#include <thread>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using Clock = std::chrono::steady_clock;
using test::ScopedNetns;

QString at(int host)
{
    return u"10.77.50."_s + QString::number(host);
}

ProbeSettings probeSettings()
{
    ProbeSettings settings{
        u"public"_s,
        printerModelSNMPOidDict(
            {{u"Model 4000"_s, QVariantMap{{u"SysObjID"_s, u".1.3.6.1.4.1.58101.1.4000"_s}}},
             {u"Model 6500"_s, QVariantMap{{u"SysObjID"_s, QStringList{u".1.3.6.1.4.1.58101.1.6500"_s,
                                                                       u".1.3.6.1.4.1.58101.1.6501"_s}}}}}),
        {u"Model 4000"_s, u"Model 6500"_s}};
    return settings;
}

// The client the probes run in, and a host per kind of peer.
class ProbeTest : public testing::Test
{
protected:
    struct Network
    {
        test::NetworkSandbox sandbox;
        std::vector<std::unique_ptr<test::SnmpAgent>> agents;
        int listener = -1;

        test::SnmpAgentConfig agent(const QString& host, const QString& objectId, const QString& description)
        {
            sandbox.addHost(host, at(20 + static_cast<int>(agents.size())) + u"/24"_s);
            test::SnmpAgentConfig config;
            config.listen = {u"udp:"_s + sandbox.address(host) + u":161"_s};
            config.networkNamespace = sandbox.namespaceName(host);
            config.sysObjectId = objectId;
            config.sysDescr = description;
            return config;
        }
        Network()
        {
            sandbox.addHost(u"client"_s, at(10) + u"/24"_s, {.segment = {}, .defaultRoute = false});
            auto printer = agent(u"printer"_s, u".1.3.6.1.4.1.58101.1.4000"_s, u"Talvo Model 4000; fw 1.2"_s);
            printer.sysName = u"office-printer"_s;
            printer.sysContact = u"it@example.com"_s;
            printer.sysLocation = u"Room 4"_s;
            agents.push_back(std::make_unique<test::SnmpAgent>(printer)); // .20
            agents.push_back(std::make_unique<test::SnmpAgent>(
                agent(u"acme"_s, u".1.3.6.1.4.1.9999.1"_s, u"Acme Laser 9; fw 3"_s))); // .21
            auto secure = agent(u"secure"_s, u".1.3.6.1.4.1.58101.1.6501"_s, u"Talvo"_s);
            secure.community.clear();
            secure.v3User = test::SnmpV3User::Sha;
            agents.push_back(std::make_unique<test::SnmpAgent>(secure)); // .22
            auto nameless = agent(u"nameless"_s, u".1.3.6.1.4.1.8072.3.2.10"_s, u"x"_s);
            nameless.overrides = {{u".1.3.6.1.2.1.1.1.0"_s, u"octet_str"_s, u"\"\""_s}};
            agents.push_back(std::make_unique<test::SnmpAgent>(nameless)); // .23
            sandbox.addHost(u"raw"_s, at(24) + u"/24"_s);
            sandbox.addHost(u"quiet"_s, at(25) + u"/24"_s);

            // The kernel completes connections to a listening socket; nothing
            // needs to accept them.
            ScopedNetns inRaw(sandbox, u"raw"_s);
            listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
            sockaddr_in any{};
            any.sin_family = AF_INET;
            any.sin_port = htons(9100);
            if (::bind(listener, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0 ||
                ::listen(listener, 8) != 0)
                throw std::runtime_error("cannot listen on port 9100 in the raw host");
        }
        ~Network() { ::close(listener); }
    };

    static void SetUpTestSuite() { s_net = std::make_unique<Network>(); }
    static void TearDownTestSuite() { s_net.reset(); }
    void SetUp() override
    {
        for (const auto& a : s_net->agents)
            ASSERT_TRUE(a->ready()) << a->failureMessage().toStdString();
    }

    static inline std::unique_ptr<Network> s_net;
};

TEST_F(ProbeTest, OutcomesAgainstRealPeers)
{
    // The limits hold only when the SNMP versions, and then port 9100 and
    // ping, are asked at once: one after the other would take up to 18 s.
    const struct
    {
        QString text;
        ProbeResult result;
        QString model;
        double withinSeconds;
    } cases[] = {
        {at(20), ProbeResult::Supported, u"Model 4000"_s, 1.5},
        {at(21), ProbeResult::Unsupported, u"Acme Laser 9"_s, 1.5},
        {at(22), ProbeResult::Supported, u"Model 6500"_s, 4.5}, // after SNMPv1's time-out
        {at(23), ProbeResult::NotPrinter, QString(), 4.5},      // SNMP names no model
        {at(24), ProbeResult::UnknownPrinter, QString(), 4.5},
        {at(25), ProbeResult::NotPrinter, QString(), 4.5},
        {at(99), ProbeResult::NoHost, QString(), 9.0},
        {u"10.77.50"_s, ProbeResult::InvalidAddress, QString(), 0.5},
        {u"2nd-floor"_s, ProbeResult::InvalidAddress, QString(), 0.5},
        {u"10.x.y.z"_s, ProbeResult::InvalidAddress, QString(), 0.5},
        // Octal to inet_aton (8.0.0.1), which would have been probed.
        {u"010.77.50.20"_s, ProbeResult::InvalidAddress, QString(), 0.5},
        {u"tcp:printer:161"_s, ProbeResult::InvalidAddress, QString(), 0.5},
        {u"no-such-printer"_s, ProbeResult::InvalidAddress, QString(), 2.0}, // a name, looked up
    };
    const std::size_t count = std::size(cases);

    test::LogCapture log;
    const int v1PrinterRequests = s_net->agents[0]->requestCount();
    std::vector<std::unique_ptr<PrinterProbe>> probes;
    std::vector<std::promise<std::pair<ProbeOutcome, double>>> outcomes(count);
    {
        // The probes' threads, and the programs they run, live in the client.
        ScopedNetns inClient(s_net->sandbox, u"client"_s);
        for (std::size_t i = 0; i < count; ++i) {
            probes.push_back(std::make_unique<PrinterProbe>(probeSettings()));
            probes.back()->start(cases[i].text, [&outcomes, i, start = Clock::now()](const ProbeOutcome& o) {
                outcomes[i].set_value({o, std::chrono::duration<double>(Clock::now() - start).count()});
            });
        }
    }
    for (std::size_t i = 0; i < count; ++i) {
        const auto& c = cases[i];
        const auto [outcome, seconds] = outcomes[i].get_future().get();
        SCOPED_TRACE(c.text.toStdString());
        EXPECT_EQ(probeResultName(outcome.result), probeResultName(c.result));
        EXPECT_LT(seconds, c.withinSeconds);
        EXPECT_EQ(outcome.printer.value(u"printerModel"_s).toString(), c.model);
        if (c.result == ProbeResult::InvalidAddress)
            EXPECT_TRUE(outcome.printer.isEmpty());
        else if (c.result != ProbeResult::Supported || c.text != at(20))
            EXPECT_EQ(outcome.printer.value(u"in_addr_t"_s).toULongLong(), inet_addr(qPrintable(c.text)));
        else
            EXPECT_EQ(outcome.printer,
                      (QVariantMap{{u"in_addr_t"_s, static_cast<qulonglong>(inet_addr("10.77.50.20"))},
                                   {u"ipAddr"_s, at(20)},
                                   {u"queueType"_s, u"Raw TCP"_s},
                                   {u"printerModel"_s, u"Model 4000"_s},
                                   {u"sysObjId"_s, u"1.3.6.1.4.1.58101.1.4000"_s},
                                   {u"sysDescr"_s, u"Talvo Model 4000; fw 1.2"_s},
                                   {u"printerContact"_s, u"it@example.com"_s},
                                   {u"dnsName"_s, u"office-printer"_s},
                                   {u"printerLocation"_s, u"Room 4"_s}}));
    }
    // The printer that answers SNMPv1 was asked six GETs (the version probe,
    // sysObjectID and four more), none with SNMPv3 credentials.
    std::this_thread::sleep_for(300ms); // the agent's log lines are written as it goes
    EXPECT_EQ(s_net->agents[0]->requestCount() - v1PrinterRequests, 6);
    for (const QString& line :
         {u"printerSysObjId 1.3.6.1.4.1.58101.1.4000 successfully found for model Model 4000"_s,
          u"Printer model not found by sysID OID, decomposed sysDescr = Acme Laser 9"_s,
          u"printerModel not found by either sysDescr or sysObjID"_s,
          u"connect to port 9100 test succeeded"_s, u"connect to port 9100 test failed, pinging"_s,
          u"ping succeeded"_s, u"ping failed"_s})
        EXPECT_TRUE(log.lines().contains(line)) << line.toStdString();
}

TEST_F(ProbeTest, StopEndsTheProbeAtOnceAndLeavesNoChild)
{
    ScopedNetns inClient(s_net->sandbox, u"client"_s);
    const int descriptors = test::openDescriptorCount();
    const int daemons = test::childProcessCount(); // the agents
    const auto stopsAtOnce = [&](const std::function<void()>& stop) {
        std::this_thread::sleep_for(500ms);
        EXPECT_GT(test::childProcessCount(), daemons) << "snmpget or ping should be running now";
        const auto start = Clock::now();
        stop();
        EXPECT_LT(Clock::now() - start, 300ms);
        EXPECT_EQ(test::childProcessCount(), daemons);
    };

    // During SNMP: three snmpget runs wait for a host that is not there.
    bool completed = false;
    PrinterProbe probe(probeSettings());
    probe.start(at(99), [&completed](const ProbeOutcome&) { completed = true; });
    stopsAtOnce([&] { probe.stop(); });
    EXPECT_FALSE(probe.isRunning() || completed);

    // During the port 9100 and ping checks: the socket and ping go at once.
    std::stop_source stop;
    auto connecting = std::async(std::launch::async, [&] {
        return connectsOnPort9100(inet_addr("10.77.50.99"), 5s, stop.get_token());
    });
    auto pinging =
        std::async(std::launch::async, [&] { return pingHost(inet_addr("10.77.50.99"), stop.get_token()); });
    stopsAtOnce([&] {
        stop.request_stop();
        EXPECT_FALSE(connecting.get() || pinging.get());
    });
    EXPECT_EQ(test::openDescriptorCount(), descriptors);
}

TEST(ProbeRulesTest, ModelsAddressesAndPing)
{
    const auto table = printerModelSNMPOidDict(
        {{u"Model 4000"_s, QVariantMap{{u"SysObjID"_s, u".1.3.6.1.4.1.58101.1.4000"_s}}},
         {u"Model 8560"_s, QVariantMap{{u"SysObjID"_s, QVariantList{u"1.3.6.1.9.1"_s, u"1.3.6.1.9.2"_s}}}},
         {u"Model 9300"_s, QVariantMap{{u"PPDFile"_s, u"x.ppd.gz"_s}}}});
    EXPECT_EQ(table.size(), 3);
    const auto model = [&](const char* oid, std::optional<QString> description) {
        return modelFromSnmpAnswers(QLatin1StringView(oid), description, table);
    };
    EXPECT_EQ(model("1.3.6.1.4.1.58101.1.4000", u"Other; text"_s), u"Model 4000"_s); // settings' leading dot
    EXPECT_EQ(model("1.3.6.1.9.2", std::nullopt), u"Model 8560"_s);
    EXPECT_EQ(model("1.3.6.1.9.3", u"Model X; fw 2; more"_s), u"Model X"_s);
    EXPECT_EQ(model("1.3.6.1.9.3", std::nullopt), std::nullopt);

    EXPECT_EQ(pingArguments(inet_addr("10.1.2.3")),
              (QStringList{u"ping"_s, u"-q"_s, u"-n"_s, u"-c"_s, u"1"_s, u"-w"_s, u"4"_s, u"10.1.2.3"_s}));
    // Four decimal octets are the address, a well-formed name is looked up
    // (only /etc/hosts answers "localhost": no traffic), and anything else is
    // no address. Only the name needs a lookup: a stop changes nothing for
    // the others.
    std::stop_source stopped;
    stopped.request_stop();
    const struct
    {
        QString text;
        std::optional<uint32_t> address;
    } addresses[] = {
        {u"10.0.0.5"_s, inet_addr("10.0.0.5")},
        {u"0.1.2.3"_s, inet_addr("0.1.2.3")},
        {u"localhost"_s, inet_addr("127.0.0.1")},
        {u""_s, std::nullopt},
        {u"192.168.1.300"_s, std::nullopt},
        {u"010.0.0.1"_s, std::nullopt},
        {u"10.x.y.z"_s, std::nullopt},
        {u"10.0.0.5 "_s, std::nullopt},
        {u"tcp:h:161"_s, std::nullopt},
        {u"-h"_s, std::nullopt},
    };
    for (const auto& a : addresses) {
        EXPECT_EQ(resolveManualAddress(a.text), a.address) << a.text.toStdString();
        if (a.text != u"localhost"_s) {
            EXPECT_EQ(resolveManualAddress(a.text, stopped.get_token()), a.address) << a.text.toStdString();
        }
    }
}

} // namespace
} // namespace talvo
