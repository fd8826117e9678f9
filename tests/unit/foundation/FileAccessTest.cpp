#include "foundation/FileAccess.h"

#include "ScratchMount.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFile>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

namespace talvo {
namespace {

using namespace Qt::StringLiterals;
using file::ReadOutcome;

QByteArray contents(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray("<unreadable>");
}

mode_t typeOf(const QString& path)
{
    struct stat info = {};
    return ::lstat(QFile::encodeName(path).constData(), &info) == 0 ? info.st_mode & S_IFMT : 0;
}

// On a full file system a write fails at write() - at once, or after a short
// write took what was left - and the old file must come through whole, with
// no temporary file left beside it.
TEST(FileAccess, FullFileSystemFailsTheWriteAndKeepsTheOldFile)
{
    const struct
    {
        qint64 spare, size;
        bool fits;
    } cases[] = {
        {0, 100, false},
        {8 * 1024, 15 * 1024, false}, // the first write() is short
        {64 * 1024, 15 * 1024, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.spare);
        test::ScratchMount scratch(256 * 1024);
        ASSERT_TRUE(scratch.ready()) << scratch.failure().toStdString();
        const QString target = scratch.filePath(u"out.ppd"_s);
        ASSERT_TRUE(file::writeAtomically(target, "old contents\n"));
        ASSERT_TRUE(scratch.fill(c.spare));

        const QByteArray bytes(c.size, 'n');
        const Status written = file::writeAtomically(target, bytes);
        EXPECT_EQ(written.isOk(), c.fits) << written.message().toStdString();
        EXPECT_EQ(contents(target), c.fits ? bytes : QByteArray("old contents\n"));
        if (!c.fits) {
            EXPECT_EQ(written.message(), u"Cannot write %1: No space left on device"_s.arg(target));
        }
        EXPECT_EQ(QDir(scratch.path()).entryList(QDir::Files | QDir::Hidden),
                  (QStringList{QLatin1StringView(test::ScratchMount::kFillerName), u"out.ppd"_s}));
    }
}

// Whatever is not a regular file is left exactly as it is: never replaced by
// a rename, never opened (a pipe would block, a disk would be overwritten).
TEST(FileAccess, WhatIsNotARegularFileIsNeverReplaced)
{
    QTemporaryDir dir;
    const QString fifo = dir.filePath(u"fifo"_s);
    const QString device = dir.filePath(u"full"_s);
    const QString link = dir.filePath(u"link"_s);
    ASSERT_EQ(::mkfifo(QFile::encodeName(fifo).constData(), 0600), 0);
    ASSERT_EQ(::mknod(QFile::encodeName(device).constData(), S_IFCHR | 0600, makedev(1, 7)), 0);
    ASSERT_TRUE(QFile::link(device, link));
    const struct
    {
        QString path;
        mode_t type;
    } cases[] = {{fifo, S_IFIFO}, {device, S_IFCHR}, {link, S_IFLNK}, {dir.path(), S_IFDIR}};
    for (const auto& c : cases) {
        const Status written = file::writeAtomically(c.path, "PPD\n");
        EXPECT_FALSE(written);
        EXPECT_TRUE(written.message().contains(u"is not a regular file"_s))
            << written.message().toStdString();
        EXPECT_EQ(typeOf(c.path), c.type) << c.path.toStdString();
    }
    EXPECT_EQ(
        QDir(dir.path()).entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot),
        (QStringList{u"fifo"_s, u"full"_s, u"link"_s}));
}

// A new file gets the mode any new file would; a replaced one keeps its mode
// and owner, and a link to it stays a link.
TEST(FileAccess, ReplacingKeepsModeAndLinks)
{
    QTemporaryDir dir;
    const QString real = dir.filePath(u"real"_s);
    const QString link = dir.filePath(u"link"_s);
    ASSERT_TRUE(file::writeAtomically(real, "one"));
    const mode_t mask = ::umask(0);
    ::umask(mask);
    struct stat info = {};
    ASSERT_EQ(::stat(QFile::encodeName(real).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0666 & ~mask);

    ASSERT_EQ(::chmod(QFile::encodeName(real).constData(), 0640), 0);
    ASSERT_EQ(::chown(QFile::encodeName(real).constData(), 1234, 1234), 0);
    ASSERT_TRUE(QFile::link(u"real"_s, link));
    ASSERT_TRUE(file::writeAtomically(link, "two"));
    EXPECT_EQ(typeOf(link), S_IFLNK);
    EXPECT_EQ(contents(real), "two");
    ASSERT_EQ(::stat(QFile::encodeName(real).constData(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0640u);
    EXPECT_EQ(info.st_uid, 1234u);
}

// Nothing in place of a file we read can make the reader take what the thing
// at the path offers. (A pipe, which would block it, is tried with a time
// limit in SettingsTest.)
TEST(FileAccess, OnlySmallRegularFilesAreRead)
{
    QTemporaryDir dir;
    const QString small = dir.filePath(u"small"_s);
    const QString large = dir.filePath(u"large"_s);
    const QString zero = dir.filePath(u"zero"_s);
    ASSERT_TRUE(file::writeAtomically(small, "0123456789"));
    ASSERT_TRUE(file::writeAtomically(large, "0123456789A"));
    ASSERT_TRUE(QFile::link(u"/dev/zero"_s, zero));
    const struct
    {
        QString path;
        ReadOutcome outcome;
    } cases[] = {
        {small, ReadOutcome::Read},
        {large, ReadOutcome::TooLarge},
        {zero, ReadOutcome::NotRegular},
        {dir.path(), ReadOutcome::NotRegular},
        {dir.filePath(u"absent"_s), ReadOutcome::Missing},
    };
    for (const auto& c : cases) {
        const file::ReadResult read = file::readRegularFile(c.path, 10);
        EXPECT_EQ(read.outcome, c.outcome) << c.path.toStdString();
        EXPECT_EQ(read.bytes, c.outcome == ReadOutcome::Read ? QByteArray("0123456789") : QByteArray());
        EXPECT_EQ(read.error.isEmpty(), c.outcome == ReadOutcome::Read);
        if (!read.error.isEmpty()) {
            EXPECT_TRUE(read.error.startsWith(u"Cannot read "_s + c.path + u": "_s))
                << read.error.toStdString();
        }
    }
}

} // namespace
} // namespace talvo
