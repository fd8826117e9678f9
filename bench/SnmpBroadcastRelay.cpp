#include "SnmpBroadcastRelay.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <netinet/udp.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>

namespace talvo::bench {
namespace {

constexpr int kSocketBuffer = 4 * 1024 * 1024;

uint16_t checksum(const unsigned char* data, std::size_t length, uint32_t sum = 0)
{
    for (std::size_t i = 0; i + 1 < length; i += 2)
        sum += static_cast<uint32_t>(data[i] << 8 | data[i + 1]);
    if (length % 2)
        sum += static_cast<uint32_t>(data[length - 1] << 8);
    while (sum >> 16)
        sum = (sum & 0xffff) + (sum >> 16);
    return static_cast<uint16_t>(~sum & 0xffff);
}

uint32_t ipv4Of(const sockaddr* address)
{
    sockaddr_in copy{};
    std::memcpy(&copy, address, sizeof copy);
    return copy.sin_addr.s_addr;
}

std::string text(uint32_t address)
{
    char buffer[INET_ADDRSTRLEN] = {};
    in_addr a{address};
    ::inet_ntop(AF_INET, &a, buffer, sizeof buffer);
    return buffer;
}

} // namespace

std::vector<unsigned char> udpPacket(uint32_t source, uint16_t sourcePort, uint32_t destination,
                                     uint16_t destinationPort, std::span<const unsigned char> payload)
{
    const std::size_t udpLength = sizeof(udphdr) + payload.size();
    std::vector<unsigned char> packet(sizeof(iphdr) + udpLength);
    iphdr ip{};
    ip.version = 4;
    ip.ihl = 5;
    ip.ttl = 64;
    ip.protocol = IPPROTO_UDP;
    ip.tot_len = htons(static_cast<uint16_t>(packet.size()));
    ip.saddr = source;
    ip.daddr = destination; // the kernel fills in the header checksum and id
    udphdr udp{};
    udp.source = sourcePort;
    udp.dest = destinationPort;
    udp.len = htons(static_cast<uint16_t>(udpLength));
    std::memcpy(packet.data(), &ip, sizeof ip);
    std::memcpy(packet.data() + sizeof ip, &udp, sizeof udp);
    std::memcpy(packet.data() + sizeof ip + sizeof udp, payload.data(), payload.size());

    // The UDP checksum covers a pseudo header of addresses, protocol and length.
    uint32_t pseudo = 0;
    for (const uint32_t a : {ntohl(source), ntohl(destination)})
        pseudo += (a >> 16) + (a & 0xffff);
    pseudo += IPPROTO_UDP + static_cast<uint32_t>(udpLength);
    uint16_t sum = checksum(packet.data() + sizeof ip, udpLength, pseudo);
    if (sum == 0)
        sum = 0xffff;
    const uint16_t network = htons(sum);
    std::memcpy(packet.data() + sizeof ip + offsetof(udphdr, check), &network, sizeof network);
    return packet;
}

int runRelay(uint16_t port)
{
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    // Every broadcast address of the namespace, and the addresses under it.
    std::map<uint32_t, std::vector<uint32_t>> targets;
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        std::perror("getifaddrs");
        return 1;
    }
    for (const ifaddrs* i = list; i; i = i->ifa_next) {
        if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET || !(i->ifa_flags & IFF_BROADCAST) ||
            !i->ifa_broadaddr)
            continue;
        targets[ipv4Of(i->ifa_broadaddr)].push_back(ipv4Of(i->ifa_addr));
    }
    ::freeifaddrs(list);
    if (targets.empty()) {
        std::fprintf(stderr, "talvo-bench relay: no broadcast address in this namespace\n");
        return 1;
    }

    sigset_t handled;
    ::sigemptyset(&handled);
    for (const int s : {SIGTERM, SIGINT, SIGHUP})
        ::sigaddset(&handled, s);
    ::sigprocmask(SIG_BLOCK, &handled, nullptr);
    const int signals = ::signalfd(-1, &handled, SFD_CLOEXEC);
    const int raw = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW);
    if (signals < 0 || raw < 0) {
        std::perror("talvo-bench relay: socket");
        return 1;
    }
    ::setsockopt(raw, SOL_SOCKET, SO_SNDBUFFORCE, &kSocketBuffer, sizeof kSocketBuffer);
    std::vector<pollfd> watched{{signals, POLLIN, 0}};
    std::vector<const std::vector<uint32_t>*> targetsOf{nullptr};
    std::size_t targetCount = 0;
    for (const auto& [broadcast, addresses] : targets) {
        const int s = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_port = htons(port);
        at.sin_addr.s_addr = broadcast;
        if (s < 0 || ::bind(s, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0) {
            std::fprintf(stderr, "talvo-bench relay: cannot bind %s:%u: %s\n", text(broadcast).c_str(), port,
                         std::strerror(errno));
            return 1;
        }
        ::setsockopt(s, SOL_SOCKET, SO_RCVBUFFORCE, &kSocketBuffer, sizeof kSocketBuffer);
        watched.push_back({s, POLLIN, 0});
        targetsOf.push_back(&addresses);
        targetCount += addresses.size();
    }
    std::printf("{\"event\":\"ready\",\"broadcasts\":%zu,\"targets\":%zu}\n", targets.size(), targetCount);
    std::fflush(stdout);

    for (;;) {
        if (::poll(watched.data(), watched.size(), -1) < 0 && errno != EINTR)
            return 1;
        if (watched[0].revents & POLLIN)
            return 0;
        for (std::size_t w = 1; w < watched.size(); ++w) {
            if (!(watched[w].revents & POLLIN))
                continue;
            unsigned char payload[65536];
            sockaddr_in from{};
            socklen_t length = sizeof from;
            ssize_t got = 0;
            while ((got = ::recvfrom(watched[w].fd, payload, sizeof payload, 0,
                                     reinterpret_cast<sockaddr*>(&from), &length)) >= 0) {
                for (const uint32_t address : *targetsOf[w]) {
                    const auto packet =
                        udpPacket(from.sin_addr.s_addr, from.sin_port, address, htons(port),
                                  std::span<const unsigned char>(payload, static_cast<std::size_t>(got)));
                    sockaddr_in to{};
                    to.sin_family = AF_INET;
                    to.sin_addr.s_addr = address;
                    if (::sendto(raw, packet.data(), packet.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                                 sizeof to) < 0)
                        std::fprintf(stderr, "talvo-bench relay: to %s: %s\n", text(address).c_str(),
                                     std::strerror(errno));
                }
                length = sizeof from;
            }
        }
    }
}

} // namespace talvo::bench
