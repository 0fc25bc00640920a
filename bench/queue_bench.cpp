// The library's queue, and the bounds: what the system and the plainest code take for the same.

#include "queue_shapes.h"

#include "osal/utils.h"

#include <pthread.h>
#include <deque>

namespace bench {

namespace {

// Not a real-time priority: the system refuses it, and the worker keeps the scheduling that it shares with the
// other queues' threads.
constexpr auto ORDINARY = static_cast<osal::Thread::Priority>(0);

class OsalQueue {
public:
    static constexpr const char* NAME = "osal";

    explicit OsalQueue(osal::Thread::Priority priority = ORDINARY) : mPriority(priority) {}

    void Start() { mQueue.Start("bench", mPriority); }
    void Stop() { mQueue.Stop(); }
    void Post(osal::IMsgHandler* handler) { mQueue.QueueMsg(handler, 0); }
    void PostDelayed(osal::IMsgHandler* handler, uint64_t delayNs) { mQueue.QueueMsg(handler, delayNs); }
    void Remove(osal::IMsgHandler* handler) { mQueue.RemoveMsg(handler); }

private:
    const osal::Thread::Priority mPriority;
    osal::MsgQueue mQueue;
};

// Real-time, where the system allows it.
class OsalRealTimeQueue : public OsalQueue {
public:
    static constexpr const char* NAME = "osal_rt";

    OsalRealTimeQueue() : OsalQueue(osal::Thread::PRIORITY_DEFAULT) {}
};

// What one would write by hand: no delays, and nothing that could not be left out.
class LockedDeque {
public:
    static constexpr const char* NAME = "locked_deque";

    void Start()
    {
        mThread = std::thread([this] { Work(); });
    }
    void Stop()
    {
        Post(nullptr);
        mThread.join();
    }
    void Post(osal::IMsgHandler* handler)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mHandlers.push_back(handler);
        mCond.notify_one();
    }
    void Remove(osal::IMsgHandler* handler)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mHandlers.erase(std::remove(mHandlers.begin(), mHandlers.end(), handler), mHandlers.end());
    }

private:
    void Work()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            mCond.wait(lock, [this] { return !mHandlers.empty(); });
            osal::IMsgHandler* const handler = mHandlers.front();
            mHandlers.pop_front();
            if (handler == nullptr) {
                return;
            }
            lock.unlock();
            int32_t arg = 0;
            handler->HandleMsg(arg);
            lock.lock();
        }
    }

    std::thread mThread;
    std::mutex mMutex;  // guards mHandlers
    std::condition_variable mCond;
    std::deque<osal::IMsgHandler*> mHandlers;  // null ends the worker
};

// A bare mutex and condition variable with room for one message: the least that a hop between threads costs.
class CondVar {
public:
    static constexpr const char* NAME = "condvar";

    void Start()
    {
        mThread = std::thread([this] { Work(); });
    }
    void Stop()
    {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mStopped = true;
            mCond.notify_one();
        }
        mThread.join();
    }
    void Post(osal::IMsgHandler* handler)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mHandler = handler;
        mCond.notify_one();
    }

private:
    void Work()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            mCond.wait(lock, [this] { return mHandler != nullptr || mStopped; });
            if (mStopped) {
                return;
            }
            osal::IMsgHandler* const handler = std::exchange(mHandler, nullptr);
            lock.unlock();
            int32_t arg = 0;
            handler->HandleMsg(arg);
            lock.lock();
        }
    }

    std::thread mThread;
    std::mutex mMutex;  // guards mHandler and mStopped
    std::condition_variable mCond;
    osal::IMsgHandler* mHandler = nullptr;
    bool mStopped = false;
};

// Lateness of the bare system call, on a thread that may have asked for real-time scheduling first.
template <bool REAL_TIME>
void ClockNanosleep(benchmark::State& state)
{
    std::vector<uint64_t> latenessNs;
    std::thread sleeper([&] {
        if (REAL_TIME) {
            osal::SetThreadPriority(osal::GetThreadId(), osal::Thread::PRIORITY_DEFAULT);
        }
        for (auto _ : state) {
            const uint64_t beginNs = NowNs();
            const uint64_t dueNs = beginNs + LATENESS_DELAY_NS;
            timespec due{};
            due.tv_sec = static_cast<time_t>(dueNs / 1'000'000'000);
            due.tv_nsec = static_cast<long>(dueNs % 1'000'000'000);
            clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
            const uint64_t endNs = NowNs();
            latenessNs.push_back(endNs - dueNs);
            state.SetIterationTime(1e-9 * static_cast<double>(endNs - beginNs));
        }
    });
    sleeper.join();
    ReportLateness(state, latenessNs);
}

const bool REGISTERED = [] {
    Register("queue/lateness", "clock_nanosleep", ClockNanosleep<false>);
    Register("queue/lateness", "clock_nanosleep_rt", ClockNanosleep<true>);
    return RegisterQueue<OsalQueue, ALL_BUT_REMOVAL | REMOVAL>() &&
           RegisterQueue<OsalRealTimeQueue, HOP | LATENESS>() &&
           RegisterQueue<LockedDeque, WITHOUT_DELAY | REMOVAL>() && RegisterQueue<CondVar, HOP>();
}();

}  // namespace

}  // namespace bench
