// talvo-printers add beside the user's own queues: a queue is never changed
// by accident, a name asked for is refused when taken unless it is to be
// replaced, and an interrupt stops lpadmin and says what is left.

#include "EventLoop.h"
#include "ProbeTestSupport.h"
#include "ScratchMount.h"

#include "foundation/QueueNaming.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QThread>

#include <csignal>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using test::CommandResult;

class AddCommandTest : public test::QueueTestBase
{
protected:
    QString queueName(const CommandResult& r) const
    {
        return QJsonDocument::fromJson(r.standardOutput).object()[u"queueName"_s].toString();
    }
};

TEST(QueueNameChoice, OwnNamesGiveWayAndAskedNamesAreRefusedUnlessReplaced)
{
    const QVariantMap printer{{u"queueType"_s, u"Raw TCP"_s}, {u"queueName"_s, u"office"_s}};
    const QueueCreationSettings settings;
    const QStringList taken{u"Office"_s, u"office_2"_s, u"Lab"_s};
    const struct
    {
        QString asked;
        bool replace;
        QueueError error;
        QString name;
    } cases[] = {
        {{}, false, QueueError::None, u"office_3"_s}, // the scheduler ignores case
        {u"Kitchen"_s, false, QueueError::None, u"Kitchen"_s},
        {u"lab"_s, false, QueueError::NameTaken, {}},
        {u"Lab"_s, true, QueueError::None, u"Lab"_s},
        {u"a b"_s, true, QueueError::BadPrinter, {}},
        {QString(128, u'q'), false, QueueError::BadPrinter, {}},
    };
    for (const auto& c : cases) {
        const QueueCreationResult r = chooseQueueName(printer, settings, {c.asked, c.replace, {}}, taken);
        EXPECT_EQ(r.error, c.error) << c.asked.toStdString();
        EXPECT_EQ(r.printer.value(u"queueName"_s).toString(), c.name) << c.asked.toStdString();
    }
}

TEST_F(AddCommandTest, AQueueOfTheSameNameIsLeftAsItWas)
{
    // The user's own "office_printer", with a PPD of its own.
    const QString userPpd = folder() + u"/user.ppd"_s;
    QFile ppd(userPpd);
    ASSERT_TRUE(ppd.open(QIODevice::WriteOnly) && ppd.write(test::kModel4000Ppd) > 0);
    ppd.close();
    ASSERT_TRUE(
        lpadmin({u"-p"_s, u"office_printer"_s, u"-E"_s, u"-v"_s, u"socket://192.0.2.9"_s, u"-P"_s, userPpd}));
    const QString userStoredPpd = storedPpd(u"office_printer"_s);
    ASSERT_FALSE(userStoredPpd.isEmpty());

    const QStringList add{u"add"_s, u"--address"_s, u"10.77.51.20"_s};
    const CommandResult dry = runPrinters(add + QStringList{u"--dry-run"_s});
    EXPECT_TRUE(dry.standardOutput.contains("\"office_printer_2\"")) << dry.describe().toStdString();
    const CommandResult created = runPrinters(add);
    ASSERT_EQ(created.exitCode, 0) << created.describe().toStdString();
    EXPECT_EQ(queueName(created), u"office_printer_2"_s);

    const CommandResult taken = runPrinters(add + QStringList{u"--queue"_s, u"Office_Printer"_s});
    EXPECT_EQ(taken.exitCode, 1);
    EXPECT_TRUE(taken.standardError.contains("\"Office_Printer\" exists already"))
        << taken.describe().toStdString();
    EXPECT_EQ(lpstat({u"-v"_s}), u"device for office_printer: socket://192.0.2.9\n"
                                 u"device for office_printer_2: lpd://10.77.51.20\n"_s);
    EXPECT_EQ(storedPpd(u"office_printer"_s), userStoredPpd);
    EXPECT_TRUE(storedPpd(u"office_printer_2"_s).contains(u"*DefaultMemory: 512MB\n"_s));

    const CommandResult replaced =
        runPrinters(add + QStringList{u"--queue"_s, u"office_printer"_s, u"--replace"_s});
    ASSERT_EQ(replaced.exitCode, 0) << replaced.describe().toStdString();
    EXPECT_EQ(queueName(replaced), u"office_printer"_s);
    EXPECT_TRUE(lpstat({u"-v"_s}).startsWith(u"device for office_printer: lpd://10.77.51.20\n"_s));

    for (const QStringList& bad : {QStringList{u"--queue"_s, u"a/b"_s}, QStringList{u"--replace"_s}})
        EXPECT_EQ(runPrinters(add + bad).exitCode, 2) << bad.join(u' ').toStdString();
}

