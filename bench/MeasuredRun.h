#pragma once

// One measured run of a discovery program (talvo-printers discover --json, or
// the CUPS snmp backend in discovery mode) inside a network namespace: every
// line of its standard output timestamped as it arrives, which printer each
// line names, the program's own CPU time (wait4 of that exact process), its
// peak memory (VmHWM sampled from /proc while it runs: wait4's maxrss would
// include the process that forked it), the most descriptors it held (its
// /proc fd folder counted every 20 ms), the CPU it used in a window of its
// run, and the SNMP datagrams that left the namespace meanwhile (frames to
// UDP port 161 handed to any of its interfaces but loopback, counted by a
// packet socket's filter in the kernel: the datagrams that really went out,
// whichever process of the namespace sent them). The result is one JSON
// object on standard output.
//
//     talvo::bench::RunOptions options;
//     options.netns = "talvo-bench-123-client";   // refused when it is missing
//     options.cpu = 0;
//     options.parse = talvo::bench::LineKind::TalvoJson;
//     options.argv = {"build-bench/bin/talvo-printers", "discover", "--json", "--seconds", "16"};
//     return talvo::bench::runMeasured(options);

#include <sys/resource.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace talvo::bench {

enum class LineKind {
    TalvoJson,  // {"ipAddr":"10.66.0.3",...}
    CupsDevice, // network socket://10.66.0.3 "make and model" "info" ...
};

struct RunOptions
{
    std::string netns;                                 // a name from `ip netns list`; required
    int cpu = -1;                                      // pin the program to this CPU; -1: no
    std::optional<std::pair<rlim_t, rlim_t>> nofile{}; // the program's RLIMIT_NOFILE
    LineKind parse = LineKind::TalvoJson;
    std::string expectFile; // expected addresses, one a line
    double idleFrom = -1;   // CPU used between these two times
    double idleTo = -1;     // (seconds after the start); -1: none
    double deadline = -1;   // the run time the program was asked for; -1: none
    std::string linesFile;  // each line with its arrival time
    std::string stderrFile; // the program's standard error
    double timeout = 300;   // SIGKILL after this many seconds
    std::vector<std::string> argv;
};

// The printer address a line names, or nothing (a line of another kind).
std::optional<std::string> addressFromLine(LineKind kind, std::string_view line);

// Runs and measures; prints the JSON object. 0, or 1 when the run could not
// be made (no such namespace, exec failed).
int runMeasured(const RunOptions& options);

} // namespace talvo::bench
