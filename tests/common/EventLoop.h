#pragma once

// Waiting in tests for what arrives through the Qt event loop (queued
// signals from work threads), without blocking it.
//
//     ASSERT_TRUE(talvo::test::processEventsUntil([&] { return !found.isEmpty(); }, 8s));

#include <QCoreApplication>

#include <chrono>
#include <functional>
#include <thread>

namespace talvo::test {

// Runs the event loop until `done` holds or the time is up.
inline bool processEventsUntil(const std::function<bool()>& done, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

inline void processEventsFor(std::chrono::milliseconds time)
{
    processEventsUntil([] { return false; }, time);
}

} // namespace talvo::test
