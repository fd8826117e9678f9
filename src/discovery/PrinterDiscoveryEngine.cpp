#include "discovery/PrinterDiscoveryEngine.h"

#include "discovery/BonjourBrowser.h"
#include "discovery/BroadcastPacket.h"
#include "discovery/DatagramSocket.h"
#include "discovery/DiscoveryLog.h"
#include "discovery/SearchTargetList.h"
#include "discovery/UsbPrinterMonitor.h"
#include "discovery/WalkupListener.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/Log.h"
#include "foundation/NetworkAddress.h"
#include "foundation/QueueNaming.h"
#include "foundation/Settings.h"
#include "snmp/SNMPPump.h"

#include <QMetaMethod>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace talvo {

// SNMP replies may arrive after the engine stopped or even after it is gone
// (another engine's work thread then pumps them): callbacks reach the engine
// only through this, and find it empty once the engine is destroyed.
struct PrinterDiscoveryEngine::Lifeline
{
    std::mutex mutex;
    PrinterDiscoveryEngine* engine = nullptr;
};

namespace {

constexpr std::chrono::seconds kBroadcastInterval{10};
constexpr std::chrono::seconds kPassCap{1};
constexpr int kReplyBufferSize = 1500;

QString stringSetting(const QVariantMap& settings, Key key)
{
    return settings.contains(key) ? settings.value(key).toString() : QString();
}

} // namespace

const OidMap& PrinterDiscoveryEngine::printerQueryOids()
{
    static const OidMap oids{
        {QStringLiteral(".1.3.6.1.2.1.1.1.0"), QString(kSNMPDescKey)},
        {QStringLiteral(".1.3.6.1.2.1.1.2.0"), QString(kSNMPObjIDKey)},
        {QStringLiteral(".1.3.6.1.2.1.1.4.0"), QString(kPrinterContactKey)},
        {QStringLiteral(".1.3.6.1.2.1.1.5.0"), QString(kDnsNameKey)},
        {QStringLiteral(".1.3.6.1.2.1.1.6.0"), QString(kPrinterLocationKey)},
        {QStringLiteral(".1.3.6.1.2.1.43.5.1.1.16.1"), QString(kPrinterNameFromPrtMibKey)},
    };
    return oids;
}

const OidMap& PrinterDiscoveryEngine::M3_0KnownNetworkOIDS()
{
    static const OidMap oids{
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.5.2.99"), QString(CacheEnabledKey)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.100"), QString(AddressCache1Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.101"), QString(AddressCache2Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.102"), QString(AddressCache3Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.103"), QString(AddressCache4Key)},
    };
    return oids;
}

const OidMap& PrinterDiscoveryEngine::M3_5KnownNetworkOIDS()
{
    static const OidMap oids{
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.5.2.22510000"), QString(CacheEnabledKey)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.22521000"), QString(AddressCache1Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.22522000"), QString(AddressCache2Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.22523000"), QString(AddressCache3Key)},
        {QStringLiteral(".1.3.6.1.4.1.58101.8.64.4.2.1.7.2.22524000"), QString(AddressCache4Key)},
    };
    return oids;
}

PrinterDiscoveryEngine::PrinterDiscoveryEngine(const QVariantMap& settings, QObject* parent)
    : PrinterDiscoveryEngine(settings, QString(UsbPrinterMonitor::kUSBBackendPath), parent)
{}

