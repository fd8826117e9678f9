#pragma once

// A program an event loop waits on without ever blocking: started from an
// argument vector (never a shell) in its own process group, inheriting no
// descriptor beyond 0 to 2 and the resource limits this process started with,
// and killed with its whole group once its deadline passes.
//
//     auto child = talvo::ChildProcess::start({backendPath}, 30s, Clock::now(), &error);
//     // in the loop: poll child->descriptors() for reading until child->deadline(), then
//     if (child->process(Clock::now()))
//         handle(child->result());   // and drop the child
//
// Not thread-safe: the thread that starts a child makes every call on it.

#include "foundation/SystemCommand.h"

#include <QStringList>

#include <sys/types.h>

#include <array>
#include <chrono>
#include <memory>
#include <vector>

namespace talvo {

class ChildProcess
{
public:
    using Clock = std::chrono::steady_clock;

    // The programs watched this way (the usb backend) list a few devices in a
    // few hundred bytes: a MiB per stream is far past any honest output.
    static constexpr qsizetype kOutputLimit = qsizetype{1} << 20;
    // A time-out that never passes.
    static constexpr std::chrono::milliseconds kNoTimeout = std::chrono::milliseconds::max();

    // Nullptr when the program cannot be started; *error then says why.
    // Standard input is empty; output past outputLimit is read and dropped.
    static std::unique_ptr<ChildProcess> start(const QStringList& argv, std::chrono::milliseconds timeout,
                                               Clock::time_point now, QString* error = nullptr,
                                               qsizetype outputLimit = kOutputLimit);

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;
    // Kills the group if the program still runs and reaps it, waiting a few
    // milliseconds at most; one that does not die by then is reaped later.
    ~ChildProcess();

    // What to poll for reading: the output pipes and the process descriptor,
    // as long as any of them still matters. Empty once the result is final.
    std::vector<int> descriptors() const;
    // When process() must be called even if nothing became readable.
    Clock::time_point deadline() const;
    // Reads what is available (a bounded amount per call), reaps the program
    // once it ended, kills its group once the deadline passed. True once the
    // result is final; returns at once, whatever the program does.
    bool process(Clock::time_point now);
    // Kills the group now; the result becomes Stopped.
    void stop(Clock::time_point now);
    // Final once process() returned true; TimedOut when the deadline killed it.
    const ProcessResult& result() const { return m_result; }

private:
    enum class State {
        Running,  // reading output and watching for the end
        Killed,   // group killed, waiting for the program to be reaped
        Finished, // result final
    };

    ChildProcess(pid_t pid, int pidfd, int output, int error, Clock::time_point deadline,
                 qsizetype outputLimit);
    bool reap();
    bool readAvailable();
    void kill(ProcessResult::Status reason, Clock::time_point now);
    void finish();
    void closeStreams();

    pid_t m_pid;
    int m_pidfd;
    std::array<int, 2> m_streams;
    Clock::time_point m_deadline;
    qsizetype m_outputLimit;
    State m_state = State::Running;
    bool m_reaped = false;
    int m_waitStatus = 0;
    ProcessResult m_result;
};

// For programs started by another spawner (QProcess::setChildProcessModifier):
// marks every descriptor above 2 close-on-exec and gives back the resource
// limits this process started with. Async-signal-safe, keeps errno; call it
// only in the child between fork and exec.
void inheritNothingAfterFork() noexcept;

} // namespace talvo
