#include "foundation/SystemCommand.h"

#include "foundation/Log.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

extern char** environ;

namespace talvo {
namespace {

class Fd
{
public:
    Fd() = default;
    explicit Fd(int fd) : m_fd(fd) {}
    Fd(const Fd&) = delete;
    Fd& operator=(const Fd&) = delete;
    Fd(Fd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Fd& operator=(Fd&& other) noexcept
    {
        reset(std::exchange(other.m_fd, -1));
        return *this;
    }
    ~Fd() { reset(); }
    int get() const { return m_fd; }
    void reset(int fd = -1)
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = fd;
    }

private:
    int m_fd = -1;
};

QString systemError(const char* what, int error)
{
    return QStringLiteral("%1: %2").arg(QLatin1StringView(what),
                                        QString::fromLocal8Bit(std::strerror(error)));
}

struct Pipe
{
    Fd read;
    Fd write;
};

std::optional<Pipe> makePipe()
{
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
        return std::nullopt;
    return Pipe{Fd(fds[0]), Fd(fds[1])};
}

int waitForChild(pid_t pid)
{
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return status;
}

} // namespace

ProcessResult runProcess(const QStringList& argv, const ProcessOptions& options)
{
    ProcessResult result;
    if (argv.isEmpty()) {
        result.errorText = QStringLiteral("no program to run");
        return result;
    }

    std::vector<std::string> args;
    args.reserve(static_cast<std::size_t>(argv.size()));
    for (const QString& a : argv)
        args.push_back(a.toStdString());
    std::vector<char*> cargs;
    for (auto& a : args)
        cargs.push_back(a.data());
    cargs.push_back(nullptr);

    auto out = makePipe();
    auto err = makePipe();
    Fd wake(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!out || !err || wake.get() < 0) {
        result.errorText = systemError("cannot create pipes", errno);
        return result;
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, out->write.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err->write.get(), STDERR_FILENO);
    // Its own process group, so a stop reaches whatever the program started.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setpgroup(&attributes, 0);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF);

    pid_t pid = -1;
    const int spawnError = ::posix_spawnp(&pid, cargs[0], &actions, &attributes, cargs.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    out->write.reset();
    err->write.reset();
    if (spawnError != 0) {
        result.errorText = systemError(cargs[0], spawnError);
        return result;
    }

    // The stop callback only pokes the event descriptor; the kill happens here,
    // on this thread, so the child is reaped exactly once.
    std::stop_callback onStop(options.stopToken, [&wake] {
        const uint64_t one = 1;
        [[maybe_unused]] auto n = ::write(wake.get(), &one, sizeof one);
    });

    // The child's end is watched through a process descriptor, so a program
    // that leaves something running with our pipes open still counts as done.
    Fd childFd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
    for (Fd* fd : {&out->read, &err->read})
        ::fcntl(fd->get(), F_SETFL, O_NONBLOCK);

    using Clock = std::chrono::steady_clock;
    const bool hasDeadline = options.timeout.has_value();
    const Clock::time_point deadline = Clock::now() + options.timeout.value_or(std::chrono::milliseconds{0});
    std::optional<ProcessResult::Status> killedFor;
    std::array<Fd*, 2> streams{&out->read, &err->read};
    std::array<QByteArray*, 2> sinks{&result.standardOutput, &result.standardError};
    auto drain = [&](std::size_t i) {
        char buffer[4096];
        for (;;) {
            const ssize_t n = ::read(streams[i]->get(), buffer, sizeof buffer);
            if (n > 0) {
                sinks[i]->append(buffer, static_cast<qsizetype>(n));
                continue;
            }
            if (n == 0 || (errno != EINTR && errno != EAGAIN))
                streams[i]->reset();
            if (n < 0 && errno == EINTR)
                continue;
            return;
        }
    };

    bool childEnded = false;
    while (!killedFor && !childEnded &&
           (streams[0]->get() >= 0 || streams[1]->get() >= 0 || childFd.get() >= 0)) {
        std::array<pollfd, 4> fds{{{streams[0]->get(), POLLIN, 0},
                                   {streams[1]->get(), POLLIN, 0},
                                   {wake.get(), POLLIN, 0},
                                   {childFd.get(), POLLIN, 0}}};
        int waitMs = -1;
        if (hasDeadline) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            waitMs = static_cast<int>(std::max<std::chrono::milliseconds::rep>(0, left.count()));
        }
        const int ready = ::poll(fds.data(), fds.size(), waitMs);
        if (ready < 0 && errno == EINTR)
            continue;
        if (options.stopToken.stop_requested()) {
            killedFor = ProcessResult::Status::Stopped;
            break;
        }
        if (ready == 0 && hasDeadline && Clock::now() >= deadline) {
            killedFor = ProcessResult::Status::TimedOut;
            break;
        }
        childEnded = childFd.get() >= 0 && (fds[3].revents & POLLIN);
        for (std::size_t i = 0; i < streams.size(); ++i) {
            if (streams[i]->get() >= 0 && (childEnded || (fds[i].revents & (POLLIN | POLLHUP | POLLERR))))
                drain(i);
        }
    }

    if (killedFor)
        ::kill(-pid, SIGKILL);
    const int status = waitForChild(pid);
    if (killedFor) {
        result.status = *killedFor;
    } else if (WIFEXITED(status)) {
        result.status = ProcessResult::Status::Exited;
        result.exitCode = WEXITSTATUS(status);
    } else {
        result.status = ProcessResult::Status::Signalled;
        result.exitCode = WIFSIGNALED(status) ? WTERMSIG(status) : -1;
    }
    return result;
}

std::optional<QString> firstLineOfOutput(const QByteArray& output)
{
    constexpr qsizetype kLineBuffer = 256;
    qsizetype length = output.indexOf('\n');
    length = length < 0 ? output.size() : length + 1;
    length = std::min(length, kLineBuffer - 1);
    if (length <= 1)
        return std::nullopt;
    return QString::fromLocal8Bit(output.constData(), length - 1);
}

std::optional<QString> runSystemCommand(const QStringList& argv, const ProcessOptions& options)
{
    const ProcessResult r = runProcess(argv, options);
    if (r.status == ProcessResult::Status::FailedToStart) {
        qCWarning(lcFoundation).noquote() << "Cannot run" << argv.value(0) << ":" << r.errorText;
        return std::nullopt;
    }
    return firstLineOfOutput(r.standardOutput);
}

} // namespace talvo