PrinterDiscoveryEngine::PrinterDiscoveryEngine(const QVariantMap& settings, const QString& usbBackendPath,
                                               QObject* parent)
    : QObject(parent), m_broadcastAddressList(std::make_unique<SearchTargetList>()),
      m_usbMonitor(std::make_unique<UsbPrinterMonitor>(usbBackendPath)),
      m_lifeline(std::make_shared<Lifeline>())
{
    // The beaconed printer is reported from the SNMP pump's thread; the end
    // of a walkup session (a printer was selected) from the listener's.
    m_walkup = std::make_unique<WalkupListener>(
        [this](const QVariantMap& printer) {
            QMetaObject::invokeMethod(
                this, [this, printer] { Q_EMIT printerBeaconed(printer); }, Qt::QueuedConnection);
        },
        // A selection follows an announcement: the work thread takes the new
        // SNMP session into its wait at once rather than at its next pass.
        [this](const WalkupPacket&) { wake(); }, [this] { m_useSorlenWalkup = false; });
    m_usbMonitor->setPrinterModels([this] { return printerModels(); });
    m_usbMonitor->setOnPrinterFound([this](const QVariantMap& printer) { announce(printer); });
    m_usbMonitor->setOnPrinterDisconnected([this] {
        QMetaObject::invokeMethod(
            this, [this] { Q_EMIT usbPrinterDisconnected(); }, Qt::QueuedConnection);
    });
    m_lifeline->engine = this;
    BonjourBrowser::Handlers bonjour;
    bonjour.identify = [this](const QVariantMap& printer, uint32_t address) {
        queueSNMPPrinterQuery(printer, true, address);
    };
    bonjour.learnNetworks = [this](uint32_t address) { queueSNMPPrinterQuery(std::nullopt, false, address); };
    bonjour.printerModels = [this] { return printerModels(); };
    bonjour.useSorlenDiscovery = [this] { return m_useSorlenDiscovery.load(); };
    bonjour.printerInAnyBroadcast = [this](uint32_t address) { return printerInAnyBroadcast(address); };
    m_bonjour = std::make_unique<BonjourBrowser>(std::move(bonjour));
    auto flag = [&](Key key, std::atomic<bool>& target) {
        if (settings.contains(key))
            target = settings.value(key).toBool();
    };
    flag(useBonjourKey, m_useBonjour);
    flag(useSorlenDiscoveryKey, m_useSorlenDiscovery);
    flag(useSorlenWalkupKey, m_useSorlenWalkup);
    flag(useUSBDiscoveryKey, m_useUSBDiscovery);
    m_printerModels = settings.value(discoverPrinterTypesKey).toStringList();
    m_snmpCommunityGetStr = stringSetting(settings, snmpCommunityGetKey);
    m_snmpCommunitySetStr = stringSetting(settings, snmpCommunitySetKey);
    m_userName = stringSetting(settings, userNameKey);
    m_wakeFd = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

PrinterDiscoveryEngine::~PrinterDiscoveryEngine()
{
    stopDiscovery();
    {
        std::lock_guard lock(m_lifeline->mutex);
        m_lifeline->engine = nullptr;
    }
    stopSorlenWalkup();
    stopBonjour();
    stopSorlenDiscovery();
    if (m_wakeFd >= 0)
        ::close(m_wakeFd);
}

void PrinterDiscoveryEngine::setPrinterModels(const QStringList& models)
{
    std::lock_guard lock(m_mutex);
    m_printerModels = models;
}

QStringList PrinterDiscoveryEngine::printerModels() const
{
    std::lock_guard lock(m_mutex);
    return m_printerModels;
}

void PrinterDiscoveryEngine::setUserName(const QString& name)
{
    {
        std::lock_guard lock(m_mutex);
        m_userName = name;
    }
    m_walkup->setUserName(name);
}

QString PrinterDiscoveryEngine::userName() const
{
    std::lock_guard lock(m_mutex);
    return m_userName;
}

// --- switches ---------------------------------------------------------------

void PrinterDiscoveryEngine::setSorlenDiscoveryEnabled(bool on)
{
    if (m_discoveryStarted && on != m_useSorlenDiscovery) {
        if (on)
            startSorlenDiscovery();
        else
            stopSorlenDiscovery();
        wake();
    }
    m_useSorlenDiscovery = on;
}

void PrinterDiscoveryEngine::setBonjourEnabled(bool on)
{
    if (m_discoveryStarted && on != m_useBonjour) {
        if (on)
            startBonjour();
        else
            stopBonjour();
        wake(); // the work thread picks up the new set of sockets at once
    }
    m_useBonjour = on;
}

void PrinterDiscoveryEngine::startBonjour()
{
    m_bonjour->start();
}

void PrinterDiscoveryEngine::stopBonjour()
{
    m_bonjour->stop();
}

void PrinterDiscoveryEngine::setSorlenWalkupEnabled(bool on)
{
    if (m_discoveryStarted && on != m_useSorlenWalkup) {
        if (on)
            startSorlenWalkup();
        else
            stopSorlenWalkup();
    }
    m_useSorlenWalkup = on;
}

void PrinterDiscoveryEngine::startSorlenWalkup()
{
    const QString error = m_walkup->start(userName(), snmpGetString());
    if (!error.isEmpty())
        qCWarning(lcDiscovery).noquote() << "NSGenericException" << error;
}

void PrinterDiscoveryEngine::stopSorlenWalkup()
{
    m_walkup->stop();
}

void PrinterDiscoveryEngine::setUseUSBDiscovery(bool on)
{
    // Switched on while running, the monitor polls at its next due time: its
    // schedule is the work thread's, so it is not reset from here.
    m_useUSBDiscovery = on;
}

// --- start and stop ---------------------------------------------------------

namespace {

// Every printer identified over SNMP keeps a session, and so a socket, for
// the life of the process: a network of a thousand printers passes the soft
// limit of 1,024 descriptors of a desktop session. The hard limit is ours to
// take.
void raiseDescriptorLimit()
{
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
            logSystemError(errno);
    }
}

} // namespace

