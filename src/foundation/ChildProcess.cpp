#include "foundation/ChildProcess.h"

#include "foundation/Log.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>

extern char** environ;

namespace talvo {
namespace {

using namespace std::chrono_literals;

// One call reads at most this much per stream, so a program flooding its
// output cannot hold the caller's loop; the rest waits for the next call.
constexpr qsizetype kReadPerCall = 64 * 1024;
// After SIGKILL a program normally dies at once; one stuck in the kernel (a
// hung USB transfer) is given up on after this long and reaped later.
constexpr auto kKillGrace = 2s;
// How long the destructor waits for a killed program to die before leaving
// it to be reaped later: long enough for a normal death, short for a loop.
constexpr auto kReapWait = 50ms;

QString systemError(const char* what, int error)
{
    return QStringLiteral("%1: %2").arg(QString::fromLocal8Bit(what),
                                        QString::fromLocal8Bit(std::strerror(error)));
}

void closeFd(int& fd)
{
    if (fd >= 0)
        ::close(fd);
    fd = -1;
}

// --- resource limits --------------------------------------------------------

// Every limit this process might change while running; the children get the
// value each had when the process started.
constexpr std::array<int, 1> kRestoredLimits{RLIMIT_NOFILE};
using StartLimits = std::array<std::optional<rlimit>, kRestoredLimits.size()>;

StartLimits recordStartLimits()
{
    StartLimits limits;
    for (std::size_t i = 0; i < kRestoredLimits.size(); ++i) {
        rlimit value{};
        if (::getrlimit(kRestoredLimits[i], &value) == 0)
            limits[i] = value;
    }
    return limits;
}

// Recorded by a static initialiser, which runs before main() in every program
// that links this file, that is every program that starts another: no main()
// can forget an explicit call, and nothing has changed a limit yet.
const StartLimits g_startLimits = recordStartLimits();

// The start limit, except that a hard limit lowered since cannot be raised
// again without privilege, and the soft limit never exceeds the hard one.
rlimit limitForChild(const rlimit& start, const rlimit& current)
{
    const rlim_t hard = std::min(start.rlim_max, current.rlim_max);
    return rlimit{std::min(start.rlim_cur, hard), hard};
}

// posix_spawn cannot set a limit in the child, so a limit that differs from
// its start value is set back in this process for the moment of the spawn and
// restored afterwards. Spawns are serialised so that none sees another's
// temporary values. While the start limit is in force another thread opening
// a descriptor above it fails; this only happens if something raised a limit
// after start-up, which none of our code does any more, and is preferred to a
// hand-written vfork child.
std::mutex g_spawnMutex;

class StartLimitsDuringSpawn
{
public:
    StartLimitsDuringSpawn() : m_lock(g_spawnMutex)
    {
        for (std::size_t i = 0; i < kRestoredLimits.size(); ++i) {
            rlimit current{};
            if (!g_startLimits[i] || ::getrlimit(kRestoredLimits[i], &current) != 0)
                continue;
            const rlimit wanted = limitForChild(*g_startLimits[i], current);
            if (wanted.rlim_cur == current.rlim_cur && wanted.rlim_max == current.rlim_max)
                continue;
            if (::setrlimit(kRestoredLimits[i], &wanted) == 0)
                m_restore[i] = current;
            else
                qCWarning(lcFoundation).noquote()
                    << systemError("cannot set a start limit for a child", errno);
        }
    }
    ~StartLimitsDuringSpawn()
    {
        for (std::size_t i = 0; i < kRestoredLimits.size(); ++i) {
            if (m_restore[i] && ::setrlimit(kRestoredLimits[i], &*m_restore[i]) != 0)
                qCWarning(lcFoundation).noquote() << systemError("cannot restore a resource limit", errno);
        }
    }
    StartLimitsDuringSpawn(const StartLimitsDuringSpawn&) = delete;
    StartLimitsDuringSpawn& operator=(const StartLimitsDuringSpawn&) = delete;

private:
    std::unique_lock<std::mutex> m_lock;
    StartLimits m_restore;
};

// --- programs that would not die ----------------------------------------------

// A killed program still in the kernel when its owner gave up on it; each
// start tries again to reap them, so they do not stay zombies for ever.
std::mutex g_stragglersMutex;
std::vector<pid_t> g_stragglers;

void reapStragglers()
{
    const std::lock_guard lock(g_stragglersMutex);
    std::erase_if(g_stragglers, [](pid_t pid) { return ::waitpid(pid, nullptr, WNOHANG) != 0; });
}

void reapLater(pid_t pid)
{
    const std::lock_guard lock(g_stragglersMutex);
    g_stragglers.push_back(pid);
}

// --- spawning -----------------------------------------------------------------

struct Spawned
{
    pid_t pid = -1;
    int pidfd = -1;
    std::array<int, 2> streams{-1, -1}; // read ends of standard output and error
};

// The one place a program is started. Standard input is /dev/null; standard
// output and error go to pipes; every other descriptor is closed in the child,
// close-on-exec or not, since a library may have left one without. The child
// leads its own process group, so a kill reaches whatever it starts, with
// every signal at its default and none blocked.
std::optional<Spawned> spawn(const QStringList& argv, QString* error)
{
    auto fail = [error](QString text) -> std::optional<Spawned> {
        if (error)
            *error = std::move(text);
        return std::nullopt;
    };
    if (argv.isEmpty())
        return fail(QStringLiteral("no program to run"));

    std::vector<std::string> args;
    args.reserve(static_cast<std::size_t>(argv.size()));
    for (const QString& a : argv)
        args.push_back(a.toStdString());
    std::vector<char*> cargs;
    for (auto& a : args)
        cargs.push_back(a.data());
    cargs.push_back(nullptr);

    int out[2] = {-1, -1};
    int err[2] = {-1, -1};
    if (::pipe2(out, O_CLOEXEC) != 0 || ::pipe2(err, O_CLOEXEC) != 0) {
        const int e = errno;
        for (int fd : {out[0], out[1], err[0], err[1]}) {
            if (fd >= 0)
                ::close(fd);
        }
        return fail(systemError("cannot create pipes", e));
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigdefault(&attributes, &all);
    sigset_t none;
    sigemptyset(&none);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);

    pid_t pid = -1;
    int spawnError = 0;
    {
        const StartLimitsDuringSpawn limits;
        spawnError = ::posix_spawnp(&pid, cargs[0], &actions, &attributes, cargs.data(), environ);
    }
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    closeFd(out[1]);
    closeFd(err[1]);
    if (spawnError != 0) {
        closeFd(out[0]);
        closeFd(err[0]);
        return fail(systemError(cargs[0], spawnError));
    }

    // The end is watched through a process descriptor, so a program that
    // leaves something running with the pipes open still counts as done.
    // Without one there would be nothing to wait on: the program is undone.
    const int pidfd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
    if (pidfd < 0) {
        const int e = errno;
        ::kill(-pid, SIGKILL);
        while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
        }
        closeFd(out[0]);
        closeFd(err[0]);
        return fail(systemError("cannot watch the program", e));
    }
    for (int fd : {out[0], err[0]})
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
    return Spawned{pid, pidfd, {out[0], err[0]}};
}

} // namespace

