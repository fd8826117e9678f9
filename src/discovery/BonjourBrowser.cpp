#include "discovery/BonjourBrowser.h"

#include "discovery/DiscoveryLog.h"
#include "foundation/DictionaryKeys.h"
#include "foundation/Log.h"
#include "foundation/NetworkAddress.h"
#include "foundation/Settings.h"

#include <dns_sd.h>
#include <poll.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace talvo {

// Owns one DNS-SD reference while its socket is watched.
class DNSServiceRefObj
{
public:
    explicit DNSServiceRefObj(DNSServiceRef ref) : m_serviceRef(ref) {}
    ~DNSServiceRefObj()
    {
        if (m_serviceRef)
            DNSServiceRefDeallocate(m_serviceRef);
    }
    DNSServiceRefObj(const DNSServiceRefObj&) = delete;
    DNSServiceRefObj& operator=(const DNSServiceRefObj&) = delete;

    DNSServiceRef serviceRef() const { return m_serviceRef; }
    int socket() const { return DNSServiceRefSockFD(m_serviceRef); }

private:
    DNSServiceRef m_serviceRef;
};

struct BonjourBrowser::Entry
{
    enum Kind { Browse, Resolve, Lookup } kind = Browse;
    BonjourBrowser* browser = nullptr;
    std::unique_ptr<DNSServiceRefObj> ref;
    QString instance;  // Resolve and Lookup: name, type and domain
    QString hostName;  // Lookup: the host asked for
    QByteArray txt;    // Lookup: the TXT record of the resolved instance
    bool done = false; // answered: removed after the current callback
};

// The DNS-SD replies, with the exact signatures the library calls; each hands
// over to the browser that owns the reference.
struct BonjourCallbacks
{
    static void DNSSD_API browse(DNSServiceRef, DNSServiceFlags flags, uint32_t interfaceIndex,
                                 DNSServiceErrorType error, const char* name, const char* type,
                                 const char* domain, void* context)
    {
        static_cast<BonjourBrowser::Entry*>(context)->browser->onBrowse(flags, interfaceIndex, error, name,
                                                                        type, domain);
    }
    static void DNSSD_API resolve(DNSServiceRef, DNSServiceFlags, uint32_t interfaceIndex,
                                  DNSServiceErrorType error, const char*, const char* hostTarget, uint16_t,
                                  uint16_t txtLength, const unsigned char* txt, void* context)
    {
        auto* entry = static_cast<BonjourBrowser::Entry*>(context);
        entry->browser->onResolve(*entry, interfaceIndex, error, hostTarget,
                                  QByteArray(reinterpret_cast<const char*>(txt), txtLength));
    }
    static void DNSSD_API address(DNSServiceRef, DNSServiceFlags, uint32_t, DNSServiceErrorType error,
                                  const char*, uint16_t type, uint16_t, uint16_t length, const void* data,
                                  uint32_t, void* context)
    {
        auto* entry = static_cast<BonjourBrowser::Entry*>(context);
        entry->browser->onAddress(*entry, error, type, length, data);
    }
};

namespace {

void quietCompatibilityWarnings()
{
    // The compatibility library prints three warning lines per process unless
    // told not to; the user has nothing to do about them.
    static std::once_flag once;
    std::call_once(once, [] { ::setenv("AVAHI_COMPAT_NOWARN", "1", 0); });
}

} // namespace

BonjourBrowser::BonjourBrowser()
{
    quietCompatibilityWarnings();
}

BonjourBrowser::~BonjourBrowser()
{
    stop();
}

Status BonjourBrowser::start(DiscoveryClock::time_point)
{
    if (running())
        return Status::ok();
    m_entries.clear();
    m_instances.clear();
    Entry& entry = m_entries.emplace_back();
    entry.browser = this;
    DNSServiceRef ref = nullptr;
    const DNSServiceErrorType error =
        DNSServiceBrowse(&ref, 0, 0, printerRegType, nullptr, &BonjourCallbacks::browse, &entry);
    if (error != kDNSServiceErr_NoError) {
        m_entries.pop_back();
        return Status::error(QStringLiteral("Error initializing Bonjour browser ref (%1)").arg(error));
    }
    entry.ref = std::make_unique<DNSServiceRefObj>(ref);
    return Status::ok();
}

void BonjourBrowser::stop()
{
    m_entries.clear();
    m_instances.clear();
}

bool BonjourBrowser::running() const
{
    return !m_entries.empty() && m_entries.front().kind == Entry::Browse;
}

