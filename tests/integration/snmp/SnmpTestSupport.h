#pragma once

// Shared by the SNMP tests: pumping the library on a thread of its own, as
// the discovery work thread does, and catching log lines.

#include "snmp/SNMPPump.h"

#include "LogCapture.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <thread>

namespace talvo::test {

// Pumps net-snmp on its own thread until destroyed.
class PumpThread
{
public:
    PumpThread()
        : m_thread([this](std::stop_token stop) {
              SNMPPump pump;
              m_id = std::this_thread::get_id();
              while (!stop.stop_requested())
                  pump.pass({}, std::chrono::milliseconds(50));
          })
    {}
    std::thread::id id() const { return m_id.load(); }

private:
    std::atomic<std::thread::id> m_id{};
    std::jthread m_thread;
};

// Waits until `done` holds or the time is up.
inline bool waitFor(const std::function<bool()>& done, std::chrono::milliseconds limit)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

} // namespace talvo::test
