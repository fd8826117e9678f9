// The engine's loop and its hand-over to the engine's thread, driven through
// a fake method: no network, no daemon.

#include "EventLoop.h"
#include "FakeDiscoveryMethod.h"
#include "discovery/PrinterDiscoveryEngine.h"
#include "foundation/DictionaryKeys.h"

#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <thread>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using test::FakeDiscoveryMethod;
using test::processEventsUntil;

QVariantMap printerNumber(int i)
{
    return {{kIPAddrStrKey, QStringLiteral("10.0.%1.%2").arg(i / 250).arg(i % 250 + 1)}};
}

class EngineLoopTest : public testing::Test
{
protected:
    EngineLoopTest()
    {
        auto owned = std::make_unique<FakeDiscoveryMethod>();
        fake = owned.get();
        engine.addMethod(std::move(owned));
        QObject::connect(&engine, &PrinterDiscoveryEngine::printerDiscovered,
                         [this](const QVariantMap& p) { discovered << p.value(kIPAddrStrKey).toString(); });
        QObject::connect(&engine, &PrinterDiscoveryEngine::usbPrinterDisconnected,
                         [this] { ++disconnections; });
    }
    // Every switch off: only the fake method runs.
    PrinterDiscoveryEngine engine{QVariantMap{}};
    FakeDiscoveryMethod* fake = nullptr;
    QStringList discovered;
    int disconnections = 0;
};

TEST_F(EngineLoopTest, FindingsReachTheEnginesThreadInOrderAndInBatches)
{
    engine.startDiscovery();
    EXPECT_TRUE(fake->isRunning());
    QStringList expected;
    for (int i = 0; i < 1000; ++i) {
        fake->report({DiscoveryEvent::Kind::PrinterDiscovered, printerNumber(i), {}});
        expected << printerNumber(i).value(kIPAddrStrKey).toString();
    }
    fake->report({DiscoveryEvent::Kind::UsbPrinterDisconnected, {}, {}});
    // The burst is handed over a batch per turn of the event loop, never
    // all at once: a zero-interval timer counts the turns.
    int turns = 0;
    int firstTurn = -1;
    QTimer counter;
    QObject::connect(&counter, &QTimer::timeout, [&] { ++turns; });
    counter.start(0);
    QObject::connect(&engine, &PrinterDiscoveryEngine::printerDiscovered, [&] {
        if (firstTurn < 0)
            firstTurn = turns;
    });
    ASSERT_TRUE(processEventsUntil([&] { return disconnections == 1; }, 2s));
    EXPECT_GT(turns - firstTurn, 1) << "1,000 findings handed over in one turn";
    EXPECT_EQ(discovered, expected);
    engine.stopDiscovery();
    EXPECT_FALSE(fake->isRunning());
}

TEST_F(EngineLoopTest, StopIsServedAtOnceHoweverBusyTheLoopIs)
{
    engine.startDiscovery();
    fake->setBusy(true);
    ASSERT_TRUE(processEventsUntil([&] { return fake->passes() > 1000; }, 2s));
    const auto start = std::chrono::steady_clock::now();
    engine.stopDiscovery();
    EXPECT_LT(std::chrono::steady_clock::now() - start, 500ms);
    const int passes = fake->passes();
    std::this_thread::sleep_for(50ms);
    EXPECT_EQ(fake->passes(), passes) << "the loop ran on after the stop";
}

TEST_F(EngineLoopTest, SwitchesAndCommandsReachTheRunningLoopAndTheNextStart)
{
    engine.startDiscovery();
    engine.addSubnetForSearch(0x0100000a, 0xff00000a, 0x00ffffff); // 10.0.0.1 on 10.0.0.255/24
    EXPECT_TRUE(processEventsUntil([&] { return engine.knownSearchSubnets().contains(u"10.0.0.255"); }, 2s));
    engine.stopDiscovery();
    engine.addSearchAddress(0x0a0a0a0a); // while stopped: at once
    EXPECT_TRUE(engine.knownSearchSubnets().contains(u"10.10.10.10"));

    // A method added to a running engine starts at once; findings made while
    // the engine's thread was busy are all delivered.
    engine.startDiscovery();
    auto second = std::make_unique<FakeDiscoveryMethod>();
    FakeDiscoveryMethod* added = second.get();
    engine.addMethod(std::move(second));
    ASSERT_TRUE(processEventsUntil([&] { return added->isRunning(); }, 2s));
    added->report({DiscoveryEvent::Kind::PrinterDiscovered, printerNumber(7), {}});
    EXPECT_TRUE(processEventsUntil([&] { return discovered.size() == 1; }, 2s));
}

} // namespace
} // namespace talvo
