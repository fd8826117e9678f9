#pragma once

// What the probe and queue tests share: this process's children and
// descriptors, and the queue tests' world: a sandbox client and a printer
// whose snmpd answers, a private cupsd, a PPD folder and plug-in settings.
//
//   class MyTest : public talvo::test::QueueTestBase {};
//   TEST_F(MyTest, X) { ... lpstat({u"-v"_s}) ... storedPpd(u"Office"_s) ... }

#include "fixtures/CupsServer.h"
#include "fixtures/NetworkSandbox.h"
#include "fixtures/ScopedNetns.h"
#include "fixtures/SnmpAgent.h"
#include "foundation/PropertyList.h"
#include "queue/QueueCreation.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <memory>

#include <unistd.h>

namespace talvo::test {

// Children of this process that exist, zombies included ("PID (NAME) S PPID").
inline int childProcessCount()
{
    int count = 0;
    for (const QString& pid : QDir(QStringLiteral("/proc")).entryList(QDir::Dirs)) {
        QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
        if (pid.front().isDigit() && stat.open(QIODevice::ReadOnly)) {
            const QByteArray line = stat.readAll();
            count += line.mid(line.lastIndexOf(')') + 2).split(' ').value(1).toInt() == ::getpid();
        }
    }
    return count;
}

inline int openDescriptorCount()
{
    return static_cast<int>(
        QDir(QStringLiteral("/proc/self/fd")).entryList(QDir::Files | QDir::System).size());
}

// One installable option whose default the printer's answer sets: 524288
// means 512MB.
inline constexpr char kModel4000Ppd[] = R"PPD(*PPD-Adobe: "4.3"
*FormatVersion: "4.3"
*FileVersion: "1.0"
*LanguageVersion: English
*LanguageEncoding: ISOLatin1
*PCFileName: "TALVO4K.PPD"
*Manufacturer: "Talvo"
*Product: "(Talvo Model 4000)"
*ModelName: "Talvo Model 4000"
*NickName: "Talvo Model 4000"
*OpenGroup: InstallableOptions/Installed Options
*OpenUI *Memory/Installed Memory: PickOne
*DefaultMemory: 256MB
*Memory 256MB/256 MB: ""
*Memory 512MB/512 MB: ""
*?OIDMemory: ".1.3.6.1.4.1.58101.3.5.0"
*CloseUI: *Memory
*CloseGroup: InstallableOptions
*OIDMemory 512MB: "524288"
)PPD";

class QueueTestBase : public testing::Test
{
public:
    struct Network
    {
        NetworkSandbox sandbox;
        std::unique_ptr<SnmpAgent> printer;

        Network()
        {
            // No default route: a name lookup fails at once instead of
            // waiting for a DNS server that is not there.
            sandbox.addHost(QStringLiteral("client"), QStringLiteral("10.77.51.10/24"),
                            {.segment = {}, .defaultRoute = false});
            sandbox.addHost(QStringLiteral("printer"), QStringLiteral("10.77.51.20/24"));
            SnmpAgentConfig config;
            config.listen = {QStringLiteral("udp:10.77.51.20:161")};
            config.networkNamespace = sandbox.namespaceName(QStringLiteral("printer"));
            config.sysObjectId = QStringLiteral(".1.3.6.1.4.1.58101.1.4000");
            config.sysName = QStringLiteral("office-printer");
            config.overrides = {{QStringLiteral(".1.3.6.1.4.1.58101.3.5.0"), QStringLiteral("integer"),
                                 QStringLiteral("524288")}};
            printer = std::make_unique<SnmpAgent>(config);
        }
    };

    static void SetUpTestSuite() { s_network = std::make_unique<Network>(); }
    static void TearDownTestSuite() { s_network.reset(); }
    static Network& network() { return *s_network; }

protected:
    void SetUp() override
    {
        ASSERT_TRUE(network().printer->ready()) << network().printer->failureMessage().toStdString();
        writeGzipped(u"Talvo_Model_4000.ppd.gz", kModel4000Ppd);
        writeGzipped(u"Broken.ppd.gz", "this is no PPD\n");
        m_cups = std::make_unique<CupsServer>();
        ASSERT_TRUE(m_cups->ready()) << m_cups->failureMessage().toStdString();
        // lpadmin, run by the code under test, finds this scheduler and no other.
        qputenv("CUPS_SERVER", m_cups->socketPath().toUtf8());
    }
    void TearDown() override { qunsetenv("CUPS_SERVER"); }

