#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <initializer_list>
#include <malloc.h>
#include <map>
#include <mutex>
#include <pthread.h>
#include <sched.h>
#include <string>
#include <vector>

namespace bench {

inline uint64_t ClockNs(clockid_t clock)
{
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

inline uint64_t NowNs() { return ClockNs(CLOCK_MONOTONIC); }

// What the program holds from malloc(), all threads together; a few blocks that a thread keeps for reuse count
// as held.
inline uint64_t InUseBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

// Moves the calling thread to real-time scheduling, or back. Threads that it starts meanwhile are like it.
inline bool SetRealTime(bool isOn)
{
    sched_param param{};
    param.sched_priority = isOn ? 10 : 0;
    return pthread_setschedparam(pthread_self(), isOn ? SCHED_FIFO : SCHED_OTHER, &param) == 0;
}

// Set by one thread, waited for by another, which takes the signal away with it. It may be destroyed as soon as
// Wait() has returned.
class Event {
public:
    void Set()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSet = true;
        mCond.notify_one();
    }
    void Wait()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        // Only a queue that loses messages uses this up; there is nothing left to measure then.
        if (!mCond.wait_for(lock, std::chrono::seconds(120), [this] { return mSet; })) {
            std::fputs("an event that a benchmark waits for does not come\n", stderr);
            std::abort();
        }
        mSet = false;
    }

private:
    std::mutex mMutex;  // guards mSet
    std::condition_variable mCond;
    bool mSet = false;
};

// Gathers the times of the iterations of one benchmark. Its counter "ns" is the time of one item: of one message,
// one entry, one value. That is what the rows of one name are compared by. It is the median of the iterations, of
// which some are held up by whatever else the machine does.
class ItemTimer {
public:
    explicit ItemTimer(benchmark::State& state) : mState(state)
    {
        // Tidies up what earlier rounds of this process have left on the heap: else that would happen in this
        // one's time, and its nodes would be scattered among the remains. So the timer is made before the nodes.
        malloc_trim(0);
    }

    // To be called once in each iteration, whose time it is; the benchmark has to use manual time.
    void Add(uint64_t ns, uint64_t items)
    {
        Share("ns", ns, items);
        mState.SetIterationTime(1e-9 * static_cast<double>(ns));
    }
    // A share of the time, under a name of its own.
    void Share(const char* counter, uint64_t ns, uint64_t items)
    {
        mItemNs[counter].push_back(static_cast<double>(ns) / static_cast<double>(items));
    }
    void Report()
    {
        for (auto& [counter, itemNs] : mItemNs) {
            const auto middle = itemNs.begin() + static_cast<std::ptrdiff_t>(itemNs.size() / 2);
            std::nth_element(itemNs.begin(), middle, itemNs.end());
            mState.counters[counter] = *middle;
        }
    }

private:
    benchmark::State& mState;
    std::map<std::string, std::vector<double>> mItemNs;  // of each iteration, by counter
};

// Registers `function` under "family/row/subject": the subjects of one row are compared with each other.
template <typename Function>
benchmark::internal::Benchmark* Register(const char* row, const char* subject, Function function)
{
    const std::string name = std::string(row) + '/' + subject;
    return benchmark::RegisterBenchmark(name.c_str(), function)->UseManualTime();
}

// Notes for the report what is compared with; the result is there to initialise a constant with.
inline bool Version(const char* peer, const std::string& version)
{
    benchmark::AddCustomContext(std::string("version of ") + peer, version);
    return true;
}
inline bool Version(const char* peer, std::initializer_list<int> numbers)
{
    std::string version;
    for (const int number : numbers) {
        version += (version.empty() ? "" : ".") + std::to_string(number);
    }
    return Version(peer, version);
}

}  // namespace bench
