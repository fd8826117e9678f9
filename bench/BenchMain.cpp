// talvo-bench: the helper of scripts/bench.
//
//   talvo-bench run --netns NAME [--cpu N] [--nofile SOFT:HARD] [--parse talvo|cups]
//                   [--expect FILE] [--idle FROM:TO] [--lines FILE] [--stderr FILE]
//                   [--timeout S] -- PROGRAM [ARGUMENT...]
//       runs PROGRAM (an argument vector, never a shell text) inside the network
//       namespace NAME and prints one JSON object of measurements (MeasuredRun.h)
//   talvo-bench relay [--port N]
//       inside a printers' namespace: relays SNMP broadcasts to every printer's
//       own agent (SnmpBroadcastRelay.h)

#include "MeasuredRun.h"
#include "SnmpBroadcastRelay.h"

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace talvo::bench;

namespace {

int usage()
{
    std::fputs("usage: talvo-bench run --netns NAME [--cpu N] [--nofile SOFT:HARD] [--parse talvo|cups]\n"
               "                       [--expect FILE] [--idle FROM:TO] [--lines FILE] [--stderr FILE]\n"
               "                       [--timeout S] -- PROGRAM [ARGUMENT...]\n"
               "       talvo-bench relay [--port N]\n",
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

} // namespace

int main(int argc, char* argv[])
{
    const std::string_view command = argc > 1 ? argv[1] : "";
    if (command == "run")
        return runCommand(argc, argv);
    if (command == "relay") {
        double port = 161;
        if (argc == 4 && std::string_view(argv[2]) == "--port" && parseNumber(argv[3], port))
            return runRelay(static_cast<uint16_t>(port));
        return argc == 2 ? runRelay(161) : usage();
    }
    return usage();
}
