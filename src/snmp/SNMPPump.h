#pragma once

// The part of the discovery work thread's loop that serves net-snmp: one pass
// waits for SNMP replies and the caller's own descriptors at once, reads the
// replies (their callbacks run on this thread), and runs the library's
// time-out processing, so a silent printer's query ends with a time-out
// callback after 5 s instead of living forever.
//
//     talvo::SNMPPump pump;
//     while (running) {
//         auto ready = pump.pass({discoverySocket, wakeFd}, std::chrono::seconds(1));
//         ...                      // handle the caller's descriptors in `ready`
//     }
//
// Descriptors are kept in net-snmp's large sets: a plain fd_set silently stops
// working once a descriptor passes 1023, and a process with thousands of
// printer sessions gets there.

#include <chrono>
#include <memory>
#include <span>
#include <vector>

namespace talvo {

class SNMPPump
{
public:
    SNMPPump();
    ~SNMPPump();
    SNMPPump(const SNMPPump&) = delete;
    SNMPPump& operator=(const SNMPPump&) = delete;

    // Waits at most `cap` (less when an SNMP time-out falls due sooner), then
    // dispatches replies and time-outs. Returns the descriptors of `extra`
    // that are readable.
    std::vector<int> pass(std::span<const int> extra, std::chrono::milliseconds cap);

private:
    struct FdSet;
    std::unique_ptr<FdSet> m_fds;
};

} // namespace talvo
