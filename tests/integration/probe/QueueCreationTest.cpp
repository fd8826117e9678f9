// Queue creation against a private cupsd and a printer's snmpd: the lpadmin
// argument vector, the queues of a manual and a USB printer, the PPD the
// scheduler stored with the printer's own option default, lpadmin's failures
// with its own text, and a stop.

#include "ProbeTestSupport.h"

#include "queue/PrinterProbe.h"

#include <future>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;

TEST(QueueArgumentsTest, LpadminVectorAndQueueNames)
{
    const QStringList supported{u"Model 4000"_s, u"Model 6500"_s};
    const QVariantMap named{{u"ipAddr"_s, u"10.0.0.5"_s},
                            {u"dnsName"_s, u"office-printer.lan"_s},
                            {u"printerModel"_s, u"Model 4000"_s},
                            {u"queueType"_s, u"Raw TCP"_s}};
    const QVariantMap unnamed{
        {u"ipAddr"_s, u"10.0.0.6"_s}, {u"printerModel"_s, u"Acme 9"_s}, {u"queueType"_s, u"Raw TCP"_s}};
    const QVariantMap usb = usbPrinterDict(u"usb://Talvo/M?s=7"_s, u"Model 4000"_s);
    QVariantMap untyped = usb;
    untyped.remove(u"queueType"_s);
    const QVariantMap bonjour{{u"printerModel"_s, u"Model 6500"_s},
                              {u"queueType"_s, u"Bonjour"_s},
                              {u"queueName"_s, u"Office"_s},
                              {u"URI"_s, u"lpd://10.0.0.7"_s},
                              {u"cupsDesc"_s, u"D"_s}};
    const struct
    {
        QVariantMap printer;
        QString queue, uri, description;
    } cases[] = {
        {*prepareManualPrinter(named, {}, supported), u"office_printer_lan"_s, u"lpd://10.0.0.5"_s,
         u"Model 4000 \"office-printer.lan\""_s},
        {*prepareManualPrinter(unnamed, u"Model 6500"_s, supported), u"_10_0_0_6"_s, u"lpd://10.0.0.6"_s,
         u"Model 6500 \"10.0.0.6\""_s},
        {usb, u"Talvo_Model_4000"_s, u"usb://Talvo/M?s=7"_s, u"Model 4000"_s},
        {untyped, u"Talvo_Model_4000"_s, u"usb://Talvo/M?s=7"_s, u"Model 4000"_s}, // named as USB
        {bonjour, u"Office"_s, u"lpd://10.0.0.7"_s, u"D"_s},
    };
    for (const auto& c : cases) {
        QVariantMap printer = c.printer;
        printer.insert(u"queueName"_s, queueNameForPrinter(printer, u"Talvo"_s));
        EXPECT_EQ(lpadminArguments(printer, u"/p.ppd"_s),
                  (QStringList{u"/usr/sbin/lpadmin"_s, u"-p"_s, c.queue, u"-E"_s, u"-v"_s, c.uri, u"-P"_s,
                               u"/p.ppd"_s, u"-D"_s, c.description}));
    }
    // Neither the printer's model nor the user's is supported: nothing to create.
    EXPECT_EQ(prepareManualPrinter(unnamed, u"Acme 9"_s, supported), std::nullopt);
    // The printer's own supported model wins over the user's choice.
    EXPECT_EQ(prepareManualPrinter(named, u"Model 6500"_s, supported)->value(u"printerModel"_s),
              u"Model 4000"_s);
}

class QueueCreationTest : public test::QueueTestBase
{
protected:
    // One creation as the pane runs it: off this thread, with one completion.
    QueueCreationResult create(const QVariantMap& printer)
    {
        std::promise<QueueCreationResult> done;
        QueueCreator creator(queueSettings());
        {
            test::ScopedNetns inClient(network().sandbox, u"client"_s);
            EXPECT_TRUE(creator.start(printer, [&done](const QueueCreationResult& r) { done.set_value(r); }));
        }
        return done.get_future().get();
    }
};

