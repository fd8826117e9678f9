#include "discovery/PrinterDiscoveryEngine.h"

#include "discovery/BonjourBrowser.h"
#include "discovery/BroadcastMethod.h"
#include "discovery/DiscoveryLog.h"
#include "discovery/PrinterIdentification.h"
#include "discovery/UsbPrinterMonitor.h"
#include "discovery/WalkupMethod.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/LogThrottle.h"
#include "foundation/NetworkAddress.h"
#include "foundation/Settings.h"
#include "snmp/SnmpTransport.h"

#include <QPointer>

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <mutex>
#include <thread>

namespace talvo {

namespace {

// The loop wakes at least this often with nothing to do, and never waits
// longer for a deadline: a missed wake-up costs at most this much.
constexpr std::chrono::milliseconds kLongestWait{1000};
// Events handed to the engine's thread per turn of its event loop: a burst of
// thousands of printers never holds the window for long.
constexpr std::size_t kEventsPerDelivery = 128;
// Events waiting for the engine's thread. Every printer is reported once, so
// only a stalled client gets here; past it, walkup announcements (which repeat)
// are dropped first.
constexpr std::size_t kMaxQueuedEvents = 20'000;

QString stringSetting(const QVariantMap& settings, Key key)
{
    return settings.contains(key) ? settings.value(key).toString() : QString();
}

} // namespace

// The loop's state. While the work thread runs, only it touches what is below
// m_mutex's members; while it does not, the engine's thread does.
struct PrinterDiscoveryEngine::Core
{
    explicit Core(QString usbBackendPath) : usb(std::move(usbBackendPath)) {}

    BroadcastMethod broadcast;
    BonjourBrowser bonjour;
    WalkupMethod walkup;
    UsbPrinterMonitor usb;
    std::vector<std::unique_ptr<DiscoveryMethod>> extraMethods;
    PrinterIdentification identification;
    snmp::Transport transport;

    bool useBroadcast = false;
    bool useBonjour = false;
    bool useWalkup = false;
    bool useUsb = false;
    bool looping = false; // the work thread runs: commands are queued to it

    int wakeFd = -1;
    std::jthread thread;

    // Shared with the engine's thread.
    mutable std::mutex mutex;
    std::vector<std::function<void(Core&)>> commands;
    std::deque<DiscoveryEvent> events;
    bool deliveryPosted = false;
    QStringList searchSubnets;
    Statistics statistics;
    LogThrottle eventsFullLog;
    std::function<void()> postDelivery; // queues deliverEvents() on the engine's thread

    void wake() const
    {
        const uint64_t one = 1;
        [[maybe_unused]] const auto n = ::write(wakeFd, &one, sizeof one);
    }

    std::vector<DiscoveryMethod*> methods()
    {
        std::vector<DiscoveryMethod*> all{&broadcast, &bonjour, &walkup, &usb};
        for (auto& m : extraMethods)
            all.push_back(m.get());
        return all;
    }

    bool wanted(DiscoveryMethod* method) const
    {
        if (method == &broadcast)
            return useBroadcast;
        if (method == &bonjour)
            return useBonjour;
        if (method == &walkup)
            return useWalkup;
        if (method == &usb)
            return useUsb;
        return true;
    }

    // Starts or stops a method to match its switch.
    void apply(DiscoveryMethod& method, DiscoveryClock::time_point now)
    {
        if (wanted(&method) == method.running())
            return;
        if (!wanted(&method)) {
            method.stop();
            return;
        }
        if (const Status started = method.start(now); !started) {
            qCWarning(lcDiscovery).noquote() << "NSGenericException" << started.message();
            if (&method == &walkup)
                publish({DiscoveryEvent::Kind::WalkupEnded, {}, started.message()});
        }
    }

    // A switch changed on the engine's thread: the method follows at once
    // when the loop runs, else at the next start.
    void setSwitch(bool Core::*flag, DiscoveryMethod& method, bool on)
    {
        this->*flag = on;
        if (looping)
            apply(method, DiscoveryClock::now());
    }