void PrinterDiscoveryEngine::startDiscovery()
{
    if (m_discoveryStarted)
        return;
    raiseDescriptorLimit();
    TALVO_ASSERT(isSignalConnected(QMetaMethod::fromSignal(&PrinterDiscoveryEngine::printerDiscovered)),
                 "startDiscovery: notifyObject is nil");
    if (m_useSorlenDiscovery)
        startSorlenDiscovery();
    if (m_useBonjour)
        startBonjour();
    if (m_useSorlenWalkup)
        startSorlenWalkup();
    if (m_useUSBDiscovery)
        m_usbMonitor->reset(); // the first pass polls at once
    m_discoveryStarted = true;
    m_workThread = std::jthread([this](std::stop_token stop) { discoveryWorkThreadMethod(stop); });
    if (m_useSorlenDiscovery) {
        m_broadCastTimer = new QTimer(this);
        m_broadCastTimer->setInterval(kBroadcastInterval);
        connect(m_broadCastTimer, &QTimer::timeout, this, &PrinterDiscoveryEngine::broadcast);
        m_broadCastTimer->start();
        broadcast(); // the first request goes out at once
    }
}

void PrinterDiscoveryEngine::stopDiscovery()
{
    if (!m_discoveryStarted)
        return;
    {
        // Under the hand-over lock, so a poster waiting for the work thread
        // cannot miss that it will wait no more.
        std::lock_guard lock(m_handOverMutex);
        m_discoveryStarted = false;
    }
    m_handOverFree.notify_all();
    if (m_workThread.joinable()) {
        m_workThread.request_stop();
        wake();
        m_workThread.join();
    }
    if (m_broadCastTimer) {
        m_broadCastTimer->stop();
        m_broadCastTimer->deleteLater();
        m_broadCastTimer = nullptr;
    }
}

void PrinterDiscoveryEngine::startSorlenDiscovery()
{
    if (m_sorlenDiscoverySocket < 0)
        m_sorlenDiscoverySocket = openDiscoverySocket();
}

void PrinterDiscoveryEngine::stopSorlenDiscovery()
{
    const int fd = m_sorlenDiscoverySocket.exchange(-1);
    if (fd >= 0)
        ::close(fd);
}

void PrinterDiscoveryEngine::wake()
{
    const uint64_t one = 1;
    [[maybe_unused]] const auto n = ::write(m_wakeFd, &one, sizeof one);
}

// --- the work thread --------------------------------------------------------