// --- ChildProcess ---------------------------------------------------------------

std::unique_ptr<ChildProcess> ChildProcess::start(const QStringList& argv, std::chrono::milliseconds timeout,
                                                  Clock::time_point now, QString* error,
                                                  qsizetype outputLimit)
{
    reapStragglers();
    const std::optional<Spawned> s = spawn(argv, error);
    if (!s)
        return nullptr;
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point::max() - now);
    const Clock::time_point deadline = timeout >= left ? Clock::time_point::max() : now + timeout;
    return std::unique_ptr<ChildProcess>(
        new ChildProcess(s->pid, s->pidfd, s->streams[0], s->streams[1], deadline, outputLimit));
}

ChildProcess::ChildProcess(pid_t pid, int pidfd, int output, int error, Clock::time_point deadline,
                           qsizetype outputLimit)
    : m_pid(pid), m_pidfd(pidfd), m_streams{output, error}, m_deadline(deadline),
      m_outputLimit(std::max<qsizetype>(outputLimit, 0))
{}

ChildProcess::~ChildProcess()
{
    // The group is only killed while the program is unreaped: until then its
    // id cannot be reused, so the signal cannot reach a stranger.
    if (!m_reaped) {
        ::kill(-m_pid, SIGKILL);
        pollfd fd{m_pidfd, POLLIN, 0};
        ::poll(&fd, 1, static_cast<int>(kReapWait.count()));
        if (!reap())
            reapLater(m_pid);
    }
    closeStreams();
    closeFd(m_pidfd);
}

