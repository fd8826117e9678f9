// talvo-printer-sim: simulated Talvo printers for tests, the demo and
// benchmarks. Serves every printer it is given inside the network namespace
// it runs in; it never creates namespaces or addresses itself.

#include "discovery/BroadcastPacket.h"
#include "foundation/PropertyList.h"
#include "foundation/Settings.h"
#include "printer-sim/AgentSupervisor.h"
#include "printer-sim/DiscoveryResponder.h"
#include "printer-sim/EventLog.h"
#include "printer-sim/SimulatedPrinter.h"
#include "printer-sim/WalkupAnnouncer.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <map>
#include <set>
#include <utility>
#include <variant>
#include <vector>

using namespace talvo;
using namespace talvo::sim;

namespace {

enum ExitCode { kOk = 0, kFailed = 1, kBadInput = 2 };

constexpr char kDescription[] = R"(Simulated Talvo printers. Each one answers the broadcast discovery on UDP
port 1200 from its own address, and its SNMP agent is a real snmpd on port 161
of that address. Run it inside a network namespace holding the printers'
addresses (ip netns exec HOST talvo-printer-sim ...): it only uses addresses
it is given and never creates namespaces or addresses.

Printers (--printer, repeatable, and/or --printers FILE holding a JSON array
of objects with the same keys, string values):
  model=TEXT          model name sent in replies, and sysDescr.0 "Talvo TEXT"
                      (required)
  address=A.B.C.D     the printer's IPv4 address, an address of this namespace
                      (required); replies leave from it, its snmpd listens on it
  reply-address=TEXT  the address text the reply carries (default: address)
  mac=TEXT            MAC text of the reply (default: 00:80:92: and the last
                      three octets of the address in hex)
  sysname=TEXT        sysName.0 (default: talvo-C-D for address A.B.C.D)
  sysobjectid=OID     sysObjectID.0 (default: the model's first SysObjID in the
                      settings file, .1.3.6.1.4.1.58101.1.99999 for a model
                      not there)
  community=WORD      SNMPv1 read community (default: public)
  snmp=MODE           normal (default; the Printer-MIB name
                      .1.3.6.1.2.1.43.5.1.1.16.1 answers the sysname) |
                      nosuchname (no Printer-MIB name: a v1 GET of it gets
                      noSuchName) | silent (a socket on port 161 that never
                      answers) | none (nothing on port 161)
  cache=A.B.C.D       known-network cache entry 1 (the flag answers 1);
                      without it the flag answers 0; entries 2-4 are 0.0.0.0;
                      the entries are octet strings holding dotted text
  cache-firmware=V    3.5 (default: flag ...8.64.4.2.1.5.2.22510000, entries
                      ...7.2.22521000 to 22524000) | 3.0 (flag ...5.2.99,
                      entries ...7.2.100 to 103)
  reply=KIND          normal (default) | duplicate (two identical replies) |
                      bad-magic | bad-length (length field one more than the
                      bytes sent) | long-text (the MAC's length byte runs past
                      the end) | length-0x80 (the model's length byte is 0x80)
                      | short (6 bytes) | silent (never replies)
  Example: --printer "model=Model 4000,address=10.77.0.20,cache=10.77.1.0"

Every agent also answers the installed options the model PPDs ask for:
memory .1.3.6.1.4.1.58101.3.1.1.0 = 524288 (KiB), optional trays ...2.0 = 1,
duplexer ...3.0 = 1, hard disk ...4.0 = 0, envelope feeder ...5.0 = "absent",
finisher ...6.0 = "stapler".

A request to a printer's address is answered by that printer; a request to a
broadcast address by every printer on the interface it arrived on. Replies go
to the request's source address and port. Malformed requests are dropped.

Events on standard output, one JSON object per line:
  {"event":"ready","printers":N,"agents":M}   every snmpd answers, port bound
  {"event":"request","from":"A.B.C.D:PORT","to":"DEST","interface":IDX,
   "replyAddr":"A.B.C.D","known":["A.B.C.D",...]}
  {"event":"reply","printer":"ADDRESS","kind":"normal|duplicate|..."}
      one per datagram sent
  {"event":"dropped","from":"A.B.C.D:PORT","to":"DEST","size":N,
   "reason":"malformed request"}

Errors go to standard error. Exit status: 0 after SIGTERM, SIGINT or SIGHUP,
1 when the simulator cannot run (port taken, an address missing, snmpd
failing), 2 for bad options or printer descriptions. snmpd children die with
it.)";

void error(const QString& message)
{
    std::fprintf(stderr, "talvo-printer-sim: %s\n", message.toLocal8Bit().constData());
}

struct Options
{
    std::vector<SimulatedPrinter> printers;
    bool sharedAgents = false;
    bool minimalAgents = false;
    bool hrDevice = false;
    bool rawPort = false;
    std::vector<WalkupPlan> walkups;
};

// The options, or the exit code to leave with at once.
std::variant<Options, int> parseOptions(const QCoreApplication& app)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QLatin1StringView(kDescription));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")},
                                  QStringLiteral("Show this help."));
    const QCommandLineOption printer(
        QStringLiteral("printer"), QStringLiteral("A printer: comma-separated key=value pairs (see above)."),
        QStringLiteral("KEYS"));
    const QCommandLineOption printersFile(QStringLiteral("printers"),
                                          QStringLiteral("A JSON file: an array of printer objects."),
                                          QStringLiteral("FILE"));
    const QCommandLineOption settings(
        QStringLiteral("settings"),
        QStringLiteral("The settings file giving models' SysObjIDs (default: share/talvo-add-print-queue/"
                       "PluginSettings.plist beside the program's bin/)."),
        QStringLiteral("PATH"));
    const QCommandLineOption shared(
        QStringLiteral("shared-snmpd"),
        QStringLiteral("One snmpd per group of printers with equal agent settings (model, sysobjectid, "
                       "community, snmp, cache, cache-firmware, sysname when given), listening on all their "
                       "addresses; a group answers its first printer's sysName. For thousands of printers."));
    const QCommandLineOption minimal(
        QStringLiteral("minimal-snmpd"),
        QStringLiteral("snmpd starts only the modules the identification reads (system group, overrides, "
                       "access control): ~30 ms and ~1.5 MiB per agent. The full set reads every address of "
                       "the namespace at start and every few seconds after: with hundreds of addresses and "
                       "an agent per printer it keeps both cores busy. For benchmarks."));
    const QCommandLineOption hrDevice(
        QStringLiteral("hr-device"),
        QStringLiteral(
            "Each agent also answers hrDeviceType.1 (.1.3.6.1.2.1.25.3.1.5, a printer) and "
            "hrDeviceDescr.1 (\"Talvo MODEL\"), as a printer's host-resources table does: what "
            "the CUPS snmp backend needs to list a printer. Meant for --minimal-snmpd: the full set "
            "starts snmpd's own host-resources modules, which serve the same table."));
    const QCommandLineOption rawPort(
        QStringLiteral("raw-port"),
        QStringLiteral("Each printer also accepts TCP connections on port 9100 of its address and closes "
                       "them at once, as a printer's raw print port answers a probe."));
    parser.addOptions({help, printer, printersFile, settings, shared, minimal, hrDevice, rawPort});
    const QCommandLineOption walkup(QStringLiteral("walkup"), WalkupPlan::helpText(), QStringLiteral("KEYS"));
    parser.addOption(walkup);
    if (!parser.parse(app.arguments())) {
        error(parser.errorText() + QStringLiteral(" (see --help)"));
        return kBadInput;
    }
    if (parser.isSet(help)) {
        std::fputs(parser.helpText().toLocal8Bit().constData(), stdout);
        return kOk;
    }
    if (!parser.positionalArguments().isEmpty()) {
        error(
            QStringLiteral("unexpected argument %1 (see --help)").arg(parser.positionalArguments().first()));
        return kBadInput;
    }

    Options options;
    options.sharedAgents = parser.isSet(shared);
    options.minimalAgents = parser.isSet(minimal);
    options.hrDevice = parser.isSet(hrDevice);
    options.rawPort = parser.isSet(rawPort);
    for (const QString& text : parser.values(walkup)) {
        Parsed<WalkupPlan> parsed = WalkupPlan::fromOption(text);
        if (!parsed.value) {
            error(parsed.error);
            return kBadInput;
        }
        options.walkups.push_back(std::move(*parsed.value));
    }
    for (const QString& text : parser.values(printer)) {
        Parsed<SimulatedPrinter> parsed = SimulatedPrinter::fromOption(text);
        if (!parsed.value) {
            error(parsed.error);
            return kBadInput;
        }
        options.printers.push_back(std::move(*parsed.value));
    }
    for (const QString& path : parser.values(printersFile)) {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            error(QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
            return kBadInput;
        }
        Parsed<std::vector<SimulatedPrinter>> parsed = SimulatedPrinter::fromJson(file.readAll());
        if (!parsed.value) {
            error(path + QStringLiteral(": ") + parsed.error);
            return kBadInput;
        }
        for (SimulatedPrinter& p : *parsed.value)
            options.printers.push_back(std::move(p));
    }
    if (options.printers.empty()) {
        error(QStringLiteral("no printers given: use --printer or --printers (see --help)"));
        return kBadInput;
    }
    std::set<uint32_t> addresses;
    for (const SimulatedPrinter& p : options.printers) {
        if (!addresses.insert(p.addressValue).second) {
            error(QStringLiteral("two printers have the address %1").arg(p.address));
            return kBadInput;
        }
    }

    for (const WalkupPlan& w : options.walkups) {
        if (!addresses.contains(w.printerValue)) {
            error(QStringLiteral("--walkup printer=%1: no --printer has that address").arg(w.printer));
            return kBadInput;
        }
    }

    // The settings are read only when a printer needs a default object ID.
    std::optional<QVariantMap> settingsMap;
    const QString settingsPath = parser.isSet(settings)
                                     ? parser.value(settings)
                                     : pathForPluginResources() + u'/' + QLatin1StringView(kSettingsFileName);
    for (SimulatedPrinter& p : options.printers) {
        if (!p.sysObjectId.isEmpty())
            continue;
        if (!settingsMap) {
            const std::optional<QVariant> read = plist::readFile(settingsPath);
            if (!read || read->typeId() != QMetaType::QVariantMap) {
                error(QStringLiteral("cannot read the settings %1 (needed for the default sysobjectid; give "
                                     "--settings or sysobjectid=)")
                          .arg(settingsPath));
                return kBadInput;
            }
            settingsMap = read->toMap();
        }
        p.sysObjectId = SimulatedPrinter::defaultObjectId(*settingsMap, p.model);
    }
    return options;
}

