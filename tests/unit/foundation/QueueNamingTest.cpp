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
        ASSERT_TRUE(uriDescAndQueueNameForSocketPrinter(printer));
        EXPECT_EQ(printer.value(kCUPSQueueNameKey).toString(), QString::fromUtf8(c.queueName));
        EXPECT_EQ(printer.value(kCUPSQueueDescKey).toString(), QString::fromUtf8(c.description));
        EXPECT_EQ(printer.value(kCUPSPrinterURIKey).toString(), QStringLiteral("lpd://10.1.2.3"));
    }
}

TEST(SocketPrinterQueue, TextThatOnlyClaimsToBeAnAddressGivesNoUri)
{
    for (const char* claimed : {"tcp:host.example:161", "10.0.0.256", "010.0.0.1", "-v3", ""}) {
        QVariantMap printer{{kPrinterModelStrKey, QStringLiteral("Model 4000")},
                            {kIPAddrStrKey, QString::fromUtf8(claimed)}};
        const QVariantMap before = printer;
        EXPECT_FALSE(uriDescAndQueueNameForSocketPrinter(printer)) << claimed;
        EXPECT_EQ(printer, before) << claimed;
    }
}

// Cuts keep whole characters and the number of a NAME_N, and the scheduler's
// limit is counted in bytes of UTF-8, not in characters.
TEST(QueueNameLength, CutToTheSchedulersLimitOnCharacterBoundaries)
{
    const QString accented = QString(63, u'a') + QString(40, QChar(0xe9)); // 63 + 80 bytes
    const struct
    {
        QString name;
        QString suffix;
        qsizetype bytes;
        bool endsWithSuffix;
    } cases[] = {
        {QString(200, u'n'), {}, 127, false},
        {QString(200, u'n'), QStringLiteral("_12"), 127, true},
        {QStringLiteral("short"), QStringLiteral("_2"), 7, true},
        {accented, {}, 63 + 64, false},                                       // 32 two-byte characters fit
        {accented, QStringLiteral("_2"), 63 + 62 + 2, true},                  // 31 of them
        {QString::fromUtf8("\xf0\x9f\x96\xa8").repeated(70), {}, 124, false}, // 31 four-byte characters
    };
    for (const auto& c : cases) {
        const QString cut = fitQueueName(c.name, c.suffix);
        const QByteArray utf8 = cut.toUtf8();
        EXPECT_LE(utf8.size(), kMaxQueueNameBytes);
        EXPECT_EQ(utf8.size(), c.bytes) << c.name.toStdString();
        EXPECT_EQ(QString::fromUtf8(utf8), cut) << "a character was split";
        EXPECT_EQ(cut.endsWith(c.suffix) && !c.suffix.isEmpty(), c.endsWithSuffix);
    }
    const QString printers = QString(40, QChar(0xd83d)) + QString(40, QChar(0xdda8)); // unpaired halves
    EXPECT_LE(fitQueueName(printers).toUtf8().size(), kMaxQueueNameBytes);
}

TEST(QueueNameLength, FreeNamesCountOnWithTheirNumberKept)
{
    const QString longName(127, u'x');
    EXPECT_EQ(firstFreeQueueName(longName, {}), longName);
    EXPECT_EQ(firstFreeQueueName(longName, {longName.toUpper()}), QString(125, u'x') + QStringLiteral("_2"));
    QStringList taken{QStringLiteral("Office")};
    for (int n = 2; n <= 10; ++n)
        taken << QStringLiteral("office_%1").arg(n);
    EXPECT_EQ(firstFreeQueueName(QStringLiteral("office"), taken), QStringLiteral("office_11"));
}

TEST(QueueNameProblem, WhatTheSchedulerRefuses)
{
    for (const char* good : {"Office", "office_2", "Büro-3.OG", "a"})
        EXPECT_TRUE(queueNameProblem(QString::fromUtf8(good)).isEmpty()) << good;
    for (const char* bad : {"", "two words", "a/b", "a\\b", "why?", "it's", "\"q\"", "#1", "lp@host",
                            "tab\there", "bell\x07", "del\x7f"})
        EXPECT_FALSE(queueNameProblem(QString::fromUtf8(bad)).isEmpty()) << bad;
    EXPECT_FALSE(queueNameProblem(QString(64, QChar(0xe9))).isEmpty()) << "128 bytes";
}

} // namespace
} // namespace talvo
