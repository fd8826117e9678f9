// The manual address check without widgets or a network: the lookups and the
// probe are stand-ins that count their calls and, when asked to, block until
// released or stopped.

#include "pane/ManualAddressCheck.h"

#include "EventLoop.h"
#include "foundation/DictionaryKeys.h"

#include <gtest/gtest.h>

#include <QList>

#include <atomic>
#include <condition_variable>
#include <mutex>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using namespace Qt::StringLiterals;
using State = ManualAddressCheck::State;

// One stand-in world: names it knows, and a probe that may hold.
struct World
{
    std::mutex mutex;
    std::condition_variable_any released;
    bool holdProbe = false;
    // Counted on the check's worker, read by the test: atomic.
    std::atomic<int> resolves = 0;
    std::atomic<int> probes = 0;
    QList<uint32_t> probed; // under `mutex`

    QList<uint32_t> probedSoFar()
    {
        std::lock_guard lock(mutex);
        return probed;
    }
    void hold()
    {
        std::lock_guard lock(mutex);
        holdProbe = true;
    }

    ManualAddressCheck::Services services()
    {
        return {[this](const QString& text, std::stop_token) -> std::optional<ResolvedAddress> {
                    std::lock_guard lock(mutex);
                    ++resolves;
                    if (text == u"printer-a"_s)
                        return ResolvedAddress{0x0500000a, u"printer-a.lan"_s}; // 10.0.0.5
                    if (text == u"10.0.0.6"_s)
                        return ResolvedAddress{0x0600000a, {}};
                    return std::nullopt;
                },
                [this](uint32_t address, const ProbeSettings&,
                       std::stop_token stop) -> std::optional<ProbeOutcome> {
                    std::unique_lock lock(mutex);
                    ++probes;
                    released.wait(lock, stop, [this] { return !holdProbe; });
                    if (stop.stop_requested())
                        return std::nullopt;
                    probed << address;
                    return ProbeOutcome{ProbeResult::Supported, {{QString(kIPAddrStrKey), address}}};
                }};
    }
    void release()
    {
        std::lock_guard lock(mutex);
        holdProbe = false;
        released.notify_all();
    }
};

struct Recorder
{
    QList<ManualAddressCheck::Result> seen;
    QList<State> states() const
    {
        QList<State> s;
        for (const auto& r : seen)
            s << r.state;
        return s;
    }
};

class ManualAddressCheckTest : public testing::Test
{
protected:
    ManualAddressCheckTest() : check(world.services(), [] { return ProbeSettings{}; })
    {
        check.setPause(10ms);
        QObject::connect(&check, &ManualAddressCheck::changed,
                         [this](const ManualAddressCheck::Result& r) { recorder.seen << r; });
    }
    bool settles()
    {
        return test::processEventsUntil([this] { return !check.isRunning(); }, 2s);
    }

    World world;
    ManualAddressCheck check;
    Recorder recorder;
};

TEST_F(ManualAddressCheckTest, WhatIsNeitherFormIsInvalidAtOnceAndNothingIsAsked)
{
    for (const QString& text :
         {u"10.x.y.z"_s, u"10.0.0.256"_s, u"tcp:h:161"_s, u"-v3"_s, u"010.0.0.1"_s, u"a_b"_s, u"10.0.0"_s}) {
        check.setText(text);
        EXPECT_EQ(check.result().state, State::Invalid) << text.toStdString();
    }
    check.setText(u"   "_s);
    EXPECT_EQ(check.result().state, State::Empty);
    test::processEventsFor(50ms);
    EXPECT_EQ(world.resolves, 0);
    EXPECT_EQ(world.probes, 0);
}

TEST_F(ManualAddressCheckTest, ANameShowsCheckingAtOnceAndIsLookedUpOnce)
{
    check.setText(u"printer-a"_s);
    EXPECT_EQ(check.result().state, State::Checking) << "checking shows before any lookup";
    EXPECT_EQ(check.result().shownAddress, u"printer-a"_s);
    ASSERT_TRUE(test::processEventsUntil([&] { return check.result().state == State::Checked; }, 2s));
    EXPECT_EQ(recorder.states(), (QList<State>{State::Checking, State::Checking, State::Checked}));
    EXPECT_EQ(check.result().shownAddress, u"printer-a.lan (10.0.0.5)"_s);
    EXPECT_EQ(world.resolves, 1);
    EXPECT_EQ(world.probedSoFar(), QList<uint32_t>{0x0500000a});

    // A name that does not resolve both ways is invalid once looked up.
    check.setText(u"nowhere"_s);
    ASSERT_TRUE(test::processEventsUntil([&] { return check.result().state == State::Invalid; }, 2s));
    EXPECT_EQ(world.probes, 1);
}

TEST_F(ManualAddressCheckTest, TypingOnWaitsForThePauseAndLateAnswersAreDropped)
{
    // Each keystroke of a dotted quad restarts the pause: one lookup, at the end.
    for (const QString& text : {u"10.0.0"_s, u"10.0.0."_s, u"10.0.0.6"_s})
        check.setText(text);
    world.hold();
    ASSERT_TRUE(test::processEventsUntil([&] { return world.probes == 1; }, 2s));
    EXPECT_EQ(world.resolves, 1);

    // A new text while the probe holds: the probe is stopped, its answer never shown.
    check.setText(u"printer-a"_s);
    EXPECT_FALSE(check.isRunning());
    world.release();
    ASSERT_TRUE(test::processEventsUntil([&] { return check.result().state == State::Checked; }, 2s));
    EXPECT_EQ(world.probedSoFar(), QList<uint32_t>{0x0500000a}) << "the stopped probe answered";
    for (const auto& r : recorder.seen)
        EXPECT_FALSE(r.state == State::Checked && r.shownAddress.contains(u"10.0.0.6"_s));

    // Leaving or entering the pane again: nothing running, nothing late.
    world.hold();
    check.setText(u"10.0.0.6"_s);
    ASSERT_TRUE(test::processEventsUntil([&] { return world.probes == 3; }, 2s));
    check.reset();
    EXPECT_EQ(check.result().state, State::Empty);
    world.release();
    test::processEventsFor(100ms);
    EXPECT_EQ(check.result().state, State::Empty);
    EXPECT_EQ(recorder.seen.last().state, State::Empty);
}

} // namespace
} // namespace talvo
