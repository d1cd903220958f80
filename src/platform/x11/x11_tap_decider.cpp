#include "platform/x11/x11_tap_decider.h"

#include <pthread.h>

namespace tavo::x11tap {

Decider::Decider(KeyboardTap::Decide decide, int wakeFd, std::atomic<quint64>* stamps)
    : m_decide(std::move(decide))
    , m_wakeFd(wakeFd)
    , m_stamps(stamps)
{
    m_thread = std::thread([this] { run(); });
    pthread_setname_np(m_thread.native_handle(), "tavo-decide");
}

Decider::~Decider()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_jobAdded.notify_one();
    m_thread.join();
}

quint64 Decider::submit(const KeyEvent& event)
{
    quint64 sequence;
    {
        std::lock_guard lock(m_mutex);
        sequence = ++m_submitted;
        m_jobs.push_back({sequence, event});
    }
    m_jobAdded.notify_one();
    return sequence;
}

bool Decider::waitFor(quint64 sequence, Clock::time_point deadline)
{
    std::unique_lock lock(m_mutex);
    return m_resultAdded.wait_until(lock, deadline, [&] { return m_decided >= sequence; });
}

std::deque<Decider::Result> Decider::takeResults()
{
    std::deque<Result> results;
    std::lock_guard lock(m_mutex);
    results.swap(m_results);
    return results;
}

void Decider::run()
{
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_jobAdded.wait(lock, [this] { return m_stopping || !m_jobs.empty(); });
        if (m_stopping)
            return;
        Job job = std::move(m_jobs.front());
        m_jobs.pop_front();
        lock.unlock();
        const TapDecision decision = m_decide(job.event);
        const quint64 stamp = decision.version != 0 ? decision.version : ++*m_stamps;
        lock.lock();
        m_results.push_back({job.sequence, stamp, decision});
        m_decided = job.sequence;
        m_resultAdded.notify_all();
        wake(m_wakeFd);
    }
}

} // namespace tavo::x11tap
