#include "snmp/SnmpgetFallback.h"

#include "LogCapture.h"

#include <gtest/gtest.h>

namespace talvo {
namespace {

// Transcripts of snmpget -Onqv (net-snmp 5.9) against snmpd, byte for byte.
TEST(SnmpgetOutput, ValuesComeBackAsThePrinterSentThem)
{
    const struct
    {
        const char* name;
        QByteArray output;
        std::optional<QString> value;
    } cases[] = {
        {"plain string", "\"Talvo Model 4000; firmware 1.2\"\n",
         QStringLiteral("Talvo Model 4000; firmware 1.2")},
        {"escaped quotes and backslash", "\"\\\"quoted\\\" name \\\\back\"\n",
         QStringLiteral("\"quoted\" name \\back")},
        {"empty string", "\"\"\n", QString()},
        {"integer", "42\n", QStringLiteral("42")},
        {"object id", ".1.3.6.1.4.1.58101.1\n", QStringLiteral(".1.3.6.1.4.1.58101.1")},
        {"UTF-8 printed as hex", "\"47 72 C3 BC \"\n", QStringLiteral("Gr\u00fc")},
        {"long hex over several lines",
         "\"47 72 C3 BC C3 9F 65 20 61 75 73 20 64 65 6D 20 \n"
         "42 C3 BC 72 6F 2C 20 65 69 6E 20 73 65 68 72 20 \n"
         "75 6E 64 \"\n",
         QStringLiteral("Gr\u00fc\u00dfe aus dem B\u00fcro, ein sehr und")},
        {"Latin-1 bytes", "\"47 72 FC 65 \"\n", QStringLiteral("Gr\u00fce")},
        // A printable string that only looks like hex: net-snmp would have
        // printed real bytes 0x41 0x42 as "AB", so this is the printer's text.
        {"hex-looking text", "\"41 42 \"\n", QStringLiteral("41 42 ")},
        {"string over two lines", "\"first\nsecond\"\n", QStringLiteral("first\nsecond")},
        // Found by fuzzing: a NUL at the end is printed in hex like any other
        // byte, and hex never ends in a blank line.
        {"NUL at the end", "\"54 61 6C 76 6F 00 \"\n", QStringLiteral("Talvo") + QChar(0)},
        {"hex-looking text over a blank line", "\"11 \n\n\"\n", QStringLiteral("11 \n\n")},
        {"U+0001 alone means empty", "\"01 \"\n", QString()},
        {"nothing", "", std::nullopt},
        {"unterminated quote", "\"cut off", std::nullopt},
        {"no such object (v3)", "No Such Object available on this agent at this OID\n", std::nullopt},
        {"no such instance (v3)", "No Such Instance currently exists at this OID\n", std::nullopt},
    };
    for (const auto& c : cases) {
        const auto value = snmpget::parseValue(c.output);
        EXPECT_EQ(value.has_value(), c.value.has_value()) << c.name;
        if (value && c.value) {
            EXPECT_EQ(*value, *c.value) << c.name;
        }
    }
}

TEST(SnmpgetArguments, OneVectorPerVersionAndNoneForTheRest)
{
    const QString host = QStringLiteral("10.0.0.5");
    const QString oid = QStringLiteral(".1.3.6.1.2.1.1.5.0");
    const QStringList common{QStringLiteral("snmpget"), QStringLiteral("-r2"), QStringLiteral("-t1"),
                             QStringLiteral("-Onqv")};
    const QStringList v1 =
        common + QStringList{QStringLiteral("-cpub lic"), QStringLiteral("-v1"), host, oid};
    EXPECT_EQ(snmpget::arguments(snmpget::kVersion1, QStringLiteral("pub lic"), host, oid), v1);

    const QStringList sha = snmpget::arguments(snmpget::kVersion3SHA, QStringLiteral("x"), host, oid);
    EXPECT_EQ(sha.join(u' '),
              common.join(u' ') +
                  QStringLiteral(" -u Kdrivers -a SHA -A k7PaqLwe2ZumR9tobex4 -l authPriv -x DES"
                                 " -X MOVAF38xelUbrestu5ja 10.0.0.5 .1.3.6.1.2.1.1.5.0"));
    QStringList md5 = snmpget::arguments(snmpget::kVersion3MD5, QStringLiteral("x"), host, oid);
    EXPECT_EQ(md5.replaceInStrings(QStringLiteral("MD5"), QStringLiteral("SHA")), sha);

    for (const int code : {0, 4, 5, -1})
        EXPECT_TRUE(snmpget::arguments(code, QStringLiteral("public"), host, oid).isEmpty()) << code;
    // A "host" that snmpget would read as an option never reaches it.
    EXPECT_TRUE(snmpget::arguments(snmpget::kVersion1, QStringLiteral("public"), QStringLiteral("-Dall"), oid)
                    .isEmpty());
}

// "-c" with nothing after it would make snmpget read "-v1" as the community.
// SNMPv3 carries no community, so it is asked whatever the community is.
TEST(SnmpgetArguments, NoSnmpv1WithoutACommunity)
{
    const QString host = QStringLiteral("10.0.0.5");
    const QString oid = QStringLiteral(".1.3.6.1.2.1.1.5.0");
    for (const QString& community : {QString(), QStringLiteral(""), QStringLiteral(" \t")}) {
        EXPECT_FALSE(snmpget::isUsableCommunity(community));
        EXPECT_TRUE(snmpget::arguments(snmpget::kVersion1, community, host, oid).isEmpty());
        EXPECT_FALSE(snmpget::arguments(snmpget::kVersion3SHA, community, host, oid).isEmpty());
    }
    EXPECT_TRUE(snmpget::isUsableCommunity(QStringLiteral(" x ")));

    // Loopback: should the refusal ever fail, nothing leaves the machine.
    test::LogCapture log;
    int version = snmpget::kVersion1;
    EXPECT_FALSE(doSNMPQueryOn(QStringLiteral("127.0.0.1"), QString(), oid, version));
    EXPECT_EQ(version, snmpget::kVersion1);
    EXPECT_TRUE(log.lines().contains(QStringLiteral("No SNMPv1 community to ask with: snmpget is not run")))
        << log.lines().join(u'\n').toStdString();
}

} // namespace
} // namespace talvo
