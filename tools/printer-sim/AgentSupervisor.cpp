#include "printer-sim/AgentSupervisor.h"

#include <QDir>
#include <QFile>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <utility>

namespace talvo::sim {
namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

// Agents starting at once: enough to keep two cores busy.
constexpr int kMaxStarting = 8;
constexpr auto kRetry = 20ms;
constexpr std::chrono::seconds kStallTimeout{30};

QString systemError(const QString& what, int error)
{
    return what + QStringLiteral(": ") + QString::fromLocal8Bit(std::strerror(error));
}

struct Spawned
{
    pid_t pid = -1;
    QString error;
};

// Starts argv with its output appended to `outputPath` (/dev/null when empty)
// in a process group of its own, so signals meant for the simulator's group
// reach it only through stop(). It is killed when the simulator dies.
Spawned spawn(const QStringList& argv, const QString& outputPath)
{
    std::vector<std::string> args;
    for (const QString& a : argv)
        args.push_back(a.toStdString());
    std::vector<char*> cargs;
    for (std::string& a : args)
        cargs.push_back(a.data());
    cargs.push_back(nullptr);
    const std::string output =
        outputPath.isEmpty() ? std::string("/dev/null") : QFile::encodeName(outputPath).toStdString();

    // Tells the parent why exec failed; closed by a successful exec.
    int report[2];
    if (::pipe2(report, O_CLOEXEC) != 0)
        return {-1, systemError(QStringLiteral("pipe"), errno)};
    const pid_t parent = ::getpid();
    const pid_t pid = ::fork();
    if (pid < 0) {
        const int error = errno;
        ::close(report[0]);
        ::close(report[1]);
        return {-1, systemError(QStringLiteral("fork"), error)};
    }
    if (pid == 0) {
        // Only async-signal-safe calls from here to exec.
        sigset_t none;
        ::sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        ::setpgid(0, 0);
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (::getppid() != parent)
            ::_exit(127); // the simulator died before the line above
        const int in = ::open("/dev/null", O_RDONLY);
        const int out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (in < 0 || out < 0 || ::dup2(in, 0) < 0 || ::dup2(out, 1) < 0 || ::dup2(out, 2) < 0) {
            const int error = errno;
            [[maybe_unused]] auto n = ::write(report[1], &error, sizeof error);
            ::_exit(127);
        }
        ::execvp(cargs[0], cargs.data());
        const int error = errno;
        [[maybe_unused]] auto n = ::write(report[1], &error, sizeof error);
        ::_exit(127);
    }
    ::close(report[1]);
    int error = 0;
    ssize_t got = 0;
    do {
        got = ::read(report[0], &error, sizeof error);
    } while (got < 0 && errno == EINTR);
    ::close(report[0]);
    if (got == sizeof error) {
        ::waitpid(pid, nullptr, 0);
        return {-1, systemError(argv.value(0), error)};
    }
    return {pid, {}};
}

QString exitText(int status)
{
    if (WIFEXITED(status))
        return QStringLiteral("exited with status %1").arg(WEXITSTATUS(status));
    if (WIFSIGNALED(status))
        return QStringLiteral("was killed by signal %1").arg(WTERMSIG(status));
    return QStringLiteral("ended");
}

} // namespace

AgentSupervisor::AgentSupervisor(QString workFolder, QString snmpdModules)
    : m_workFolder(std::move(workFolder)), m_snmpdModules(std::move(snmpdModules))
{}

AgentSupervisor::~AgentSupervisor()
{
    stop();
    for (int socket : m_silentSockets)
        ::close(socket);
}

