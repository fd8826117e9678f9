#include "HostileHost.h"

#include "SnmpBroadcastRelay.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/ip.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <optional>
#include <random>
#include <set>

namespace talvo::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint16_t kDiscoveryPort = 1200;
constexpr uint16_t kWalkupPort = 1204;
// The largest UDP payload a garbage datagram gets: an Ethernet frame's worth
// (larger ones leave as IP fragments, which the kernel reassembles).
constexpr std::size_t kMaxGarbageSize = 1500;
// Datagrams per sendmmsg call: enough that the system call's own cost is
// small against the datagrams'.
constexpr unsigned kBatch = 256;
// A send buffer this large keeps the sender from sleeping between batches.
constexpr int kSendBuffer = 4 * 1024 * 1024;
constexpr std::size_t kMaxTextLength = 127; // the reply's length bytes are signed

double secondsSince(Clock::time_point start)
{
    return std::chrono::duration<double>(Clock::now() - start).count();
}

std::string dotted(uint32_t networkOrder)
{
    char text[INET_ADDRSTRLEN] = {};
    const in_addr a{networkOrder};
    ::inet_ntop(AF_INET, &a, text, sizeof text);
    return text;
}

std::string endpoint(const sockaddr_in& at)
{
    return dotted(at.sin_addr.s_addr) + ':' + std::to_string(ntohs(at.sin_port));
}

void writeBigEndian(unsigned char* at, uint32_t value)
{
    for (int i = 3; i >= 0; --i, value >>= 8)
        at[i] = static_cast<unsigned char>(value & 0xff);
}

// Binds UDP port 1200 of every address, announces readiness, and waits up to
// `seconds` for a discovery request: its source is the program's discovery
// socket. Nothing when none came (or the port could not be bound).
std::optional<sockaddr_in> awaitRequest(double seconds)
{
    const int s = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(kDiscoveryPort);
    if (s < 0 || ::setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
        ::bind(s, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0) {
        std::fprintf(stderr, "talvo-bench: cannot bind UDP port %u: %s\n", kDiscoveryPort,
                     std::strerror(errno));
        if (s >= 0)
            ::close(s);
        return std::nullopt;
    }
    std::printf("{\"event\":\"ready\"}\n");
    std::fflush(stdout);

    const auto deadline = Clock::now() + std::chrono::duration<double>(seconds);
    std::optional<sockaddr_in> found;
    while (!found) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        if (left.count() <= 0)
            break;
        pollfd wait{s, POLLIN, 0};
        if (::poll(&wait, 1, static_cast<int>(left.count())) <= 0)
            continue;
        unsigned char datagram[2048];
        sockaddr_in from{};
        socklen_t length = sizeof from;
        const ssize_t got =
            ::recvfrom(s, datagram, sizeof datagram, 0, reinterpret_cast<sockaddr*>(&from), &length);
        if (got > 0 && isDiscoveryRequest(datagram, static_cast<std::size_t>(got)))
            found = from;
    }
    ::close(s);
    return found;
}

} // namespace

std::vector<unsigned char> discoveryReply(const std::string& model, const std::string& address,
                                          const std::string& mac)
{
    std::vector<unsigned char> out{'k', 'v', 'o', 1, 0, 0, 0, 0};
    for (const std::string* text : {&model, &address, &mac}) {
        const std::size_t length = std::min(text->size(), kMaxTextLength);
        out.push_back(static_cast<unsigned char>(length));
        out.insert(out.end(), text->begin(), text->begin() + static_cast<std::ptrdiff_t>(length));
    }
    writeBigEndian(out.data() + 4, static_cast<uint32_t>(out.size()));
    return out;
}

bool isDiscoveryRequest(const unsigned char* data, std::size_t size)
{
    constexpr std::size_t kHeader = 15; // magic, length, fixed bytes, reply address
    if (size < kHeader || std::memcmp(data, "kvo\x01", 4) != 0 ||
        std::memcmp(data + 8, "\x06\x2a\x00", 3) != 0)
        return false;
    const uint32_t length = static_cast<uint32_t>(data[4]) << 24 | static_cast<uint32_t>(data[5]) << 16 |
                            static_cast<uint32_t>(data[6]) << 8 | data[7];
    return length == size;
}