// Thousands of printers mean thousands of sockets on the silent ones.
void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        ::setrlimit(RLIMIT_NOFILE, &limit);
    }
}

// The printers' agents: silent sockets, and snmpd children alone or in groups.
QString addAgents(const Options& options, AgentSupervisor& agents)
{
    // Groups in order of their first printer, so agent numbers follow the input.
    std::vector<std::pair<const SimulatedPrinter*, QStringList>> groups;
    std::map<QString, std::size_t> groupOf;
    for (const SimulatedPrinter& p : options.printers) {
        if (p.snmp == SnmpMode::Silent) {
            if (QString e = agents.addSilent(p.address); !e.isEmpty())
                return e;
        }
        if (!p.hasAgent())
            continue;
        const QString key = options.sharedAgents ? p.agentGroupKey() : p.address;
        const auto [found, added] = groupOf.emplace(key, groups.size());
        if (added)
            groups.push_back({&p, {}});
        groups[found->second].second << p.address;
    }
    for (const auto& [first, addresses] : groups) {
        SnmpdConfig config = first->agentConfig();
        if (options.hrDevice) {
            // Device 1 of the host-resources table is the printer itself.
            config.overrides.push_back({QStringLiteral(".1.3.6.1.2.1.25.3.2.1.2.1"),
                                        QStringLiteral("object_id"),
                                        QStringLiteral(".1.3.6.1.2.1.25.3.1.5")});
            config.overrides.push_back({QStringLiteral(".1.3.6.1.2.1.25.3.2.1.3.1"),
                                        QStringLiteral("octet_str"),
                                        SnmpdConfig::quoted(QStringLiteral("Talvo ") + first->model)});
        }
        if (QString e = agents.addAgent(std::move(config), addresses); !e.isEmpty())
            return e;
    }
    return {};
}