    void startAll(DiscoveryClock::time_point now)
    {
        if (const Status opened = transport.open(); !opened)
            qCWarning(lcDiscovery).noquote() << "NSGenericException" << opened.message();
        for (DiscoveryMethod* m : methods())
            apply(*m, now);
    }

    void stopAll()
    {
        for (DiscoveryMethod* m : methods())
            m->stop();
        transport.close();
        // Identities cut short are forgotten, so the printers are asked again
        // when they next reply.
        PrinterIdentification::Output out;
        for (const snmp::Completion& c : transport.process(DiscoveryClock::now(), false))
            identification.completed(c, DiscoveryClock::now(), out);
        for (const uint32_t address : out.abandoned)
            broadcast.rules().forgetPrinter(address);
        snapshot();
    }

    void run(const std::stop_token& stop)
    {
        std::vector<pollfd> fds;
        while (!stop.stop_requested()) {
            runCommands();
            DiscoveryClock::time_point now = DiscoveryClock::now();
            fds.clear();
            fds.push_back({wakeFd, POLLIN, 0});
            if (transport.descriptor() >= 0)
                fds.push_back({transport.descriptor(), POLLIN, 0});
            std::optional<DiscoveryClock::time_point> deadline = transport.nextDeadline();
            for (DiscoveryMethod* m : methods()) {
                if (!m->running())
                    continue;
                m->addDescriptors(fds);
                if (const auto d = m->nextDeadline(); d && (!deadline || *d < *deadline))
                    deadline = d;
            }
            auto wait = kLongestWait;
            // A deadline already past (time_point::min() included) means at
            // once; never subtract from it, it may be the clock's minimum.
            if (deadline && *deadline <= now)
                wait = std::chrono::milliseconds(0);
            else if (deadline && *deadline - now < kLongestWait)
                wait = std::chrono::ceil<std::chrono::milliseconds>(*deadline - now);
            if (::poll(fds.data(), fds.size(), static_cast<int>(wait.count())) < 0 && errno != EINTR)
                qCWarning(lcDiscovery, "select failed %s", std::strerror(errno));
            if (fds[0].revents & POLLIN) {
                uint64_t count = 0;
                [[maybe_unused]] const auto n = ::read(wakeFd, &count, sizeof count);
            }
            if (stop.stop_requested())
                break;
            now = DiscoveryClock::now();
            for (DiscoveryMethod* m : methods()) {
                if (!m->running())
                    continue;
                MethodOutput out;
                m->process(fds, now, out);
                route(out, now);
            }
            const bool snmpReadable = fds.size() > 1 && fds[1].fd == transport.descriptor() &&
                                      (fds[1].revents & (POLLIN | POLLERR));
            serveTransport(now, snmpReadable);
            snapshot();
        }
    }

    void runCommands()
    {
        std::vector<std::function<void(Core&)>> pending;
        {
            std::lock_guard lock(mutex);
            pending.swap(commands);
        }
        for (auto& command : pending)
            command(*this);
    }

    void route(MethodOutput& out, DiscoveryClock::time_point now)
    {
        for (DiscoveryEvent& e : out.events)
            publish(std::move(e));
        PrinterIdentification::Output asked;
        for (const IdentifyRequest& request : out.identify)
            identification.identify(request, asked);
        for (const uint32_t address : out.learnFrom)
            identification.learnFrom(address, asked);
        follow(asked, now);
    }

    // Sends what the identification rules asked for and hands on what they
    // concluded.
    void follow(PrinterIdentification::Output& out, DiscoveryClock::time_point now)
    {
        for (snmp::Query& query : out.queries) {
            const uint64_t tag = query.tag;
            if (!transport.submit(std::move(query), now))
                identification.refused(tag, out);
        }
        out.queries.clear();
        for (DiscoveryEvent& e : out.events)
            publish(std::move(e));
        for (const uint32_t address : out.answered)
            broadcast.rules().printerAnswered(address);
        for (const uint32_t address : out.abandoned)
            broadcast.rules().forgetPrinter(address);
        for (const uint32_t address : out.learnedNetworks)
            broadcast.addSearchAddress(address, now);
    }

