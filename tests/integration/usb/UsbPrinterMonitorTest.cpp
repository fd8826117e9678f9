#include "discovery/UsbPrinterMonitor.h"
#include "foundation/DictionaryKeys.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QTemporaryDir>

#include <poll.h>

namespace talvo {
namespace {

using namespace std::chrono_literals;

const QByteArray kModelX =
    R"(direct usb://TALVO/X?serial=1 "TALVO Model X" "X USB" "MFG:TALVO;MDL:Model X;" "")"
    "\n";
const QByteArray kModel4000 = R"(direct usb://TALVO/4000 "TALVO 4000" "4000" "MFG:TALVO;MDL:Model 4000;")"
                              "\n";
const QByteArray kOther = R"(direct usb://Other/P "Other P" "P" "MFG:Other;MDL:P;")"
                          "\n";

// Stands in for the usb backend: counts its runs, runs an optional command,
// prints a fixed listing and exits with a fixed status.
class ScriptedBackend
{
public:
    QString path() const { return m_dir.filePath(QStringLiteral("usb")); }

    void answer(const QByteArray& listing, int status = 0, const QByteArray& command = {})
    {
        const QByteArray dir = m_dir.path().toLocal8Bit();
        write(m_dir.filePath(QStringLiteral("listing")), listing);
        write(path(), "#!/bin/sh\necho >>'" + dir + "/runs'\n" + command + "\ncat '" + dir +
                          "/listing'\nexit " + QByteArray::number(status) + "\n");
        QFile::setPermissions(path(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }

    qsizetype runs() const
    {
        QFile f(m_dir.filePath(QStringLiteral("runs")));
        return f.open(QIODevice::ReadOnly) ? f.readAll().count('\n') : 0;
    }

private:
    static void write(const QString& path, const QByteArray& data)
    {
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write(data);
    }
    QTemporaryDir m_dir;
};

class UsbPrinterMonitorTest : public testing::Test
{
protected:
    UsbPrinterMonitorTest()
    {
        monitor.setPrinterModels({QStringLiteral("Model X"), QStringLiteral("Model 4000")});
        EXPECT_TRUE(monitor.start(now));
    }

    // Serves the monitor at `at` and, while its backend runs, waits on the
    // backend's descriptors as the discovery loop would.
    void serve(UsbPrinterMonitor::Clock::time_point at)
    {
        MethodOutput out;
        monitor.process({}, at, out);
        for (int i = 0; i < 1000; ++i) {
            std::vector<pollfd> fds;
            monitor.addDescriptors(fds);
            if (fds.empty())
                break;
            ::poll(fds.data(), fds.size(), 10);
            monitor.process(fds, at, out);
        }
        for (const DiscoveryEvent& e : out.events) {
            if (e.kind == DiscoveryEvent::Kind::UsbPrinterDisconnected)
                ++disconnections;
            else
                found << e.printer.value(kPrinterModelStrKey).toString(), printers << e.printer;
        }
    }

    // One poll, the interval having passed.
    void poll(const QByteArray& listing, int status = 0)
    {
        backend.answer(listing, status);
        serve(now);
        now += 6s;
    }

    ScriptedBackend backend;
    UsbPrinterMonitor monitor{backend.path()};
    QStringList found;
    QList<QVariantMap> printers;
    int disconnections = 0;
    UsbPrinterMonitor::Clock::time_point now = UsbPrinterMonitor::Clock::now();
};

TEST_F(UsbPrinterMonitorTest, ReportedOnceWhileAttachedAndAgainAfterAnEmptyListing)
{
    for (const QByteArray& listing : {kModelX, kModelX, kModelX, QByteArray(), QByteArray(), kModelX})
        poll(listing);
    EXPECT_EQ(backend.runs(), 6);
    EXPECT_EQ(found, (QStringList{QStringLiteral("Model X"), QStringLiteral("Model X")}));
    EXPECT_EQ(disconnections, 2); // one per empty listing
    const QVariantMap expected{{kPrinterModelStrKey, QStringLiteral("Model X")},
                               {kQueueConnectionTypeStrKey, QStringLiteral("USB")},
                               {kCUPSPrinterURIKey, QStringLiteral("usb://TALVO/X?serial=1")},
                               {kCUPSQueueNameKey, QStringLiteral("Model_X")},
                               {kCUPSQueueDescKey, QStringLiteral("Model X")}};
    ASSERT_FALSE(printers.isEmpty());
    EXPECT_EQ(printers.back(), expected);
}

TEST_F(UsbPrinterMonitorTest, FailingBackendChangesNothing)
{
    poll(kModelX);
    poll("", 1);         // an empty listing, but the run failed: no disconnection
    poll(kModel4000, 1); // a new printer, but the run failed
    poll(kModelX);       // still known
    EXPECT_EQ(disconnections, 0);
    EXPECT_EQ(found, QStringList{QStringLiteral("Model X")});
    poll(kModel4000);
    EXPECT_EQ(found, (QStringList{QStringLiteral("Model X"), QStringLiteral("Model 4000")}));

    UsbPrinterMonitor absent(backend.path() + QStringLiteral(".absent"));
    EXPECT_TRUE(absent.start(now));
    MethodOutput out;
    absent.process({}, now, out);
    EXPECT_TRUE(out.events.empty()) << "a missing backend reported something";
}

TEST_F(UsbPrinterMonitorTest, OnlyAnExactModelOnTheFirstLineIsReported)
{
    const struct
    {
        const char* name;
        QByteArray listing;
        QStringList found;
    } cases[] = {
        {"MDL differs in case", QByteArray(kModelX).replace("MDL:Model X", "MDL:model x"), {}},
        {"unsupported printer first", kOther + kModelX, {}},
        {"unreadable first line", "direct usb://a \"A\n" + kModelX, {}},
        {"no device ID", R"(direct usb://TALVO/X "TALVO Model X" "Model X")", {}},
        {"supported printer first", kModelX + kOther, {QStringLiteral("Model X")}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        poll(c.listing);
        EXPECT_EQ(found, c.found);
        EXPECT_EQ(disconnections, 0); // a printer is attached, supported or not
    }
}

TEST_F(UsbPrinterMonitorTest, PollsWhenTheIntervalHasPassedAndAtOnceAfterAStart)
{
    backend.answer("");
    const auto t0 = now;
    const std::pair<UsbPrinterMonitor::Clock::time_point, qsizetype> steps[] = {
        {t0, 1}, {t0 + 4900ms, 1}, {t0 + 4999ms, 1}, {t0 + 5s, 2}, {t0 + 5002ms, 2}};
    for (const auto& [t, runs] : steps) {
        serve(t);
        EXPECT_EQ(backend.runs(), runs) << (t - t0).count();
    }
    EXPECT_EQ(monitor.nextDeadline(), t0 + 10s);
    monitor.stop();
    EXPECT_TRUE(monitor.start(t0 + 5002ms));
    serve(t0 + 5002ms);
    EXPECT_EQ(backend.runs(), 3);
}

TEST_F(UsbPrinterMonitorTest, HungBackendIsKilledAtItsDeadlineAndNeverBlocks)
{
    backend.answer(kModelX, 0, "sleep 30");
    MethodOutput out;
    monitor.process({}, now, out); // starts the backend
    const auto started = std::chrono::steady_clock::now();
    monitor.process({}, now + 1s, out);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 100ms) << "a running backend blocked the loop";
    serve(now + UsbPrinterMonitor::kBackendTimeout + 1s);
    EXPECT_LT(std::chrono::steady_clock::now() - started, 10s);
    EXPECT_TRUE(found.isEmpty());
    EXPECT_EQ(disconnections, 0);
}

} // namespace
} // namespace talvo
