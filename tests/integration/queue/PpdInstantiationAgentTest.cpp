// A shipped PPD instantiated from a real snmpd playing a Model 9300 MFP, in
// this test's own network namespace: through the library and through
// `talvo-printers ppd`.

#include "fixtures/SnmpAgent.h"
#include "fixtures/Subprocess.h"
#include "queue/PpdInstantiation.h"
#include "unit/queue/PpdTestSupport.h"

#include <gtest/gtest.h>

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>

#include <memory>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;

const QString kModel = u"Model 9300 MFP"_s;
const QString kPrinter = u"127.0.0.1"_s;
const QString kTalvoPrinters = QStringLiteral(TALVO_BIN_DIR "/talvo-printers");

// A printer with 1 GB, two optional trays, the duplex unit and the envelope
// feeder; its hard-disk answer maps to no choice and it has no finisher
// object at all.
test::SnmpAgentConfig printerConfig()
{
    test::SnmpAgentConfig config;
    config.listen = {u"udp:127.0.0.1:161"_s};
    config.sysObjectId = u".1.3.6.1.4.1.58101.1.9300"_s;
    config.overrides = {
        {u".1.3.6.1.4.1.58101.3.1.1.0"_s, u"integer"_s, u"1048576"_s},
        {u".1.3.6.1.4.1.58101.3.1.2.0"_s, u"integer"_s, u"2"_s},
        {u".1.3.6.1.4.1.58101.3.1.3.0"_s, u"integer"_s, u"1"_s},
        {u".1.3.6.1.4.1.58101.3.1.4.0"_s, u"integer"_s, u"7"_s},
        {u".1.3.6.1.4.1.58101.3.1.5.0"_s, u"octet_str"_s, u"present"_s},
    };
    return config;
}

// The shipped PPD with the defaults that printer's answers map to.
QByteArray expectedPpd()
{
    QByteArray bytes = test::shippedPpd(kModel).bytes;
    const std::pair<QByteArray, QByteArray> changes[] = {
        {"*DefaultMemory: 512MB\n*Memory ", "*DefaultMemory: 1GB\n*Memory "},
        {"*DefaultOptionalTrays: None\n*OptionalTrays ", "*DefaultOptionalTrays: Tray3_4\n*OptionalTrays "},
        {"*DefaultOptionalDuplexer: False\n*OptionalDuplexer ",
         "*DefaultOptionalDuplexer: True\n*OptionalDuplexer "},
        {"*DefaultEnvelopeFeeder: False\n*EnvelopeFeeder ", "*DefaultEnvelopeFeeder: True\n*EnvelopeFeeder "},
    };
    for (const auto& [before, after] : changes)
        bytes.replace(before, after);
    return bytes;
}

QByteArray contents(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

class PpdInstantiationAgentTest : public testing::Test
{
protected:
    static void SetUpTestSuite() { s_agent = std::make_unique<test::SnmpAgent>(printerConfig()); }
    static void TearDownTestSuite() { s_agent.reset(); }
    void SetUp() override { ASSERT_TRUE(s_agent->ready()) << s_agent->failureMessage().toStdString(); }

    // talvo-printers with a private temporary folder and user preferences.
    test::CommandResult talvoPrinters(const QStringList& arguments)
    {
        return test::Subprocess::run(QStringList{kTalvoPrinters} + arguments, std::chrono::seconds(60),
                                     {u"TMPDIR="_s + m_temp.path(), u"XDG_CONFIG_HOME="_s + m_config.path()});
    }

    static inline std::unique_ptr<test::SnmpAgent> s_agent;
    test::PrivateTempFolder m_temp;
    QTemporaryDir m_config;
};

TEST_F(PpdInstantiationAgentTest, DefaultsFollowThePrintersAnswers)
{
    const int requestsBefore = s_agent->requestCount();
    QString path;
    {
        const InstantiatedPPD ppd = instantiatePPD(test::shippedPpd(kModel).path, kPrinter, u"public"_s);
        ASSERT_TRUE(ppd.ok()) << ppd.error.toStdString();
        path = ppd.path;
        // Only the group's defaults changed, to what the answers map to; the
        // rest (the factory lines before the group included) is as shipped.
        EXPECT_EQ(contents(path), expectedPpd());
        const ProcessResult check = test::cupstestppd(path);
        EXPECT_TRUE(check.succeeded()) << check.standardOutput.toStdString();
    }
    // One version probe, then one query per option.
    EXPECT_EQ(s_agent->requestCount() - requestsBefore, 1 + 6);
    EXPECT_FALSE(QFile::exists(path));
    EXPECT_TRUE(m_temp.files().isEmpty()) << m_temp.files().join(u' ').toStdString();
}

TEST_F(PpdInstantiationAgentTest, PrinterThatDoesNotAnswerKeepsTheShippedDefaults)
{
    // Nothing listens there: the version probe of the first option finds none
    // (3 versions, 3 s each) and no other option asks again.
    QElapsedTimer timer;
    timer.start();
    const InstantiatedPPD ppd = instantiatePPD(test::shippedPpd(kModel).path, u"127.0.0.9"_s, u"public"_s);
    EXPECT_LT(timer.elapsed(), 15'000);
    ASSERT_TRUE(ppd.ok()) << ppd.error.toStdString();
    EXPECT_EQ(contents(ppd.path), test::shippedPpd(kModel).bytes);
}

TEST_F(PpdInstantiationAgentTest, CommandWritesTheInstantiatedPpd)
{
    QTemporaryDir out;
    const QString file = out.filePath(u"printer.ppd"_s);
    const test::CommandResult written = talvoPrinters(
        {u"ppd"_s, u"--model"_s, kModel, u"--address"_s, kPrinter, u"--output"_s, file, u"--json"_s});
    ASSERT_TRUE(written.succeeded()) << written.describe().toStdString();
    EXPECT_EQ(contents(file), expectedPpd());
    const QJsonObject report = QJsonDocument::fromJson(written.standardOutput).object();
    EXPECT_EQ(report.value(u"output"_s).toString(), file);
    EXPECT_EQ(report.value(u"ppd"_s).toString(), test::shippedPpd(kModel).path);

    // To standard output, bytes as they are: this PPD is in ISO Latin 1. Of
    // the answers, only the duplex unit's maps to a choice of this model.
    const test::CommandResult printed =
        talvoPrinters({u"ppd"_s, u"--model"_s, u"Model 4000"_s, u"--address"_s, kPrinter});
    ASSERT_TRUE(printed.succeeded()) << printed.describe().toStdString();
    EXPECT_EQ(printed.standardOutput, QByteArray(test::shippedPpd(u"Model 4000"_s).bytes)
                                          .replace("*DefaultOptionalDuplexer: False\n*OptionalDuplexer ",
                                                   "*DefaultOptionalDuplexer: True\n*OptionalDuplexer "));
    EXPECT_TRUE(m_temp.files().isEmpty()) << m_temp.files().join(u' ').toStdString();

    EXPECT_EQ(talvoPrinters({u"ppd"_s, u"--model"_s, kModel}).exitCode, 2);
    const test::CommandResult unknown =
        talvoPrinters({u"ppd"_s, u"--model"_s, u"Model 1"_s, u"--address"_s, kPrinter});
    EXPECT_EQ(unknown.exitCode, 1);
    EXPECT_TRUE(unknown.standardError.contains("not a supported model"))
        << unknown.standardError.toStdString();
}

} // namespace
} // namespace talvo