    CupsServer& cups() const { return *m_cups; }
    QString folder() const { return m_folder.path(); }

    QVariantMap pluginSettings() const
    {
        const auto model = [](const char* oid, const char* ppd) {
            return QVariantMap{{QStringLiteral("SysObjID"), QLatin1StringView(oid)},
                               {QStringLiteral("PPDFile"), QLatin1StringView(ppd)}};
        };
        return {
            {QStringLiteral("Vendor"), QStringLiteral("talvo")},
            {QStringLiteral("PPDDirectory"), folder()},
            {QStringLiteral("DiscoverySettings"),
             QVariantMap{{QStringLiteral("snmpGetCommunity"), QStringLiteral("public")}}},
            {QStringLiteral("SupportedPrinters"),
             QVariantMap{{QStringLiteral("Model 4000"),
                          model(".1.3.6.1.4.1.58101.1.4000", "Talvo_Model_4000.ppd.gz")},
                         {QStringLiteral("Model Broken"), model(".1.3.6.1.4.1.58101.1.1", "Broken.ppd.gz")},
                         {QStringLiteral("Model Gone"), model(".1.3.6.1.4.1.58101.1.2", "Gone.ppd.gz")}}}};
    }
    QueueCreationSettings queueSettings() const
    {
        return QueueCreationSettings::fromPluginSettings(pluginSettings());
    }

    // talvo-printers ARGS... in the sandbox's client, with settings, user
    // preferences and scheduler of this test, and the environment entries given.
    // The common options go first, so ARGS may end with "--" and a value.
    CommandResult runPrinters(const QStringList& arguments, const QStringList& environment = {}) const
    {
        return Subprocess::run(printersCommand(arguments), std::chrono::seconds(30),
                               printersEnvironment() + environment);
    }
    QStringList printersCommand(const QStringList& arguments) const
    {
        const QString settings = folder() + QStringLiteral("/PluginSettings.plist");
        EXPECT_TRUE(plist::writeXmlFile(settings, pluginSettings()));
        return QStringList{QStringLiteral("ip"), QStringLiteral("netns"), QStringLiteral("exec"),
                           network().sandbox.namespaceName(QStringLiteral("client")),
                           QStringLiteral(TALVO_BIN_DIR "/talvo-printers")} +
               printersOptions(settings) + arguments;
    }
    static QStringList printersOptions(const QString& settings)
    {
        return {QStringLiteral("--json"), QStringLiteral("--settings"), settings};
    }
    QStringList printersEnvironment() const
    {
        return {QStringLiteral("CUPS_SERVER=") + m_cups->socketPath(),
                QStringLiteral("XDG_CONFIG_HOME=") + folder()};
    }

    // lpadmin -h SOCKET ARGS...: a queue of the user's own, made beside ours.
    bool lpadmin(const QStringList& arguments) const
    {
        return Subprocess::run(
                   QStringList{QStringLiteral("lpadmin"), QStringLiteral("-h"), m_cups->socketPath()} +
                   arguments)
            .succeeded();
    }

    QString lpstat(const QStringList& arguments) const
    {
        return QString::fromLocal8Bit(m_cups->lpstat(arguments).standardOutput);
    }
    QString storedPpd(const QString& queue) const
    {
        QFile file(m_cups->storedPpdPath(queue));
        return file.open(QIODevice::ReadOnly) ? QString::fromLatin1(file.readAll()) : QString();
    }

private:
    void writeGzipped(QStringView name, const QByteArray& text)
    {
        const QString plain = m_folder.filePath(QStringLiteral("plain"));
        QFile file(plain);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(text) == text.size());
        file.close();
        const CommandResult gz = Subprocess::run({QStringLiteral("gzip"), QStringLiteral("-c"), plain});
        QFile out(m_folder.filePath(name.toString()));
        ASSERT_TRUE(gz.succeeded() && out.open(QIODevice::WriteOnly) && out.write(gz.standardOutput) > 0);
    }

    static inline std::unique_ptr<Network> s_network;
    QTemporaryDir m_folder;
    std::unique_ptr<CupsServer> m_cups;
};

} // namespace talvo::test