TEST_F(QueueCreationTest, ManualAndUsbPrintersGetTheirQueues)
{
    std::optional<ProbeOutcome> probed;
    {
        test::ScopedNetns inClient(network().sandbox, u"client"_s);
        probed = probeAddressText(u"10.77.51.20"_s, ProbeSettings::fromPluginSettings(pluginSettings()));
    }
    ASSERT_TRUE(probed && probed->result == ProbeResult::Supported);
    const auto manual = prepareManualPrinter(probed->printer, {}, queueSettings().supportedModels());
    QueueCreationResult result = create(*manual);
    ASSERT_TRUE(result.ok()) << result.errorText.toStdString();
    QVariantMap expected = *manual;
    expected.insert(u"queueName"_s, u"office_printer"_s);
    EXPECT_EQ(result.printer, expected);
    QVariantMap shared;
    setInstalledPrinter(shared, result);
    EXPECT_EQ(shared.value(u"InstalledPrinter"_s).toMap(), expected);
    EXPECT_TRUE(lpstat({u"-l"_s, u"-p"_s, u"office_printer"_s})
                    .contains(u"Description: Model 4000 \"office-printer\""_s));
    // The printer answers 524288 for its memory, which the PPD maps to 512MB.
    EXPECT_TRUE(storedPpd(u"office_printer"_s).contains(u"*DefaultMemory: 512MB\n"_s));

    result = create(usbPrinterDict(u"usb://Talvo/Model%204000?serial=A1"_s, u"Model 4000"_s));
    ASSERT_TRUE(result.ok()) << result.errorText.toStdString();
    EXPECT_EQ(lpstat({u"-v"_s}), u"device for office_printer: lpd://10.77.51.20\n"
                                 u"device for Talvo_Model_4000: usb://Talvo/Model%204000?serial=A1\n"_s);
    EXPECT_TRUE(storedPpd(u"Talvo_Model_4000"_s).contains(u"*DefaultMemory: 256MB\n"_s))
        << "no address to ask";

    const QueuePlan plan = planPrintQueue(usbPrinterDict(u"usb://x"_s, u"Model 4000"_s), queueSettings());
    EXPECT_EQ(plan.ppdPath, folder() + u"/Talvo_Model_4000.ppd.gz"_s);
    EXPECT_EQ(plan.lpadmin.value(7), plan.ppdPath);
    EXPECT_EQ(planPrintQueue(usbPrinterDict(u"usb://x"_s, u"Model Gone"_s), queueSettings()).error,
              QueueError::PPDNotFound);
}

TEST_F(QueueCreationTest, FailuresComeBackWithLpadminsTextAndPublishNothing)
{
    const auto check = [this](const QVariantMap& printer, QueueError error, const QString& text) {
        const QueueCreationResult result = create(printer);
        EXPECT_EQ(result.error, error);
        EXPECT_TRUE(result.errorText.contains(text) && !result.errorText.contains(u"deprecated"_s))
            << result.errorText.toStdString();
        QVariantMap shared;
        setInstalledPrinter(shared, result);
        EXPECT_TRUE(result.printer.isEmpty() && shared.isEmpty());
    };
    check(usbPrinterDict(u"usb://T/B"_s, u"Model Broken"_s), QueueError::LpadminFailed,
          u"Unable to open PPD"_s);
    check(usbPrinterDict(u"usb://T/G"_s, u"Model Gone"_s), QueueError::PPDNotFound, u"PPD"_s);
    check(usbPrinterDict(u"bogus://x"_s, u"Model 4000"_s), QueueError::LpadminFailed, u"Bad device-uri"_s);
    check({{u"queueType"_s, u"Raw TCP"_s}, {u"printerModel"_s, u"Model 4000"_s}}, QueueError::BadPrinter,
          u"URI"_s);
    EXPECT_TRUE(lpstat({u"-v"_s}).isEmpty());
    cups().stop();
    // Without a scheduler to ask which names are taken, nothing is tried.
    check(usbPrinterDict(u"usb://T/M"_s, u"Model 4000"_s), QueueError::SchedulerUnknown,
          u"cannot ask the print scheduler"_s);
}

TEST_F(QueueCreationTest, StopEndsTheCreationWithoutACompletionOrAQueue)
{
    const int daemons = test::childProcessCount(); // cupsd and the agent
    // Nothing answers at this address: the PPD's SNMP queries wait for it.
    const auto printer =
        prepareManualPrinter({{u"ipAddr"_s, u"10.77.51.99"_s}, {u"queueType"_s, u"Raw TCP"_s}},
                             u"Model 4000"_s, queueSettings().supportedModels());
    bool completed = false;
    QueueCreator creator(queueSettings());
    {
        test::ScopedNetns inClient(network().sandbox, u"client"_s);
        ASSERT_TRUE(creator.start(*printer, [&completed](const QueueCreationResult&) { completed = true; }));
    }
    std::this_thread::sleep_for(500ms);
    ASSERT_GT(test::childProcessCount(), daemons) << "snmpget should be running";
    EXPECT_FALSE(creator.start(*printer, [](const QueueCreationResult&) {})) << "one creation at a time";
    const auto start = std::chrono::steady_clock::now();
    creator.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 300ms);
    EXPECT_FALSE(creator.isRunning() || completed);
    EXPECT_EQ(test::childProcessCount(), daemons);
    EXPECT_TRUE(lpstat({u"-v"_s}).isEmpty());
}

} // namespace
} // namespace talvo
