#pragma once

// The broadcast discovery on UDP port 1200 as a discovery method: it owns the
// discovery socket, sends every search target its request every 10 seconds
// (a new target at once), and reads the replies, at most a bounded number per
// pass, handing each to the broadcast rules.
//
//     talvo::BroadcastMethod broadcast;
//     broadcast.rules().addTarget(...);          // or addSearchAddress()
//     broadcast.start(now);                      // opens the socket, asks every target
//     ...                                        // the discovery loop polls and calls process()

#include "discovery/BroadcastDiscovery.h"
#include "discovery/DiscoveryMethod.h"

#include "foundation/LogThrottle.h"

namespace talvo {

class BroadcastMethod : public DiscoveryMethod
{
public:
    static constexpr std::chrono::seconds kBroadcastInterval{10};
    // Replies read per pass: a flood cannot keep the loop from a stop
    // request, a switch or its other sockets.
    static constexpr int kMaxRepliesPerPass = 64;

    BroadcastMethod() = default;
    ~BroadcastMethod() override;
    BroadcastMethod(const BroadcastMethod&) = delete;
    BroadcastMethod& operator=(const BroadcastMethod&) = delete;

    BroadcastDiscovery& rules() { return m_rules; }
    const BroadcastDiscovery& rules() const { return m_rules; }

    // A remote address or network broadcast address to search, reached
    // through whichever local address the routing table gives; asked at once
    // when the method runs.
    void addSearchAddress(uint32_t address, DiscoveryClock::time_point now);
    // A local network to search; asked at once when the method runs.
    void addSearchTarget(const BroadcastAddr& target, DiscoveryClock::time_point now);
    // One target per IPv4 interface that is up, not loopback and has a netmask.
    void addSubnetsForInterfaces(DiscoveryClock::time_point now);

    Status start(DiscoveryClock::time_point now) override;
    void stop() override;
    bool running() const override { return m_socket >= 0; }
    void addDescriptors(std::vector<pollfd>& fds) const override;
    std::optional<DiscoveryClock::time_point> nextDeadline() const override;
    void process(std::span<const pollfd> fds, DiscoveryClock::time_point now, MethodOutput& out) override;

    // Sends every target its request now.
    void broadcast();

private:
    void send(const BroadcastDiscovery::Request& request);
    void readReplies(DiscoveryClock::time_point now, MethodOutput& out);

    BroadcastDiscovery m_rules;
    int m_socket = -1;
    DiscoveryClock::time_point m_nextBroadcast{};
    // Targets added since the last pass, asked at the next one.
    std::vector<uint32_t> m_newTargets;
    LogThrottle m_readErrorLog;
};

} // namespace talvo
