#pragma once

// A hostile host on the benchmark's LAN. It learns where the program under
// test listens exactly as any host on the LAN could: it binds UDP port 1200,
// as a printer does, and reads the program's broadcast discovery request,
// whose source address and port are the program's discovery socket. Then:
//
//   flood    sends discovery REPLY datagrams, well-formed (the layout of
//            src/discovery/BroadcastPacket.h buildReply), each from a spoofed
//            source address of the LAN's network that the reply also claims
//            as the printer's address, as fast as one core can send them
//            (a raw socket with IP_HDRINCL, sendmmsg in batches);
//   garbage  sends random datagrams of 0 to 1,500 bytes to the discovery
//            socket and to the walkup port 1204 of the program's host; half
//            of them start with the right header so that they get past the
//            first check of a parser and into its body.
//
// Both print {"event":"ready"} once port 1200 is bound, then one JSON object
// with what they sent. Run them pinned to a CPU apart from the program's:
//
//     ip netns exec talvo-bench-123-flood taskset -c 1 talvo-bench flood
//         --network 10.70.0.0/16 --skip 10.70.0.1 --count 100000
//     ip netns exec talvo-bench-123-flood taskset -c 1 talvo-bench garbage
//         --to 10.70.0.1 --count 100000

#include <cstdint>
#include <string>
#include <vector>

namespace talvo::bench {

struct FloodOptions
{
    uint32_t network = 0;             // host order; the spoofed sources' network
    int prefixLength = 16;            // of `network`
    std::vector<uint32_t> skip;       // host order: addresses of real hosts, never spoofed
    long count = 100000;              // datagrams in all; sources repeat past the network's size
    std::string model = "Model 4000"; // a supported model: each reply asks for identification
    double waitSeconds = 30;          // for the program's request
};

struct GarbageOptions
{
    uint32_t to = 0;         // network order: the program's host, for port 1204
    long count = 100000;     // datagrams to each of the two ports
    double learnSeconds = 2; // for a discovery request naming the discovery socket's port
    uint64_t seed = 1;       // of the sizes and bytes: runs send the same datagrams
    std::string vendorWord = "talvo";
};

// The reply a printer sends: "kvo" 01, the total length (4 bytes, big
// endian), then model, address and MAC text, each a length byte and the text
// (cut to 127 bytes).
std::vector<unsigned char> discoveryReply(const std::string& model, const std::string& address,
                                          const std::string& mac);

// True for a datagram laid out as a discovery request (magic, a length field
// equal to its size, the fixed bytes 06 2A 00, the reply address).
bool isDiscoveryRequest(const unsigned char* data, std::size_t size);

// Each runs once and returns 0, or 1 when it could not (no request came, a
// socket failed); the reason is on standard error.
int runFlood(const FloodOptions& options);
int runGarbage(const GarbageOptions& options);

} // namespace talvo::bench
