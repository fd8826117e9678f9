#pragma once

// One job at a time on a thread of its own, stoppable at any moment. The
// job's result is handed to a completion on the worker's thread once the
// worker counts as idle again, unless the job was stopped or gave none.
//
//     talvo::Worker<QueueCreationResult> worker;
//     worker.start([=](std::stop_token stop) { return create(printer, stop); },
//                  [receiver](const QueueCreationResult& r) { post(receiver, r); });
//     worker.stop(); // asks the job to stop (its token) and waits for it

#include "foundation/Log.h"

#include <functional>
#include <mutex>
#include <optional>
#include <stop_token>
#include <system_error>
#include <thread>

namespace talvo {

template <typename Result> class Worker
{
public:
    using Job = std::function<std::optional<Result>(std::stop_token)>;
    using Completion = std::function<void(const Result&)>;

    Worker() = default;
    ~Worker() { stop(); }
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    // False, and nothing started, while a job still runs or when no thread
    // could be made (logged).
    bool start(Job job, Completion completion)
    {
        {
            std::lock_guard lock(m_mutex);
            if (m_running)
                return false;
            m_running = true;
        }
        if (m_thread.joinable())
            m_thread.join(); // a finished job's thread
        try {
            m_thread = std::jthread(
                [this, job = std::move(job), completion = std::move(completion)](std::stop_token stop) {
                    t_ownThread = this;
                    const std::optional<Result> result = job(stop);
                    {
                        std::lock_guard lock(m_mutex);
                        m_running = false;
                    }
                    if (result && !stop.stop_requested())
                        completion(*result);
                });
        } catch (const std::system_error& e) {
            std::lock_guard lock(m_mutex);
            m_running = false;
            qCWarning(lcFoundation) << "NSGenericException" << e.what();
            return false;
        }
        return true;
    }

    // Asks the running job to stop and waits for its thread. From within the
    // completion (the worker's own thread) it does nothing: the job is over
    // and the thread ends by itself. m_thread is not even looked at there, as
    // it belongs to the owner's thread, which may already be starting the
    // next job (running is false before the completion runs).
    void stop()
    {
        if (t_ownThread == this)
            return;
        if (!m_thread.joinable())
            return;
        m_thread.request_stop();
        m_thread.join();
        std::lock_guard lock(m_mutex);
        m_running = false;
    }

    bool isRunning() const
    {
        std::lock_guard lock(m_mutex);
        return m_running;
    }

private:
    // The worker whose job runs on this thread, if any.
    static inline thread_local const Worker* t_ownThread = nullptr;

    mutable std::mutex m_mutex;
    bool m_running = false;
    std::jthread m_thread;
};

} // namespace talvo
