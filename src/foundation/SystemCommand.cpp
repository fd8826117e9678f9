#include "foundation/SystemCommand.h"

#include "foundation/ChildProcess.h"
#include "foundation/Log.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <vector>

namespace talvo {
namespace {

using Clock = std::chrono::steady_clock;

// Output is captured whole for callers such as gunzip of a PPD (a few MiB at
// most); the cap only keeps a runaway program from exhausting memory.
constexpr qsizetype kWholeOutputLimit = qsizetype{64} << 20;

int millisecondsUntil(Clock::time_point deadline, Clock::time_point now)
{
    if (deadline == Clock::time_point::max())
        return -1;
    // Rounded up, so the wake-up is never early and the loop never spins.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
    return static_cast<int>(
        std::clamp<std::chrono::milliseconds::rep>(left, 0, std::numeric_limits<int>::max()));
}

// Lets the stop callback, on whichever thread requests the stop, wake the
// loop that owns the child.
class Wake
{
public:
    Wake() : m_fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
    ~Wake()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Wake(const Wake&) = delete;
    Wake& operator=(const Wake&) = delete;
    int fd() const { return m_fd; }
    void poke() const
    {
        const uint64_t one = 1;
        [[maybe_unused]] auto n = ::write(m_fd, &one, sizeof one);
    }

private:
    int m_fd;
};

} // namespace

ProcessResult runProcess(const QStringList& argv, const ProcessOptions& options)
{
    ProcessResult result;
    if (options.stopToken.stop_requested()) {
        result.status = ProcessResult::Status::Stopped;
        return result;
    }
    const Wake wake;
    if (wake.fd() < 0) {
        result.errorText = QStringLiteral("cannot create an event descriptor: %1")
                               .arg(QString::fromLocal8Bit(std::strerror(errno)));
        return result;
    }

    std::unique_ptr<ChildProcess> child =
        ChildProcess::start(argv, options.timeout.value_or(ChildProcess::kNoTimeout), Clock::now(),
                            &result.errorText, kWholeOutputLimit);
    if (!child)
        return result;

    // The stop callback only pokes the event descriptor; the kill happens
    // here, on this thread, which owns the child.
    std::stop_callback onStop(options.stopToken, [&wake] { wake.poke(); });
    bool stopSeen = false;
    for (;;) {
        const Clock::time_point now = Clock::now();
        if (!stopSeen && options.stopToken.stop_requested()) {
            child->stop(now);
            stopSeen = true;
        }
        if (child->process(now))
            return child->result();
        std::vector<pollfd> fds;
        for (int fd : child->descriptors())
            fds.push_back({fd, POLLIN, 0});
        // Once seen, the stop stays readable: it is no longer waited on.
        if (!stopSeen)
            fds.push_back({wake.fd(), POLLIN, 0});
        ::poll(fds.data(), fds.size(), millisecondsUntil(child->deadline(), now));
    }
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
