// The worker's hand-over between its owner and its own thread, run under
// ThreadSanitizer in the TSan stage: a completion that stops its own worker
// while the owner already starts the next job.

#include "foundation/Worker.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace talvo {
namespace {

TEST(Worker, CompletionMayStopItsOwnWorkerWhileTheOwnerStartsTheNextJob)
{
    Worker<int> worker;
    std::atomic<int> completions = 0;
    const auto job = [](std::stop_token) { return std::optional(1); };
    const auto stopFromCompletion = [&](const int&) {
        worker.stop(); // only asks: the thread ends by itself
        ++completions;
    };
    for (int round = 0; round < 200; ++round) {
        // Running is false before the completion runs: the next start may
        // come while the completion stops the worker from its own thread.
        while (!worker.start(job, stopFromCompletion))
            std::this_thread::yield();
    }
    worker.stop();
    EXPECT_GT(completions.load(), 0);
    EXPECT_FALSE(worker.isRunning());
}

} // namespace
} // namespace talvo
