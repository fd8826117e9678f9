#pragma once

// Bonjour discovery: browses "_printer._tcp", resolves each instance once,
// looks its host's IPv4 address up, and evaluates its TXT record. A supported
// model is handed back to be identified over SNMP and announced; a Talvo
// printer of another model only to be asked for the networks it knows.
//
//     talvo::BonjourBrowser bonjour(handlers);
//     bonjour.start();                                    // main thread
//     auto fds = bonjour.descriptors();                   // work thread, each pass
//     bonjour.processReady(readyFds);                     // runs the DNS-SD callbacks
//
// Everything runs on the caller's threads through the DNS-SD sockets: no
// thread or run loop of its own. The host address comes from an A-record
// query on the same daemon connection, so no step ever blocks the work
// thread (a blocking host-name lookup would stall every other method).

#include <QByteArray>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace talvo {

class DNSServiceRefObj;

class BonjourBrowser
{
public:
    static constexpr char printerRegType[] = "_printer._tcp";

    struct Handlers
    {
        // A supported printer to identify over SNMP and announce.
        std::function<void(const QVariantMap& printer, uint32_t address)> identify;
        // A Talvo printer of another model: ask it for its known networks.
        std::function<void(uint32_t address)> learnNetworks;
        std::function<QStringList()> printerModels;
        std::function<bool()> useSorlenDiscovery;
        std::function<bool(uint32_t address)> printerInAnyBroadcast;
    };

    explicit BonjourBrowser(Handlers handlers);
    ~BonjourBrowser();
    BonjourBrowser(const BonjourBrowser&) = delete;
    BonjourBrowser& operator=(const BonjourBrowser&) = delete;

    // Starts the browse; false (and a log line) when the DNS-SD daemon cannot
    // be reached. A restart browses afresh and evaluates every instance again.
    bool start();
    // Ends the browse and every resolve and lookup in progress.
    void stop();
    bool running() const;

    // The sockets to watch, and the ready ones handed back.
    std::vector<int> descriptors() const;
    void processReady(const std::vector<int>& readySockets);

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
    // TXT record) and calls the matching handler.
    void evaluate(const QString& hostName, uint32_t address, const QByteArray& txt);

private:
    struct Entry;
    friend struct BonjourCallbacks;
    void onBrowse(uint32_t interfaceIndex, int32_t error, const char* name, const char* type,
                  const char* domain);
    void onResolve(Entry& entry, uint32_t interfaceIndex, int32_t error, const char* hostTarget,
                   const QByteArray& txt);
    void onAddress(Entry& entry, int32_t error, uint16_t type, uint16_t length, const void* data);

    Handlers m_handlers;
    mutable std::recursive_mutex m_mutex;
    std::list<Entry> m_entries; // the browse, then resolves and lookups in progress
    QSet<QString> m_instancesSeen;
};

} // namespace talvo
