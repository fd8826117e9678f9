#include "SnmpTestSupport.h"

#include "foundation/DictionaryKeys.h"
#include "snmp/SNMPQuery.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <memory>

namespace talvo {
namespace {

using namespace std::chrono_literals;

// A printer whose agent receives but never answers.
class SilentAgent
{
public:
    explicit SilentAgent(const char* address)
    {
        m_fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in sin{};
        sin.sin_family = AF_INET;
        sin.sin_port = htons(161);
        sin.sin_addr.s_addr = inet_addr(address);
        m_bound = ::bind(m_fd, reinterpret_cast<sockaddr*>(&sin), sizeof sin) == 0;
    }
    ~SilentAgent() { ::close(m_fd); }
    bool bound() const { return m_bound; }

private:
    int m_fd = -1;
    bool m_bound = false;
};

TEST(SnmpTimeout, SilentPrinterIsReportedAfterFiveSecondsAndTheQueryFreed)
{
    SilentAgent silent("127.0.0.12");
    ASSERT_TRUE(silent.bound());
    test::PumpThread pump;

    auto alive = std::make_shared<int>(0); // held by the callback, so by the query
    std::atomic<bool> called{false};
    QVariantMap result;
    const auto start = std::chrono::steady_clock::now();
    std::chrono::steady_clock::duration after{};
    SNMPQuery::doQueryAsync(
        std::make_unique<SNMPQuery>(inet_addr("127.0.0.12"), QStringLiteral("public"),
                                    OidMap{{QStringLiteral(".1.3.6.1.2.1.1.5.0"), QString(kDnsNameKey)}},
                                    [&, alive](SNMPQuery& q, const QVariant&) {
                                        result = q.getResult();
                                        after = std::chrono::steady_clock::now() - start;
                                        called = true;
                                    }));
    ASSERT_TRUE(test::waitFor([&] { return called.load(); }, 8s));

    EXPECT_EQ(result, (QVariantMap{{QString(SNMPQueryOperationResultKey), 2},
                                   {QString(SNMPQueryOperationResultStringKey),
                                    QStringLiteral("NETSNMP_CALLBACK_OP_TIMED_OUT")},
                                   {QString(SNMPQueryErrorKey), 0}}));
    EXPECT_GE(after, 4900ms);
    EXPECT_LT(after, 7s);
    EXPECT_TRUE(test::waitFor([&] { return alive.use_count() == 1; }, 1s)) << "the query was not freed";
}

TEST(SnmpTimeout, QueryWithoutCallbackIsRefusedAndFreed)
{
    test::LogCapture log;
    SNMPQuery::doQueryAsync(
        std::make_unique<SNMPQuery>(inet_addr("127.0.0.13"), QStringLiteral("public"),
                                    OidMap{{QStringLiteral(".1.3.6.1.2.1.1.5.0"), QString(kDnsNameKey)}}));
    EXPECT_TRUE(log.lines().join(u'\n').contains(QStringLiteral("Callback object cannot be nil")));
}

} // namespace
} // namespace talvo
