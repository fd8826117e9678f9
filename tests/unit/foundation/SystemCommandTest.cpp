#include "foundation/SystemCommand.h"

#include <gtest/gtest.h>

#include <chrono>
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

} // namespace
} // namespace talvo
