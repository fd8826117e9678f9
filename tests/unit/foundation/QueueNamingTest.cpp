#include "foundation/QueueNaming.h"
#include "foundation/DictionaryKeys.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

TEST(CupsQueueName, EveryOtherCharacterBecomesUnderscore)
{
    const std::pair<QString, QString> cases[] = {
        {QStringLiteral("Model 4000 (PS)"), QStringLiteral("Model_4000__PS_")},
        {QStringLiteral("_10.1.2.3"), QStringLiteral("_10_1_2_3")},
        {QStringLiteral("office-printer.example.com"), QStringLiteral("office_printer_example_com")},
        {QStringLiteral("a/b#c@d"), QStringLiteral("a_b_c_d")},
        // Letters outside ASCII are not letters to CUPS.
        {QStringLiteral("Dr\u00fccker"), QStringLiteral("Dr_cker")},
        {QString(), QString()},
    };
    for (const auto& [in, expected] : cases)
        EXPECT_EQ(convertStrForCupsQueueName(in), expected) << in.toStdString();
}

struct SocketPrinterCase
{
    const char* dnsName; // nullptr: no key at all
    const char* queueName;
    const char* description;
};

TEST(SocketPrinterQueue, NamedAfterDnsNameElseAddressAndAlwaysLpdToAddress)
{
    const SocketPrinterCase cases[] = {
        {"printer.example.com", "printer_example_com", "Model 4000 \"printer.example.com\""},
        {"", "_10_1_2_3", "Model 4000 \"10.1.2.3\""},
        {nullptr, "_10_1_2_3", "Model 4000 \"10.1.2.3\""},
    };
    for (const auto& c : cases) {
        QVariantMap printer{{kPrinterModelStrKey, QStringLiteral("Model 4000")},
                            {kIPAddrStrKey, QStringLiteral("10.1.2.3")},
                            {kCUPSQueueNameKey, QStringLiteral("stale")}};
        if (c.dnsName)
            printer.insert(kDnsNameKey, QString::fromUtf8(c.dnsName));
        uriDescAndQueueNameForSocketPrinter(printer);
        EXPECT_EQ(printer.value(kCUPSQueueNameKey).toString(), QString::fromUtf8(c.queueName));
        EXPECT_EQ(printer.value(kCUPSQueueDescKey).toString(), QString::fromUtf8(c.description));
        EXPECT_EQ(printer.value(kCUPSPrinterURIKey).toString(), QStringLiteral("lpd://10.1.2.3"));
    }
}

} // namespace
} // namespace talvo
