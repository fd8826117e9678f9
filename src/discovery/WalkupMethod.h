#pragma once

// The walkup exchange on UDP port 1204 as a discovery method: it owns the
// walkup socket, reads at most a bounded number of datagrams per pass, and
// carries out what the walkup rules (WalkupExchange) decide: replies to
// printers' announcements, announcements shown to clients, and a selected
// printer handed on to be identified and reported as beaconed. A selection
// ends the session (the socket is closed); a new one needs start() again.
//
//     talvo::WalkupMethod walkup;
//     walkup.setUserName(talvo::defaultWalkupUserName());
//     walkup.start(now);              // binds port 1204, reads the local networks
//     ...                             // the discovery loop polls and calls process()

#include "discovery/DiscoveryMethod.h"
#include "discovery/WalkupExchange.h"

#include "foundation/LogThrottle.h"

namespace talvo {

// The name sent to printers by default: the full name of the user's passwd
// entry (its first comma-separated field), else the login name.
QString defaultWalkupUserName();

class WalkupMethod : public DiscoveryMethod
{
public:
    // Datagrams read per pass: a flood on port 1204 cannot hold the loop.
    static constexpr int kMaxDatagramsPerPass = 64;

    WalkupMethod() = default;
    ~WalkupMethod() override;
    WalkupMethod(const WalkupMethod&) = delete;
    WalkupMethod& operator=(const WalkupMethod&) = delete;

    void setUserName(const QString& userName) { m_exchange.setUserName(userName); }
    const WalkupExchange& exchange() const { return m_exchange; }

    // Opens the socket in the caller's network namespace (IPv4 UDP,
    // destination and interface reported, non-blocking, any address, port
    // 1204), and takes the process-wide vendor word and the host's networks.
    Status start(DiscoveryClock::time_point now) override;
    void stop() override;
    bool running() const override { return m_socket >= 0; }
    void addDescriptors(std::vector<pollfd>& fds) const override;
    std::optional<DiscoveryClock::time_point> nextDeadline() const override { return std::nullopt; }
    void process(std::span<const pollfd> fds, DiscoveryClock::time_point now, MethodOutput& out) override;

private:
    void send(const WalkupExchange::Reply& reply, DiscoveryClock::time_point now);

    WalkupExchange m_exchange;
    int m_socket = -1;
    LogThrottle m_sendErrorLog;
};

} // namespace talvo