QString AgentSupervisor::addAgent(SnmpdConfig config, const QStringList& addresses)
{
    Agent agent;
    agent.folder = m_workFolder + QStringLiteral("/agent-") + QString::number(m_agents.size() + 1);
    agent.community = config.community;
    agent.queryAddress = addresses.value(0);
    agent.addresses = addresses;
    config.agentAddresses.clear();
    for (const QString& address : addresses)
        config.agentAddresses << QStringLiteral("udp:%1:161").arg(address);
    agent.commandLineAddresses = config.commandLineAddresses();
    config.persistentDir = agent.folder + QStringLiteral("/persistent");
    QFile file(agent.folder + QStringLiteral("/snmpd.conf"));
    const QByteArray text = config.text();
    if (!QDir().mkpath(config.persistentDir) || !file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
        file.write(text) != text.size() || !file.flush())
        return QStringLiteral("cannot write %1: %2").arg(file.fileName(), file.errorString());
    m_agents.push_back(std::move(agent));
    return {};
}

QString AgentSupervisor::addSilent(const QString& address)
{
    sockaddr_in at{};
    at.sin_family = AF_INET;
    at.sin_port = htons(161);
    if (::inet_pton(AF_INET, address.toLatin1().constData(), &at.sin_addr) != 1)
        return QStringLiteral("bad address %1").arg(address);
    const int s = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (s < 0)
        return systemError(QStringLiteral("socket"), errno);
    if (::bind(s, reinterpret_cast<const sockaddr*>(&at), sizeof at) != 0) {
        const int error = errno;
        ::close(s);
        return systemError(QStringLiteral("cannot bind the silent SNMP socket on %1:161").arg(address),
                           error);
    }
    m_silentSockets.push_back(s);
    return {};
}

void AgentSupervisor::drain(int socket)
{
    char buffer[2048];
    while (::recv(socket, buffer, sizeof buffer, MSG_DONTWAIT) >= 0) {
    }
}

QString AgentSupervisor::logOf(const Agent& agent) const
{
    return agent.folder + QStringLiteral("/snmpd.log");
}

QString AgentSupervisor::describe(const Agent& agent, const QString& what) const
{
    QFile file(logOf(agent));
    const QByteArray log = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    const QList<QByteArray> lines = log.trimmed().split('\n');
    const QByteArray tail = lines.mid(std::max<qsizetype>(0, lines.size() - 10)).join('\n');
    QString addresses = agent.addresses.mid(0, 3).join(QStringLiteral(", "));
    if (agent.addresses.size() > 3)
        addresses += QStringLiteral(" and %1 more").arg(agent.addresses.size() - 3);
    return QStringLiteral("snmpd for %1 %2").arg(addresses, what) +
           (tail.isEmpty() ? QString()
                           : QStringLiteral("; end of its log:\n") + QString::fromLocal8Bit(tail));
}

