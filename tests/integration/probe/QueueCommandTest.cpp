// talvo-printers probe and add as the command-line contract has them: output,
// exit codes, and the queue made in the private scheduler.

#include "ProbeTestSupport.h"

#include "foundation/PropertyList.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using test::CommandResult;

class QueueCommandTest : public test::QueueTestBase
{
protected:
    // talvo-printers ARGS... in the sandbox's client, with settings, user
    // preferences and scheduler of this test.
    CommandResult run(const QStringList& arguments) const
    {
        const QString settings = folder() + u"/PluginSettings.plist"_s;
        EXPECT_TRUE(plist::writeXmlFile(settings, pluginSettings()));
        return test::Subprocess::run(
            QStringList{u"ip"_s, u"netns"_s, u"exec"_s, network().sandbox.namespaceName(u"client"_s),
                        QStringLiteral(TALVO_BIN_DIR "/talvo-printers")} +
                arguments + QStringList{u"--json"_s, u"--settings"_s, settings},
            30s, {u"CUPS_SERVER="_s + cups().socketPath(), u"XDG_CONFIG_HOME="_s + folder()});
    }
    static QJsonObject json(const CommandResult& r)
    {
        return QJsonDocument::fromJson(r.standardOutput).object();
    }
};

TEST_F(QueueCommandTest, ExitCodesAndOutput)
{
    const QStringList bad[] = {
        {u"probe"_s},
        {u"add"_s},
        {u"add"_s, u"--address"_s, u"10.0.0.1"_s, u"--usb-uri"_s, u"usb://x"_s, u"--model"_s,
         u"Model 4000"_s},
        {u"add"_s, u"--usb-uri"_s, u"usb://x"_s},
        {u"add"_s, u"--usb-uri"_s, u"lpd://10.0.0.1"_s, u"--model"_s, u"Model 4000"_s},
    };
    for (const QStringList& arguments : bad)
        EXPECT_EQ(run(arguments).exitCode, 2) << arguments.join(u' ').toStdString();
    const CommandResult unsupported =
        run({u"add"_s, u"--usb-uri"_s, u"usb://x"_s, u"--model"_s, u"Model 1"_s});
    EXPECT_EQ(unsupported.exitCode, 1);
    EXPECT_TRUE(unsupported.standardError.contains("Model 1 is not a supported model"));
    const CommandResult broken =
        run({u"add"_s, u"--usb-uri"_s, u"usb://T/B"_s, u"--model"_s, u"Model Broken"_s});
    EXPECT_EQ(broken.exitCode, 1);
    EXPECT_TRUE(broken.standardError.contains("Unable to open PPD")) << broken.standardError.toStdString();
    const CommandResult invalid = run({u"probe"_s, u"2nd-floor"_s});
    EXPECT_EQ(invalid.exitCode, 0);
    EXPECT_EQ(invalid.standardOutput, "{\"result\":\"invalid-address\"}\n");

    const CommandResult probe = run({u"probe"_s, u"10.77.51.20"_s});
    EXPECT_EQ(json(probe)[u"result"_s], u"supported"_s);
    EXPECT_EQ(json(probe)[u"printer"_s][u"in_addr_t"_s].toDouble(), 0x14334d0a); // network order as stored

    const CommandResult dry = run({u"add"_s, u"--address"_s, u"10.77.51.20"_s, u"--dry-run"_s});
    const QString ppd = folder() + u"/Talvo_Model_4000.ppd.gz"_s;
    EXPECT_EQ(json(dry)[u"dryRun"_s], true);
    EXPECT_EQ(json(dry)[u"ppd"_s], ppd);
    EXPECT_EQ(
        json(dry)[u"lpadmin"_s].toArray().toVariantList(),
        QVariantList({u"/usr/sbin/lpadmin"_s, u"-p"_s, u"office_printer"_s, u"-E"_s, u"-v"_s,
                      u"lpd://10.77.51.20"_s, u"-P"_s, ppd, u"-D"_s, u"Model 4000 \"office-printer\""_s}));
    EXPECT_TRUE(lpstat({u"-v"_s}).isEmpty()) << "nothing created so far";

    const CommandResult add = run({u"add"_s, u"--address"_s, u"10.77.51.20"_s});
    ASSERT_EQ(add.exitCode, 0) << add.describe().toStdString();
    EXPECT_EQ(json(add)[u"queueName"_s], u"office_printer"_s);
    const CommandResult usb = run({u"add"_s, u"--usb-uri"_s, u"usb://T/M"_s, u"--model"_s, u"Model 4000"_s});
    EXPECT_EQ(json(usb), QJsonObject({{u"printerModel"_s, u"Model 4000"_s},
                                      {u"queueType"_s, u"USB"_s},
                                      {u"URI"_s, u"usb://T/M"_s},
                                      {u"queueName"_s, u"Talvo_Model_4000"_s},
                                      {u"cupsDesc"_s, u"Model 4000"_s}}));
    EXPECT_EQ(lpstat({u"-v"_s}), u"device for office_printer: lpd://10.77.51.20\n"
                                 u"device for Talvo_Model_4000: usb://T/M\n"_s);
}

} // namespace
} // namespace talvo
