#include "queue/PrinterProbe.h"

#include "foundation/DictionaryKeys.h"
#include "foundation/NetworkAddress.h"
#include "foundation/SystemCommand.h"
#include "queue/QueueLog.h"
#include "snmp/SnmpgetFallback.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <condition_variable>
#include <memory>
#include <vector>

namespace talvo {
namespace {

using Clock = std::chrono::steady_clock;

constexpr uint16_t kRawPrintPort = 9100;
constexpr auto kPort9100Timeout = std::chrono::seconds(5);
// ping's own deadline is 4 s; this only guards against a ping that hangs.
constexpr auto kPingGuard = std::chrono::seconds(8);
// A printer that answers SNMPv1 does so within milliseconds; only one that
// has not by then is asked with the SNMPv3 credentials, so a v1 printer never
// receives them (some agents raise an alarm at unknown users).
constexpr auto kSnmpV3Grace = std::chrono::milliseconds(250);

const QString kSysDescrOid = QStringLiteral(".1.3.6.1.2.1.1.1.0");
const QString kSysObjectIdOid = QStringLiteral(".1.3.6.1.2.1.1.2.0");
const QString kSysContactOid = QStringLiteral(".1.3.6.1.2.1.1.4.0");
const QString kSysNameOid = QStringLiteral(".1.3.6.1.2.1.1.5.0");
const QString kSysLocationOid = QStringLiteral(".1.3.6.1.2.1.1.6.0");

class Fd
{
public:
    explicit Fd(int fd) : m_fd(fd) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    ~Fd()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    int get() const { return m_fd; }

private:
    int m_fd;
};

// Runs a blocking call that cannot be interrupted (a name lookup) on a thread
// of its own, so a stop does not have to wait for it: the caller returns at
// once and the thread drops its late answer.
template <typename T, typename Work> std::optional<T> runAbandonable(Work work, std::stop_token stop)
{
    if (!stop.stop_possible())
        return work();
    struct Shared
    {
        std::mutex mutex;
        std::condition_variable_any done;
        std::optional<T> value;
    };
    auto shared = std::make_shared<Shared>();
    try {
        std::thread([shared, work] {
            T value = work();
            std::lock_guard lock(shared->mutex);
            shared->value = std::move(value);
            shared->done.notify_all();
        }).detach();
    } catch (const std::system_error&) {
        return work(); // no thread to spare: block instead
    }
    std::unique_lock lock(shared->mutex);
    shared->done.wait(lock, stop, [&] { return shared->value.has_value(); });
    return shared->value;
}

std::optional<QString> reverseName(uint32_t address)
{
    sockaddr_in sin{};
    sin.sin_family = AF_INET;
    sin.sin_addr.s_addr = address;
    char host[NI_MAXHOST] = {};
    if (getnameinfo(reinterpret_cast<const sockaddr*>(&sin), sizeof sin, host, sizeof host, nullptr, 0,
                    NI_NAMEREQD) != 0)
        return std::nullopt;
    return QString::fromLocal8Bit(host);
}

std::optional<QString> stoppableReverseName(uint32_t address, std::stop_token stop)
{
    const auto name =
        runAbandonable<std::optional<QString>>([address] { return reverseName(address); }, stop);
    return name ? *name : std::nullopt;
}

ProcessOptions withStop(std::stop_token stop)
{
    ProcessOptions options;
    options.stopToken = std::move(stop);
    return options;
}

// A stop source that follows an outer stop token, for work that the caller
// also ends by itself once the outcome is settled.
class LinkedStop
{
public:
    explicit LinkedStop(const std::stop_token& outer) : m_relay(outer, Relay{&m_source}) {}
    std::stop_token token() const { return m_source.get_token(); }
    void requestStop() { m_source.request_stop(); }

private:
    struct Relay
    {
        std::stop_source* source;
        void operator()() const { source->request_stop(); }
    };
    std::stop_source m_source;
    std::stop_callback<Relay> m_relay;
};

} // namespace

QString probeResultName(ProbeResult result)
{
    switch (result) {
    case ProbeResult::Supported:
        return QStringLiteral("supported");
    case ProbeResult::Unsupported:
        return QStringLiteral("unsupported");
    case ProbeResult::UnknownPrinter:
        return QStringLiteral("unknown-printer");
    case ProbeResult::NotPrinter:
        return QStringLiteral("not-printer");
    case ProbeResult::NoHost:
        return QStringLiteral("no-host");
    case ProbeResult::InvalidAddress:
        break;
    }
    return QStringLiteral("invalid-address");
}

ProbeSettings ProbeSettings::fromPluginSettings(const QVariantMap& settings)
{
    const QVariantMap supported = settings.value(kSupportedPrintersKey).toMap();
    ProbeSettings probe;
    probe.community = settings.value(kDiscoverySettingsKey).toMap().value(snmpCommunityGetKey).toString();
    probe.modelsBySysObjectId = printerModelSNMPOidDict(supported);
    probe.supportedModels = supported.keys();
    return probe;
}

QHash<QString, QString> printerModelSNMPOidDict(const QVariantMap& supportedPrinters)
{
    QHash<QString, QString> table;
    for (auto it = supportedPrinters.cbegin(); it != supportedPrinters.cend(); ++it) {
        const QVariant oids = it.value().toMap().value(kSysObjIDKey);
        if (oids.typeId() == QMetaType::QVariantList || oids.typeId() == QMetaType::QStringList) {
            for (const QVariant& oid : oids.toList())
                table.insert(oid.toString(), it.key());
        } else if (oids.isValid()) {
            table.insert(oids.toString(), it.key());
        }
    }
    return table;
}

std::optional<QString> modelFromSnmpAnswers(const QString& sysObjId, const std::optional<QString>& sysDescr,
                                            const QHash<QString, QString>& modelsBySysObjectId)
{
    std::optional<QString> model;
    if (const auto it = modelsBySysObjectId.constFind(sysObjId); it != modelsBySysObjectId.cend())
        model = *it;
    else if (const auto dotted = modelsBySysObjectId.constFind(u'.' + sysObjId);
             dotted != modelsBySysObjectId.cend())
        model = *dotted;
    qCInfo(lcQueue).noquote() << QStringLiteral("printerSysObjId %1 successfully found for model %2")
                                     .arg(sysObjId, model.value_or(QStringLiteral("(null)")));
    if (!model && sysDescr) {
        const QString piece = sysDescr->section(u';', 0, 0);
        qCInfo(lcQueue).noquote()
            << QStringLiteral("Printer model not found by sysID OID, decomposed sysDescr = %1").arg(piece);
        // An empty piece names nothing: the host is no printer we can name.
        if (!piece.isEmpty())
            model = piece;
    }
    return model;
}

std::optional<uint32_t> resolveManualAddress(const QString& text, std::stop_token stop)
{
    // One rule for a typed address: four decimal octets are the address
    // itself; anything else must be a well-formed host name before it is
    // looked up. So "010.0.0.1" is never read as octal, and "10.x.y.z" or
    // "tcp:h:161" never reaches the resolver.
    if (const auto address = parseIPv4Address(text))
        return address;
    if (!isHostNameText(text))
        return std::nullopt;
    // A name counts only when it resolves both ways, as the pane checks it.
    const auto both = runAbandonable<std::optional<uint32_t>>(
        [text]() -> std::optional<uint32_t> {
            const auto address = ipAddressString2in_addr_t(text);
            if (!address || !reverseName(*address))
                return std::nullopt;
            return address;
        },
        stop);
    return both ? *both : std::nullopt;
}

std::optional<ResolvedAddress> resolveTypedAddress(const QString& text, std::stop_token stop)
{
    if (const auto address = parseIPv4Address(text))
        return ResolvedAddress{*address, stoppableReverseName(*address, stop).value_or(QString())};
    if (!isHostNameText(text))
        return std::nullopt;
    const auto both = runAbandonable<std::optional<ResolvedAddress>>(
        [text]() -> std::optional<ResolvedAddress> {
            const auto address = ipAddressString2in_addr_t(text);
            if (!address)
                return std::nullopt;
            const auto name = reverseName(*address);
            if (!name)
                return std::nullopt;
            return ResolvedAddress{*address, *name};
        },
        stop);
    if (stop.stop_requested() || !both)
        return std::nullopt;
    return *both;
}

QVariantMap manualPrinterDictWithAddress(uint32_t address, std::stop_token stop)
{
    QVariantMap printer{{kIPAddressNumberKey, static_cast<qulonglong>(address)},
                        {kIPAddrStrKey, stringForInetAddr(address)}};
    if (const auto name = stoppableReverseName(address, stop))
        printer.insert(kDnsNameKey, *name);
    printer.insert(kQueueConnectionTypeStrKey, QString(kQueueTypeRawTCP));
    return printer;
}

QStringList pingArguments(uint32_t address)
{
    return {QStringLiteral("ping"), QStringLiteral("-q"), QStringLiteral("-n"), QStringLiteral("-c"),
            QStringLiteral("1"),    QStringLiteral("-w"), QStringLiteral("4"),  stringForInetAddr(address)};
}

bool pingHost(uint32_t address, std::stop_token stop)
{
    ProcessOptions options = withStop(std::move(stop));
    options.timeout = kPingGuard;
    const ProcessResult result = runProcess(pingArguments(address), options);
    if (result.status == ProcessResult::Status::FailedToStart)
        qCWarning(lcQueue).noquote() << "NSGenericException" << result.errorText;
    return result.succeeded();
}

bool connectsOnPort9100(uint32_t address, std::chrono::milliseconds timeout, std::stop_token stop)
{
    Fd socket(::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (socket.get() < 0)
        return false;
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(kRawPrintPort);
    peer.sin_addr.s_addr = address;
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0)
        return true;
    if (errno != EINPROGRESS)
        return false;

    // The stop only pokes the wake-up descriptor; the socket is closed here
    // when this function returns, whichever way.
    Fd wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (wake.get() < 0)
        return false;
    std::stop_callback onStop(stop, [&wake] {
        const uint64_t one = 1;
        [[maybe_unused]] const auto n = ::write(wake.get(), &one, sizeof one);
    });
    const auto deadline = Clock::now() + timeout;
    for (;;) {
        std::array<pollfd, 2> fds{{{socket.get(), POLLIN | POLLOUT, 0}, {wake.get(), POLLIN, 0}}};
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        const int ready = ::poll(fds.data(), fds.size(), static_cast<int>(std::max<long>(0, left.count())));
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready <= 0 || stop.stop_requested() || fds[0].revents == 0)
            return false;
        int error = 0;
        socklen_t length = sizeof error;
        return ::getsockopt(socket.get(), SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error == 0;
    }
}

int findSnmpVersion(const QString& host, const QString& community, std::stop_token stop)
{
    using namespace snmpget;
    constexpr std::array<int, 3> candidates{kVersion1, kVersion3SHA, kVersion3MD5};
    enum class State { Asking, Answered, Silent };

    std::mutex mutex;
    std::condition_variable_any changed;
    std::array<State, 3> states{State::Asking, State::Asking, State::Asking};
    LinkedStop rest(stop);
    int found = kUnknown;
    {
        std::vector<std::jthread> askers;
        for (std::size_t i = 0; i < candidates.size(); ++i) {
            askers.emplace_back([&, i] {
                if (candidates[i] != kVersion1) {
                    std::unique_lock lock(mutex);
                    changed.wait_for(lock, rest.token(), kSnmpV3Grace,
                                     [&] { return states[0] != State::Asking; });
                    if (states[0] == State::Answered || rest.token().stop_requested()) {
                        states[i] = State::Silent;
                        changed.notify_all();
                        return;
                    }
                }
                int version = candidates[i];
                const auto answer = doSNMPQueryOn(host, community, QLatin1StringView(kProbeOid), version,
                                                  withStop(rest.token()));
                std::lock_guard lock(mutex);
                states[i] = answer && !answer->isEmpty() ? State::Answered : State::Silent;
                changed.notify_all();
            });
        }
        // Settled when the first version in order that has not failed has
        // answered, or when all failed: the outcome of asking one by one.
        const auto settled = [&] {
            for (std::size_t i = 0; i < candidates.size(); ++i) {
                if (states[i] == State::Asking)
                    return false;
                if (states[i] == State::Answered) {
                    found = candidates[i];
                    return true;
                }
            }
            found = kNone;
            return true;
        };
        std::unique_lock lock(mutex);
        changed.wait(lock, stop, settled);
        lock.unlock();
        rest.requestStop(); // the versions that can no longer win
    }
    return stop.stop_requested() ? kUnknown : found;
}

std::optional<ProbeOutcome> testForPrinterAtAddress(uint32_t address, const ProbeSettings& settings,
                                                    std::stop_token stop)
{
    qCInfo(lcQueue) << "testForPrinterAtAddress started";
    const QString host = stringForInetAddr(address);
    if (stop.stop_requested())
        return std::nullopt;
    qCInfo(lcQueue) << "Running SNMP Query...";
    QVariantMap answers;
    qCInfo(lcQueue) << "Query done...";

    const int version = findSnmpVersion(host, settings.community, stop);
    if (stop.stop_requested())
        return std::nullopt;
    const auto ask = [&](const QString& oid) {
        int v = version;
        return doSNMPQueryOn(host, settings.community, oid, v, withStop(stop));
    };

    if (const std::optional<QString> sysObjectId = ask(kSysObjectIdOid)) {
        // The four other answers are independent: asked at once.
        const std::array<QString, 4> oids{kSysDescrOid, kSysContactOid, kSysNameOid, kSysLocationOid};
        std::array<std::optional<QString>, 4> values;
        {
            std::vector<std::jthread> askers;
            for (std::size_t i = 0; i < oids.size(); ++i)
                askers.emplace_back([&, i] { values[i] = ask(oids[i]); });
        }
        if (stop.stop_requested())
            return std::nullopt;
        const QString objectId = sysObjectId->startsWith(u'.') ? sysObjectId->mid(1) : *sysObjectId;
        answers.insert(kSNMPObjIDKey, objectId);
        const std::array<Key, 4> keys{kSNMPDescKey, kPrinterContactKey, kDnsNameKey, kPrinterLocationKey};
        for (std::size_t i = 0; i < keys.size(); ++i) {
            if (values[i])
                answers.insert(keys[i], *values[i]);
        }
        qCInfo(lcQueue) << "testForPrinterAtAddress: SNMP query succeeded";

        const auto model = modelFromSnmpAnswers(objectId, values[0], settings.modelsBySysObjectId);
        if (!model) {
            qCInfo(lcQueue) << "printerModel not found by either sysDescr or sysObjID";
            return ProbeOutcome{ProbeResult::NotPrinter, manualPrinterDictWithAddress(address, stop)};
        }
        QVariantMap printer{{kIPAddressNumberKey, static_cast<qulonglong>(address)}, {kIPAddrStrKey, host}};
        printer.insert(answers);
        printer.insert(kPrinterModelStrKey, *model);
        printer.insert(kQueueConnectionTypeStrKey, QString(kQueueTypeRawTCP));
        return ProbeOutcome{settings.supportedModels.contains(*model) ? ProbeResult::Supported
                                                                      : ProbeResult::Unsupported,
                            printer};
    }
    if (stop.stop_requested())
        return std::nullopt;

    // Port 9100 decides first and ping only matters when it fails, but both
    // are started at once so a dead address costs the longer wait, not both.
    qCInfo(lcQueue) << "New printer SNMP Query returned error.";
    std::mutex mutex;
    std::condition_variable_any changed;
    std::optional<bool> connected;
    std::optional<bool> pinged;
    LinkedStop checks(stop);
    {
        std::jthread connecting([&] {
            const bool ok = connectsOnPort9100(address, kPort9100Timeout, checks.token());
            std::lock_guard lock(mutex);
            connected = ok;
            changed.notify_all();
        });
        std::jthread pinging([&] {
            const bool ok = pingHost(address, checks.token());
            std::lock_guard lock(mutex);
            pinged = ok;
            changed.notify_all();
        });
        std::unique_lock lock(mutex);
        changed.wait(lock, stop, [&] { return connected == true || (connected == false && pinged); });
        lock.unlock();
        checks.requestStop();
    }
    if (stop.stop_requested())
        return std::nullopt;

    ProbeResult result = ProbeResult::NoHost;
    if (*connected) {
        qCInfo(lcQueue) << "connect to port 9100 test succeeded";
        result = ProbeResult::UnknownPrinter;
    } else {
        qCInfo(lcQueue) << "connect to port 9100 test failed, pinging";
        qCInfo(lcQueue) << (*pinged ? "ping succeeded" : "ping failed");
        result = *pinged ? ProbeResult::NotPrinter : ProbeResult::NoHost;
    }
    QVariantMap printer = manualPrinterDictWithAddress(address, stop);
    if (stop.stop_requested())
        return std::nullopt;
    return ProbeOutcome{result, printer};
}

std::optional<ProbeOutcome> probeAddressText(const QString& text, const ProbeSettings& settings,
                                             std::stop_token stop)
{
    const auto address = resolveManualAddress(text.trimmed(), stop);
    if (stop.stop_requested())
        return std::nullopt;
    if (!address)
        return ProbeOutcome{};
    return testForPrinterAtAddress(*address, settings, stop);
}

PrinterProbe::PrinterProbe(ProbeSettings settings) : m_settings(std::move(settings)) {}

PrinterProbe::~PrinterProbe()
{
    stop();
}

bool PrinterProbe::start(const QString& addressText, Completion completion)
{
    if (isRunning())
        qCInfo(lcQueue) << "Cancelling running validate thread";
    stop();
    const bool started = m_worker.start(
        [this, addressText](std::stop_token stop) {
            auto outcome = probeAddressText(addressText, m_settings, stop);
            qCInfo(lcQueue) << "validateThreadEntryFunc pthread_cleanup_pop called";
            return outcome;
        },
        std::move(completion));
    if (started)
        qCInfo(lcQueue) << "Validate thread started.";
    return started;
}

void PrinterProbe::stop()
{
    m_worker.stop();
}

bool PrinterProbe::isRunning() const
{
    return m_worker.isRunning();
}

} // namespace talvo
