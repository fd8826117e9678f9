#pragma once

// The benchmark puts a subnet's simulated printers on many addresses of ONE
// network namespace. On a real network each printer is a host of its own and
// its agent hears an SNMP query sent to the subnet's broadcast address; here
// no agent would (snmpd listens on the printers' unicast addresses, and a
// stock snmpd could not answer a broadcast anyway: it replies from the
// request's destination, which the kernel refuses as a source).
//
// The relay, run inside the printers' namespace, stands in for that fan-out:
// it listens on BROADCAST:161 for every broadcast address of the namespace,
// and re-sends each datagram, unchanged and with its original source address
// and port, to port 161 of every address of the namespace that has that
// broadcast address (a raw socket; delivered through the namespace's
// loopback). Each printer's own snmpd then answers the querier directly from
// the printer's address, as a printer on a LAN does. Nothing is answered by
// the relay itself.
//
//     ip netns exec talvo-bench-123-printers-0 talvo-bench relay
//     // {"event":"ready","broadcasts":1,"targets":250} on standard output

#include <cstdint>
#include <span>
#include <vector>

namespace talvo::bench {

// The IPv4 datagram [header | UDP header | payload] from source to
// destination (addresses and ports in network order), UDP checksum included.
std::vector<unsigned char> udpPacket(uint32_t source, uint16_t sourcePort, uint32_t destination,
                                     uint16_t destinationPort, std::span<const unsigned char> payload);

// Runs until SIGTERM, SIGINT or SIGHUP; 0, or 1 when it cannot start.
int runRelay(uint16_t port);

} // namespace talvo::bench