    void serveTransport(DiscoveryClock::time_point now, bool readable)
    {
        // Answers may ask further queries: those go out in the same pass.
        for (int round = 0; round < 2; ++round) {
            PrinterIdentification::Output out;
            for (const snmp::Completion& c : transport.process(now, readable && round == 0))
                identification.completed(c, now, out);
            if (out.queries.empty() && out.events.empty() && out.learnedNetworks.empty() &&
                out.answered.empty() && out.abandoned.empty())
                break;
            follow(out, now);
        }
    }

    // Hands an event to the engine's thread.
    void publish(DiscoveryEvent event)
    {
        bool post = false;
        {
            std::lock_guard lock(mutex);
            if (events.size() >= kMaxQueuedEvents) {
                if (const std::size_t n = eventsFullLog.admit(DiscoveryClock::now()))
                    qCWarning(lcDiscovery) << "engine's client is not keeping up:" << n << "events dropped";
                return;
            }
            events.push_back(std::move(event));
            post = !std::exchange(deliveryPosted, true);
        }
        if (post && postDelivery)
            postDelivery();
    }

    void snapshot()
    {
        const snmp::Transport::Stats& s = transport.stats();
        std::lock_guard lock(mutex);
        searchSubnets = broadcast.rules().knownSearchSubnets();
        statistics = {s.sent,
                      s.answered,
                      s.timedOut,
                      s.sendFailed,
                      broadcast.rules().knownPrinterCount(),
                      broadcast.rules().targets().size()};
    }
};

PrinterDiscoveryEngine::PrinterDiscoveryEngine(const QVariantMap& settings, QObject* parent)
    : PrinterDiscoveryEngine(settings, QString(UsbPrinterMonitor::kUSBBackendPath), parent)
{}

PrinterDiscoveryEngine::PrinterDiscoveryEngine(const QVariantMap& settings, const QString& usbBackendPath,
                                               QObject* parent)
    : QObject(parent), m_core(std::make_unique<Core>(usbBackendPath))
{
    auto flag = [&](Key key, bool& target) {
        if (settings.contains(key))
            target = settings.value(key).toBool();
    };
    flag(useBonjourKey, m_useBonjour);
    flag(useSorlenDiscoveryKey, m_useBroadcastDiscovery);
    flag(useSorlenWalkupKey, m_useWalkup);
    flag(useUSBDiscoveryKey, m_useUsbDiscovery);
    m_readCommunity = stringSetting(settings, snmpCommunityGetKey);
    m_writeCommunity = stringSetting(settings, snmpCommunitySetKey);

    m_core->wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (m_core->wakeFd < 0)
        logSystemError(errno);
    const QPointer<PrinterDiscoveryEngine> self(this);
    m_core->postDelivery = [self] {
        QMetaObject::invokeMethod(
            self.data(),
            [self] {
                if (self)
                    self->deliverEvents();
            },
            Qt::QueuedConnection);
    };
    Core& core = *m_core;
    core.bonjour.setKnownPrinterTest(
        [&core](uint32_t address) { return core.broadcast.rules().printerInAnyBroadcast(address); });
    core.identification.setCommunity(m_readCommunity);
    setPrinterModels(settings.value(discoverPrinterTypesKey).toStringList());
    setUserName(stringSetting(settings, userNameKey));
    post([broadcast = m_useBroadcastDiscovery](Core& c) {
        c.identification.setLearnNetworks(broadcast);
        c.bonjour.setLearnNetworks(broadcast);
    });
}

PrinterDiscoveryEngine::~PrinterDiscoveryEngine()
{
    stopDiscovery();
    m_core->postDelivery = nullptr;
    if (m_core->wakeFd >= 0)
        ::close(m_core->wakeFd);
}

void PrinterDiscoveryEngine::post(std::function<void(Core&)> command)
{
    if (!m_core->looping) {
        command(*m_core);
        return;
    }
    {
        std::lock_guard lock(m_core->mutex);
        m_core->commands.push_back(std::move(command));
    }
    m_core->wake();
}

void PrinterDiscoveryEngine::addMethod(std::unique_ptr<DiscoveryMethod> method)
{
    // Commands are copyable functions: the method travels in a shared box.
    auto box = std::make_shared<std::unique_ptr<DiscoveryMethod>>(std::move(method));
    post([box](Core& c) {
        DiscoveryMethod& added = *c.extraMethods.emplace_back(std::move(*box));
        if (c.looping)
            c.apply(added, DiscoveryClock::now());
    });
}

void PrinterDiscoveryEngine::setPrinterModels(const QStringList& models)
{
    m_printerModels = models;
    post([models](Core& c) {
        c.broadcast.rules().setPrinterModels(models);
        c.bonjour.setPrinterModels(models);
        c.usb.setPrinterModels(models);
    });
}

void PrinterDiscoveryEngine::setUserName(const QString& name)
{
    m_userName = name;
    post([name](Core& c) { c.walkup.setUserName(name); });
}

// --- switches ---------------------------------------------------------------

void PrinterDiscoveryEngine::setBroadcastDiscoveryEnabled(bool on)
{
    m_useBroadcastDiscovery = on;
    post([on](Core& c) {
        c.identification.setLearnNetworks(on);
        c.bonjour.setLearnNetworks(on);
        c.setSwitch(&Core::useBroadcast, c.broadcast, on);
    });
}

void PrinterDiscoveryEngine::setBonjourEnabled(bool on)
{
    m_useBonjour = on;
    post([on](Core& c) { c.setSwitch(&Core::useBonjour, c.bonjour, on); });
}

void PrinterDiscoveryEngine::setWalkupEnabled(bool on)
{
    m_useWalkup = on;
    post([on](Core& c) { c.setSwitch(&Core::useWalkup, c.walkup, on); });
}

void PrinterDiscoveryEngine::setUsbDiscoveryEnabled(bool on)
{
    m_useUsbDiscovery = on;
    post([on](Core& c) { c.setSwitch(&Core::useUsb, c.usb, on); });
}

// --- start and stop ---------------------------------------------------------

void PrinterDiscoveryEngine::startDiscovery()
{
    if (m_discoveryStarted)
        return;
    m_discoveryStarted = true;
    Core& core = *m_core;
    core.useBroadcast = m_useBroadcastDiscovery;
    core.useBonjour = m_useBonjour;
    core.useWalkup = m_useWalkup;
    core.useUsb = m_useUsbDiscovery;
    core.identification.setLearnNetworks(m_useBroadcastDiscovery);
    core.bonjour.setLearnNetworks(m_useBroadcastDiscovery);
    core.startAll(DiscoveryClock::now());
    core.snapshot();
    core.looping = true;
    core.thread = std::jthread([&core](std::stop_token stop) { core.run(stop); });
}

void PrinterDiscoveryEngine::stopDiscovery()
{
    if (!m_discoveryStarted)
        return;
    m_discoveryStarted = false;
    Core& core = *m_core;
    if (core.thread.joinable()) {
        core.thread.request_stop();
        core.wake();
        core.thread.join();
    }
    core.looping = false;
    core.runCommands(); // posted after the loop's last pass
    core.stopAll();
}

// --- search targets ---------------------------------------------------------

void PrinterDiscoveryEngine::addSubnetsForInterfaces()
{
    post([](Core& c) { c.broadcast.addSubnetsForInterfaces(DiscoveryClock::now()); });
}

void PrinterDiscoveryEngine::addSearchAddress(uint32_t address)
{
    post([address](Core& c) { c.broadcast.addSearchAddress(address, DiscoveryClock::now()); });
}

void PrinterDiscoveryEngine::addSubnetForSearch(uint32_t replyAddr, uint32_t broadcastAddr, uint32_t netmask)
{
    post([=](Core& c) {
        c.broadcast.addSearchTarget(BroadcastAddr(replyAddr, broadcastAddr, netmask), DiscoveryClock::now());
    });
}

QStringList PrinterDiscoveryEngine::knownSearchSubnets() const
{
    if (!m_core->looping)
        return m_core->broadcast.rules().knownSearchSubnets();
    std::lock_guard lock(m_core->mutex);
    return m_core->searchSubnets;
}

void PrinterDiscoveryEngine::broadcast()
{
    post([](Core& c) { c.broadcast.broadcast(); });
}

void PrinterDiscoveryEngine::askForKnownNetworks(uint32_t address)
{
    post([address](Core& c) {
        PrinterIdentification::Output out;
        c.identification.learnFrom(address, out);
        c.follow(out, DiscoveryClock::now());
    });
}

PrinterDiscoveryEngine::Statistics PrinterDiscoveryEngine::statistics() const
{
    std::lock_guard lock(m_core->mutex);
    return m_core->statistics;
}

// --- results ----------------------------------------------------------------

void PrinterDiscoveryEngine::deliverEvents()
{
    std::vector<DiscoveryEvent> batch;
    bool more = false;
    {
        std::lock_guard lock(m_core->mutex);
        const std::size_t n = std::min(kEventsPerDelivery, m_core->events.size());
        batch.assign(std::make_move_iterator(m_core->events.begin()),
                     std::make_move_iterator(m_core->events.begin() + static_cast<std::ptrdiff_t>(n)));
        m_core->events.erase(m_core->events.begin(), m_core->events.begin() + static_cast<std::ptrdiff_t>(n));
        more = m_core->deliveryPosted = !m_core->events.empty();
    }
    if (more && m_core->postDelivery)
        m_core->postDelivery(); // the rest after whatever else the window has to do
    const QPointer<PrinterDiscoveryEngine> self(this);
    for (const DiscoveryEvent& e : batch) {
        switch (e.kind) {
        case DiscoveryEvent::Kind::PrinterDiscovered:
            Q_EMIT printerDiscovered(e.printer);
            break;
        case DiscoveryEvent::Kind::PrinterBeaconed:
            Q_EMIT printerBeaconed(e.printer);
            break;
        case DiscoveryEvent::Kind::UsbPrinterDisconnected:
            Q_EMIT usbPrinterDisconnected();
            break;
        case DiscoveryEvent::Kind::WalkupAnnounced:
            Q_EMIT walkupAnnounced(e.printer);
            break;
        case DiscoveryEvent::Kind::WalkupSelected:
            m_useWalkup = false;
            break;
        case DiscoveryEvent::Kind::WalkupEnded:
            m_useWalkup = false;
            Q_EMIT walkupEnded(e.text);
            break;
        }
        if (!self)
            return; // a receiver destroyed the engine
    }
}

// --- SNMP ---------------------------------------------------------------------

const OidMap& PrinterDiscoveryEngine::printerQueryOids()
{
    return PrinterIdentification::printerQueryOids();
}

const OidMap& PrinterDiscoveryEngine::olderKnownNetworkOids()
{
    return PrinterIdentification::olderKnownNetworkOids();
}

const OidMap& PrinterDiscoveryEngine::newerKnownNetworkOids()
{
    return PrinterIdentification::newerKnownNetworkOids();
}

namespace {

// A community that was never set compares equal to anything: it cannot be
// set later. Settings always carry both, so this only guards odd files.
bool replaceCommunity(QString& current, const QString& next)
{
    if (current.isNull() || current == next)
        return false;
    current = next;
    return true;
}

} // namespace

void PrinterDiscoveryEngine::setReadCommunity(const QString& community)
{
    if (!replaceCommunity(m_readCommunity, community))
        return;
    m_userSettingsHaveChanged = true;
    post([community](Core& c) { c.identification.setCommunity(community); });
}

void PrinterDiscoveryEngine::setWriteCommunity(const QString& community)
{
    if (replaceCommunity(m_writeCommunity, community))
        m_userSettingsHaveChanged = true;
}

Status PrinterDiscoveryEngine::saveUserPreferences()
{
    if (!m_userSettingsHaveChanged)
        return Status::ok();
    // The change stays pending until the file holds it: after a failed write
    // the next save, with or without a further change, writes it again.
    const QVariantMap prefs{{snmpCommunityGetKey, m_readCommunity}, {snmpCommunitySetKey, m_writeCommunity}};
    Status written = writeOverrideSettingsDict(prefs);
    if (written)
        m_userSettingsHaveChanged = false;
    return written;
}

} // namespace talvo
