#pragma once

// Runs the engine's decision on a thread of its own, so that the tap's thread can give up on a
// decision that does not come in time and still answer the frozen keyboard.

#include "platform/keyboard_tap.h"
#include "platform/x11/x11_tap_common.h"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace tavo::x11tap {

class Decider
{
public:
    struct Result
    {
        quint64 sequence = 0;
        quint64 stamp = 0; // orders decisions and setMode() calls
        TapDecision decision;
    };

    Decider(KeyboardTap::Decide decide, int wakeFd, std::atomic<quint64>* stamps);
    ~Decider();
    Decider(const Decider&) = delete;
    Decider& operator=(const Decider&) = delete;

    quint64 submit(const KeyEvent& event);
    // Whether the decision of `sequence` came before `deadline`.
    bool waitFor(quint64 sequence, Clock::time_point deadline);
    std::deque<Result> takeResults();

private:
    struct Job
    {
        quint64 sequence;
        KeyEvent event;
    };

    void run();

    KeyboardTap::Decide m_decide;
    const int m_wakeFd;
    std::atomic<quint64>* m_stamps;
    std::mutex m_mutex;
    std::condition_variable m_jobAdded;
    std::condition_variable m_resultAdded;
    std::deque<Job> m_jobs;
    std::deque<Result> m_results;
    quint64 m_submitted = 0;
    quint64 m_decided = 0;
    bool m_stopping = false;
    std::thread m_thread;
};

} // namespace tavo::x11tap
