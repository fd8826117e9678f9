#pragma once

// Finds Talvo printers and reports each one once, as a printer dictionary, on
// the thread the engine lives on (the GUI's main thread).
//
//     talvo::PrinterDiscoveryEngine engine(settings.value(talvo::kDiscoverySettingsKey).toMap());
//     QObject::connect(&engine, &talvo::PrinterDiscoveryEngine::printerDiscovered,
//                      [](const QVariantMap& printer) { show(printer); });
//     engine.addSubnetsForInterfaces();
//     engine.startDiscovery();     // broadcasts now and every 10 s
//     ...
//     engine.stopDiscovery();
//
// One work thread runs one loop that owns every descriptor and deadline: the
// discovery socket, the walkup socket, the DNS-SD sockets, the one SNMP
// socket every printer is asked through, the usb backend's pipes and a
// wake-up descriptor. Each method (broadcast, Bonjour, walkup, USB) is a
// DiscoveryMethod; what they find goes through plain decision classes
// (BroadcastDiscovery, PrinterIdentification, WalkupExchange) and comes back
// as queued signals, never waited for. Everything a network can make the
// engine keep is bounded (see those classes' constants), and a flood costs
// replies, not memory, a frozen window or a late stop.
//
// Threads: every public method belongs to the engine's own thread. The loop
// thread never calls back into the engine except through queued calls; the
// one lock (Core::m_mutex) guards only the command and event queues and the
// search-target snapshot, and nothing is called while it is held.

#include "discovery/DiscoveryMethod.h"
#include "snmp/SnmpCodec.h"

#include <QObject>
#include <QStringList>
#include <QVariantMap>

#include <cstdint>
#include <memory>

namespace talvo {

class PrinterDiscoveryEngine : public QObject
{
    Q_OBJECT

public:
    // The "DiscoverySettings" dictionary: each switch, the model list, the
    // communities and the user name are taken only when present.
    explicit PrinterDiscoveryEngine(const QVariantMap& discoverySettings, QObject* parent = nullptr);
    // The same, with the CUPS usb backend at another path (tests use scripted ones).
    PrinterDiscoveryEngine(const QVariantMap& discoverySettings, const QString& usbBackendPath,
                           QObject* parent = nullptr);
    ~PrinterDiscoveryEngine() override;

    // A further method of the caller's (tests feed printers through one
    // without a network); started and stopped with the others.
    void addMethod(std::unique_ptr<DiscoveryMethod> method);

    void setPrinterModels(const QStringList& models);
    QStringList printerModels() const { return m_printerModels; }
    void setUserName(const QString& name);
    QString userName() const { return m_userName; }

    // Switches. While discovery runs, switching a method on or off starts or
    // stops it at once; otherwise the next start uses the new value.
    bool bonjourEnabled() const { return m_useBonjour; }
    bool broadcastDiscoveryEnabled() const { return m_useBroadcastDiscovery; }
    bool walkupEnabled() const { return m_useWalkup; }
    bool usbDiscoveryEnabled() const { return m_useUsbDiscovery; }
    void setBonjourEnabled(bool on);
    void setBroadcastDiscoveryEnabled(bool on);
    void setWalkupEnabled(bool on);
    void setUsbDiscoveryEnabled(bool on);

    void startDiscovery();
    // Returns once the work thread has ended: at once, whatever the network does.
    void stopDiscovery();
    bool discoveryStarted() const { return m_discoveryStarted; }

    // Search targets: one per local IPv4 network, plus single addresses or
    // remote broadcast addresses (from the user or learned from printers).
    // A new target is asked at once.
    void addSubnetsForInterfaces();
    void addSearchAddress(uint32_t address);
    void addSubnetForSearch(uint32_t replyAddr, uint32_t broadcastAddr, uint32_t netmask);
    QStringList knownSearchSubnets() const;
    // Sends every target its request now (the loop does so every 10 s).
    void broadcast();

    // Asks the printer at an address typed by the user for its known
    // networks (when broadcast discovery is on). Never blocks.
    void askForKnownNetworks(uint32_t address);

    // The SNMP communities. Setting a value equal to the current one, or one
    // that was never set, changes nothing; saveUserPreferences writes both to the
    // user preferences when one has changed. A failed write is returned (the
    // error names the file and the reason) and the change stays pending, so
    // the next call writes it; with nothing pending it writes nothing.
    QString readCommunity() const { return m_readCommunity; }
    QString writeCommunity() const { return m_writeCommunity; }
    void setReadCommunity(const QString& community);
    void setWriteCommunity(const QString& community);
    Status saveUserPreferences();

    // The OID maps of the identification and known-network queries.
    static const OidMap& printerQueryOids();
    static const OidMap& olderKnownNetworkOids();
    static const OidMap& newerKnownNetworkOids();

    // Figures for the benchmark and tests, as of the loop's last pass.
    struct Statistics
    {
        uint64_t snmpSent = 0;
        uint64_t snmpAnswered = 0;
        uint64_t snmpTimedOut = 0;
        uint64_t snmpSendFailed = 0;
        std::size_t knownPrinters = 0;
        std::size_t searchTargets = 0;
    };
    Statistics statistics() const;

Q_SIGNALS:
    void printerDiscovered(const QVariantMap& printer);
    void usbPrinterDisconnected();
    void printerBeaconed(const QVariantMap& printer);
    // An announcement the walkup listener answered: "ipAddr", "printerModel", "macAddr".
    void walkupAnnounced(const QVariantMap& announcement);
    // The walkup listener stopped on its own (a printer was selected, or its
    // socket failed); `reason` says which.
    void walkupEnded(const QString& reason);

private:
    struct Core;

    void post(std::function<void(Core&)> command);
    void deliverEvents();

    bool m_useBonjour = false;
    bool m_useBroadcastDiscovery = false;
    bool m_useWalkup = false;
    bool m_useUsbDiscovery = false;
    bool m_discoveryStarted = false;
    QStringList m_printerModels;
    QString m_userName;
    QString m_readCommunity;
    QString m_writeCommunity;
    bool m_userSettingsHaveChanged = false;

    std::unique_ptr<Core> m_core;
};

} // namespace talvo
