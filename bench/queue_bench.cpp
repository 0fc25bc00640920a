// The library's queue, and the bounds: what the system and the plainest code take for the same.

#include "queue_shapes.h"

#include <deque>
#include <list>
#include <map>

namespace {

thread_local uint64_t allocations = 0;

}  // namespace

extern "C" void* __libc_malloc(size_t size);

// Takes the place of the system's, for all libraries alike.
extern "C" __attribute__((visibility("default"))) void* malloc(size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

namespace bench {

uint64_t Allocations() { return allocations; }

namespace {

class OsalQueue {
public:
    static constexpr const char* NAME = "osal";

    // No real-time priority: the system refuses it, and the worker keeps the scheduling that the workers of the
    // other queues have, too.
    void Start() { mQueue.Start("bench", static_cast<osal::Thread::Priority>(0)); }
    void Stop() { mQueue.Stop(); }
    void Post(osal::IMsgHandler* handler) { mQueue.QueueMsg(handler, 0); }
    void PostDelayed(osal::IMsgHandler* handler, uint64_t delayNs) { mQueue.QueueMsg(handler, delayNs); }
    void Remove(osal::IMsgHandler* handler) { mQueue.RemoveMsg(handler); }

private:
    osal::MsgQueue mQueue;
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

// The bare system call, which delays the thread itself.
class ClockNanosleep {
public:
    static constexpr const char* NAME = "clock_nanosleep";

    void Start() {}
    void Stop() {}
    void PostDelayed(osal::IMsgHandler* handler, uint64_t delayNs)
    {
        const uint64_t dueNs = NowNs() + delayNs;
        timespec due{};
        due.tv_sec = static_cast<time_t>(dueNs / 1'000'000'000);
        due.tv_nsec = static_cast<long>(dueNs % 1'000'000'000);
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
        int32_t arg = 0;
        handler->HandleMsg(arg);
    }
};

// A map from due time to list, as the queue keeps its messages in, but alone: no thread, no lock, nobody to wake.
using MapOfLists = std::map<uint64_t, std::list<std::pair<osal::IMsgHandler*, int32_t>>>;

void FileIn(MapOfLists& pending, osal::IMsgHandler* handler, uint64_t dueNs)
{
    pending.try_emplace(pending.end(), dueNs)->second.emplace_back(handler, 0);
}

void TimersInMap(benchmark::State& state)
{
    CountDown work;
    MapOfLists pending;
    const auto runDue = [&pending](uint64_t nowNs) {
        while (!pending.empty() && pending.begin()->first <= nowNs) {
            for (auto& [handler, arg] : pending.begin()->second) {
                handler->HandleMsg(arg);
            }
            pending.erase(pending.begin());
        }
    };
    TimeTimers(state, [&] {
        work.Expect(DELAYS);
        for (uint64_t i = 0; i < DELAYS; ++i) {
            const uint64_t nowNs = NowNs();
            FileIn(pending, &work, nowNs + DelayNs(i, Due::IN_NO_ORDER));
            runDue(nowNs);
        }
        runDue(UINT64_MAX);
        work.Wait();
    });
}

// Only looks for the message, and takes nothing out.
template <Due DUE>
void RemovalInMap(benchmark::State& state)
{
    const auto messages = static_cast<uint64_t>(state.range(0));
    ItemTimer timer(state);
    CountDown others;
    CountDown removed;
    MapOfLists pending;
    for (uint64_t i = 0; i < messages; ++i) {
        FileIn(pending, i == messages / 2 ? &removed : &others, NowNs() + DelayNs(i, DUE));
    }
    for (auto _ : state) {
        uint64_t found = 0;
        const uint64_t beginNs = NowNs();
        for (const auto& [dueNs, items] : pending) {
            for (const auto& [handler, arg] : items) {
                found += handler == &removed ? 1 : 0;
            }
        }
        benchmark::DoNotOptimize(found);
        timer.Add(NowNs() - beginNs, messages);
    }
    timer.Report();
}

bool RegisterMap()
{
    constexpr const char* NAME = "map_of_lists";
    Register("queue/timers", NAME, TimersInMap);
    RegisterRemoval("queue/removal_in_order", NAME, RemovalInMap<Due::IN_ORDER>);
    RegisterRemoval("queue/removal_in_no_order", NAME, RemovalInMap<Due::IN_NO_ORDER>);
    return true;
}

const bool REGISTERED = RegisterQueue<OsalQueue, ALL_BUT_REMOVAL | REMOVAL | REMOVAL_TIMED>() && RegisterMap() &&
                        RegisterQueue<LockedDeque, WITHOUT_DELAY | REMOVAL>() && RegisterQueue<CondVar, HOP>() &&
                        RegisterQueue<ClockNanosleep, LATENESS>();

}  // namespace

}  // namespace bench