// --raw-port: a listening TCP socket on port 9100 of every printer's address.
QString openRawPorts(const Options& options, std::vector<int>& sockets)
{
    constexpr uint16_t kRawPort = 9100;
    for (const SimulatedPrinter& p : options.printers) {
        const int s = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
        if (s < 0)
            return QStringLiteral("socket: ") + QString::fromLocal8Bit(std::strerror(errno));
        sockets.push_back(s);
        const int on = 1;
        sockaddr_in at{};
        at.sin_family = AF_INET;
        at.sin_port = htons(kRawPort);
        at.sin_addr.s_addr = p.addressValue;
        if (::setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0 ||
            ::bind(s, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0 || ::listen(s, 64) != 0)
            return QStringLiteral("cannot listen on TCP %1:%2: %3")
                .arg(p.address)
                .arg(kRawPort)
                .arg(QString::fromLocal8Bit(std::strerror(errno)));
    }
    return {};
}

// Accepts and closes every connection waiting on a raw port.
void acceptAndClose(int socket)
{
    for (int c = 0; (c = ::accept4(socket, nullptr, nullptr, SOCK_CLOEXEC)) >= 0;)
        ::close(c);
}

int serve(const Options& options, int signalFd)
{
    DiscoveryResponder responder(options.printers);
    if (QString e = responder.open(broadcast::sorlenDiscoveryUDPPortNum); !e.isEmpty()) {
        error(e);
        return kFailed;
    }
    WalkupAnnouncer walkup(options.walkups, options.printers);
    if (QString e = walkup.open(); !e.isEmpty()) {
        error(e);
        return kFailed;
    }

    const QTemporaryDir workFolder(QDir::tempPath() + QStringLiteral("/talvo-printer-sim-XXXXXX"));
    if (!workFolder.isValid()) {
        error(QStringLiteral("cannot create a temporary folder: ") + workFolder.errorString());
        return kFailed;
    }
    AgentSupervisor agents(workFolder.path(), options.minimalAgents ? AgentSupervisor::kMinimalModules
                                                                    : AgentSupervisor::kAllModules);
    if (QString e = addAgents(options, agents); !e.isEmpty()) {
        error(e);
        return kFailed;
    }
    std::vector<int> rawPorts;
    const auto closeRawPorts = [&rawPorts] {
        for (int s : rawPorts)
            ::close(s);
    };
    if (options.rawPort) {
        if (QString e = openRawPorts(options, rawPorts); !e.isEmpty()) {
            error(e);
            closeRawPorts();
            return kFailed;
        }
    }
    const std::set<int> rawPortSet(rawPorts.begin(), rawPorts.end());
    const AgentSupervisor::StartResult started = agents.start(signalFd);
    if (started.outcome == AgentSupervisor::Outcome::Interrupted) {
        closeRawPorts();
        return kOk;
    }
    if (started.outcome == AgentSupervisor::Outcome::Failed) {
        error(started.error);
        closeRawPorts();
        return kFailed;
    }

    // Tags of the descriptors in the epoll set: the signals, the discovery
    // socket, and the silent SNMP sockets by their descriptor.
    constexpr uint64_t kSignalTag = ~uint64_t{0};
    constexpr uint64_t kDiscoveryTag = ~uint64_t{0} - 1;
    const int epoll = ::epoll_create1(EPOLL_CLOEXEC);
    const auto watch = [epoll](int fd, uint64_t tag, uint32_t events, int operation) {
        epoll_event event{};
        event.events = events;
        event.data.u64 = tag;
        return ::epoll_ctl(epoll, operation, fd, &event) == 0;
    };
    bool watched = epoll >= 0 && watch(signalFd, kSignalTag, EPOLLIN, EPOLL_CTL_ADD) &&
                   watch(responder.socket(), kDiscoveryTag, EPOLLIN, EPOLL_CTL_ADD);
    for (int s : agents.silentSockets())
        watched = watched && watch(s, static_cast<uint64_t>(s), EPOLLIN, EPOLL_CTL_ADD);
    for (int s : rawPorts)
        watched = watched && watch(s, static_cast<uint64_t>(s), EPOLLIN, EPOLL_CTL_ADD);
    for (int s : walkup.descriptors())
        watched = watched && watch(s, static_cast<uint64_t>(s), EPOLLIN, EPOLL_CTL_ADD);
    if (!watched) {
        error(QStringLiteral("epoll: ") + QString::fromLocal8Bit(std::strerror(errno)));
        if (epoll >= 0)
            ::close(epoll);
        closeRawPorts();
        return kFailed;
    }

    EventLog::ready(static_cast<int>(options.printers.size()), agents.agentCount());
    walkup.start();
    int exitCode = kOk;
    bool writing = false;
    for (bool running = true; running;) {
        epoll_event events[64];
        const int count = ::epoll_wait(epoll, events, 64, -1);
        if (count < 0 && errno != EINTR) {
            error(QStringLiteral("epoll_wait: ") + QString::fromLocal8Bit(std::strerror(errno)));
            exitCode = kFailed;
            break;
        }
        for (int i = 0; i < count; ++i) {
            const uint64_t tag = events[i].data.u64;
            if (tag == kDiscoveryTag) {
                if ((events[i].events & EPOLLIN) != 0)
                    responder.readRequests();
                if ((events[i].events & EPOLLOUT) != 0)
                    responder.sendPendingReplies();
            } else if (tag == kSignalTag) {
                signalfd_siginfo info{};
                while (::read(signalFd, &info, sizeof info) == sizeof info) {
                    if (info.ssi_signo != SIGCHLD)
                        running = false;
                }
                if (QString e = agents.reap(); !e.isEmpty() && running) {
                    error(e);
                    exitCode = kFailed;
                    running = false;
                }
            } else if (walkup.owns(static_cast<int>(tag))) {
                walkup.handle(static_cast<int>(tag));
            } else if (rawPortSet.contains(static_cast<int>(tag))) {
                acceptAndClose(static_cast<int>(tag));
            } else {
                AgentSupervisor::drain(static_cast<int>(tag));
            }
        }
        // Waits for room in the socket's buffer only while replies wait.
        if (writing != responder.hasPendingReplies()) {
            writing = responder.hasPendingReplies();
            watch(responder.socket(), kDiscoveryTag, EPOLLIN | (writing ? EPOLLOUT : 0u), EPOLL_CTL_MOD);
        }
    }
    ::close(epoll);
    closeRawPorts();
    return exitCode;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("talvo-printer-sim"));

    const std::variant<Options, int> parsed = parseOptions(app);
    if (const int* exitCode = std::get_if<int>(&parsed))
        return *exitCode;
    raiseDescriptorLimit();

    // The signals arrive through a descriptor in the poll set; blocked, so
    // none interrupts a half-written event line.
    sigset_t handled;
    ::sigemptyset(&handled);
    for (const int s : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
        ::sigaddset(&handled, s);
    ::sigprocmask(SIG_BLOCK, &handled, nullptr);
    const int signalFd = ::signalfd(-1, &handled, SFD_NONBLOCK | SFD_CLOEXEC);
    if (signalFd < 0) {
        error(QStringLiteral("signalfd: ") + QString::fromLocal8Bit(std::strerror(errno)));
        return kFailed;
    }
    const int exitCode = serve(std::get<Options>(parsed), signalFd);
    ::close(signalFd);
    return exitCode;
}