int runFlood(const FloodOptions& options)
{
    // Every host address of the network but the real hosts', in order; past
    // the network's size the sources start over.
    if (options.prefixLength < 8 || options.prefixLength > 30 || options.count <= 0) {
        std::fprintf(stderr, "talvo-bench flood: the network must be a /8 to /30, the count positive\n");
        return 1;
    }
    const std::set<uint32_t> skip(options.skip.begin(), options.skip.end());
    const uint32_t size = 1u << (32 - options.prefixLength);
    const uint32_t base = options.network & ~(size - 1);
    std::vector<uint32_t> sources;
    for (uint32_t host = base + 1; host < base + size - 1; ++host) {
        if (!skip.contains(host))
            sources.push_back(htonl(host));
    }
    if (sources.empty()) {
        std::fprintf(stderr, "talvo-bench flood: no address left to send from\n");
        return 1;
    }

    const auto started = Clock::now();
    const std::optional<sockaddr_in> target = awaitRequest(options.waitSeconds);
    if (!target) {
        std::fprintf(stderr, "talvo-bench flood: no discovery request within %.0f s\n", options.waitSeconds);
        return 1;
    }
    const double waited = secondsSince(started);

    // Every datagram is built before the first leaves: the sending loop then
    // does nothing but send.
    const long count = options.count;
    std::vector<std::vector<unsigned char>> packets;
    packets.reserve(static_cast<std::size_t>(count));
    for (long i = 0; i < count; ++i) {
        const uint32_t source = sources[static_cast<std::size_t>(i) % sources.size()];
        const uint32_t host = ntohl(source);
        char mac[32];
        std::snprintf(mac, sizeof mac, "00:80:92:%02x:%02x:%02x", host >> 16 & 0xff, host >> 8 & 0xff,
                      host & 0xff);
        const auto payload = discoveryReply(options.model, dotted(source), mac);
        packets.push_back(
            udpPacket(source, htons(kDiscoveryPort), target->sin_addr.s_addr, target->sin_port, payload));
    }

    const int raw = ::socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_RAW);
    const int on = 1;
    if (raw < 0 || ::setsockopt(raw, IPPROTO_IP, IP_HDRINCL, &on, sizeof on) != 0) {
        std::fprintf(stderr, "talvo-bench flood: raw socket: %s\n", std::strerror(errno));
        return 1;
    }
    ::setsockopt(raw, SOL_SOCKET, SO_SNDBUFFORCE, &kSendBuffer, sizeof kSendBuffer);

    std::vector<iovec> iov(kBatch);
    std::vector<mmsghdr> messages(kBatch);
    sockaddr_in to = *target;
    long sent = 0;
    long errors = 0;
    int firstError = 0;
    const auto sending = Clock::now();
    for (long next = 0; next < count;) {
        const unsigned batch = static_cast<unsigned>(std::min<long>(kBatch, count - next));
        for (unsigned i = 0; i < batch; ++i) {
            auto& packet = packets[static_cast<std::size_t>(next) + i];
            iov[i] = {packet.data(), packet.size()};
            messages[i] = {};
            messages[i].msg_hdr.msg_name = &to;
            messages[i].msg_hdr.msg_namelen = sizeof to;
            messages[i].msg_hdr.msg_iov = &iov[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int done = ::sendmmsg(raw, messages.data(), batch, 0);
        if (done > 0) {
            sent += done;
            next += done;
        } else if (errno != EINTR) {
            // The datagram the kernel refused is given up, not retried: the
            // count of refusals is part of the result.
            firstError = firstError ? firstError : errno;
            ++errors;
            ++next;
        }
    }
    const double seconds = secondsSince(sending);
    ::close(raw);

    std::printf("{\"event\":\"done\",\"to\":\"%s\",\"waited_s\":%.3f,\"sent\":%ld,\"distinct_sources\":%zu,"
                "\"send_errors\":%ld,\"first_error\":\"%s\",\"seconds\":%.3f,\"rate_per_s\":%.0f}\n",
                endpoint(to).c_str(), waited, sent, std::min(sources.size(), static_cast<std::size_t>(count)),
                errors, firstError ? std::strerror(firstError) : "", seconds,
                static_cast<double>(sent) / std::max(seconds, 1e-9));
    return 0;
}

int runGarbage(const GarbageOptions& options)
{
    const auto started = Clock::now();
    const std::optional<sockaddr_in> learned = awaitRequest(options.learnSeconds);
    const double waited = secondsSince(started);
    // Without a request (a program that runs no broadcast discovery) the
    // discovery share goes to the protocol's own port on the program's host.
    sockaddr_in discovery{};
    discovery.sin_family = AF_INET;
    discovery.sin_addr.s_addr = options.to;
    discovery.sin_port = htons(kDiscoveryPort);
    if (learned)
        discovery = *learned;
    sockaddr_in walkup{};
    walkup.sin_family = AF_INET;
    walkup.sin_addr.s_addr = learned ? learned->sin_addr.s_addr : options.to;
    walkup.sin_port = htons(kWalkupPort);

    const int s = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (s < 0) {
        std::fprintf(stderr, "talvo-bench garbage: socket: %s\n", std::strerror(errno));
        return 1;
    }
    ::setsockopt(s, SOL_SOCKET, SO_SNDBUFFORCE, &kSendBuffer, sizeof kSendBuffer);

    std::string walkupHeader = options.vendorWord;
    walkupHeader += "\x01\x03";
    std::mt19937_64 random(options.seed);
    unsigned char datagram[kMaxGarbageSize];
    long sent = 0;
    long errors = 0;
    int firstError = 0;
    const auto sending = Clock::now();
    for (long i = 0; i < 2 * options.count; ++i) {
        const bool toWalkup = i % 2 == 1;
        const std::size_t size = random() % (kMaxGarbageSize + 1);
        for (std::size_t at = 0; at < size; at += 8) {
            const uint64_t bits = random();
            std::memcpy(datagram + at, &bits, std::min<std::size_t>(8, size - at));
        }
        if (random() % 2 == 0) {
            if (toWalkup) {
                std::memcpy(datagram, walkupHeader.data(), std::min(size, walkupHeader.size()));
            } else {
                std::memcpy(datagram, "kvo\x01", std::min<std::size_t>(size, 4));
                if (size >= 8)
                    writeBigEndian(datagram + 4, static_cast<uint32_t>(size));
            }
        }
        const sockaddr_in& to = toWalkup ? walkup : discovery;
        if (::sendto(s, datagram, size, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) >= 0) {
            ++sent;
        } else {
            firstError = firstError ? firstError : errno;
            ++errors;
        }
    }
    const double seconds = secondsSince(sending);
    ::close(s);

    std::printf(
        "{\"event\":\"done\",\"learned\":%s,\"waited_s\":%.3f,\"to_discovery\":\"%s\",\"to_walkup\":\"%s\","
        "\"sent\":%ld,\"send_errors\":%ld,\"first_error\":\"%s\",\"seconds\":%.3f}\n",
        learned ? "true" : "false", waited, endpoint(discovery).c_str(), endpoint(walkup).c_str(), sent,
        errors, firstError ? std::strerror(firstError) : "", seconds);
    return 0;
}

} // namespace talvo::bench
