#pragma once

// The rows of the queue benchmarks, once for all queues. A queue is adapted by a class with
//
//     static constexpr const char* NAME;
//     void Start();   // with a worker thread
//     void Stop();    // joins it; nothing is pending then
//     void Post(osal::IMsgHandler* handler);                           // all rows but TIMERS and LATENESS
//     void PostDelayed(osal::IMsgHandler* handler, uint64_t delayNs);  // TIMERS, LATENESS and REMOVAL_TIMED
//     void Remove(osal::IMsgHandler* handler);                         // REMOVAL and REMOVAL_TIMED
//
// which calls HandleMsg() on the worker. Posting has to be safe from any thread.

#include "bench_util.h"
#include "osal/msg_queue.h"

#include <algorithm>
#include <future>
#include <thread>
#include <utility>
#include <vector>

namespace bench {

enum Rows : unsigned {
    BURST = 1,
    POST = 2,
    TIMERS = 4,
    HOP = 8,
    LATENESS = 16,
    REMOVAL = 32,
    REMOVAL_TIMED = 64,
    MEMORY = 128,
    WITHOUT_DELAY = BURST | POST | HOP | MEMORY,
    ALL_BUT_REMOVAL = WITHOUT_DELAY | TIMERS | LATENESS,
};

// Calls of malloc() by this thread.
uint64_t Allocations();

class Handler : public osal::IMsgHandler {
public:
    void Wait() override {}
    void NotifyFinished() override {}
};

// Holds the worker, so that what is posted meanwhile is only queued.
class Parker : public Handler {
public:
    template <typename Queue>
    void Park(Queue& queue)
    {
        queue.Post(this);
        mParked.Wait();
    }
    void Release() { mRelease.Set(); }
    // When the worker went on; to be read after a later message has run.
    uint64_t ReleasedNs() const { return mReleasedNs; }

    void HandleMsg(int32_t&) override
    {
        mParked.Set();
        mRelease.Wait();
        mReleasedNs = NowNs();
    }

private:
    Event mParked;
    Event mRelease;
    uint64_t mReleasedNs = 0;
};

// Waits for the last of a number of messages. The time is taken on the worker: the wake-up of the thread that
// waits is no part of it.
class CountDown : public Handler {
public:
    // Before the first message is posted: the queue's lock makes it visible to the worker.
    void Expect(uint64_t messages) { mLeft = messages; }
    void Wait() override { mDone.Wait(); }
    uint64_t Left() const { return mLeft; }
    uint64_t EndNs() const { return mEndNs; }