std::vector<int> ChildProcess::descriptors() const
{
    std::vector<int> fds;
    if (m_state == State::Finished)
        return fds;
    for (int fd : m_streams) {
        if (fd >= 0)
            fds.push_back(fd);
    }
    if (m_pidfd >= 0)
        fds.push_back(m_pidfd);
    return fds;
}

ChildProcess::Clock::time_point ChildProcess::deadline() const
{
    return m_state == State::Finished ? Clock::time_point::max() : m_deadline;
}

bool ChildProcess::process(Clock::time_point now)
{
    if (m_state == State::Running) {
        // Reaped before reading: once the program has ended everything it
        // wrote is in the pipes. What a left-behind child keeps writing is
        // read until the pipes are empty for a moment, or the deadline.
        const bool ended = reap();
        const bool drained = readAvailable();
        if (ended && (drained || now >= m_deadline))
            finish();
        else if (!ended && now >= m_deadline)
            kill(ProcessResult::Status::TimedOut, now);
    }
    if (m_state == State::Killed && (reap() || now >= m_deadline))
        m_state = State::Finished;
    return m_state == State::Finished;
}

void ChildProcess::stop(Clock::time_point now)
{
    if (m_state != State::Running)
        return;
    if (m_reaped) {
        m_result.status = ProcessResult::Status::Stopped;
        closeStreams();
        m_state = State::Finished;
        return;
    }
    kill(ProcessResult::Status::Stopped, now);
}

bool ChildProcess::reap()
{
    if (m_reaped)
        return true;
    int status = 0;
    pid_t r = 0;
    do {
        r = ::waitpid(m_pid, &status, WNOHANG);
    } while (r < 0 && errno == EINTR);
    if (r == 0)
        return false;
    // ECHILD: reaped elsewhere (SIGCHLD ignored), its status lost; it is
    // reported as a failed exit.
    m_waitStatus = r > 0 ? status : -1;
    m_reaped = true;
    closeFd(m_pidfd);
    return true;
}

bool ChildProcess::readAvailable()
{
    bool drained = true;
    for (std::size_t i = 0; i < m_streams.size(); ++i) {
        QByteArray& sink = i == 0 ? m_result.standardOutput : m_result.standardError;
        qsizetype budget = kReadPerCall;
        while (m_streams[i] >= 0) {
            if (budget <= 0) {
                drained = false;
                break;
            }
            char buffer[16 * 1024];
            const ssize_t n = ::read(m_streams[i], buffer, sizeof buffer);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0 && errno == EAGAIN)
                break;
            if (n <= 0) {
                closeFd(m_streams[i]);
                break;
            }
            // Past the limit output is still read, so the program never
            // blocks on a full pipe, but dropped.
            budget -= n;
            const qsizetype kept = std::min<qsizetype>(n, m_outputLimit - sink.size());
            sink.append(buffer, kept);
            if (kept < n)
                m_result.outputTruncated = true;
        }
    }
    return drained;
}

void ChildProcess::kill(ProcessResult::Status reason, Clock::time_point now)
{
    ::kill(-m_pid, SIGKILL);
    m_result.status = reason;
    closeStreams();
    m_state = State::Killed;
    m_deadline = now + kKillGrace;
}

void ChildProcess::finish()
{
    if (m_waitStatus >= 0 && WIFSIGNALED(m_waitStatus)) {
        m_result.status = ProcessResult::Status::Signalled;
        m_result.exitCode = WTERMSIG(m_waitStatus);
    } else {
        m_result.status = ProcessResult::Status::Exited;
        m_result.exitCode = m_waitStatus >= 0 ? WEXITSTATUS(m_waitStatus) : -1;
    }
    closeStreams();
    m_state = State::Finished;
}

void ChildProcess::closeStreams()
{
    for (int& fd : m_streams)
        closeFd(fd);
}

// --- children started elsewhere -------------------------------------------------

void inheritNothingAfterFork() noexcept
{
    // Marked close-on-exec rather than closed: the spawner may still need its
    // own descriptors (QProcess reports a failed exec through one).
    const int savedErrno = errno;
    ::syscall(SYS_close_range, 3U, ~0U, CLOSE_RANGE_CLOEXEC);
    for (std::size_t i = 0; i < kRestoredLimits.size(); ++i) {
        rlimit current{};
        if (g_startLimits[i] && ::getrlimit(kRestoredLimits[i], &current) == 0) {
            const rlimit wanted = limitForChild(*g_startLimits[i], current);
            ::setrlimit(kRestoredLimits[i], &wanted);
        }
    }
    errno = savedErrno;
}

} // namespace talvo