void PrinterDiscoveryEngine::discoveryWorkThreadMethod(std::stop_token stop)
{
    SNMPPump pump;
    while (!stop.stop_requested()) {
        takeManualAddress();
        // The usb backend runs at most every 5 s; the one-second cap of the
        // wait below paces it.
        if (m_useUSBDiscovery)
            m_usbMonitor->runIfDue(std::chrono::steady_clock::now(), stop);
        const int discoverySocket = m_useSorlenDiscovery ? m_sorlenDiscoverySocket.load() : -1;
        std::vector<int> watched{discoverySocket, m_wakeFd};
        const std::vector<int> bonjourSockets = m_useBonjour ? m_bonjour->descriptors() : std::vector<int>();
        watched.insert(watched.end(), bonjourSockets.begin(), bonjourSockets.end());

        const std::vector<int> ready = pump.pass(watched, kPassCap);
        std::vector<int> bonjourReady;
        for (const int fd : ready) {
            if (fd == m_wakeFd) {
                uint64_t count = 0;
                [[maybe_unused]] const auto n = ::read(m_wakeFd, &count, sizeof count);
            } else if (fd == discoverySocket) {
                readSorlenDiscoveryReplies();
            } else {
                bonjourReady.push_back(fd);
            }
        }
        if (!bonjourReady.empty())
            m_bonjour->processReady(bonjourReady);
    }
}

void PrinterDiscoveryEngine::takeManualAddress()
{
    std::unique_lock lock(m_handOverMutex, std::try_to_lock);
    if (!lock.owns_lock() || m_handOverCondition != 1)
        return;
    const uint32_t address = m_manualAddPrinterAddr;
    m_handOverCondition = 0;
    lock.unlock();
    m_handOverFree.notify_all();
    queueSNMPPrinterQuery(std::nullopt, false, address);
}

void PrinterDiscoveryEngine::addPrinterForSearchFromOtherThread(uint32_t address)
{
    std::unique_lock lock(m_handOverMutex);
    // Only a running work thread frees the hand-over: a stopped engine must
    // not block its caller for ever, so it keeps the newest address instead.
    m_handOverFree.wait(lock, [this] { return m_handOverCondition == 0 || !m_discoveryStarted; });
    if (m_handOverCondition == 1)
        qCWarning(lcDiscovery).noquote() << "discovery is stopped; the address"
                                         << stringForInetAddr(m_manualAddPrinterAddr) << "is replaced";
    m_manualAddPrinterAddr = address;
    m_handOverCondition = 1;
    lock.unlock();
    wake();
}

void PrinterDiscoveryEngine::readSorlenDiscoveryReplies()
{
    const int fd = m_sorlenDiscoverySocket;
    for (;;) {
        const Datagram d = readWithAddresses(fd, kReplyBufferSize);
        if (d.count > 0) {
            handleIncomingSorlenDiscoveryPacket(d.bytes, d.source, d.destination);
            continue;
        }
        if (d.count == 0)
            continue;
        if (d.error != EAGAIN)
            qCWarning(lcDiscovery, "readSorlenDiscoveryReplies: readResult = (%d) %s", d.error,
                      strerror(d.error));
        return;
    }
}

void PrinterDiscoveryEngine::handleIncomingSorlenDiscoveryPacket(const QByteArray& datagram, uint32_t source,
                                                                 uint32_t)
{
    const auto reply = broadcast::parseReply(datagram);
    if (!reply) {
        qCDebug(lcDiscovery).noquote()
            << "malformed discovery reply from" << stringForInetAddr(source) << "dropped";
        return;
    }
    QVariantMap printer = broadcast::printerFromReply(*reply);
    printer.insert(kIPAddressNumberKey, static_cast<qulonglong>(source));

    switch (m_broadcastAddressList->offerPrinter(printer, source)) {
    case SearchTargetList::Offer::NoTarget:
        qCWarning(lcDiscovery).noquote()
            << "can't figure out where packet came from:" << stringForInetAddr(source);
        return;
    case SearchTargetList::Offer::Known:
        return;
    case SearchTargetList::Offer::New:
        break;
    }
    const bool supported = printerModels().contains(reply->model);
    queueSNMPPrinterQuery(printer, supported, source);
}

void PrinterDiscoveryEngine::packetStuffTest(uint32_t address, const QString& model, const QString& mac)
{
    // Any address outside the local networks serves as the destination: the
    // lookup goes by the source only.
    handleIncomingSorlenDiscoveryPacket(broadcast::buildReply(model, stringForInetAddr(address), mac),
                                        address, inet_addr("192.0.2.1"));
}

