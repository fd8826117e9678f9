#pragma once

// A small tmpfs of the test's own, to make a file system full or read-only
// (tests run as root, so file modes would not stop a write). It is mounted in
// a mount namespace private to the calling thread: the machine and the other
// threads never see it, the programs the thread starts do, and it goes away
// with the process at the latest.
//
//     talvo::test::ScratchMount scratch(256 * 1024);
//     ASSERT_TRUE(scratch.ready()) << scratch.failure().toStdString();
//     ... write scratch.filePath(u"old"_s) ...
//     ASSERT_TRUE(scratch.fill());        // no byte left
//     ASSERT_TRUE(scratch.setReadOnly(true));
//     ASSERT_TRUE(scratch.bindOver(u"/usr/sbin/lpadmin"_s, u"stand-in"_s)); // a program replaced

#include <QByteArray>
#include <QFile>
#include <QList>
#include <QString>
#include <QTemporaryDir>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace talvo::test {

class ScratchMount
{
public:
    // The name of the file fill() takes the space with.
    static constexpr char kFillerName[] = ".filler";

    explicit ScratchMount(qint64 bytes)
    {
        // Unsharing affects this thread only (its file-system context is
        // copied); making every mount private keeps ours from propagating back.
        thread_local const bool entered =
            ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        if (!entered) {
            m_failure = QStringLiteral("cannot enter a private mount namespace: ") + errorText();
            return;
        }
        const QByteArray options = "size=" + QByteArray::number(bytes) + ",mode=0755";
        if (!m_dir.isValid() || ::mount("talvo-scratch", QFile::encodeName(m_dir.path()).constData(), "tmpfs",
                                        0, options.constData()) != 0) {
            m_failure = QStringLiteral("cannot mount a tmpfs: ") + errorText();
            return;
        }
        m_mounted = true;
    }
    ~ScratchMount()
    {
        for (const QByteArray& target : m_binds)
            ::umount2(target.constData(), MNT_DETACH);
        if (m_mounted)
            ::umount2(QFile::encodeName(m_dir.path()).constData(), MNT_DETACH);
    }
    ScratchMount(const ScratchMount&) = delete;
    ScratchMount& operator=(const ScratchMount&) = delete;

    bool ready() const { return m_mounted; }
    QString failure() const { return m_failure; }
    QString path() const { return m_dir.path(); }
    QString filePath(const QString& name) const { return m_dir.filePath(name); }

    // Takes every free byte but `spare` (rounded to whole pages by tmpfs).
    bool fill(qint64 spare = 0)
    {
        const int fd = ::open(QFile::encodeName(filePath(QLatin1StringView(kFillerName))).constData(),
                              O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd < 0)
            return false;
        static const QByteArray chunk(64 * 1024, 'f');
        qint64 total = 0;
        for (ssize_t n = 0; (n = ::write(fd, chunk.constData(), static_cast<size_t>(chunk.size()))) > 0;)
            total += n;
        const bool full = errno == ENOSPC && ::ftruncate(fd, std::max<qint64>(total - spare, 0)) == 0;
        ::close(fd);
        return full;
    }

    bool setReadOnly(bool readOnly)
    {
        const unsigned long flags = readOnly ? MS_REMOUNT | MS_RDONLY : MS_REMOUNT;
        return ::mount(nullptr, QFile::encodeName(m_dir.path()).constData(), nullptr, flags, nullptr) == 0;
    }

    // Shows the scratch file `name` at `target` (a file of the machine) for
    // this thread and the programs it starts, until this object goes.
    bool bindOver(const QString& target, const QString& name)
    {
        const QByteArray where = QFile::encodeName(target);
        if (::mount(QFile::encodeName(filePath(name)).constData(), where.constData(), nullptr, MS_BIND,
                    nullptr) != 0)
            return false;
        m_binds << where;
        return true;
    }

private:
    static QString errorText() { return QString::fromLocal8Bit(std::strerror(errno)); }

    QTemporaryDir m_dir;
    QList<QByteArray> m_binds;
    bool m_mounted = false;
    QString m_failure;
};

} // namespace talvo::test
