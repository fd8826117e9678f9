#pragma once

// Bonjour discovery as a discovery method: browses "_printer._tcp",
// resolves each instance, looks its host's IPv4 address up, and evaluates its
// TXT record. A supported model is handed on to be identified over SNMP and
// announced; a Talvo printer of another model only to be asked for the
// networks it knows.
//
//     talvo::BonjourBrowser bonjour;
//     bonjour.setPrinterModels(models);
//     bonjour.start(now);                            // the browse
//     ...                                            // the discovery loop polls and calls process()
//
// Everything runs on the loop's thread through the DNS-SD sockets: no thread
// or run loop of its own. The host address comes from an A-record query on
// the same daemon connection, so no step ever blocks the loop. Each resolve
// and look-up has a deadline, and only a bounded number run at once; an
// instance whose resolve or look-up failed, expired or did not fit is tried
// again on its own (see BonjourInstances), and one that went away and came
// back is evaluated afresh.

#include "discovery/BonjourInstances.h"
#include "discovery/DiscoveryMethod.h"

#include "foundation/LogThrottle.h"

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <vector>

namespace talvo {

class DNSServiceRefObj;

class BonjourBrowser : public DiscoveryMethod
{
public:
    static constexpr char printerRegType[] = "_printer._tcp";

    BonjourBrowser();
    ~BonjourBrowser() override;
    BonjourBrowser(const BonjourBrowser&) = delete;
    BonjourBrowser& operator=(const BonjourBrowser&) = delete;

    void setPrinterModels(const QStringList& models) { m_printerModels = models; }
    // With broadcast discovery off, unsupported Talvo printers are not asked
    // for their networks.
    void setLearnNetworks(bool on) { m_learnNetworks = on; }
    // Whether the broadcast discovery already knows a printer at an address.
    void setKnownPrinterTest(std::function<bool(uint32_t address)> known)
    {
        m_isKnownPrinter = std::move(known);
    }

    // Starts the browse; an error when the DNS-SD daemon cannot be reached.
    // A restart browses afresh and evaluates every instance again.
    Status start(DiscoveryClock::time_point now) override;
    // Ends the browse and every resolve and look-up in progress.
    void stop() override;
    bool running() const override;
    void addDescriptors(std::vector<pollfd>& fds) const override;
    std::optional<DiscoveryClock::time_point> nextDeadline() const override;
    void process(std::span<const pollfd> fds, DiscoveryClock::time_point now, MethodOutput& out) override;
    std::size_t pendingLookups() const { return m_instances.pending(); }

    // The model named by a TXT "product" value such as "(TALVO Model 8560)":
    // the parentheses dropped, then the vendor word and its blank when more
    // follows; nullopt when fewer than 8 characters remain in between.
    static std::optional<QString> modelFromProduct(const QByteArray& product, const QString& vendorWithCaps);
    // The manufacturer test: the TXT value, case-insensitively, is an initial
    // part of the vendor name (an empty value matches).
    static bool manufacturerMatches(const QByteArray& usbMfg, const QString& vendorWithCaps);
    // The TXT record's value for `key`, nullopt when absent.
    static std::optional<QByteArray> txtValue(const QByteArray& txt, const char* key);

    // Evaluates a resolved printer (the host name, its IPv4 address and the
    // TXT record) into `out`.
    void evaluate(const QString& hostName, uint32_t address, const QByteArray& txt, MethodOutput& out) const;

private:
    struct Entry;
    friend struct BonjourCallbacks;
    void onBrowse(uint32_t flags, uint32_t interfaceIndex, int32_t error, const char* name, const char* type,
                  const char* domain);
    void onResolve(Entry& entry, uint32_t interfaceIndex, int32_t error, const char* hostTarget,
                   const QByteArray& txt);
    void onAddress(Entry& entry, int32_t error, uint16_t type, uint16_t length, const void* data);
    // Starts resolving a service; a failure to start counts as a failed resolve.
    void resolve(const QString& instance, const BonjourInstances::Service& service);
    // Ends whatever is in progress for an instance, without a verdict.
    void drop(const QString& instance);
    // The entry ended without an evaluation: its instance is tried again later.
    void failed(Entry& entry);

    QStringList m_printerModels;
    bool m_learnNetworks = false;
    std::function<bool(uint32_t)> m_isKnownPrinter;
    std::list<Entry> m_entries; // the browse, then resolves and look-ups in progress
    // Services being evaluated or evaluated, by name, type and domain (a
    // service is reported once per interface it is seen on), with the
    // deadlines and bound of those in progress.
    BonjourInstances m_instances;
    // Set while process() runs the DNS-SD callbacks.
    MethodOutput* m_out = nullptr;
    DiscoveryClock::time_point m_now{};
    LogThrottle m_busyLog;
};

} // namespace talvo