// --- search targets ---------------------------------------------------------

void PrinterDiscoveryEngine::addSubnetsForInterfaces()
{
    ifaddrs* list = nullptr;
    if (::getifaddrs(&list) != 0) {
        logSystemError(errno);
        return;
    }
    for (const ifaddrs* i = list; i; i = i->ifa_next) {
        if (!(i->ifa_flags & (IFF_UP | IFF_BROADCAST | IFF_RUNNING)) || (i->ifa_flags & IFF_LOOPBACK))
            continue;
        // An interface without a netmask gives no network to search.
        if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET || !i->ifa_netmask)
            continue;
        sockaddr_in address{};
        sockaddr_in mask{};
        std::memcpy(&address, i->ifa_addr, sizeof address);
        std::memcpy(&mask, i->ifa_netmask, sizeof mask);
        const uint32_t a = address.sin_addr.s_addr;
        const uint32_t m = mask.sin_addr.s_addr;
        addSubnetForSearch(a, a | ~m, m);
    }
    ::freeifaddrs(list);
}

void PrinterDiscoveryEngine::addBroadCastAddressForSearch(uint32_t address)
{
    // The local address that reaches `address` is the one a connected UDP
    // socket is given; connecting sends nothing.
    uint32_t local = 0;
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        logSystemError(errno);
    } else {
        const int on = 1;
        if (::setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0)
            logSystemError(errno);
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(broadcast::sorlenDiscoveryUDPPortNum);
        to.sin_addr.s_addr = address;
        if (::connect(fd, reinterpret_cast<sockaddr*>(&to), sizeof to) != 0)
            logSystemError(errno);
        sockaddr_in me{};
        socklen_t length = sizeof me;
        if (::getsockname(fd, reinterpret_cast<sockaddr*>(&me), &length) != 0)
            logSystemError(errno);
        local = me.sin_addr.s_addr;
        ::close(fd);
    }
    addSubnetForSearch(local, address, BroadcastAddr::kNoNetmask);
}

void PrinterDiscoveryEngine::addSubnetForSearch(uint32_t replyAddr, uint32_t broadcastAddr, uint32_t netmask)
{
    if (!m_broadcastAddressList->add(BroadcastAddr(replyAddr, broadcastAddr, netmask)))
        return;
    qCDebug(lcDiscovery).noquote() << "search target added:" << stringForInetAddr(broadcastAddr);
    broadcast();
}

QStringList PrinterDiscoveryEngine::knownSearchSubnets() const
{
    return m_broadcastAddressList->knownSearchSubnets();
}

bool PrinterDiscoveryEngine::printerInAnyBroadcast(uint32_t address) const
{
    return m_broadcastAddressList->printerInAnyBroadcast(address);
}

void PrinterDiscoveryEngine::broadcast()
{
    const int fd = m_sorlenDiscoverySocket;
    if (fd < 0)
        return;
    m_broadcastAddressList->sendToAll([fd](const BroadcastAddr& target, const QByteArray& request) {
        sockaddr_in to{};
        to.sin_family = AF_INET;
        to.sin_port = htons(broadcast::sorlenDiscoveryUDPPortNum);
        to.sin_addr.s_addr = target.broadCastAddr();
        const ssize_t sent = ::sendto(fd, request.constData(), static_cast<size_t>(request.size()), 0,
                                      reinterpret_cast<const sockaddr*>(&to), sizeof to);
        return sent < 0 ? errno : 0;
    });
}

// --- SNMP identification ----------------------------------------------------