TEST_F(AddCommandTest, ALongNameIsCutToWhatTheSchedulerTakes)
{
    QVariantMap printer{
        {u"ipAddr"_s, u"10.77.51.20"_s}, {u"queueType"_s, u"Raw TCP"_s}, {u"dnsName"_s, QString(200, u'n')}};
    printer = *prepareManualPrinter(printer, u"Model 4000"_s, queueSettings().supportedModels());
    for (const QString& expected : {QString(127, u'n'), QString(125, u'n') + u"_2"_s}) {
        QueueCreationResult result;
        {
            test::ScopedNetns inClient(network().sandbox, u"client"_s);
            result = createPrintQueueForPrinter(printer, queueSettings());
        }
        ASSERT_TRUE(result.ok()) << result.errorText.toStdString();
        EXPECT_EQ(result.printer.value(u"queueName"_s), expected);
        EXPECT_TRUE(lpstat({u"-v"_s}).contains(u"device for "_s + expected + u": "_s));
    }
}

// lpadmin runs in a process group of its own, so the terminal's SIGINT never
// reaches it: the command has to stop it, and then say that no queue exists.
TEST_F(AddCommandTest, AnInterruptStopsASlowLpadminAndNoQueueAppears)
{
    test::ScratchMount scratch(64 * 1024);
    ASSERT_TRUE(scratch.ready()) << scratch.failure().toStdString();
    const QString started = scratch.filePath(u"started"_s);
    QFile standIn(scratch.filePath(u"lpadmin"_s));
    ASSERT_TRUE(standIn.open(QIODevice::WriteOnly));
    standIn.write("#!/bin/sh\nsleep 60 &\necho $! > " + QFile::encodeName(started) + "\nwait\n");
    standIn.close();
    ASSERT_TRUE(
        standIn.setPermissions(QFile::ReadOwner | QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther));
    ASSERT_TRUE(scratch.bindOver(QLatin1StringView(kLpadminProgram), u"lpadmin"_s));

    QFile errors(scratch.filePath(u"stderr"_s));
    ASSERT_TRUE(errors.open(QIODevice::ReadWrite));
    test::Subprocess add =
        test::Subprocess::start(printersCommand({u"add"_s, u"--address"_s, u"10.77.51.20"_s}),
                                {.errorFd = errors.handle(), .environment = printersEnvironment()});
    ASSERT_TRUE(test::processEventsUntil([&] { return QFile(started).size() > 0; }, 20s))
        << "the stand-in never ran";
    QFile pidFile(started);
    ASSERT_TRUE(pidFile.open(QIODevice::ReadOnly));
    const pid_t sleeper = pidFile.readAll().trimmed().toInt();

    ASSERT_EQ(::kill(add.pid(), SIGINT), 0);
    ASSERT_TRUE(test::processEventsUntil([&] { return !add.isRunning(); }, 10s));
    EXPECT_EQ(add.exitCode(), 130) << add.exitDescription().toStdString();
    errors.seek(0);
    const QByteArray said = errors.readAll();
    EXPECT_TRUE(said.contains("interrupted; lpadmin was stopped; the queue office_printer does not exist"))
        << said.toStdString();
    EXPECT_TRUE(test::processEventsUntil([&] { return ::kill(sleeper, 0) != 0; }, 2s))
        << "lpadmin's child lives on";
    EXPECT_TRUE(lpstat({u"-v"_s}).isEmpty());
}

} // namespace
} // namespace talvo