void BonjourBrowser::addDescriptors(std::vector<pollfd>& fds) const
{
    for (const Entry& e : m_entries) {
        if (e.ref)
            fds.push_back({e.ref->socket(), POLLIN, 0});
    }
}

std::optional<DiscoveryClock::time_point> BonjourBrowser::nextDeadline() const
{
    return m_instances.nextDeadline();
}

void BonjourBrowser::process(std::span<const pollfd> fds, DiscoveryClock::time_point now, MethodOutput& out)
{
    m_out = &out;
    m_now = now;
    // A resolve or look-up past its deadline is dropped; the service is
    // tried again later.
    for (const QString& instance : m_instances.expired(now)) {
        qCDebug(lcDiscovery).noquote() << "Bonjour look-up expired:" << instance;
        drop(instance);
    }
    // Callbacks add entries and mark answered ones; those are removed after
    // the walk, never while a callback of theirs is running.
    for (Entry& e : m_entries) {
        if (!e.ref || e.done)
            continue;
        if (!isReady(fds, e.ref->socket()))
            continue;
        // The compatibility library's DNSServiceProcessResult blocks reading
        // its socket while holding a lock its own thread needs to write to
        // it: called on a socket with nothing to read, it never returns. Ask
        // the socket itself, now, rather than trust the earlier wait.
        pollfd readable{e.ref->socket(), POLLIN, 0};
        if (::poll(&readable, 1, 0) != 1 || !(readable.revents & POLLIN))
            continue;
        const DNSServiceErrorType error = DNSServiceProcessResult(e.ref->serviceRef());
        if (error != kDNSServiceErr_NoError) {
            qCWarning(lcDiscovery, "DNSServiceProcessResult failed (%d)", error);
            if (e.kind != Entry::Browse)
                failed(e);
        }
    }
    m_entries.remove_if([](const Entry& e) { return e.done; });
    // Services that failed, or found no room, are tried again once due.
    for (const auto& [instance, service] : m_instances.due(now))
        resolve(instance, service);
    m_out = nullptr;
}

void BonjourBrowser::drop(const QString& instance)
{
    for (Entry& e : m_entries) {
        if (e.kind != Entry::Browse && e.instance == instance)
            e.done = true;
    }
}

void BonjourBrowser::failed(Entry& entry)
{
    entry.done = true;
    m_instances.failed(entry.instance, m_now);
}

void BonjourBrowser::onBrowse(uint32_t flags, uint32_t interfaceIndex, int32_t error, const char* name,
                              const char* type, const char* domain)
{
    if (error != kDNSServiceErr_NoError) {
        qCWarning(lcDiscovery, "printerDiscoveredBrowseCallback: got error %d", error);
        return;
    }
    const QString instance = QStringLiteral("%1.%2%3").arg(QString::fromUtf8(name), QString::fromUtf8(type),
                                                           QString::fromUtf8(domain));
    // A service that goes away is forgotten, and a resolve of it in progress
    // dropped, so that when it comes back (with a new address, say) it is
    // evaluated afresh.
    if (!(flags & kDNSServiceFlagsAdd)) {
        drop(instance);
        m_instances.withdrawn(instance);
        return;
    }
    const BonjourInstances::Service service{name, type, domain, interfaceIndex};
    switch (m_instances.announced(instance, service, m_now)) {
    case BonjourInstances::Begin::Resolve:
        break;
    case BonjourInstances::Begin::Known:
        return;
    case BonjourInstances::Begin::Busy:
        if (const std::size_t n = m_busyLog.admit(m_now))
            qCWarning(lcDiscovery).noquote() << "Bonjour look-ups full:" << n << "services left for later";
        return;
    }
    resolve(instance, service);
}

void BonjourBrowser::resolve(const QString& instance, const BonjourInstances::Service& service)
{
    Entry& entry = m_entries.emplace_back();
    entry.kind = Entry::Resolve;
    entry.browser = this;
    entry.instance = instance;
    DNSServiceRef ref = nullptr;
    if (DNSServiceResolve(&ref, 0, service.interfaceIndex, service.name.constData(), service.type.constData(),
                          service.domain.constData(), &BonjourCallbacks::resolve,
                          &entry) != kDNSServiceErr_NoError) {
        qCWarning(lcDiscovery, "Error queueing DNSServiceResolve for %s", service.name.constData());
        failed(entry);
        return;
    }
    entry.ref = std::make_unique<DNSServiceRefObj>(ref);
}

