#include "SnmpTestSupport.h"

#include "fixtures/SnmpAgent.h"
#include "foundation/DictionaryKeys.h"
#include "snmp/SNMPQuery.h"
#include "snmp/SNMPSession.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>

#include <chrono>
#include <memory>
#include <mutex>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using test::SnmpAgent;
using test::SnmpAgentConfig;

uint32_t addr(const char* dotted)
{
    return inet_addr(dotted);
}

// The outcome of one asynchronous query, filled in by its callback.
struct Outcome
{
    std::mutex mutex;
    bool done = false;
    QVariantMap result;
    QVariant context;
    std::thread::id thread;

    SNMPQuery::Callback callback()
    {
        return [this](SNMPQuery& query, const QVariant& ctx) {
            std::lock_guard lock(mutex);
            result = query.getResult();
            context = ctx;
            thread = std::this_thread::get_id();
            done = true;
        };
    }
    bool finished()
    {
        std::lock_guard lock(mutex);
        return done;
    }
};

const OidMap kSixOids{
    {QStringLiteral(".1.3.6.1.2.1.1.1.0"), QString(kSNMPDescKey)},
    {QStringLiteral(".1.3.6.1.2.1.1.2.0"), QString(kSNMPObjIDKey)},
    {QStringLiteral(".1.3.6.1.2.1.1.4.0"), QString(kPrinterContactKey)},
    {QStringLiteral(".1.3.6.1.2.1.1.5.0"), QString(kDnsNameKey)},
    {QStringLiteral(".1.3.6.1.2.1.1.6.0"), QString(kPrinterLocationKey)},
    {QStringLiteral(".1.3.6.1.4.1.58101.3.1.0"), QStringLiteral("trayCount")},
};

SnmpAgentConfig printerAgent(const char* listen)
{
    SnmpAgentConfig config;
    config.listen = {QStringLiteral("udp:%1:161").arg(QLatin1StringView(listen))};
    config.sysDescr = QStringLiteral("Talvo Model 4000; firmware 1.2");
    config.sysObjectId = QStringLiteral(".1.3.6.1.4.1.58101.1.4000");
    config.sysContact = QStringLiteral("it@example.com");
    config.sysName = QStringLiteral("office-printer");
    config.sysLocation = QStringLiteral("Room 4");
    config.overrides = {
        {QStringLiteral(".1.3.6.1.4.1.58101.3.1.0"), QStringLiteral("integer"), QStringLiteral("3")},
        {QStringLiteral(".1.3.6.1.4.1.58101.3.2.0"), QStringLiteral("counter"), QStringLiteral("9")},
        {QStringLiteral(".1.3.6.1.4.1.58101.3.3.0"), QStringLiteral("unsigned"), QStringLiteral("9")}};
    return config;
}

class SnmpQueryTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { s_agent = std::make_unique<SnmpAgent>(printerAgent("127.0.0.11")); }
    static void TearDownTestSuite() { s_agent.reset(); }
    void SetUp() override { ASSERT_TRUE(s_agent->ready()) << s_agent->failureMessage().toStdString(); }

    static inline std::unique_ptr<SnmpAgent> s_agent;
    test::PumpThread m_pump;
};

TEST_F(SnmpQueryTest, AnswerCarriesStatusAndEveryOidUnderItsKeyOnThePumpThread)
{
    Outcome outcome;
    const QVariant context = QVariantMap{{QString(kIPAddrStrKey), QStringLiteral("127.0.0.11")}};
    SNMPQuery::doQueryAsync(std::make_unique<SNMPQuery>(addr("127.0.0.11"), QStringLiteral("public"),
                                                        kSixOids, outcome.callback(), context,
                                                        QStringLiteral("New Printer Query")));
    ASSERT_TRUE(test::waitFor([&] { return outcome.finished(); }, 6s));

    const QVariantMap expected{
        {QString(SNMPQueryOperationResultKey), 1},
        {QString(SNMPQueryOperationResultStringKey), QStringLiteral("NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE")},
        {QString(SNMPQueryErrorKey), 0},
        {QString(kSNMPDescKey), QStringLiteral("Talvo Model 4000; firmware 1.2")},
        // An OID value has no leading dot.
        {QString(kSNMPObjIDKey), QStringLiteral("1.3.6.1.4.1.58101.1.4000")},
        {QString(kPrinterContactKey), QStringLiteral("it@example.com")},
        {QString(kDnsNameKey), QStringLiteral("office-printer")},
        {QString(kPrinterLocationKey), QStringLiteral("Room 4")},
        {QStringLiteral("trayCount"), 3},
    };
    EXPECT_EQ(outcome.result, expected);
    EXPECT_EQ(outcome.result.value(QStringLiteral("trayCount")).typeId(), QMetaType::Int);
    EXPECT_EQ(outcome.context, context);
    EXPECT_EQ(outcome.thread, m_pump.id());
}

