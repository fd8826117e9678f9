#pragma once

// Reading and writing the files we own (preferences, saved lists, PPDs) so
// that a write reported as done really is on disk, a failed write leaves the
// old file whole, and a read can neither block nor take unbounded memory.
//
//     const talvo::Status written = talvo::file::writeAtomically(path, bytes);
//     if (!written) report(written.message());     // "Cannot write PATH: REASON"
//
//     const talvo::file::ReadResult read = talvo::file::readRegularFile(path, 4 << 20);
//     if (read.outcome == talvo::file::ReadOutcome::Read) use(read.bytes);
//
// Every function is safe to call from any thread.

#include "foundation/Status.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

namespace talvo::file {

// Replaces the file at path with bytes: a new file in the same folder is
// written (each write checked, short ones continued), flushed to disk with
// fsync, closed and renamed over path. On any failure it is removed and path
// is left as it was. A symbolic link is followed, so the file it names is
// replaced and the link kept; a replaced file keeps its permissions (and,
// written by root, its owner), a new one gets 0666 less the umask. A path that exists and is not a regular
// file (a device, a pipe, a folder) is refused and left alone. Errors name path and the system's reason.
Status writeAtomically(const QString& path, QByteArrayView bytes);

// Writes every byte to an open descriptor, continuing after short writes and
// signals. `name` is what the error message calls the descriptor.
Status writeAll(int fd, QByteArrayView bytes, const QString& name);

enum class ReadOutcome {
    Read,       // bytes hold the whole file
    Missing,    // nothing at path
    NotRegular, // a device, a pipe, a socket or a folder: never read
    TooLarge,   // larger than the limit: never read
    Unreadable, // the system refused to open or read it
};

struct ReadResult
{
    ReadOutcome outcome = ReadOutcome::Unreadable;
    QByteArray bytes;
    QString error; // names the file and the reason; empty when Read
};

// The whole of a regular file of at most maxBytes. Opened without blocking
// (a pipe in its place is refused, not waited on) and checked with fstat on
// the open descriptor, so what is read is what was checked.
ReadResult readRegularFile(const QString& path, qint64 maxBytes);

} // namespace talvo::file
