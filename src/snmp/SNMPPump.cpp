#include "snmp/SNMPPump.h"

#include "snmp/SnmpLibrary.h"

#include <net-snmp/library/large_fd_set.h>
#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include <algorithm>
#include <cerrno>

namespace talvo {

struct SNMPPump::FdSet
{
    FdSet() { netsnmp_large_fd_set_init(&set, FD_SETSIZE); }
    ~FdSet() { netsnmp_large_fd_set_cleanup(&set); }
    netsnmp_large_fd_set set;
};

SNMPPump::SNMPPump() : m_fds(std::make_unique<FdSet>())
{
    snmp::ensureLibraryInitialised();
}

SNMPPump::~SNMPPump() = default;

namespace {

timeval toTimeval(std::chrono::milliseconds ms)
{
    const auto count = std::max<std::chrono::milliseconds::rep>(0, ms.count());
    return {static_cast<time_t>(count / 1000), static_cast<suseconds_t>((count % 1000) * 1000)};
}

bool earlier(const timeval& a, const timeval& b)
{
    return a.tv_sec < b.tv_sec || (a.tv_sec == b.tv_sec && a.tv_usec < b.tv_usec);
}

} // namespace

std::vector<int> SNMPPump::pass(std::span<const int> extra, std::chrono::milliseconds cap)
{
    netsnmp_large_fd_set* fds = &m_fds->set;
    NETSNMP_LARGE_FD_ZERO(fds);
    int count = 0;
    int block = 0;
    const timeval limit = toTimeval(cap);
    timeval wait = limit;
    {
        std::lock_guard lock(snmp::libraryMutex());
        snmp_select_info2(&count, fds, &wait, &block);
    }
    // "block" means no SNMP time-out is pending: the caller's cap alone counts.
    if (block || earlier(limit, wait))
        wait = limit;
    for (const int fd : extra) {
        if (fd < 0)
            continue;
        netsnmp_large_fd_setfd(fd, fds);
        count = std::max(count, fd + 1);
    }

    int ready = netsnmp_large_fd_set_select(count, fds, nullptr, nullptr, &wait);
    if (ready < 0) {
        if (errno != EINTR)
            qCWarning(lcSnmp) << "select failed:" << strerror(errno);
        ready = 0;
    }

    std::vector<int> readyExtra;
    if (ready > 0) {
        for (const int fd : extra) {
            if (fd >= 0 && netsnmp_large_fd_is_set(fd, fds)) {
                readyExtra.push_back(fd);
                netsnmp_large_fd_clr(fd, fds);
            }
        }
    }

    std::lock_guard lock(snmp::libraryMutex());
    if (ready > static_cast<int>(readyExtra.size()))
        snmp_read2(fds);
    snmp_timeout();
    return readyExtra;
}

} // namespace talvo