AgentSupervisor::StartResult AgentSupervisor::start(int signalFd)
{
    // Agents start a few at a time: hundreds starting at once would share
    // the processor so thinly that none got ready for a long while. There is
    // no fixed limit on the whole; only a stall is a failure.
    std::size_t next = 0;
    int starting = 0;
    int ready = 0;
    auto lastProgress = Clock::now();
    for (;;) {
        while (next < m_agents.size() && starting < kMaxStarting) {
            Agent& agent = m_agents[next++];
            const QStringList argv{QStringLiteral("snmpd"), QStringLiteral("-f"),
                                   QStringLiteral("-Lo"),   QStringLiteral("-C"),
                                   QStringLiteral("-I"),    m_snmpdModules,
                                   QStringLiteral("-c"),    agent.folder + QStringLiteral("/snmpd.conf")};
            const Spawned spawned = spawn(argv + agent.commandLineAddresses, logOf(agent));
            if (spawned.pid < 0)
                return {Outcome::Failed, QStringLiteral("cannot start snmpd: ") + spawned.error};
            agent.pid = spawned.pid;
            ++starting;
        }

        const auto now = Clock::now();
        for (std::size_t i = 0; i < next; ++i) {
            Agent& agent = m_agents[i];
            if (agent.ready || agent.queryPid != 0 || now < agent.nextQuery)
                continue;
            // snmpd prints its banner once its sockets are open: asking
            // earlier would only wait for snmpget's time-out.
            if (!agent.bannerSeen) {
                QFile log(logOf(agent));
                agent.bannerSeen =
                    log.open(QIODevice::ReadOnly) && log.readAll().contains("NET-SNMP version");
                if (!agent.bannerSeen) {
                    agent.nextQuery = now + kRetry;
                    continue;
                }
            }
            const Spawned query = spawn({QStringLiteral("snmpget"), QStringLiteral("-v1"),
                                         QStringLiteral("-c"), agent.community, QStringLiteral("-r0"),
                                         QStringLiteral("-t0.5"), QStringLiteral("-On"), QStringLiteral("-m"),
                                         QString(), agent.queryAddress, QStringLiteral(".1.3.6.1.2.1.1.5.0")},
                                        QString());
            if (query.pid < 0)
                return {Outcome::Failed, QStringLiteral("cannot run snmpget: ") + query.error};
            agent.queryPid = query.pid;
        }
        if (ready == agentCount())
            return {Outcome::Ready, {}};
        if (now - lastProgress > kStallTimeout) {
            const auto late =
                std::find_if(m_agents.begin(), m_agents.end(), [](const Agent& a) { return !a.ready; });
            return {
                Outcome::Failed,
                describe(*late,
                         QStringLiteral("did not answer snmpget within %1 s").arg(kStallTimeout.count()))};
        }

        pollfd wait{signalFd, POLLIN, 0};
        ::poll(&wait, 1, static_cast<int>(kRetry.count()));
        signalfd_siginfo info{};
        while (::read(signalFd, &info, sizeof info) == sizeof info) {
            if (info.ssi_signo != SIGCHLD)
                return {Outcome::Interrupted, {}};
        }
        const int readyBefore = ready;
        if (QString error = reap(); !error.isEmpty())
            return {Outcome::Failed, error};
        ready = static_cast<int>(
            std::count_if(m_agents.begin(), m_agents.end(), [](const Agent& a) { return a.ready; }));
        starting -= ready - readyBefore;
        if (ready != readyBefore)
            lastProgress = Clock::now();
    }
}

QString AgentSupervisor::reap()
{
    QString error;
    int status = 0;
    pid_t pid = 0;
    while ((pid = ::waitpid(-1, &status, WNOHANG)) > 0) {
        for (Agent& agent : m_agents) {
            if (agent.pid == pid) {
                agent.pid = 0;
                agent.ready = false;
                if (error.isEmpty())
                    error = describe(agent, exitText(status));
            } else if (agent.queryPid == pid) {
                agent.queryPid = 0;
                agent.ready = WIFEXITED(status) && WEXITSTATUS(status) == 0;
                agent.nextQuery = Clock::now() + kRetry;
            }
        }
    }
    return error;
}

void AgentSupervisor::stop(std::chrono::milliseconds grace) noexcept
{
    const auto live = [this] {
        return std::count_if(m_agents.begin(), m_agents.end(), [](const Agent& a) { return a.pid > 0; });
    };
    for (Agent& agent : m_agents) {
        if (agent.queryPid > 0) {
            ::kill(agent.queryPid, SIGKILL);
            ::waitpid(agent.queryPid, nullptr, 0);
            agent.queryPid = 0;
        }
        if (agent.pid > 0)
            ::kill(agent.pid, SIGTERM);
    }
    const auto deadline = Clock::now() + grace;
    for (;;) {
        for (Agent& agent : m_agents) {
            if (agent.pid > 0 && ::waitpid(agent.pid, nullptr, WNOHANG) != 0)
                agent.pid = 0;
        }
        if (live() == 0 || Clock::now() >= deadline)
            break;
        std::this_thread::sleep_for(10ms);
    }
    for (Agent& agent : m_agents) {
        if (agent.pid > 0) {
            ::kill(agent.pid, SIGKILL);
            ::waitpid(agent.pid, nullptr, 0);
            agent.pid = 0;
        }
    }
}

} // namespace talvo::sim
