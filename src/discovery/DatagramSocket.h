#pragma once

// UDP sockets of the discovery protocols and the one receive call they share:
// each datagram is read whole, with its source, the destination address it
// was sent to (a broadcast address or ours) and the interface it came in on.
//
//     int fd = talvo::openDiscoverySocket();      // broadcast, IP_PKTINFO, port 0
//     talvo::Datagram d = talvo::readWithAddresses(fd, 1500);
//     if (d.count > 0) handle(d.bytes, d.source, d.destination);

#include <QByteArray>

#include <netinet/in.h>

#include <cstdint>
#include <vector>

namespace talvo {

struct Datagram
{
    int count = -1;           // bytes read; negative on error, `error` says which
    int error = 0;            // errno of a failed read
    QByteArray bytes;         // the datagram (cut to the buffer when truncated)
    uint32_t source = 0;      // network order
    uint16_t sourcePort = 0;  // host order
    uint32_t destination = 0; // network order; 0 when unknown or truncated
    int interfaceIndex = 0;   // 0 when unknown
    bool truncated = false;   // the datagram did not fit the buffer

    // Source address and port as one socket address, to answer the sender.
    sockaddr_in sourceAddress() const;
};

// Receives one datagram without blocking. A datagram cut short keeps its
// source but reports destination 0, as its ancillary data is not trusted.
Datagram readWithAddresses(int fd, int bufferSize);

// One of this host's IPv4 networks: its address there and the netmask, both
// in network order.
struct InterfaceNetwork
{
    uint32_t address = 0;
    uint32_t netmask = 0;
};

// Every IPv4 address of an interface that is up, broadcast-capable or
// running, is not loopback and has a netmask. Empty (and logged) when the
// system will not list its interfaces.
std::vector<InterfaceNetwork> interfaceNetworks();

// The broadcast discovery socket: IPv4 UDP, broadcasts allowed, destination
// and interface reported, non-blocking, bound to any address and a port the
// system picks. Each failing step is logged and the next one tried; returns
// -1 only when no socket could be made at all.
int openDiscoverySocket();

} // namespace talvo
