#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <ctime>
#include <malloc.h>
#include <map>
#include <mutex>
#include <string>
#include <type_traits>
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
inline double InUseBytes()
{
    const struct mallinfo2 info = mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
}

// Whether a T has what OPERATION takes.
template <template <typename> class OPERATION, typename T, typename = void>
constexpr bool CAN = false;
template <template <typename> class OPERATION, typename T>
constexpr bool CAN<OPERATION, T, std::void_t<OPERATION<T>>> = true;

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
        mCond.wait(lock, [this] { return mSet; });
        mSet = false;
    }

private:
    std::mutex mMutex;  // guards mSet
    std::condition_variable mCond;
    bool mSet = false;
};

// Gathers the times of the iterations of one benchmark. A counter is the time of one item: of one message, one
// entry, one value. It is the median of the iterations, of which some are held up by whatever else the machine
// does.
class ItemTimer {
public:
    explicit ItemTimer(benchmark::State& state) : mState(state)
    {
        // Tidies up what earlier rounds of this process have left on the heap: else that would happen in this
        // one's time, and its nodes would be scattered among the remains. So the timer is made before the nodes.
        malloc_trim(0);
    }
    ~ItemTimer()
    {
        for (auto& [counter, itemNs] : mItemNs) {
            const auto middle = itemNs.begin() + static_cast<std::ptrdiff_t>(itemNs.size() / 2);
            std::nth_element(itemNs.begin(), middle, itemNs.end());
            mState.counters[counter] = *middle;
        }
    }
    ItemTimer(const ItemTimer&) = delete;
    ItemTimer& operator=(const ItemTimer&) = delete;

    // To be called once in each iteration, whose time it is.
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

private:
    benchmark::State& mState;
    std::map<std::string, std::vector<double>> mItemNs;  // of each iteration, by counter
};

// Registers `function` under "family/row/subject": the subjects of one row are compared with each other. `unit`
// says what the time of an item is the time of.
template <typename Function>
benchmark::internal::Benchmark* Register(const char* row, const char* subject, const char* unit, Function function)
{
    const auto run = [function, unit](benchmark::State& state) {
        state.SetLabel(unit);
        function(state);
    };
    return benchmark::RegisterBenchmark((std::string(row) + '/' + subject).c_str(), run)->UseManualTime();
}

}  // namespace bench
