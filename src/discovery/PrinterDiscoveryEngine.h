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
// A work thread waits (at most a second per pass, never spinning) on the
// discovery socket, the SNMP library's sockets and a wake-up descriptor; it
// reads replies, identifies new supported printers over SNMP and learns
// further networks from the printers' known-network caches. Results come back
// as queued signals, never waited for.

#include "snmp/SNMPQuery.h"

#include <QObject>
#include <QStringList>
#include <QTimer>
#include <QVariantMap>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

namespace talvo {

class BonjourBrowser;
class SearchTargetList;
class UsbPrinterMonitor;
class WalkupListener;

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

    void setPrinterModels(const QStringList& models);
    QStringList printerModels() const;
    void setUserName(const QString& name);
    QString userName() const;

    // Switches. While discovery runs, switching a method on or off starts or
    // stops it at once (the broadcast timer exists only if broadcast discovery
    // was on at start); otherwise the next start uses the new value.
    bool bonjourEnabled() const { return m_useBonjour; }
    bool sorlenDiscoveryEnabled() const { return m_useSorlenDiscovery; }
    bool sorlenWalkupEnabled() const { return m_useSorlenWalkup; }
    bool useUSBDiscovery() const { return m_useUSBDiscovery; }
    void setBonjourEnabled(bool on);
    void setSorlenDiscoveryEnabled(bool on);
    void setSorlenWalkupEnabled(bool on);
    void setUseUSBDiscovery(bool on);

    void startDiscovery();
    void stopDiscovery();
    bool discoveryStarted() const { return m_discoveryStarted; }

    // Search targets: one per local IPv4 network, plus single addresses or
    // remote broadcast addresses (from the user or learned from printers).
    // A new target is asked at once.
    void addSubnetsForInterfaces();
    void addBroadCastAddressForSearch(uint32_t address);
    void addSubnetForSearch(uint32_t replyAddr, uint32_t broadcastAddr, uint32_t netmask);
    QStringList knownSearchSubnets() const;
    bool printerInAnyBroadcast(uint32_t address) const;
    // Sends one request to every target (the 10-second timer calls it).
    void broadcast();

    // Hands an address typed by the user to the work thread, which asks the
    // printer there for its known networks. A second call waits until the
    // work thread has taken the first.
    void addPrinterForSearchFromOtherThread(uint32_t address);

    // The SNMP communities. Setting a value equal to the current one, or one
    // that was never set, changes nothing; saveUserPrefs writes both to the
    // user preferences when one has changed.
    QString snmpGetString() const;
    QString snmpSetString() const;
    void setSnmpGetString(const QString& community);
    void setSnmpSetString(const QString& community);
    void saveUserPrefs();

    // Identification of a printer at `address`: with `identify`, the printer
    // dictionary is completed over SNMP and announced; with broadcast
    // discovery on, the printer is also asked for its known networks.
    void queueSNMPPrinterQuery(const std::optional<QVariantMap>& printer, bool identify, uint32_t address);

    // The OID maps of the identification and known-network queries.
    static const OidMap& printerQueryOids();
    static const OidMap& M3_0KnownNetworkOIDS();
    static const OidMap& M3_5KnownNetworkOIDS();

    // Feeds a reply through the same path as one read from the network.
    void handleIncomingSorlenDiscoveryPacket(const QByteArray& datagram, uint32_t source,
                                             uint32_t destination);
    void packetStuffTest(uint32_t address, const QString& model, const QString& mac);

Q_SIGNALS:
    void printerDiscovered(const QVariantMap& printer);
    void usbPrinterDisconnected();
    void printerBeaconed(const QVariantMap& printer);

private:
    struct Lifeline;

    void startBonjour();
    void stopBonjour();
    void startSorlenWalkup();
    void stopSorlenWalkup();
    void startSorlenDiscovery();
    void stopSorlenDiscovery();
    void discoveryWorkThreadMethod(std::stop_token stop);
    void takeManualAddress();
    void readSorlenDiscoveryReplies();
    void wake();
    void announce(const QVariantMap& printer);
    void newPrinterSnmpQueryReply(SNMPQuery& query, QVariantMap printer);
    void knownNetworksSnmpQueryReply(SNMPQuery& query);

    std::atomic<bool> m_useBonjour = false;
    std::atomic<bool> m_useSorlenDiscovery = false;
    std::atomic<bool> m_useSorlenWalkup = false;
    std::atomic<bool> m_useUSBDiscovery = false;
    std::atomic<bool> m_discoveryStarted = false;

    mutable std::mutex m_mutex; // models, user name and communities
    QStringList m_printerModels;
    QString m_userName;
    QString m_snmpCommunityGetStr;
    QString m_snmpCommunitySetStr;
    bool m_userSettingsHaveChanged = false;

    std::unique_ptr<SearchTargetList> m_broadcastAddressList;
    std::unique_ptr<BonjourBrowser> m_bonjour;
    // Owned for the engine's life: the printers it reported stay known across
    // restarts, so a printer is announced once.
    std::unique_ptr<UsbPrinterMonitor> m_usbMonitor;
    std::unique_ptr<WalkupListener> m_walkup;
    std::atomic<int> m_sorlenDiscoverySocket = -1;
    QTimer* m_broadCastTimer = nullptr;

    // The manual address hand-over: condition 0 = free, 1 = an address waits.
    std::mutex m_handOverMutex;
    std::condition_variable m_handOverFree;
    int m_handOverCondition = 0;
    uint32_t m_manualAddPrinterAddr = 0;

    int m_wakeFd = -1;
    std::jthread m_workThread;
    // Shared with the SNMP callbacks, which may outlive a stopped engine.
    std::shared_ptr<Lifeline> m_lifeline;
};

} // namespace talvo