TEST_F(SnmpQueryTest, MissingOidGivesNoSuchNameAndNoValues)
{
    Outcome outcome;
    OidMap oids = kSixOids;
    oids.insert(QStringLiteral(".1.3.6.1.2.1.1.9.9"), QStringLiteral("missing"));
    SNMPQuery::doQueryAsync(
        std::make_unique<SNMPQuery>(addr("127.0.0.11"), QStringLiteral("public"), oids, outcome.callback()));
    ASSERT_TRUE(test::waitFor([&] { return outcome.finished(); }, 6s));
    EXPECT_EQ(outcome.result, (QVariantMap{{QString(SNMPQueryOperationResultKey), 1},
                                           {QString(SNMPQueryOperationResultStringKey),
                                            QStringLiteral("NETSNMP_CALLBACK_OP_RECEIVED_MESSAGE")},
                                           {QString(SNMPQueryErrorKey), 2}}));
}

TEST_F(SnmpQueryTest, CountersGaugesTimeTicksAndAddressesAreLoggedAndLeftOut)
{
    test::LogCapture log;
    Outcome outcome;
    const OidMap oids{{QStringLiteral(".1.3.6.1.2.1.1.3.0"), QStringLiteral("upTime")},
                      {QStringLiteral(".1.3.6.1.4.1.58101.3.2.0"), QStringLiteral("counter")},
                      {QStringLiteral(".1.3.6.1.4.1.58101.3.3.0"), QStringLiteral("gauge")},
                      // snmpd's own address table: the one IpAddress value it serves.
                      {QStringLiteral(".1.3.6.1.2.1.4.20.1.1.127.0.0.1"), QStringLiteral("address")},
                      {QStringLiteral(".1.3.6.1.2.1.1.5.0"), QStringLiteral("name")}};
    SNMPQuery::doQueryAsync(
        std::make_unique<SNMPQuery>(addr("127.0.0.11"), QStringLiteral("public"), oids, outcome.callback()));
    ASSERT_TRUE(test::waitFor([&] { return outcome.finished(); }, 6s));

    EXPECT_EQ(outcome.result.value(QStringLiteral("name")), QStringLiteral("office-printer"));
    for (const char* key : {"upTime", "counter", "gauge", "address"})
        EXPECT_FALSE(outcome.result.contains(QLatin1StringView(key))) << key;
    const QStringList lines = log.lines();
    for (const int type : {64, 65, 66, 67})
        EXPECT_TRUE(lines.contains(QStringLiteral("getObjectFromSNMPVar: Unknown ASN type: %1").arg(type)))
            << type << " in " << lines.join(u'|').toStdString();
}

TEST_F(SnmpQueryTest, SynchronousFormReturnsTheSameValues)
{
    SNMPQuery query(addr("127.0.0.11"), QStringLiteral("public"),
                    {{QStringLiteral(".1.3.6.1.2.1.1.5.0"), QString(kDnsNameKey)}});
    EXPECT_EQ(query.doQuerySync(), (QVariantMap{{QString(SNMPQueryErrorKey), 0},
                                                {QString(kDnsNameKey), QStringLiteral("office-printer")}}));
}

TEST(SnmpSessionCache, OneSessionPerAddressWhateverTheCommunity)
{
    const auto first = SNMPSession::sessionForPeer(addr("127.0.0.77"), QStringLiteral("public"));
    const auto second = SNMPSession::sessionForPeer(addr("127.0.0.77"), QStringLiteral("other"));
    EXPECT_EQ(first, second);
    EXPECT_EQ(second->community(), QStringLiteral("public"));
    EXPECT_NE(first->session(), nullptr);
    EXPECT_NE(first, SNMPSession::sessionForPeer(addr("127.0.0.78"), QStringLiteral("public")));
}

// Many printers at once: one session (one socket) each, descriptors far past
// select()'s 1023, all served by one pump.
TEST(SnmpScale, TwoThousandSessionsAllAnswerThroughThePump)
{
    SnmpAgentConfig config;
    config.listen = {QStringLiteral("udp:0.0.0.0:161")};
    SnmpAgent agent(config);
    ASSERT_TRUE(agent.ready()) << agent.failureMessage().toStdString();

    constexpr int kPrinters = 2000;
    std::atomic<int> answered{0};
    std::atomic<int> failed{0};
    test::PumpThread pump;
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kPrinters; ++i) {
        const QByteArray ip = QStringLiteral("127.2.%1.%2").arg(i / 250).arg(i % 250 + 1).toLatin1();
        SNMPQuery::doQueryAsync(std::make_unique<SNMPQuery>(
            addr(ip.constData()), QStringLiteral("public"),
            OidMap{{QStringLiteral(".1.3.6.1.2.1.1.5.0"), QString(kDnsNameKey)}},
            [&](SNMPQuery& q, const QVariant&) {
                (q.getResult().value(QString(kDnsNameKey)) == QStringLiteral("printer") ? answered
                                                                                        : failed)++;
            }));
    }
    EXPECT_TRUE(test::waitFor([&] { return answered + failed == kPrinters; }, 30s));
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    EXPECT_EQ(answered, kPrinters);
    EXPECT_EQ(failed, 0);
    std::printf("[          ] %d SNMP sessions answered in %lld ms\n", kPrinters,
                static_cast<long long>(elapsed.count()));
}

} // namespace
} // namespace talvo