void PrinterDiscoveryEngine::queueSNMPPrinterQuery(const std::optional<QVariantMap>& printer, bool identify,
                                                   uint32_t address)
{
    const QString community = snmpGetString();
    const std::weak_ptr<Lifeline> lifeline = m_lifeline;
    // Runs a reply handler on the engine if it still exists.
    auto onEngine = [lifeline](auto handler) {
        return [lifeline, handler](SNMPQuery& query, const QVariant&) {
            const auto line = lifeline.lock();
            if (!line)
                return;
            std::lock_guard lock(line->mutex);
            if (line->engine)
                handler(*line->engine, query);
        };
    };
    if (identify) {
        const QVariantMap dictionary = printer.value_or(QVariantMap());
        SNMPQuery::doQueryAsync(
            std::make_unique<SNMPQuery>(address, community, printerQueryOids(),
                                        onEngine([dictionary](PrinterDiscoveryEngine& e, SNMPQuery& q) {
                                            e.newPrinterSnmpQueryReply(q, dictionary);
                                        }),
                                        QVariant(), QStringLiteral("New Printer Query")));
    }
    if (m_useSorlenDiscovery) {
        auto learn =
            onEngine([](PrinterDiscoveryEngine& e, SNMPQuery& q) { e.knownNetworksSnmpQueryReply(q); });
        SNMPQuery::doQueryAsync(std::make_unique<SNMPQuery>(address, community, M3_0KnownNetworkOIDS(), learn,
                                                            QVariant(), QStringLiteral("M3.0 Query")));
        SNMPQuery::doQueryAsync(std::make_unique<SNMPQuery>(address, community, M3_5KnownNetworkOIDS(), learn,
                                                            QVariant(), QStringLiteral("M3.5 Query")));
    }
}

namespace {

bool goodReply(const QVariantMap& result)
{
    return result.value(SNMPQueryOperationResultKey).toInt() == 1 &&
           result.value(SNMPQueryErrorKey).toInt() == 0;
}

} // namespace

void PrinterDiscoveryEngine::newPrinterSnmpQueryReply(SNMPQuery& query, QVariantMap printer)
{
    const QVariantMap& result = query.getResult();
    if (goodReply(result)) {
        for (auto it = result.cbegin(); it != result.cend(); ++it)
            printer.insert(it.key(), it.value());
    }
    uriDescAndQueueNameForSocketPrinter(printer);
    announce(printer);
}

void PrinterDiscoveryEngine::knownNetworksSnmpQueryReply(SNMPQuery& query)
{
    const QVariantMap& result = query.getResult();
    if (!goodReply(result) || !result.contains(CacheEnabledKey) || !result.value(CacheEnabledKey).toBool())
        return;
    // Only the first cache entry is read, four times over; the printers'
    // other entries are fetched but not used. A repeat finds the target known.
    for (int i = 0; i < 4; ++i) {
        if (!result.contains(AddressCache1Key))
            continue;
        const uint32_t address = inet_addr(result.value(AddressCache1Key).toString().toLatin1().constData());
        if (address != 0 && address != INADDR_NONE)
            addBroadCastAddressForSearch(address);
    }
}

void PrinterDiscoveryEngine::announce(const QVariantMap& printer)
{
    QMetaObject::invokeMethod(
        this, [this, printer] { Q_EMIT printerDiscovered(printer); }, Qt::QueuedConnection);
}

// --- SNMP communities -------------------------------------------------------

QString PrinterDiscoveryEngine::snmpGetString() const
{
    std::lock_guard lock(m_mutex);
    return m_snmpCommunityGetStr;
}

QString PrinterDiscoveryEngine::snmpSetString() const
{
    std::lock_guard lock(m_mutex);
    return m_snmpCommunitySetStr;
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

void PrinterDiscoveryEngine::setSnmpGetString(const QString& community)
{
    std::lock_guard lock(m_mutex);
    if (replaceCommunity(m_snmpCommunityGetStr, community))
        m_userSettingsHaveChanged = true;
}

void PrinterDiscoveryEngine::setSnmpSetString(const QString& community)
{
    std::lock_guard lock(m_mutex);
    if (replaceCommunity(m_snmpCommunitySetStr, community))
        m_userSettingsHaveChanged = true;
}

void PrinterDiscoveryEngine::saveUserPrefs()
{
    QVariantMap prefs;
    {
        std::lock_guard lock(m_mutex);
        if (!m_userSettingsHaveChanged)
            return;
        prefs = {{snmpCommunityGetKey, m_snmpCommunityGetStr}, {snmpCommunitySetKey, m_snmpCommunitySetStr}};
        m_userSettingsHaveChanged = false;
    }
    writeOverrideSettingsDict(prefs);
}

} // namespace talvo
