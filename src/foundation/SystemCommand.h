#pragma once

// External programs run from argument vectors, never through a shell, so no
// text from a user, a file or the network is ever read as shell syntax.
//
//     auto r = talvo::runProcess({u"lpadmin"_s, u"-p"_s, queue, ...});
//     if (r.status != talvo::ProcessResult::Status::Exited || r.exitCode != 0)
//         showError(QString::fromLocal8Bit(r.standardError));
//
//     std::optional<QString> line = talvo::runSystemCommand({u"snmpget"_s, ...});

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <chrono>
#include <optional>
#include <stop_token>

namespace talvo {

struct ProcessOptions
{
    // A stop request kills the program (and anything it started) at once.
    std::stop_token stopToken;
    // Killed when still running after this long.
    std::optional<std::chrono::milliseconds> timeout;
};

struct ProcessResult
{
    enum class Status {
        Exited,        // exitCode holds the exit status
        Signalled,     // ended by a signal not sent by us
        FailedToStart, // errorText says why
        Stopped,       // killed on a stop request
        TimedOut,      // killed when the time-out passed
    };
    Status status = Status::FailedToStart;
    int exitCode = -1;
    QByteArray standardOutput;
    QByteArray standardError;
    // Output or error passed its cap and the rest was dropped.
    bool outputTruncated = false;
    QString errorText;

    bool succeeded() const { return status == Status::Exited && exitCode == 0; }
};

// Runs argv[0] (searched in PATH) with the rest as its arguments; standard
// input is empty, standard output and error are captured whole (up to 64 MiB
// each). The program inherits no descriptor beyond 0 to 2 and gets the
// resource limits this process started with. Blocks the calling thread until
// the program ends; an event loop uses ChildProcess instead.
ProcessResult runProcess(const QStringList& argv, const ProcessOptions& options = {});

// The first line of the program's standard output, or nullopt when it cannot
// be started or its first line is empty. The line is read as a 256-byte line
// reader would: at most 255 bytes, whose last byte (the newline) is cut off,
// so a longer first line loses its 255th byte and output without a newline
// loses its last character. The exit status is ignored.
std::optional<QString> runSystemCommand(const QStringList& argv, const ProcessOptions& options = {});

// The same first-line reading over captured output.
std::optional<QString> firstLineOfOutput(const QByteArray& output);

} // namespace talvo
