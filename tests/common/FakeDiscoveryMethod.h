#pragma once

// A discovery method a test drives by hand: what the test hands it is
// reported on the engine's loop thread at its next pass, as a real method's
// findings would be. No network, no daemon.
//
//     auto fake = std::make_unique<talvo::test::FakeDiscoveryMethod>();
//     auto* method = fake.get();          // stays valid while the engine lives
//     engine.addMethod(std::move(fake));
//     engine.startDiscovery();
//     method->report({talvo::DiscoveryEvent::Kind::PrinterDiscovered, printer, {}});

#include "discovery/DiscoveryMethod.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

namespace talvo::test {

class FakeDiscoveryMethod : public DiscoveryMethod
{
public:
    FakeDiscoveryMethod() : m_wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~FakeDiscoveryMethod() override { ::close(m_wake); }

    // Any thread: reported at the loop's next pass.
    void report(DiscoveryEvent event)
    {
        {
            std::lock_guard lock(m_mutex);
            m_pending.events.push_back(std::move(event));
        }
        const uint64_t one = 1;
        [[maybe_unused]] const auto n = ::write(m_wake, &one, sizeof one);
    }
    // Any thread: every pass finds something to do, as under a flood.
    void setBusy(bool busy) { m_busy = busy; }
    int passes() const { return m_passes; }
    bool isRunning() const { return m_running; }

    Status start(DiscoveryClock::time_point) override
    {
        m_running = true;
        return Status::ok();
    }
    void stop() override { m_running = false; }
    bool running() const override { return m_running; }
    void addDescriptors(std::vector<pollfd>& fds) const override { fds.push_back({m_wake, POLLIN, 0}); }
    std::optional<DiscoveryClock::time_point> nextDeadline() const override
    {
        return m_busy ? std::optional(DiscoveryClock::time_point::min()) : std::nullopt;
    }
    void process(std::span<const pollfd> fds, DiscoveryClock::time_point, MethodOutput& out) override
    {
        ++m_passes;
        if (isReady(fds, m_wake)) {
            uint64_t count = 0;
            [[maybe_unused]] const auto n = ::read(m_wake, &count, sizeof count);
        }
        std::lock_guard lock(m_mutex);
        for (DiscoveryEvent& e : m_pending.events)
            out.events.push_back(std::move(e));
        m_pending.events.clear();
    }

private:
    int m_wake;
    std::mutex m_mutex;
    MethodOutput m_pending;
    std::atomic<bool> m_busy = false;
    std::atomic<bool> m_running = false;
    std::atomic<int> m_passes = 0;
};

} // namespace talvo::test
