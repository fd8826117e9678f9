// talvo-printers probe and add as the command-line contract has them: output,
// exit codes, and the queue made in the private scheduler.

#include "ProbeTestSupport.h"
#include "ScratchMount.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using test::CommandResult;

class QueueCommandTest : public test::QueueTestBase
{
protected:
    CommandResult run(const QStringList& arguments, const QStringList& environment = {}) const
    {
        return runPrinters(arguments, environment);
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
    // A well-formed name that does not resolve is an outcome, not a bad argument.
    const CommandResult invalid = run({u"probe"_s, u"no-such-printer"_s});
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

// Text that is neither four decimal octets nor a host name is refused where
// it enters: exit 2, the value named (control characters escaped), and
// nothing run. Every snmpget and ping started would be recorded by the
// stand-ins put first in PATH; -v would show the probe starting.
TEST_F(QueueCommandTest, AddressesThatAreNoAddressAreRefusedBeforeAnythingRuns)
{
    QTemporaryDir standIns;
    ASSERT_TRUE(standIns.isValid());
    const QString started = standIns.filePath(u"started"_s);
    for (const QString& program : {u"snmpget"_s, u"ping"_s}) {
        QFile script(standIns.filePath(program));
        ASSERT_TRUE(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\necho \"$0 $*\" >> \"$(dirname \"$0\")/started\"\nexit 1\n");
        script.close();
        script.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
    const QStringList environment{u"PATH="_s + standIns.path() + u':' +
                                  QString::fromLocal8Bit(qgetenv("PATH"))};

    const struct
    {
        QString value;
        QByteArray shown; // on standard error, between quotes
    } cases[] = {
        {u"10.x.y.z"_s, "10.x.y.z"},    {u"10.0.0.256"_s, "10.0.0.256"},
        {u"tcp:h:161"_s, "tcp:h:161"},  {u"-v3"_s, "-v3"},
        {u"010.0.0.1"_s, "010.0.0.1"},  {u"2nd-floor"_s, "2nd-floor"},
        {u"a\x1b[2Jb"_s, "a\\x1b[2Jb"},
    };
    for (const auto& c : cases) {
        for (const QStringList& arguments :
             {QStringList{u"-v"_s, u"probe"_s, u"--"_s, c.value},
              QStringList{u"-v"_s, u"ppd"_s, u"--model"_s, u"Model 4000"_s, u"--address="_s + c.value}}) {
            SCOPED_TRACE(arguments.join(u' ').toStdString());
            const CommandResult r = run(arguments, environment);
            EXPECT_EQ(r.exitCode, 2);
            EXPECT_TRUE(r.standardError.contains("\"" + c.shown + "\" is neither an IPv4 address"))
                << r.describe().toStdString();
            EXPECT_FALSE(r.standardError.contains("\x1b"));
            EXPECT_FALSE(r.standardError.contains("testForPrinterAtAddress started"));
            EXPECT_TRUE(r.standardOutput.isEmpty()) << r.standardOutput.toStdString();
            EXPECT_FALSE(QFile::exists(started));
        }
    }
    // Typed plainly, "-v3" is read as options; refused all the same.
    for (const QStringList& arguments :
         {QStringList{u"probe"_s, u"-v3"_s},
          QStringList{u"ppd"_s, u"--model"_s, u"Model 4000"_s, u"--address"_s, u"-v3"_s}}) {
        EXPECT_EQ(run(arguments, environment).exitCode, 2) << arguments.join(u' ').toStdString();
    }
    // A name that does not resolve cannot be asked for the PPD's answers.
    const CommandResult unresolved =
        run({u"ppd"_s, u"--model"_s, u"Model 4000"_s, u"--address"_s, u"no-such-printer"_s}, environment);
    EXPECT_EQ(unresolved.exitCode, 2);
    EXPECT_TRUE(unresolved.standardError.contains("\"no-such-printer\" is a host name that does not resolve"))
        << unresolved.describe().toStdString();
    QFile record(started);
    EXPECT_FALSE(record.exists()) << (record.open(QIODevice::ReadOnly) ? record.readAll().toStdString() : "");
}

// A PPD reported as written is on disk. A full disk, a device as the output
// or a full temporary folder is an error naming the file; the old file stays
// whole, the device stays a device, and no queue is made from an empty PPD.
TEST_F(QueueCommandTest, PpdIsWrittenWholeOrNotAtAll)
{
    test::ScratchMount scratch(256 * 1024);
    ASSERT_TRUE(scratch.ready()) << scratch.failure().toStdString();
    const QString output = scratch.filePath(u"office.ppd"_s);
    const QString device = scratch.filePath(u"full"_s);
    ASSERT_EQ(::mknod(QFile::encodeName(device).constData(), S_IFCHR | 0600, makedev(1, 7)), 0);
    const QStringList ppd{u"ppd"_s,       u"--model"_s,     u"Model 4000"_s,
                          u"--address"_s, u"10.77.51.20"_s, u"--output"_s};

    const CommandResult first = run(ppd + QStringList{output});
    ASSERT_EQ(first.exitCode, 0) << first.describe().toStdString();
    EXPECT_EQ(json(first)[u"address"_s], u"10.77.51.20"_s);
    QFile written(output);
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    const QByteArray whole = written.readAll();
    written.close();
    EXPECT_TRUE(whole.contains("*DefaultMemory: 512MB")) << whole.toStdString();

    ASSERT_TRUE(scratch.fill());
    const CommandResult full = run(ppd + QStringList{output});
    EXPECT_EQ(full.exitCode, 1);
    EXPECT_TRUE(full.standardError.contains("Cannot write " + QFile::encodeName(output) +
                                            ": No space left on device"))
        << full.describe().toStdString();
    ASSERT_TRUE(written.open(QIODevice::ReadOnly));
    EXPECT_EQ(written.readAll(), whole);

    const CommandResult toDevice = run(ppd + QStringList{device});
    EXPECT_EQ(toDevice.exitCode, 1);
    EXPECT_TRUE(toDevice.standardError.contains("is not a regular file"))
        << toDevice.describe().toStdString();
    struct stat node = {};
    ASSERT_EQ(::lstat(QFile::encodeName(device).constData(), &node), 0);
    EXPECT_TRUE(S_ISCHR(node.st_mode));

    const QStringList fullTemporaryFolder{u"TMPDIR="_s + scratch.path()};
    for (const QStringList& arguments :
         {QStringList{u"ppd"_s, u"--model"_s, u"Model 4000"_s, u"--address"_s, u"10.77.51.20"_s},
          QStringList{u"add"_s, u"--address"_s, u"10.77.51.20"_s}}) {
        const CommandResult failed = run(arguments, fullTemporaryFolder);
        EXPECT_EQ(failed.exitCode, 1) << arguments.join(u' ').toStdString();
        EXPECT_TRUE(failed.standardError.contains(": No space left on device"))
            << failed.describe().toStdString();
        EXPECT_TRUE(failed.standardOutput.isEmpty()) << failed.standardOutput.toStdString();
    }
    EXPECT_TRUE(lpstat({u"-v"_s}).isEmpty()) << "no queue made";
    EXPECT_EQ(QDir(scratch.path()).entryList(QDir::Files | QDir::Hidden),
              (QStringList{QLatin1StringView(test::ScratchMount::kFillerName), u"office.ppd"_s}));
}

} // namespace
} // namespace talvo
