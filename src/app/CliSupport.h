#pragma once

// What every talvo-printers command shares: the parsed command line, the
// loaded settings, and output streams that flush each line as it is written,
// so a reader sees every result as it happens.

#include <QCommandLineParser>
#include <QTextStream>
#include <QVariantMap>

namespace talvo::cli {

// 130 is what a shell reports for a command that SIGINT ended.
enum ExitCode { kOk = 0, kFailed = 1, kBadArguments = 2, kTimedOut = 3, kInterrupted = 130 };

QTextStream& out();
QTextStream& err();

struct Context
{
    QCommandLineParser& parser;
    QVariantMap settings; // the plug-in settings, merged with the user preferences
    bool json = false;
};

// "GATEWAY/MASK" with a dotted mask or a prefix length, as network-order
// values; nullopt when either part is not a valid address.
struct Subnet
{
    uint32_t gateway = 0;
    uint32_t mask = 0;
    uint32_t broadcast() const { return gateway | ~mask; }
};
std::optional<Subnet> parseSubnet(const QString& text);

// The --seconds option: `fallback` when absent; nullopt (and the reason on
// standard error) unless a positive number within 24 days, the longest a
// Qt timer can wait.
std::optional<double> secondsOption(const Context& context, double fallback);

int runDiscover(const Context& context);
int runWalkup(const Context& context);
int runProbe(const Context& context);
int runAdd(const Context& context);
int runPpd(const Context& context);

} // namespace talvo::cli