void BonjourBrowser::onResolve(Entry& entry, uint32_t interfaceIndex, int32_t error, const char* hostTarget,
                               const QByteArray& txt)
{
    entry.done = true; // every resolve is one-shot
    if (error != kDNSServiceErr_NoError) {
        qCWarning(lcDiscovery, "bonjourPrinterResolvedCallback: got error %d", error);
        failed(entry);
        return;
    }
    // The host's one IPv4 address, asked of the same daemon.
    Entry& lookup = m_entries.emplace_back();
    lookup.kind = Entry::Lookup;
    lookup.browser = this;
    lookup.instance = entry.instance;
    lookup.hostName = QString::fromLatin1(hostTarget);
    lookup.txt = txt;
    DNSServiceRef ref = nullptr;
    const DNSServiceErrorType status =
        DNSServiceQueryRecord(&ref, 0, interfaceIndex, hostTarget, kDNSServiceType_A, kDNSServiceClass_IN,
                              &BonjourCallbacks::address, &lookup);
    if (status != kDNSServiceErr_NoError) {
        qCWarning(lcDiscovery, "Error looking up the address of %s (%d)", hostTarget, status);
        failed(lookup);
        return;
    }
    lookup.ref = std::make_unique<DNSServiceRefObj>(ref);
}

void BonjourBrowser::onAddress(Entry& entry, int32_t error, uint16_t type, uint16_t length, const void* data)
{
    if (entry.done)
        return; // one address per host: later answers are ignored
    if (error != kDNSServiceErr_NoError || type != kDNSServiceType_A || length != 4) {
        failed(entry);
        return;
    }
    entry.done = true;
    m_instances.evaluated(entry.instance);
    uint32_t address = 0;
    std::memcpy(&address, data, 4);
    if (m_out)
        evaluate(entry.hostName, address, entry.txt, *m_out);
}

std::optional<QByteArray> BonjourBrowser::txtValue(const QByteArray& txt, const char* key)
{
    uint8_t length = 0;
    const void* value =
        TXTRecordGetValuePtr(static_cast<uint16_t>(txt.size()), txt.constData(), key, &length);
    if (!value)
        return std::nullopt;
    return QByteArray(static_cast<const char*>(value), length);
}

std::optional<QString> BonjourBrowser::modelFromProduct(const QByteArray& product,
                                                        const QString& vendorWithCaps)
{
    if (product.size() < 2)
        return std::nullopt;
    QString model = QString::fromLatin1(product.sliced(1, product.size() - 2));
    if (model.size() < 8)
        return std::nullopt;
    const QString prefix = vendorWithCaps.toUpper() + u' ';
    if (!vendorWithCaps.isEmpty() && model.size() > prefix.size() + 1 &&
        model.first(prefix.size()).toUpper() == prefix)
        model.remove(0, prefix.size());
    return model;
}

bool BonjourBrowser::manufacturerMatches(const QByteArray& usbMfg, const QString& vendorWithCaps)
{
    const QString value = QString::fromLatin1(usbMfg);
    return value.size() <= vendorWithCaps.size() &&
           QStringView(vendorWithCaps).first(value.size()).compare(value, Qt::CaseInsensitive) == 0;
}

void BonjourBrowser::evaluate(const QString& hostName, uint32_t address, const QByteArray& txt,
                              MethodOutput& out) const
{
    const auto product = txtValue(txt, txtRecordPrinterModelKey.data());
    if (!product)
        return;
    const QString vendorName = vendorWithCaps();
    const auto model = modelFromProduct(*product, vendorName);
    if (!model)
        return;
    if (m_printerModels.contains(*model)) {
        const QVariantMap printer{{kDnsNameKey, hostName},
                                  {kPrinterModelStrKey, *model},
                                  {kQueueConnectionTypeStrKey, QString(kQueueTypeBonjour)},
                                  {kIPAddrStrKey, stringForInetAddr(address)},
                                  {kIPAddressNumberKey, static_cast<qulonglong>(address)}};
        out.identify.push_back({printer, address, IdentifyRequest::Report::Discovered});
        return;
    }
    if (!m_learnNetworks)
        return;
    const auto manufacturer = txtValue(txt, txtRecordManufacturerKey.data());
    if (manufacturer && manufacturerMatches(*manufacturer, vendorName) &&
        !(m_isKnownPrinter && m_isKnownPrinter(address)))
        out.learnFrom.push_back(address);
}

} // namespace talvo
