#include "snmp/SnmpgetFallback.h"
#include "fixtures/SnmpAgent.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include <memory>

namespace talvo {
namespace {

using test::SnmpAgent;
using test::SnmpAgentConfig;
using test::SnmpV3User;

// Puts a logging snmpget first in PATH, so a test can count the commands run.
class CountedSnmpget
{
public:
    CountedSnmpget()
    {
        m_savedPath = qgetenv("PATH");
        const QString script = m_dir.filePath(QStringLiteral("snmpget"));
        QFile f(script);
        if (f.open(QIODevice::WriteOnly)) {
            f.write("#!/bin/sh\necho run >> \"$0.log\"\nexec /usr/bin/snmpget \"$@\"\n");
            f.close();
            f.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        }
        qputenv("PATH", m_dir.path().toUtf8() + ':' + m_savedPath);
    }
    ~CountedSnmpget() { qputenv("PATH", m_savedPath); }
    int runs() const
    {
        QFile f(m_dir.filePath(QStringLiteral("snmpget.log")));
        return f.open(QIODevice::ReadOnly) ? static_cast<int>(f.readAll().count("run")) : 0;
    }

private:
    QTemporaryDir m_dir;
    QByteArray m_savedPath;
};

SnmpAgentConfig agentAt(const char* address, const QString& community, SnmpV3User user)
{
    SnmpAgentConfig config;
    config.listen = {QStringLiteral("udp:%1:161").arg(QLatin1StringView(address))};
    config.community = community;
    config.v3User = user;
    config.sysName = QStringLiteral("printer-%1").arg(QLatin1StringView(address));
    return config;
}

struct VersionCase
{
    const char* name;
    const char* address;
    const char* community; // "" for none
    SnmpV3User user;
    int expectedVersion;
    int expectedRuns; // probes plus the query itself
};

void PrintTo(const VersionCase& c, std::ostream* os)
{
    *os << c.name;
}

class SnmpgetVersionTest : public testing::TestWithParam<VersionCase>
{};

TEST_P(SnmpgetVersionTest, ProbeFindsTheVersionThePrinterAnswersAndRemembersIt)
{
    const VersionCase& c = GetParam();
    std::unique_ptr<SnmpAgent> agent;
    if (*c.community || c.user != SnmpV3User::None) {
        agent = std::make_unique<SnmpAgent>(agentAt(c.address, QString::fromLatin1(c.community), c.user));
        ASSERT_TRUE(agent->ready()) << agent->failureMessage().toStdString();
    }
    CountedSnmpget counted;
    const QString host = QString::fromLatin1(c.address);
    int version = snmpget::kUnknown;
    const auto name =
        doSNMPQueryOn(host, QStringLiteral("public"), QStringLiteral(".1.3.6.1.2.1.1.5.0"), version);
    EXPECT_EQ(version, c.expectedVersion);
    EXPECT_EQ(counted.runs(), c.expectedRuns);
    if (c.expectedVersion == snmpget::kNone) {
        EXPECT_FALSE(name);
        // Final: a later call runs nothing at all.
        EXPECT_FALSE(
            doSNMPQueryOn(host, QStringLiteral("public"), QStringLiteral(".1.3.6.1.2.1.1.5.0"), version));
        EXPECT_EQ(counted.runs(), c.expectedRuns);
    } else {
        EXPECT_EQ(name, QStringLiteral("printer-%1").arg(host));
        // Remembered: the next value costs one command.
        EXPECT_TRUE(
            doSNMPQueryOn(host, QStringLiteral("public"), QStringLiteral(".1.3.6.1.2.1.1.1.0"), version));
        EXPECT_EQ(counted.runs(), c.expectedRuns + 1);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Versions, SnmpgetVersionTest,
    testing::Values(VersionCase{"v1", "127.0.0.21", "public", SnmpV3User::None, snmpget::kVersion1, 2},
                    VersionCase{"sha", "127.0.0.22", "", SnmpV3User::Sha, snmpget::kVersion3SHA, 3},
                    VersionCase{"md5", "127.0.0.23", "", SnmpV3User::Md5, snmpget::kVersion3MD5, 4},
                    VersionCase{"none", "127.0.0.24", "", SnmpV3User::None, snmpget::kNone, 3}),
    [](const testing::TestParamInfo<VersionCase>& param) { return std::string(param.param.name); });

// Values as a printer sends them, through the real tool and the real agent.
TEST(SnmpgetValues, QuotedEscapedHexAndControlValuesComeBackAsSent)
{
    SnmpAgentConfig config = agentAt("127.0.0.25", QStringLiteral("public"), SnmpV3User::None);
    config.sysName = QStringLiteral("\"quoted\" name \\back");
    config.overrides = {
        {QStringLiteral(".1.3.6.1.4.1.58101.4.1.0"), QStringLiteral("octet_str"),
         QStringLiteral("0x4772C3BC")},
        {QStringLiteral(".1.3.6.1.4.1.58101.4.2.0"), QStringLiteral("octet_str"), QStringLiteral("0x01")},
        {QStringLiteral(".1.3.6.1.4.1.58101.4.3.0"), QStringLiteral("octet_str"),
         QStringLiteral("\"Model 9300 MFP\"")},
        {QStringLiteral(".1.3.6.1.4.1.58101.4.4.0"), QStringLiteral("integer"), QStringLiteral("42")},
    };
    SnmpAgent agent(config);
    ASSERT_TRUE(agent.ready()) << agent.failureMessage().toStdString();

    const std::pair<const char*, std::optional<QString>> cases[] = {
        {".1.3.6.1.2.1.1.5.0", QStringLiteral("\"quoted\" name \\back")},
        {".1.3.6.1.4.1.58101.4.1.0", QStringLiteral("Gr\u00fc")},
        {".1.3.6.1.4.1.58101.4.2.0", QString()},
        {".1.3.6.1.4.1.58101.4.3.0", QStringLiteral("Model 9300 MFP")},
        {".1.3.6.1.4.1.58101.4.4.0", QStringLiteral("42")},
        {".1.3.6.1.2.1.1.2.0", QStringLiteral(".1.3.6.1.4.1.8072.3.2.10")},
        {".1.3.6.1.4.1.58101.9.9.0", std::nullopt}, // noSuchName
    };
    int version = snmpget::kVersion1;
    for (const auto& [oid, expected] : cases) {
        EXPECT_EQ(doSNMPQueryOn(QStringLiteral("127.0.0.25"), QStringLiteral("public"),
                                QLatin1StringView(oid), version),
                  expected)
            << oid;
    }
}

} // namespace
} // namespace talvo
