#include "foundation/SystemCommand.h"

#include "foundation/ChildProcess.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include <chrono>
#include <functional>
#include <thread>

namespace talvo {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

QStringList printfArgs(const char* format)
{
    return {QStringLiteral("printf"), QString::fromUtf8(format)};
}

TEST(RunSystemCommand, KeepsOnlyTheFirstLineAsALineReaderWould)
{
    const std::string longLine(300, 'x');
    const struct
    {
        QStringList argv;
        std::optional<QString> expected;
    } cases[] = {
        {printfArgs("abc\\ndef\\nghi\\n"), QStringLiteral("abc")},
        {printfArgs("\\nsecond\\n"), std::nullopt},
        {{QStringLiteral("true")}, std::nullopt},
        // The last character is taken for the newline even when it is not one.
        {printfArgs("abc"), QStringLiteral("ab")},
        // 255 bytes are read; the 255th is cut as if it were the newline.
        {{QStringLiteral("printf"), QString::fromStdString(longLine)}, QString(254, u'x')},
        {{QStringLiteral("/nonexistent/program")}, std::nullopt},
        // Exit status does not matter, only the output.
        {{QStringLiteral("sh"), QStringLiteral("-c"), QStringLiteral("echo out; exit 3")},
         QStringLiteral("out")},
    };
    for (const auto& c : cases)
        EXPECT_EQ(runSystemCommand(c.argv), c.expected) << c.argv.join(u' ').toStdString();
}

TEST(RunProcess, ArgumentsAreNeverReadAsShellSyntax)
{
    const QString hostile = QStringLiteral("$(touch /tmp/talvo-pwned); `id` 'a\" | rm -rf ~");
    const ProcessResult r = runProcess({QStringLiteral("printf"), QStringLiteral("%s"), hostile});
    EXPECT_TRUE(r.succeeded());
    EXPECT_EQ(QString::fromUtf8(r.standardOutput), hostile);
}

TEST(RunProcess, CapturesStandardErrorAndExitStatusSeparately)
{
    const ProcessResult r = runProcess(
        {QStringLiteral("sh"), QStringLiteral("-c"), QStringLiteral("echo to-out; echo to-err >&2; exit 7")});
    EXPECT_EQ(r.status, ProcessResult::Status::Exited);
    EXPECT_EQ(r.exitCode, 7);
    EXPECT_EQ(r.standardOutput, "to-out\n");
    EXPECT_EQ(r.standardError, "to-err\n");
    EXPECT_FALSE(r.succeeded());

    const ProcessResult missing = runProcess({QStringLiteral("no-such-program-talvo")});
    EXPECT_EQ(missing.status, ProcessResult::Status::FailedToStart);
    EXPECT_FALSE(missing.errorText.isEmpty());
}

TEST(RunProcess, StopRequestTimeOutAndStoppedTokenKillTheProgramAndWhatItStartedAtOnce)
{
    std::stop_source late;
    std::stop_source early;
    early.request_stop();
    const struct
    {
        ProcessOptions options;
        ProcessResult::Status status;
    } cases[] = {
        {{.stopToken = late.get_token(), .timeout = {}}, ProcessResult::Status::Stopped},
        {{.stopToken = {}, .timeout = 150ms}, ProcessResult::Status::TimedOut},
        {{.stopToken = early.get_token(), .timeout = {}}, ProcessResult::Status::Stopped}, // never waits
    };
    std::jthread stopper([&] {
        std::this_thread::sleep_for(100ms);
        late.request_stop();
    });
    for (const auto& c : cases) {
        const auto start = Clock::now();
        // The shell's own child holds the pipes too: it must die with the group.
        const ProcessResult r = runProcess(
            {QStringLiteral("sh"), QStringLiteral("-c"), QStringLiteral("sleep 30 & sleep 30")}, c.options);
        EXPECT_EQ(r.status, c.status);
        EXPECT_LT(Clock::now() - start, 5s);
    }
}

TEST(RunProcess, ReturnsWhenTheProgramEndsEvenIfItLeftAChildHoldingTheOutput)
{
    const auto start = Clock::now();
    const ProcessResult r = runProcess({QStringLiteral("sh"), QStringLiteral("-c"),
                                        QStringLiteral("(sleep 3 >/dev/null 2>&1 &) ; sleep 5 & echo done")});
    EXPECT_TRUE(r.succeeded());
    EXPECT_EQ(r.standardOutput, "done\n");
    EXPECT_LT(Clock::now() - start, 2s);
}

QByteArray limitText(rlim_t value)
{
    return value == RLIM_INFINITY ? QByteArray("unlimited")
                                  : QByteArray::number(static_cast<qulonglong>(value));
}

ProcessResult runAsChild(const QStringList& argv)
{
    const auto child = ChildProcess::start(argv, 10s, Clock::now());
    if (!child)
        return {};
    while (!child->process(Clock::now())) {
        std::vector<pollfd> fds;
        for (int fd : child->descriptors())
            fds.push_back({fd, POLLIN, 0});
        ::poll(fds.data(), fds.size(), 100);
    }
    return child->result();
}

TEST(RunProcess, ChildrenInheritOnlyStandardDescriptorsAndTheStartLimits)
{
    // No test before this one changes a limit, so the current one is the
    // start limit.
    rlimit start{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &start), 0);
    rlimit lowered = start;
    lowered.rlim_cur = std::min<rlim_t>(start.rlim_cur, 4096) / 2;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
    // A descriptor left without close-on-exec, as a library might.
    const int leaked = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(leaked, 3);

    const std::pair<const char*, std::function<ProcessResult(const QStringList&)>> runners[] = {
        {"runProcess", [](const QStringList& argv) { return runProcess(argv); }},
        {"ChildProcess", runAsChild},
    };
    for (const auto& [name, run] : runners) {
        SCOPED_TRACE(name);
        // ls itself reads the directory through descriptor 3.
        EXPECT_EQ(run({QStringLiteral("ls"), QStringLiteral("/proc/self/fd")}).standardOutput,
                  "0\n1\n2\n3\n");
        EXPECT_EQ(run({QStringLiteral("sh"), QStringLiteral("-c"), QStringLiteral("ulimit -Sn; ulimit -Hn")})
                      .standardOutput,
                  limitText(start.rlim_cur) + '\n' + limitText(start.rlim_max) + '\n');
    }
    // The change made for the spawn is undone in this process.
    rlimit after{};
    ::getrlimit(RLIMIT_NOFILE, &after);
    EXPECT_EQ(after.rlim_cur, lowered.rlim_cur);

    ::close(leaked);
    ::setrlimit(RLIMIT_NOFILE, &start);
}

} // namespace
} // namespace talvo
