#include "printer-sim/WalkupAnnouncer.h"
#include "foundation/NetworkAddress.h"
#include "printer-sim/SimSocket.h"

#include "discovery/DatagramSocket.h"
#include "discovery/WalkupPacket.h"
#include "printer-sim/EventLog.h"

#include <QByteArrayList>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>

namespace talvo::sim {
namespace {

using namespace std::chrono_literals;

constexpr char kPrinterKey[] = "printer";
constexpr char kToKey[] = "to";
constexpr char kIntervalKey[] = "interval";
constexpr char kCountKey[] = "count";
constexpr char kSelectKey[] = "select";
constexpr char kSelectAtKey[] = "select-at";
constexpr char kUserKey[] = "user";
constexpr char kStatusKey[] = "status";
constexpr const char* kKeys[] = {kPrinterKey, kToKey,       kIntervalKey, kCountKey,
                                 kSelectKey,  kSelectAtKey, kUserKey,     kStatusKey};

// Simulated printers are Talvo printers; they speak on channel 1.
constexpr char kPrefix[] = "talvo\x01\x01";

std::optional<uint32_t> ipv4(const QString& text)
{
    in_addr parsed{};
    if (::inet_pton(AF_INET, text.toLatin1().constData(), &parsed) != 1)
        return std::nullopt;
    return parsed.s_addr;
}

std::optional<std::chrono::milliseconds> seconds(const QString& value)
{
    bool ok = false;
    const double s = value.toDouble(&ok);
    if (!ok || !std::isfinite(s) || s < 0 || s > 86400)
        return std::nullopt;
    return std::chrono::milliseconds(std::llround(s * 1000));
}

void warn(const QString& message)
{
    std::fprintf(stderr, "talvo-printer-sim: %s\n", message.toLocal8Bit().constData());
}

// One event line; keys in the order given.
class Event
{
public:
    explicit Event(const char* name) { add("event", QLatin1StringView(name)); }
    Event& add(const char* key, const QString& value)
    {
        m_fields << EventLog::jsonString(QLatin1StringView(key)) + ':' + EventLog::jsonString(value);
        return *this;
    }
    Event& add(const char* key, qint64 value)
    {
        m_fields << EventLog::jsonString(QLatin1StringView(key)) + ':' + QByteArray::number(value);
        return *this;
    }
    ~Event()
    {
        const QByteArray line = '{' + m_fields.join(',') + "}\n";
        std::fwrite(line.constData(), 1, static_cast<std::size_t>(line.size()), stdout);
        std::fflush(stdout);
    }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

private:
    QByteArrayList m_fields;
};

timespec absoluteTime(std::chrono::steady_clock::time_point at)
{
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(at.time_since_epoch()).count();
    return {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
}

} // namespace

QString WalkupPlan::helpText()
{
    return QStringLiteral(
        "A printer also takes part in walkup (UDP port 1204; repeatable). Keys: printer=A.B.C.D (required: a "
        "--printer's address; its announcements carry its model, MAC and address and leave from it), "
        "to=A.B.C.D (required: the host's address or a broadcast address the announcements go to), "
        "interval=S (seconds between announcements, default 1; the first goes out when ready), count=N "
        "(announcements in all; default: no end; 0: none), select=S (the selection goes out S seconds after "
        "the first reply, to the host that replied, with the name it sent), select-at=S (the selection goes "
        "out S seconds after ready: to the host that replied if one did, else to the to= address), user=NAME "
        "(the selection's name when no reply came; default walkup), status=TEXT (default 1). Announcements "
        "go on after the selection. Events: "
        "{\"event\":\"walkup-announce\",\"printer\":P,\"to\":A,\"size\":N}; "
        "{\"event\":\"walkup-reply\",\"printer\":P,\"from\":\"A:PORT\",\"user\":NAME,\"ipaddr\":A,\"hex\":"
        "BYTES} "
        "for each host reply received (BYTES the datagram in lower-case hex); "
        "{\"event\":\"walkup-dropped\",\"printer\":P,\"from\":\"A:PORT\",\"size\":N,\"hex\":BYTES} for any "
        "other datagram on port 1204; {\"event\":\"walkup-select\",\"printer\":P,\"to\":A,\"user\":NAME}.");
}

Parsed<WalkupPlan> WalkupPlan::fromOption(const QString& option)
{
    auto fail = [&option](const QString& error) {
        return Parsed<WalkupPlan>{std::nullopt, QStringLiteral("--walkup %1: %2").arg(option, error)};
    };
    std::map<QString, QString> values;
    for (const QString& item : option.split(u',', Qt::SkipEmptyParts)) {
        const qsizetype equals = item.indexOf(u'=');
        if (equals <= 0)
            return fail(QStringLiteral("\"%1\" is not key=value").arg(item));
        const QString key = item.left(equals);
        if (std::none_of(std::begin(kKeys), std::end(kKeys),
                         [&](const char* k) { return key == QLatin1StringView(k); })) {
            QStringList keys;
            for (const char* k : kKeys)
                keys << QLatin1StringView(k);
            return fail(
                QStringLiteral("unknown key \"%1\" (keys: %2)").arg(key, keys.join(QStringLiteral(", "))));
        }
        const QString value = item.mid(equals + 1);
        if (std::any_of(value.begin(), value.end(), [](QChar c) { return c.unicode() < 0x20 || c == u'<'; }))
            return fail(QStringLiteral("%1 holds a control character or '<'").arg(key));
        if (!values.emplace(key, value).second)
            return fail(QStringLiteral("key \"%1\" given twice").arg(key));
    }
    auto take = [&](const char* key) -> std::optional<QString> {
        const auto found = values.find(QLatin1StringView(key));
        return found == values.end() ? std::nullopt : std::optional<QString>(found->second);
    };

    WalkupPlan plan;
    for (const auto& [key, text, value] :
         {std::tuple{kPrinterKey, &plan.printer, &plan.printerValue}, {kToKey, &plan.to, &plan.toValue}}) {
        *text = take(key).value_or(QString());
        const auto address = ipv4(*text);
        if (!address)
            return fail(
                QStringLiteral("%1= must be an IPv4 address, not \"%2\"").arg(QLatin1StringView(key), *text));
        *value = *address;
    }
    if (const auto interval = take(kIntervalKey)) {
        const auto ms = seconds(*interval);
        if (!ms || *ms < 1ms)
            return fail(
                QStringLiteral("interval= must be a number of seconds above 0, not \"%1\"").arg(*interval));
        plan.interval = *ms;
    }
    if (const auto count = take(kCountKey)) {
        bool ok = false;
        plan.count = count->toInt(&ok);
        if (!ok || plan.count < 0)
            return fail(QStringLiteral("count= must be a whole number of 0 or more, not \"%1\"").arg(*count));
    }
    for (const auto& [key, target] :
         {std::pair{kSelectKey, &plan.selectAfterReply}, {kSelectAtKey, &plan.selectAt}}) {
        if (const auto value = take(key)) {
            *target = seconds(*value);
            if (!*target)
                return fail(QStringLiteral("%1= must be a number of seconds, not \"%2\"")
                                .arg(QLatin1StringView(key), *value));
        }
    }
    // An empty value would be missing from the packet: a malformed selection.
    plan.user = take(kUserKey).value_or(plan.user);
    plan.status = take(kStatusKey).value_or(plan.status);
    if (plan.user.isEmpty() || plan.status.isEmpty())
        return fail(QStringLiteral("user= and status= may not be empty"));
    return {plan, {}};
}

WalkupAnnouncer::WalkupAnnouncer(std::vector<WalkupPlan> plans, const std::vector<SimulatedPrinter>& printers)
    : m_printers(printers)
{
    for (WalkupPlan& plan : plans) {
        State state;
        state.plan = std::move(plan);
        m_states.push_back(std::move(state));
    }
}

WalkupAnnouncer::~WalkupAnnouncer()
{
    for (const int fd : {m_socket, m_timer}) {
        if (fd >= 0)
            ::close(fd);
    }
}

QString WalkupAnnouncer::open()
{
    if (m_states.empty())
        return {};
    for (State& state : m_states) {
        const auto printer =
            std::find_if(m_printers.begin(), m_printers.end(), [&](const SimulatedPrinter& p) {
                return p.addressValue == state.plan.printerValue;
            });
        if (printer == m_printers.end())
            return QStringLiteral("--walkup printer=%1: no --printer has that address")
                .arg(state.plan.printer);
        state.printer = &*printer;
    }
    m_socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    m_timer = ::timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
    if (m_socket < 0 || m_timer < 0)
        return QStringLiteral("walkup: ") + QString::fromLocal8Bit(std::strerror(errno));
    const int on = 1;
    sockaddr_in any{};
    any.sin_family = AF_INET;
    any.sin_port = htons(sorlenWalkupUDPPortNum);
    any.sin_addr.s_addr = htonl(INADDR_ANY);
    if (::setsockopt(m_socket, IPPROTO_IP, IP_PKTINFO, &on, sizeof on) != 0 ||
        ::setsockopt(m_socket, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0 ||
        ::bind(m_socket, reinterpret_cast<const sockaddr*>(&any), sizeof any) != 0)
        return QStringLiteral("cannot bind UDP 0.0.0.0:%1: %2")
            .arg(sorlenWalkupUDPPortNum)
            .arg(QString::fromLocal8Bit(std::strerror(errno)));
    return {};
}

std::vector<int> WalkupAnnouncer::descriptors() const
{
    if (m_socket < 0)
        return {};
    return {m_socket, m_timer};
}

void WalkupAnnouncer::start()
{
    const Clock::time_point now = Clock::now();
    for (State& state : m_states) {
        state.announcementsLeft = state.plan.count;
        if (state.plan.count != 0)
            state.nextAnnouncement = now;
        if (state.plan.selectAt)
            state.selection = now + *state.plan.selectAt;
    }
    runDueActions();
    rearm();
}

void WalkupAnnouncer::handle(int fd)
{
    if (fd == m_timer) {
        uint64_t expirations = 0;
        [[maybe_unused]] const auto n = ::read(m_timer, &expirations, sizeof expirations);
        runDueActions();
    } else if (fd == m_socket) {
        readReplies();
    }
    rearm();
}

QByteArray WalkupAnnouncer::packet(const State& state, const QByteArray& tags) const
{
    const QByteArray address = QByteArray::number(ntohl(state.plan.printerValue), 16);
    return QByteArray(kPrefix) + "<ipaddr>0x" + address + "</ipaddr>" + tags;
}

bool WalkupAnnouncer::send(const State& state, const QByteArray& datagram, const sockaddr_in& to)
{
    if (!sendFrom(m_socket, datagram, to, state.plan.printerValue)) {
        warn(QStringLiteral("cannot send the walkup packet of %1 to %2: %3")
                 .arg(state.plan.printer, endpointText(to), QString::fromLocal8Bit(std::strerror(errno))));
        return false;
    }
    return true;
}

void WalkupAnnouncer::runDueActions()
{
    const Clock::time_point now = Clock::now();
    for (State& state : m_states) {
        if (state.nextAnnouncement && *state.nextAnnouncement <= now) {
            const QByteArray datagram =
                packet(state, "<type>0</type><model>" + state.printer->model.toUtf8() + "</model><macaddr>" +
                                  state.printer->mac.toUtf8() + "</macaddr>");
            sockaddr_in to{};
            to.sin_family = AF_INET;
            to.sin_port = htons(sorlenWalkupUDPPortNum);
            to.sin_addr.s_addr = state.plan.toValue;
            if (send(state, datagram, to))
                Event("walkup-announce")
                    .add("printer", state.plan.printer)
                    .add("to", state.plan.to)
                    .add("size", datagram.size());
            if (state.announcementsLeft > 0)
                --state.announcementsLeft;
            state.nextAnnouncement = state.announcementsLeft == 0
                                         ? std::nullopt
                                         : std::optional<Clock::time_point>(now + state.plan.interval);
        }
        if (state.selection && *state.selection <= now) {
            state.selection.reset();
            sockaddr_in to{};
            to.sin_family = AF_INET;
            to.sin_port = htons(sorlenWalkupUDPPortNum);
            to.sin_addr.s_addr = state.replied ? state.replier.sin_addr.s_addr : state.plan.toValue;
            const QString user = state.replied ? state.repliedUser : state.plan.user;
            const QByteArray datagram =
                packet(state, "<type>2</type><user>" + user.toUtf8() + "</user><status>" +
                                  state.plan.status.toUtf8() + "</status>");
            if (send(state, datagram, to))
                Event("walkup-select")
                    .add("printer", state.plan.printer)
                    .add("to", stringForInetAddr(to.sin_addr.s_addr))
                    .add("user", user);
        }
    }
}

void WalkupAnnouncer::rearm()
{
    std::optional<Clock::time_point> next;
    for (const State& state : m_states) {
        for (const auto& at : {state.nextAnnouncement, state.selection}) {
            if (at && (!next || *at < *next))
                next = at;
        }
    }
    itimerspec timer{};
    if (next) {
        timer.it_value = absoluteTime(*next);
        // Zero would disarm the timer: a deadline already past fires at once.
        if (timer.it_value.tv_sec == 0 && timer.it_value.tv_nsec == 0)
            timer.it_value.tv_nsec = 1;
    }
    ::timerfd_settime(m_timer, TFD_TIMER_ABSTIME, &timer, nullptr);
}

void WalkupAnnouncer::readReplies()
{
    // A bounded batch, so signals and the timer get their turn.
    for (int i = 0; i < 64; ++i) {
        const Datagram d = readWithAddresses(m_socket, 65536); // any UDP datagram whole
        if (d.count < 0) {
            if (d.error != EAGAIN && d.error != EINTR)
                warn(QStringLiteral("walkup recvmsg: ") + QString::fromLocal8Bit(std::strerror(d.error)));
            return;
        }
        const QByteArray& datagram = d.bytes;
        const sockaddr_in from = d.sourceAddress();
        const uint32_t destination = d.destination;
        const auto packet =
            WalkupPacket::fromDatagram(datagram, d.source, destination, d.interfaceIndex, u"talvo");
        if (!packet || packet->pktWalkupType != 1) {
            Event("walkup-dropped")
                .add("printer", stringForInetAddr(destination))
                .add("from", endpointText(from))
                .add("size", datagram.size())
                .add("hex", QString::fromLatin1(datagram.toHex()));
            continue;
        }
        const QString user = packet->value(walkupUserNameKey);
        Event("walkup-reply")
            .add("printer", stringForInetAddr(destination))
            .add("from", endpointText(from))
            .add("user", user)
            .add("ipaddr", stringForInetAddr(packet->srcIpAddr))
            .add("hex", QString::fromLatin1(datagram.toHex()));
        const Clock::time_point now = Clock::now();
        for (State& state : m_states) {
            if (state.plan.printerValue != destination || state.replied)
                continue;
            state.replied = true;
            state.replier = from;
            state.repliedUser = user;
            if (state.plan.selectAfterReply && !state.selection)
                state.selection = now + *state.plan.selectAfterReply;
        }
    }
}

} // namespace talvo::sim
