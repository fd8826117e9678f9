#pragma once

// Lets one log line through per interval and counts the ones held back, so a
// flood of bad datagrams costs a line every few seconds, not one per packet.
//
//     talvo::LogThrottle m_dropped{std::chrono::seconds(5)};
//     if (const std::size_t n = m_dropped.admit(now))
//         qCWarning(lcDiscovery) << "printer table full:" << n << "replies dropped";
//
// Not thread-safe: each throttle belongs to one thread.

#include <chrono>
#include <cstddef>

namespace talvo {

class LogThrottle
{
public:
    using Clock = std::chrono::steady_clock;

    explicit LogThrottle(Clock::duration interval = std::chrono::seconds(5)) : m_interval(interval) {}

    // Counts one occurrence. Returns how many occurred since the last line
    // that was let through (this one included) when a line may be written
    // now, else 0.
    std::size_t admit(Clock::time_point now)
    {
        ++m_pending;
        if (m_written && now - m_lastLine < m_interval)
            return 0;
        m_written = true;
        m_lastLine = now;
        const std::size_t count = m_pending;
        m_pending = 0;
        return count;
    }

private:
    Clock::duration m_interval;
    Clock::time_point m_lastLine{};
    bool m_written = false;
    std::size_t m_pending = 0;
};

} // namespace talvo
