#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <malloc.h>
#include <map>
#include <semaphore.h>
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

// Whether a T has the operation that OPERATION calls.
template <template <typename> class OPERATION, typename T, typename = void>
constexpr bool CAN = false;
template <template <typename> class OPERATION, typename T>
constexpr bool CAN<OPERATION, T, std::void_t<OPERATION<T>>> = true;

#define BENCH_OPERATION(NAME, ...) \
    template <typename T>          \
    using NAME = decltype(std::declval<T&>().__VA_ARGS__)

// Set by one thread, waited for by another, which resets it. It may be destroyed as soon as Wait() has returned.
struct Event {
    Event() { sem_init(&mSemaphore, 0, 0); }
    void Set() { sem_post(&mSemaphore); }
    void Wait() { sem_wait(&mSemaphore); }

    sem_t mSemaphore;
};

// Collects the times of the iterations of one benchmark. A counter is the time of one item: a message, an entry or
// a value. It is the median of the iterations, because other work of the machine delays some of them.
class ItemTimer {
public:
    explicit ItemTimer(benchmark::State& state) : mState(state)
    {
        // Releases free memory that earlier rounds of this process left on the heap: otherwise this happens in the
        // measured time, and the nodes are scattered. For this reason the timer is made before the nodes.
        malloc_trim(0);
    }
    ~ItemTimer()
    {
        for (auto& [counter, itemNs] : mItemNs) {
            std::sort(itemNs.begin(), itemNs.end());
            mState.counters[counter] = itemNs[(itemNs.size() - 1) * (counter == "p99_ns" ? 99 : 50) / 100];
        }
    }

    void Add(uint64_t ns, uint64_t items)
    {
        Share("ns", ns, items);
        Spend(ns);
    }
    // What ends the iterations in time; not part of the figures.
    void Spend(uint64_t ns) { mState.SetIterationTime(1e-9 * static_cast<double>(ns)); }
    // A share of the time, under a name of its own; below 0 if the difference of two times is.
    void Share(const char* counter, uint64_t ns, uint64_t items)
    {
        mItemNs[counter].push_back(static_cast<double>(static_cast<int64_t>(ns)) / static_cast<double>(items));
    }

private:
    benchmark::State& mState;
    std::map<std::string, std::vector<double>> mItemNs;  // of each iteration, by counter
};

// Registers `function` under "family/row/subject": the subjects of one row are compared with each other. `unit`
// names the item that a time belongs to.
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
