// talvo-bench: the helper of scripts/bench.
//
//   talvo-bench run --netns NAME [--cpu N] [--nofile SOFT:HARD] [--parse talvo|cups]
//                   [--expect FILE] [--idle FROM:TO] [--deadline S] [--lines FILE]
//                   [--stderr FILE] [--timeout S] -- PROGRAM [ARGUMENT...]
//       runs PROGRAM (an argument vector, never a shell text) inside the network
//       namespace NAME and prints one JSON object of measurements (MeasuredRun.h)
//   talvo-bench relay [--port N]
//       inside a printers' namespace: relays SNMP broadcasts to every printer's
//       own agent (SnmpBroadcastRelay.h)
//   talvo-bench flood --network A.B.C.D/P [--skip A.B.C.D]... [--count N] [--model TEXT]
//                     [--wait S]
//   talvo-bench garbage --to A.B.C.D [--count N] [--learn S] [--seed N] [--vendor WORD]
//       a hostile host on the LAN: discovery replies from spoofed sources, or
//       random datagrams, to the program whose request it reads (HostileHost.h)

#include "HostileHost.h"
#include "MeasuredRun.h"
#include "SnmpBroadcastRelay.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace talvo::bench;

namespace {

int usage()
{
    std::fputs("usage: talvo-bench run --netns NAME [--cpu N] [--nofile SOFT:HARD] [--parse talvo|cups]\n"
               "                       [--expect FILE] [--idle FROM:TO] [--deadline S] [--lines FILE]\n"
               "                       [--stderr FILE] [--timeout S] -- PROGRAM [ARGUMENT...]\n"
               "       talvo-bench relay [--port N]\n"
               "       talvo-bench flood --network A.B.C.D/P [--skip A.B.C.D]... [--count N] [--model TEXT]\n"
               "                         [--wait S]\n"
               "       talvo-bench garbage --to A.B.C.D [--count N] [--learn S] [--seed N] [--vendor WORD]\n",
               stderr);
    return 2;
}

bool parseNumber(const std::string& text, double& value)
{
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return !text.empty() && end && *end == '\0';
}

// "A:B" as two numbers.
bool parsePair(const std::string& text, double& a, double& b)
{
    const auto colon = text.find(':');
    return colon != std::string::npos && parseNumber(text.substr(0, colon), a) &&
           parseNumber(text.substr(colon + 1), b);
}

int runCommand(int argc, char* argv[])
{
    RunOptions options;
    int i = 2;
    for (; i < argc; ++i) {
        const std::string_view option = argv[i];
        if (option == "--") {
            ++i;
            break;
        }
        if (i + 1 >= argc)
            return usage();
        const std::string value = argv[++i];
        double a = 0;
        double b = 0;
        if (option == "--netns") {
            options.netns = value;
        } else if (option == "--cpu" && parseNumber(value, a)) {
            options.cpu = static_cast<int>(a);
        } else if (option == "--nofile" && parsePair(value, a, b)) {
            options.nofile = {static_cast<rlim_t>(a), static_cast<rlim_t>(b)};
        } else if (option == "--parse" && (value == "talvo" || value == "cups")) {
            options.parse = value == "talvo" ? LineKind::TalvoJson : LineKind::CupsDevice;
        } else if (option == "--expect") {
            options.expectFile = value;
        } else if (option == "--idle" && parsePair(value, a, b)) {
            options.idleFrom = a;
            options.idleTo = b;
        } else if (option == "--deadline" && parseNumber(value, a)) {
            options.deadline = a;
        } else if (option == "--lines") {
            options.linesFile = value;
        } else if (option == "--stderr") {
            options.stderrFile = value;
        } else if (option == "--timeout" && parseNumber(value, a)) {
            options.timeout = a;
        } else {
            std::fprintf(stderr, "talvo-bench run: bad option %s %s\n", argv[i - 1], value.c_str());
            return usage();
        }
    }
    for (; i < argc; ++i)
        options.argv.emplace_back(argv[i]);
    if (options.argv.empty())
        return usage();
    return runMeasured(options);
}

// A dotted IPv4 address in host order.
bool parseAddress(const std::string& text, uint32_t& hostOrder)
{
    in_addr a{};
    if (::inet_pton(AF_INET, text.c_str(), &a) != 1)
        return false;
    hostOrder = ntohl(a.s_addr);
    return true;
}

// The options of flood and garbage: pairs of an option and its value.
template <typename Apply> int parseHostileOptions(int argc, char* argv[], const char* command, Apply apply)
{
    for (int i = 2; i < argc; i += 2) {
        if (i + 1 >= argc || !apply(std::string_view(argv[i]), std::string(argv[i + 1]))) {
            std::fprintf(stderr, "talvo-bench %s: bad option %s\n", command, argv[i]);
            return usage();
        }
    }
    return 0;
}

int floodCommand(int argc, char* argv[])
{
    FloodOptions options;
    bool networkGiven = false;
    const int bad =
        parseHostileOptions(argc, argv, "flood", [&](std::string_view option, const std::string& value) {
            double n = 0;
            uint32_t address = 0;
            if (option == "--network") {
                const auto slash = value.find('/');
                networkGiven = slash != std::string::npos &&
                               parseAddress(value.substr(0, slash), options.network) &&
                               parseNumber(value.substr(slash + 1), n);
                options.prefixLength = static_cast<int>(n);
                return networkGiven;
            }
            if (option == "--skip" && parseAddress(value, address)) {
                options.skip.push_back(address);
                return true;
            }
            if (option == "--count" && parseNumber(value, n) && n >= 1) {
                options.count = static_cast<long>(n);
                return true;
            }
            if (option == "--model" && !value.empty()) {
                options.model = value;
                return true;
            }
            if (option == "--wait" && parseNumber(value, n)) {
                options.waitSeconds = n;
                return true;
            }
            return false;
        });
    if (bad)
        return bad;
    return networkGiven ? runFlood(options) : usage();
}

int garbageCommand(int argc, char* argv[])
{
    GarbageOptions options;
    bool toGiven = false;
    const int bad =
        parseHostileOptions(argc, argv, "garbage", [&](std::string_view option, const std::string& value) {
            double n = 0;
            uint32_t address = 0;
            if (option == "--to" && parseAddress(value, address)) {
                options.to = htonl(address);
                toGiven = true;
                return true;
            }
            if (option == "--count" && parseNumber(value, n) && n >= 1) {
                options.count = static_cast<long>(n);
                return true;
            }
            if (option == "--learn" && parseNumber(value, n)) {
                options.learnSeconds = n;
                return true;
            }
            if (option == "--seed" && parseNumber(value, n)) {
                options.seed = static_cast<uint64_t>(n);
                return true;
            }
            if (option == "--vendor" && !value.empty()) {
                options.vendorWord = value;
                return true;
            }
            return false;
        });
    if (bad)
        return bad;
    return toGiven ? runGarbage(options) : usage();
}

} // namespace

int main(int argc, char* argv[])
{
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "run")
        return runCommand(argc, argv);
    if (command == "flood")
        return floodCommand(argc, argv);
    if (command == "garbage")
        return garbageCommand(argc, argv);
    if (command == "relay") {
        double port = 161;
        if (argc == 4 && std::string_view(argv[2]) == "--port" && parseNumber(argv[3], port))
            return runRelay(static_cast<uint16_t>(port));
        return argc == 2 ? runRelay(161) : usage();
    }
    return usage();
}
