#include "foundation/ChildProcess.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <climits>

#include <QFile>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using Clock = ChildProcess::Clock;

// Drives the child as an event loop would; returns the longest process() call.
Clock::duration runToEnd(ChildProcess& child)
{
    Clock::duration longest{};
    for (;;) {
        const Clock::time_point before = Clock::now();
        const bool done = child.process(before);
        longest = std::max(longest, Clock::now() - before);
        if (done)
            return longest;
        std::vector<pollfd> fds;
        for (int fd : child.descriptors())
            fds.push_back({fd, POLLIN, 0});
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(child.deadline() - Clock::now());
        ::poll(fds.data(), fds.size(), static_cast<int>(std::clamp<long>(left.count(), 0, INT_MAX)));
    }
}

// Gone from /proc, or a zombie waiting for its new parent: either way dead.
bool diesSoon(const QByteArray& pid)
{
    const Clock::time_point giveUp = Clock::now() + 2s;
    QFile status(QStringLiteral("/proc/%1/stat").arg(QString::fromLatin1(pid)));
    while (status.open(QIODevice::ReadOnly)) {
        if (status.readAll().contains(") Z "))
            return true;
        status.close();
        if (Clock::now() > giveUp)
            return false;
        ::poll(nullptr, 0, 10);
    }
    return true;
}

QStringList shell(const char* script)
{
    return {QStringLiteral("sh"), QStringLiteral("-c"), QString::fromUtf8(script)};
}

TEST(ChildProcess, EndsWithTheProgramOrItsDeadlineAndNeverBlocksTheLoop)
{
    const struct
    {
        const char* script;
        std::chrono::milliseconds timeout;
        ProcessResult::Status status;
        int exitCode;
        QByteArray output;
        QByteArray error;
    } cases[] = {
        {"echo out; echo err >&2; exit 3", 10s, ProcessResult::Status::Exited, 3, "out\n", "err\n"},
        {"kill -9 $$", 10s, ProcessResult::Status::Signalled, 9, "", ""},
        // The shell's own child holds the pipes too: it must die with the group.
        {"echo early; sleep 30 & sleep 30", 200ms, ProcessResult::Status::TimedOut, -1, "early\n", ""},
        // Left-behind children hold the pipes, so the end, after the output, shows only on the pidfd.
        {"(sleep 3 >/dev/null 2>&1 &) ; sleep 5 & echo done; sleep 0.2", 10s, ProcessResult::Status::Exited,
         0, "done\n", ""},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        const Clock::time_point start = Clock::now();
        QString error;
        const auto child = ChildProcess::start(shell(c.script), c.timeout, start, &error);
        ASSERT_TRUE(child) << error.toStdString();
        EXPECT_LT(runToEnd(*child), 50ms);
        EXPECT_LT(Clock::now() - start, 2s);
        const ProcessResult& r = child->result();
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.exitCode, c.exitCode);
        EXPECT_EQ(r.standardOutput, c.output);
        EXPECT_EQ(r.standardError, c.error);
        EXPECT_TRUE(child->descriptors().empty());
    }

    QString error;
    EXPECT_FALSE(ChildProcess::start({QStringLiteral("no-such-program-talvo")}, 1s, Clock::now(), &error));
    EXPECT_FALSE(error.isEmpty());
}

TEST(ChildProcess, OutputPastTheLimitIsDroppedWhileTheProgramRunsOn)
{
    // Were the pipe left unread past the limit, head would block and time out.
    const auto child = ChildProcess::start({QStringLiteral("head"), QStringLiteral("-c"),
                                            QStringLiteral("3000000"), QStringLiteral("/dev/zero")},
                                           10s, Clock::now());
    ASSERT_TRUE(child);
    EXPECT_LT(runToEnd(*child), 50ms);
    EXPECT_TRUE(child->result().succeeded());
    EXPECT_EQ(child->result().standardOutput.size(), ChildProcess::kOutputLimit);
    EXPECT_TRUE(child->result().outputTruncated);
}

TEST(ChildProcess, DestroyingARunningChildKillsItsGroupAndReapsIt)
{
    auto child = ChildProcess::start(shell("sleep 30 & echo $$ $!; wait"), 60s, Clock::now());
    ASSERT_TRUE(child);
    while (!child->process(Clock::now()) && !child->result().standardOutput.contains('\n')) {
        pollfd fd{child->descriptors().front(), POLLIN, 0};
        ::poll(&fd, 1, 1000);
    }
    const QList<QByteArray> pids = child->result().standardOutput.trimmed().split(' ');
    ASSERT_EQ(pids.size(), 2);

    const Clock::time_point start = Clock::now();
    child.reset();
    EXPECT_LT(Clock::now() - start, 200ms);
    // The shell is reaped at once; its child dies with the group.
    EXPECT_FALSE(QFile::exists(QStringLiteral("/proc/%1").arg(QString::fromLatin1(pids[0]))));
    EXPECT_TRUE(diesSoon(pids[1]));
}

} // namespace
} // namespace talvo
