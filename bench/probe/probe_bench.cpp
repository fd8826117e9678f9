// probe_bench: how long the manual address probe takes to reach its verdict,
// for a live printer (a real snmpd answering SNMPv1) and for an address where
// nothing is, in a sandbox network of namespaces. Targets: a live printer
// under 0.5 s, a dead address under 9 s.
//
//     probe_bench [--runs N]      (root; N live runs, default 10, and 2 dead runs)
//
// The program first moves itself into a network namespace of its own, so
// nothing it does can reach the machine's network; the probes run in the
// sandbox's client host.

#include "fixtures/NetworkSandbox.h"
#include "fixtures/ScopedNetns.h"
#include "fixtures/SnmpAgent.h"
#include "foundation/Settings.h"
#include "queue/PrinterProbe.h"

#include <QCoreApplication>
#include <QLoggingCategory>

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <vector>

namespace {

using namespace talvo;
using Clock = std::chrono::steady_clock;

struct Figures
{
    ProbeResult result = ProbeResult::InvalidAddress;
    std::vector<double> seconds;
};

Figures measure(const test::NetworkSandbox& sandbox, const ProbeSettings& settings, const QString& address,
                int runs)
{
    Figures figures;
    for (int i = 0; i < runs; ++i) {
        std::promise<ProbeOutcome> verdict;
        PrinterProbe probe(settings);
        Clock::time_point start;
        {
            // The probe's thread, and everything it runs, live in the client.
            test::ScopedNetns inClient(sandbox, QStringLiteral("client"));
            start = Clock::now();
            probe.start(address, [&verdict](const ProbeOutcome& o) { verdict.set_value(o); });
        }
        figures.result = verdict.get_future().get().result;
        figures.seconds.push_back(std::chrono::duration<double>(Clock::now() - start).count());
    }
    std::sort(figures.seconds.begin(), figures.seconds.end());
    return figures;
}

void report(const char* what, const QString& address, const Figures& f, double target)
{
    const double median = f.seconds[f.seconds.size() / 2];
    std::printf(
        "%-14s %-11s %-16s runs %2zu  min %6.3f s  median %6.3f s  max %6.3f s  target < %.1f s: %s\n", what,
        qPrintable(address), qPrintable(probeResultName(f.result)), f.seconds.size(), f.seconds.front(),
        median, f.seconds.back(), target, f.seconds.back() < target ? "met" : "MISSED");
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QLoggingCategory::setFilterRules(QStringLiteral("talvo.*=false"));
    int runs = 10;
    const QStringList arguments = QCoreApplication::arguments();
    if (const qsizetype i = arguments.indexOf(QStringLiteral("--runs")); i > 0)
        runs = std::max(1, arguments.value(i + 1).toInt());

    if (::unshare(CLONE_NEWNET) != 0) {
        std::perror("probe_bench: a network namespace of its own (run as root)");
        return 1;
    }
    const auto settings = getSettingsDict(QStringLiteral(TALVO_SOURCE_DIR "/resources/PluginSettings.plist"));
    if (!settings) {
        std::fprintf(stderr, "probe_bench: cannot read resources/PluginSettings.plist\n");
        return 1;
    }

    test::NetworkSandbox sandbox;
    // No default route in the client: a name lookup fails at once, as on a
    // network without DNS, instead of waiting for a server that is not there.
    sandbox.addHost(QStringLiteral("client"), QStringLiteral("10.78.0.10/24"),
                    {.segment = {}, .defaultRoute = false});
    sandbox.addHost(QStringLiteral("printer"), QStringLiteral("10.78.0.20/24"));
    // A router that forwards nothing: what is sent to 10.79.0.0/24 through it
    // vanishes without an answer, the slowest kind of dead address (on the
    // local segment the failed ARP ends the checks early instead).
    sandbox.addHost(QStringLiteral("router"), QStringLiteral("10.78.0.1/24"));
    const auto route =
        sandbox.runIn(QStringLiteral("client"),
                      {QStringLiteral("ip"), QStringLiteral("route"), QStringLiteral("add"),
                       QStringLiteral("10.79.0.0/24"), QStringLiteral("via"), QStringLiteral("10.78.0.1")});
    if (!route.succeeded()) {
        std::fprintf(stderr, "probe_bench: %s\n", qPrintable(route.describe()));
        return 1;
    }
    test::SnmpAgentConfig config;
    config.listen = {QStringLiteral("udp:10.78.0.20:161")};
    config.networkNamespace = sandbox.namespaceName(QStringLiteral("printer"));
    config.sysObjectId = QStringLiteral(".1.3.6.1.4.1.58101.1.4000");
    config.sysDescr = QStringLiteral("Talvo Model 4000; firmware 1.2");
    config.sysName = QStringLiteral("office-printer");
    test::SnmpAgent agent(config);
    if (!agent.ready()) {
        std::fprintf(stderr, "probe_bench: the printer's agent did not start: %s\n",
                     qPrintable(agent.failureMessage()));
        return 1;
    }

    const ProbeSettings probeSettings = ProbeSettings::fromPluginSettings(*settings);
    report("live printer", QStringLiteral("10.78.0.20"),
           measure(sandbox, probeSettings, QStringLiteral("10.78.0.20"), runs), 0.5);
    report("dead, on-link", QStringLiteral("10.78.0.99"),
           measure(sandbox, probeSettings, QStringLiteral("10.78.0.99"), 2), 9.0);
    report("dead, routed", QStringLiteral("10.79.0.99"),
           measure(sandbox, probeSettings, QStringLiteral("10.79.0.99"), 2), 9.0);
    return 0;
}
