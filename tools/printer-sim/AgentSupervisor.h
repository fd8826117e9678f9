#pragma once

// The SNMP side of the simulated printers: real snmpd children (one per
// printer, or one per group of printers sharing their settings) and silent
// sockets on port 161 for printers whose agent never answers. The children
// die with the simulator (PR_SET_PDEATHSIG) and are stopped by stop().
//
//     talvo::sim::AgentSupervisor agents(workFolder);
//     if (QString e = agents.addAgent(printer.agentConfig(), {printer.address}); !e.isEmpty()) fail(e);
//     if (QString e = agents.addSilent(otherAddress); !e.isEmpty()) fail(e);
//     auto started = agents.start(signalFd);      // every agent answers snmpget
//     ...
//     QString e = agents.reap();                   // on SIGCHLD: did an agent die?

#include "printer-sim/SnmpdConfig.h"

#include <QString>
#include <QStringList>

#include <sys/types.h>

#include <chrono>
#include <vector>

namespace talvo::sim {

class AgentSupervisor
{
public:
    // Every module but smux, which would want a TCP port of its own.
    static inline const QString kAllModules = QStringLiteral("-smux");
    // What the printers' identification reads: the system group, the
    // overrides, access control. Starts in ~30 ms and ~1.5 MiB whatever the
    // namespace holds; the full set reads every address of the namespace on
    // start (~0.3 s of processor time at 1,000 addresses, per agent).
    static inline const QString kMinimalModules =
        QStringLiteral("system_mib,override,vacm_vars,vacm_conf,snmp_mib");

    // Each agent gets a folder under `workFolder` (config, state, log).
    // `snmpdModules` is snmpd's -I argument: the modules it starts, or with a
    // leading '-' those it leaves out.
    explicit AgentSupervisor(QString workFolder, QString snmpdModules = kAllModules);
    ~AgentSupervisor();
    AgentSupervisor(const AgentSupervisor&) = delete;
    AgentSupervisor& operator=(const AgentSupervisor&) = delete;

    // One snmpd listening on UDP port 161 of every address. The error text,
    // or empty.
    QString addAgent(SnmpdConfig config, const QStringList& addresses);
    // A socket on address:161 that reads every query and answers none.
    QString addSilent(const QString& address);

    int agentCount() const { return static_cast<int>(m_agents.size()); }
    const std::vector<int>& silentSockets() const { return m_silentSockets; }
    // Reads and forgets whatever waits on a silent socket.
    static void drain(int socket);

    enum class Outcome { Ready, Failed, Interrupted };
    struct StartResult
    {
        Outcome outcome = Outcome::Failed;
        QString error;
    };
    // Starts every snmpd and waits until each answers an SNMPv1 GET of
    // sysName.0 on its first address, a few at a time. `signalFd` (a
    // signalfd for SIGCHLD and the stop signals) is read meanwhile: a stop
    // signal interrupts. Fails when no agent gets ready for 30 s.
    StartResult start(int signalFd);

    // Reaps children that ended, marking answered readiness queries; the
    // error text when one was an agent.
    QString reap();

    // SIGTERM to every agent, up to `grace` for them to end, then SIGKILL.
    void stop(std::chrono::milliseconds grace = std::chrono::seconds(2)) noexcept;

private:
    struct Agent
    {
        QString folder;
        QString community;
        QString queryAddress;
        QStringList addresses;
        QStringList commandLineAddresses;
        pid_t pid = 0;
        pid_t queryPid = 0;
        bool bannerSeen = false;
        bool ready = false;
        std::chrono::steady_clock::time_point nextQuery{};
    };

    QString logOf(const Agent& agent) const;
    // "snmpd for ADDRESSES WHAT", and the end of its log.
    QString describe(const Agent& agent, const QString& what) const;

    QString m_workFolder;
    QString m_snmpdModules;
    std::vector<Agent> m_agents;
    std::vector<int> m_silentSockets;
};

} // namespace talvo::sim
