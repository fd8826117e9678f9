#include "foundation/FileAccess.h"

#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace talvo::file {
namespace {

// Names for the new file are drawn at random; a clash means another writer
// holds that name, and this many clashes in a row means something is wrong.
constexpr int kTemporaryNameAttempts = 100;

// The largest single write(): below the just under 2 GiB Linux moves in one
// call, so every count is one the kernel takes as asked.
constexpr std::size_t kMaxChunk = std::size_t{1} << 30;

QString reason(int error)
{
    return QString::fromStdString(std::error_code(error, std::generic_category()).message());
}

Status failure(const QString& path, int error)
{
    return Status::error(QStringLiteral("Cannot write %1: %2").arg(path, reason(error)));
}

// An open descriptor, closed on leaving; with a path, also the file made for
// a write, removed unless kept: whatever step fails, nothing of the attempt
// stays behind.
class OwnedFile
{
public:
    OwnedFile(int fd, QByteArray path) : m_fd(fd), m_path(std::move(path)) {}
    OwnedFile(const OwnedFile&) = delete;
    OwnedFile& operator=(const OwnedFile&) = delete;
    ~OwnedFile()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        if (!m_path.isEmpty())
            ::unlink(m_path.constData());
    }
    int fd() const { return m_fd; }
    const QByteArray& path() const { return m_path; }
    // Closes the descriptor; errno is set when it fails. Linux releases the
    // descriptor even then, so it is never closed twice.
    bool close() { return ::close(std::exchange(m_fd, -1)) == 0 || errno == EINTR; }
    void keep() { m_path.clear(); }

private:
    int m_fd;
    QByteArray m_path;
};

// A new file beside `target`, hidden and named after it, created exclusively
// with 0666 so the umask decides its mode as it would for any new file.
int createBeside(const QByteArray& target, QByteArray& created)
{
    const qsizetype slash = target.lastIndexOf('/');
    const QByteArray folder = target.left(slash + 1);
    const QByteArray name = target.mid(slash + 1);
    for (int attempt = 0; attempt < kTemporaryNameAttempts; ++attempt) {
        const QByteArray suffix = QByteArray::number(QRandomGenerator::global()->generate64(), 36);
        created = folder + '.' + name + '.' + suffix;
        const int fd = ::open(created.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOCTTY, 0666);
        if (fd >= 0 || errno != EEXIST)
            return fd;
    }
    errno = EEXIST;
    return -1;
}

} // namespace

Status writeAll(int fd, QByteArrayView bytes, const QString& name)
{
    const char* next = bytes.data();
    std::size_t left = static_cast<std::size_t>(bytes.size());
    while (left > 0) {
        const ssize_t n = ::write(fd, next, std::min(left, kMaxChunk));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return failure(name, errno);
        // A write that takes nothing would repeat for ever: the device is full
        // in all but name.
        if (n == 0)
            return failure(name, ENOSPC);
        next += n;
        left -= static_cast<std::size_t>(n);
    }
    return Status::ok();
}

Status writeAtomically(const QString& path, QByteArrayView bytes)
{
    // What exists at path decides: nothing (a new file), a regular file (kept
    // mode, replaced through its real name so a link to it stays a link), or
    // anything else, which is refused: renaming over a device or a pipe would
    // replace the node, and writing into it (a disk, a terminal) is never what
    // a file name given to us means; "-" is how the tool is told to use
    // standard output.
    const QByteArray given = QFile::encodeName(path);
    QByteArray target = QFile::encodeName(QFileInfo(path).absoluteFilePath());
    struct stat existing = {};
    const bool exists = ::stat(given.constData(), &existing) == 0;
    if (!exists && errno != ENOENT)
        return failure(path, errno);
    if (exists) {
        if (!S_ISREG(existing.st_mode))
            return Status::error(
                QStringLiteral("Cannot write %1: it is not a regular file (a device, a pipe or a folder), "
                               "so it is left as it is")
                    .arg(path));
        char* real = ::realpath(given.constData(), nullptr);
        if (!real)
            return failure(path, errno);
        target = QByteArray(real);
        std::free(real);
    }

    QByteArray created;
    const int fd = createBeside(target, created);
    if (fd < 0)
        return failure(path, errno);
    OwnedFile pending(fd, created);

    // The replaced file's permissions carry over, as an edit in place would
    // keep them, and so does its owner where we may set it (as root): a
    // user's file rewritten by root stays the user's. A file system without
    // owners (FAT) refuses that, which is no reason to fail the write.
    if (exists && ::fchmod(pending.fd(), existing.st_mode & 07777) != 0)
        return failure(path, errno);
    if (exists && ::geteuid() == 0) {
        [[maybe_unused]] const int owned = ::fchown(pending.fd(), existing.st_uid, existing.st_gid);
    }
    if (Status written = writeAll(pending.fd(), bytes, path); !written)
        return written;
    // Only fsync and close report what the disk refused after write()
    // accepted it (a full disk on a network file system, an I/O error).
    if (::fsync(pending.fd()) != 0)
        return failure(path, errno);
    if (!pending.close())
        return failure(path, errno);
    if (::rename(pending.path().constData(), target.constData()) != 0)
        return failure(path, errno);
    pending.keep();

    // The rename is durable once the folder is flushed too. It is done, and
    // the old file is gone either way, so a failure here is not reported.
    const QByteArray folder = target.left(std::max<qsizetype>(target.lastIndexOf('/'), 1));
    if (const int dir = ::open(folder.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); dir >= 0) {
        ::fsync(dir);
        ::close(dir);
    }
    return Status::ok();
}

ReadResult readRegularFile(const QString& path, qint64 maxBytes)
{
    ReadResult result;
    const auto fail = [&](ReadOutcome outcome, const QString& why) {
        result.outcome = outcome;
        result.error = QStringLiteral("Cannot read %1: %2").arg(path, why);
        result.bytes.clear();
        return result;
    };

    // O_NONBLOCK: opening a pipe with no writer returns at once instead of
    // waiting for one; on the regular file we go on to read it changes nothing.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
    if (fd < 0)
        return fail(errno == ENOENT ? ReadOutcome::Missing : ReadOutcome::Unreadable, reason(errno));
    const OwnedFile closer(fd, QByteArray());

    struct stat info = {};
    if (::fstat(fd, &info) != 0)
        return fail(ReadOutcome::Unreadable, reason(errno));
    if (!S_ISREG(info.st_mode))
        return fail(ReadOutcome::NotRegular, QStringLiteral("it is not a regular file"));
    if (info.st_size > maxBytes)
        return fail(ReadOutcome::TooLarge, QStringLiteral("it is larger than %1 bytes").arg(maxBytes));

    // Read until the end, not until st_size: the file may change meanwhile.
    // One byte past the limit is enough to know it grew too large.
    result.bytes.resize(static_cast<qsizetype>(info.st_size) + 1);
    qsizetype filled = 0;
    for (;;) {
        if (filled == result.bytes.size()) {
            if (filled > maxBytes)
                return fail(ReadOutcome::TooLarge,
                            QStringLiteral("it is larger than %1 bytes").arg(maxBytes));
            result.bytes.resize(std::min<qsizetype>(filled * 2, static_cast<qsizetype>(maxBytes) + 1));
        }
        const ssize_t n =
            ::read(fd, result.bytes.data() + filled, static_cast<std::size_t>(result.bytes.size() - filled));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return fail(ReadOutcome::Unreadable, reason(errno));
        if (n == 0)
            break;
        filled += n;
    }
    result.bytes.truncate(filled);
    result.outcome = ReadOutcome::Read;
    return result;
}

} // namespace talvo::file