    void HandleMsg(int32_t&) override
    {
        if (--mLeft == 0) {
            mEndNs = NowNs();
            mDone.Set();
        }
    }

private:
    Event mDone;
    uint64_t mLeft = 0;
    uint64_t mEndNs = 0;
};

template <typename Queue>
void Burst(benchmark::State& state)
{
    constexpr uint64_t MESSAGES = 10'000;
    Parker parker;
    CountDown work;
    Queue queue;
    queue.Start();
    ItemTimer timer(state);
    for (auto _ : state) {
        parker.Park(queue);
        work.Expect(MESSAGES);
        const uint64_t beginNs = NowNs();
        for (uint64_t i = 0; i < MESSAGES; ++i) {
            queue.Post(&work);
        }
        const uint64_t queueNs = NowNs() - beginNs;
        parker.Release();
        work.Wait();
        const uint64_t runNs = work.EndNs() - parker.ReleasedNs();
        timer.Add(queueNs + runNs, MESSAGES);
        timer.Share("queue_ns", queueNs, MESSAGES);
        timer.Share("run_ns", runNs, MESSAGES);
    }
    queue.Stop();
    timer.Report();
}

// From the first message posted to the last one run, with as many producers as the argument says.
template <typename Queue>
void Post(benchmark::State& state)
{
    constexpr uint64_t MESSAGES = 20'000;
    const auto producers = static_cast<uint64_t>(state.range(0));
    CountDown work;
    Queue queue;
    queue.Start();
    ItemTimer timer(state);
    for (auto _ : state) {
        work.Expect(MESSAGES);
        std::promise<void> gate;
        const std::shared_future<void> opened = gate.get_future().share();
        std::vector<uint64_t> beginNs(producers);
        std::vector<std::thread> threads;
        for (uint64_t producer = 0; producer < producers; ++producer) {
            threads.emplace_back([&, producer] {
                opened.wait();
                beginNs[producer] = NowNs();
                for (uint64_t i = 0; i < MESSAGES / producers; ++i) {
                    queue.Post(&work);
                }
            });
        }
        gate.set_value();
        work.Wait();
        for (std::thread& thread : threads) {
            thread.join();
        }
        timer.Add(work.EndNs() - *std::min_element(beginNs.begin(), beginNs.end()), MESSAGES);
    }
    queue.Stop();
    timer.Report();
}

enum class Due {
    AT_ONCE,
    IN_ORDER,  // each message at a time of its own, in the order of posting
    IN_NO_ORDER,
};

// The first DELAYS messages have that many different delays, up to 20 ms.
constexpr uint64_t DELAYS = 100'000;

inline uint64_t DelayNs(uint64_t index, Due due)
{
    constexpr uint64_t SPAN_NS = 20'000'000;
    constexpr uint64_t STRIDE = 61'803;  // without a divisor in common with DELAYS
    return ((due == Due::IN_ORDER ? index : index * STRIDE) % DELAYS + 1) * (SPAN_NS / DELAYS);
}

// Times `runAll`, which runs DELAYS messages: processor time of the whole process, since most of the real time is
// spent waiting.
template <typename RunAll>
void TimeTimers(benchmark::State& state, RunAll runAll)
{
    ItemTimer timer(state);
    runAll();  // not timed: from now on the heap is one that nodes have been returned to
    for (auto _ : state) {
        const uint64_t beginNs = ClockNs(CLOCK_PROCESS_CPUTIME_ID);
        runAll();
        timer.Add(ClockNs(CLOCK_PROCESS_CPUTIME_ID) - beginNs, DELAYS);
    }
    timer.Report();
}

template <typename Queue>
void Timers(benchmark::State& state)
{
    CountDown work;
    Queue queue;
    queue.Start();
    TimeTimers(state, [&] {
        work.Expect(DELAYS);
        for (uint64_t i = 0; i < DELAYS; ++i) {
            queue.PostDelayed(&work, DelayNs(i, Due::IN_NO_ORDER));
        }
        work.Wait();
    });
    queue.Stop();
}

// One side of a message that is bounced to and fro.
template <typename Queue>
class Bouncer : public Handler {
public:
    void Connect(Queue& queue, Bouncer& other, CountDown& hops)
    {
        mQueue = &queue;
        mOther = &other;
        mHops = &hops;
    }
    // Only one side at a time gets here: the queues hand the count over.
    void HandleMsg(int32_t& arg) override
    {
        const bool isLast = mHops->Left() == 1;
        mHops->HandleMsg(arg);
        if (!isLast) {
            mQueue->Post(mOther);
        }
    }

private:
    Queue* mQueue = nullptr;
    Bouncer* mOther = nullptr;
    CountDown* mHops = nullptr;
};

template <typename Queue>
void Hop(benchmark::State& state)
{
    constexpr uint64_t HOPS = 200;
    CountDown hops;
    Bouncer<Queue> ping;
    Bouncer<Queue> pong;
    Queue left;
    Queue right;
    ping.Connect(right, pong, hops);
    pong.Connect(left, ping, hops);
    left.Start();
    right.Start();
    ItemTimer timer(state);
    for (auto _ : state) {
        hops.Expect(HOPS);
        const uint64_t beginNs = NowNs();
        left.Post(&ping);
        hops.Wait();
        timer.Add(hops.EndNs() - beginNs, HOPS);
    }
    left.Stop();
    right.Stop();
    timer.Report();
}

constexpr uint64_t LATENESS_DELAY_NS = 1'000'000;

// With real-time scheduling the worker inherits it: all queues get the same, and none has to ask.
template <typename Queue, bool REAL_TIME>
void Lateness(benchmark::State& state)
{
    CountDown message;
    Queue queue;
    if (REAL_TIME && !SetRealTime(true)) {
        state.SkipWithError("no real-time scheduling");
    }
    queue.Start();
    std::vector<int64_t> latenessNs;  // below 0 where a queue is early
    for (auto _ : state) {
        message.Expect(1);
        const uint64_t beginNs = NowNs();
        queue.PostDelayed(&message, LATENESS_DELAY_NS);
        message.Wait();
        const uint64_t tookNs = message.EndNs() - beginNs;
        latenessNs.push_back(static_cast<int64_t>(tookNs) - static_cast<int64_t>(LATENESS_DELAY_NS));
        state.SetIterationTime(1e-9 * static_cast<double>(tookNs));
    }
    queue.Stop();
    SetRealTime(false);
    if (latenessNs.empty()) {
        return;
    }
    std::sort(latenessNs.begin(), latenessNs.end());
    const size_t last = latenessNs.size() - 1;
    state.counters["median_ns"] = static_cast<double>(latenessNs[last / 2]);
    state.counters["p99_ns"] = static_cast<double>(latenessNs[last * 99 / 100]);
}

inline bool CanBeRealTime()
{
    static const bool result = [] {
        const bool isAllowed = SetRealTime(true);
        SetRealTime(false);
        if (!isAllowed) {
            std::fputs("skipped queue/lateness_rt: there is no right to real-time scheduling here\n", stderr);
        }
        return isAllowed;
    }();
    return result;
}

// The one message of a handler among as many as the argument says, posted first in their middle, then after them;
// "ns" is per pending message.
template <typename Queue, Due DUE>
void Removal(benchmark::State& state)
{
    const auto pending = static_cast<uint64_t>(state.range(0));
    ItemTimer timer(state);
    Parker parker;
    CountDown others;
    CountDown removed;
    Queue queue;
    queue.Start();
    parker.Park(queue);
    others.Expect(pending - 1);
    removed.Expect(1);
    for (uint64_t i = 0; i < pending; ++i) {
        osal::IMsgHandler* const handler = i == pending / 2 ? &removed : &others;
        if constexpr (DUE == Due::AT_ONCE) {
            queue.Post(handler);
        } else {
            queue.PostDelayed(handler, DelayNs(i, DUE));
        }
    }
    uint64_t allocations = 0;
    for (auto _ : state) {
        const uint64_t before = Allocations();
        const uint64_t beginNs = NowNs();
        queue.Remove(&removed);
        const uint64_t tookNs = NowNs() - beginNs;
        allocations += Allocations() - before;
        timer.Add(tookNs, pending);
        queue.Post(&removed);
    }
    state.counters["allocations"] = static_cast<double>(allocations);
    parker.Release();
    others.Wait();
    removed.Wait();
    queue.Stop();
    timer.Report();
}

// "bytes" per pending message, and what is left in "idle_bytes" once as many as the argument says have run.
template <typename Queue>
void Memory(benchmark::State& state)
{
    const auto messages = static_cast<uint64_t>(state.range(0));
    Parker parker;
    CountDown work;
    Queue queue;
    queue.Start();
    parker.Park(queue);  // whatever is only made for the first message is there
    parker.Release();
    double bytes = 0;
    double idleBytes = 0;
    for (auto _ : state) {
        parker.Park(queue);
        const uint64_t beginBytes = InUseBytes();
        const uint64_t beginNs = NowNs();
        work.Expect(messages);
        for (uint64_t i = 0; i < messages; ++i) {
            queue.Post(&work);
        }
        bytes = static_cast<double>(InUseBytes() - beginBytes) / static_cast<double>(messages);
        parker.Release();
        work.Wait();
        // The worker is done with the last message only when it has come to another one.
        parker.Park(queue);
        idleBytes = static_cast<double>(InUseBytes()) - static_cast<double>(beginBytes);
        parker.Release();
        state.SetIterationTime(1e-9 * static_cast<double>(NowNs() - beginNs));
    }
    work.Expect(1);
    queue.Post(&work);  // the worker has left the parker
    work.Wait();
    queue.Stop();
    state.counters["bytes"] = bytes;
    state.counters["idle_bytes"] = idleBytes;
}

inline void RegisterRemoval(const char* row, const char* subject, void (*function)(benchmark::State&))
{
    Register(row, subject, function)->ArgName("pending")->Arg(10)->Arg(1'000)->Arg(100'000);
}

// Registers the rows that the queue can do; the result is there to initialise a constant with.
template <typename Queue, unsigned ROWS>
bool RegisterQueue()
{
    if constexpr ((ROWS & BURST) != 0) {
        Register("queue/burst", Queue::NAME, Burst<Queue>);
    }
    if constexpr ((ROWS & POST) != 0) {
        Register("queue/post", Queue::NAME, Post<Queue>)->ArgName("producers")->Arg(1)->Arg(2);
    }
    if constexpr ((ROWS & TIMERS) != 0) {
        Register("queue/timers", Queue::NAME, Timers<Queue>);
    }
    if constexpr ((ROWS & HOP) != 0) {
        Register("queue/hop", Queue::NAME, Hop<Queue>);
    }
    if constexpr ((ROWS & LATENESS) != 0) {
        Register("queue/lateness", Queue::NAME, Lateness<Queue, false>);
        if (CanBeRealTime()) {
            Register("queue/lateness_rt", Queue::NAME, Lateness<Queue, true>);
        }
    }
    if constexpr ((ROWS & REMOVAL) != 0) {
        RegisterRemoval("queue/removal", Queue::NAME, Removal<Queue, Due::AT_ONCE>);
    }
    if constexpr ((ROWS & REMOVAL_TIMED) != 0) {
        RegisterRemoval("queue/removal_in_order", Queue::NAME, Removal<Queue, Due::IN_ORDER>);
        RegisterRemoval("queue/removal_in_no_order", Queue::NAME, Removal<Queue, Due::IN_NO_ORDER>);
    }
    if constexpr ((ROWS & MEMORY) != 0) {
        Register("queue/memory", Queue::NAME, Memory<Queue>)->ArgName("pending")->Arg(1'000'000)->Iterations(1);
    }
    return true;
}

}  // namespace bench
