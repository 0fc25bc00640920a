#pragma once

// The rows of queues. A queue is a class with
//
//     void Start();                                       // with a worker thread
//     void Stop();                                        // joins it
//     void Post(Task* task);                              // calls task->Run() on the worker; from any thread
//     void PostDelayed(Task* task, uint64_t delayNs);     // the same, later
//     void Remove(Task* task);                            // drops what is pending for it
//
// or some of these; the rows that need none of the others are measured. Without Start() it is no more than a
// collection of messages.

#include "bench.h"
#include "osal/msg_queue.h"

#include <array>
#include <functional>
#include <pthread.h>
#include <sched.h>
#include <thread>

namespace bench {

// Any queue runs it through Run(); it is a handler for the library's own.
class Task : public osal::IMsgHandler {
public:
    void Run()
    {
        int32_t arg = 0;
        HandleMsg(arg);
    }
    void HandleMsg(int32_t&) override {}
    void Wait() override {}
    void NotifyFinished() override {}
};

class Call : public Task {
public:
    explicit Call(std::function<void()> call) : mCall(std::move(call)) {}
    void HandleMsg(int32_t&) override { mCall(); }

private:
    std::function<void()> mCall;
};

// Holds the worker, so that what is posted meanwhile is only queued.
template <typename Queue>
class Parker {
public:
    void Park(Queue& queue)
    {
        queue.Post(&mPark);
        mParked.Wait();
    }
    void Release() { mRelease.Set(); }
    // When the worker went on; to be read after a later message has run.
    uint64_t ReleasedNs() const { return mReleasedNs; }

private:
    Event mParked;
    Event mRelease;
    uint64_t mReleasedNs = 0;
    Call mPark{[this] {
        mParked.Set();
        mRelease.Wait();
        mReleasedNs = NowNs();
    }};
};

// Waits for the last of a number of messages. The time is taken on the worker: the wake-up of the thread that
// waits is no part of it.
class CountDown : public Task {
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

template <typename T>
using StartOf = decltype(std::declval<T&>().Start());
template <typename T>
using PostOf = decltype(std::declval<T&>().Post(nullptr));
template <typename T>
using PostDelayedOf = decltype(std::declval<T&>().PostDelayed(nullptr, 0));
template <typename T>
using RemoveOf = decltype(std::declval<T&>().Remove(nullptr));
template <typename T>
using SleepOf = decltype(std::declval<T&>().SleepNs(0));

// A queue while its worker runs, if it has one.
template <typename Queue>
struct Running : Queue {
    Running()
    {
        if constexpr (CAN<StartOf, Queue>) {
            Queue::Start();
        }
    }
    ~Running()
    {
        if constexpr (CAN<StartOf, Queue>) {
            Queue::Stop();
        }
    }
};

enum Due : int64_t { AT_ONCE, IN_ORDER, IN_NO_ORDER };

// Time between two messages with due times of their own.
constexpr uint64_t STEP_NS = 200;

// How far behind the first due time a message's own is.
inline uint64_t OffsetNs(uint64_t index, uint64_t messages, Due due)
{
    constexpr uint64_t STRIDE = 61'803;  // without a divisor in common with the powers of ten
    return (due == IN_NO_ORDER ? index * STRIDE % messages : index) * STEP_NS;
}

// Posts a message that is due at that time; at once for 0.
template <typename Queue>
void PostAt(Queue& queue, Task* task, uint64_t dueNs)
{
    if constexpr (CAN<PostDelayedOf, Queue>) {
        if (dueNs != 0) {
            const uint64_t nowNs = NowNs();
            queue.PostDelayed(task, std::max(dueNs, nowNs + 1) - nowNs);
            return;
        }
    }
    if constexpr (CAN<PostOf, Queue>) {
        queue.Post(task);
    }
}

// All messages are queued while the worker is parked, and then run. With the memory that a pending message takes,
// and what is left when the queue is idle again.
template <typename Queue>
void Burst(benchmark::State& state)
{
    const auto messages = static_cast<uint64_t>(state.range(0));
    const auto due = static_cast<Due>(state.range(1));
    static std::array<uint64_t, 3> lastNs{};  // by Due: what the tenth part of the messages took
    if (lastNs[due] > 500'000'000) {
        state.SkipWithError("left out: a tenth of the messages takes over 0.5 s");
        return;
    }
    ItemTimer timer(state);
    Parker<Queue> parker;
    CountDown work;
    Running<Queue> queue;
    for (auto _ : state) {
        parker.Park(queue);
        work.Expect(messages);
        const double beginBytes = InUseBytes();
        const uint64_t beginNs = NowNs();
        const uint64_t firstDueNs = beginNs + messages * 1'000;  // behind the last posting
        for (uint64_t i = 0; i < messages; ++i) {
            PostAt<Queue>(queue, &work, due == AT_ONCE ? 0 : firstDueNs + OffsetNs(i, messages, due));
        }
        const uint64_t queueNs = NowNs() - beginNs;
        const double pendingBytes = InUseBytes() - beginBytes;
        if (due != AT_ONCE) {  // until all are due, by coarse clocks too
            const uint64_t lastDueNs = firstDueNs + messages * STEP_NS + 20'000'000;
            std::this_thread::sleep_for(std::chrono::nanoseconds(lastDueNs - std::min(lastDueNs, NowNs())));
            state.SetIterationTime(1e-9 *
                                   static_cast<double>(NowNs() - beginNs));  // of the iteration, not of "ns"
        }
        parker.Release();
        work.Wait();
        lastNs[due] = queueNs + work.EndNs() - parker.ReleasedNs();
        timer.Add(lastNs[due], messages);
        timer.Share("queue_ns", queueNs, messages);
        timer.Share("run_ns", work.EndNs() - parker.ReleasedNs(), messages);
        parker.Park(queue);  // the worker is done with the last message
        state.counters["bytes"] = pendingBytes / static_cast<double>(messages);
        state.counters["idle_bytes"] = InUseBytes() - beginBytes;
        parker.Release();
    }
}

// From before the first message is posted until the last one has run, with as many producers as the argument says.
template <typename Queue>
void Post(benchmark::State& state)
{
    constexpr uint64_t MESSAGES = 20'000;
    ItemTimer timer(state);
    CountDown work;
    Running<Queue> queue;
    for (auto _ : state) {
        work.Expect(MESSAGES);
        std::vector<std::thread> producers(static_cast<size_t>(state.range(0)));
        const uint64_t beginNs = NowNs();
        for (std::thread& producer : producers) {
            producer = std::thread([&] {
                for (uint64_t i = 0; i < MESSAGES / producers.size(); ++i) {
                    queue.Post(&work);
                }
            });
        }
        work.Wait();
        timer.Add(work.EndNs() - beginNs, MESSAGES);
        for (std::thread& producer : producers) {
            producer.join();
        }
    }
}

// Processor time of the whole process, since most of the real time is spent waiting. The argument is the number of
// untimed rounds before: after the first one the heap is one that nodes have been returned to.
template <typename Queue>
void Timers(benchmark::State& state)
{
    constexpr uint64_t MESSAGES = 100'000;
    ItemTimer timer(state);
    CountDown work;
    Running<Queue> queue;
    const auto runAll = [&] {
        work.Expect(MESSAGES);
        for (uint64_t i = 0; i < MESSAGES; ++i) {
            queue.PostDelayed(&work, OffsetNs(i, MESSAGES, IN_NO_ORDER) + STEP_NS);
        }
        work.Wait();
    };
    for (int64_t round = 0; round < state.range(0); ++round) {
        runAll();
    }
    for (auto _ : state) {
        const uint64_t beginNs = ClockNs(CLOCK_PROCESS_CPUTIME_ID);
        runAll();
        timer.Add(ClockNs(CLOCK_PROCESS_CPUTIME_ID) - beginNs, MESSAGES);
    }
}

template <typename Queue>
void Hop(benchmark::State& state)
{
    constexpr uint64_t HOPS = 200;
    ItemTimer timer(state);
    CountDown hops;
    Running<Queue> left;
    Running<Queue> right;
    // Only one side at a time counts: the queues hand the count over.
    const auto bounce = [&](Queue& queue, Call& other) {
        const bool isLast = hops.Left() == 1;
        hops.Run();
        if (!isLast) {
            queue.Post(&other);
        }
    };
    std::array<Call, 2> sides{Call([&] { bounce(right, sides[1]); }), Call([&] { bounce(left, sides[0]); })};
    for (auto _ : state) {
        hops.Expect(HOPS);
        const uint64_t beginNs = NowNs();
        left.Post(sides.data());
        hops.Wait();
        timer.Add(hops.EndNs() - beginNs, HOPS);
    }
}

// Moves the calling thread to real-time scheduling, or back. Threads that it starts meanwhile are like it.
inline bool SetRealTime(bool isOn)
{
    sched_param param{};
    param.sched_priority = isOn ? 10 : 0;
    return pthread_setschedparam(pthread_self(), isOn ? SCHED_FIFO : SCHED_OTHER, &param) == 0;
}

// A bare call that delays its thread is measured on that thread.
template <typename Queue>
void Lateness(benchmark::State& state)
{
    constexpr uint64_t DELAY_NS = 1'000'000;
    // The worker inherits real-time scheduling: all queues get the same, and none has to ask.
    if (state.range(0) != 0 && !SetRealTime(true)) {
        state.SkipWithError("left out: there is no right to real-time scheduling here");
        return;
    }
    CountDown message;
    std::vector<double> latenessNs;  // below 0 where a queue is early
    Running<Queue> queue;
    for (auto _ : state) {
        message.Expect(1);
        const uint64_t beginNs = NowNs();
        if constexpr (CAN<SleepOf, Queue>) {
            queue.SleepNs(DELAY_NS);
            message.Run();
        } else {
            queue.PostDelayed(&message, DELAY_NS);
        }
        message.Wait();
        const auto tookNs = static_cast<double>(message.EndNs() - beginNs);
        latenessNs.push_back(tookNs - static_cast<double>(DELAY_NS));
        state.SetIterationTime(1e-9 * tookNs);
    }
    SetRealTime(false);
    std::sort(latenessNs.begin(), latenessNs.end());
    const size_t last = latenessNs.size() - 1;
    state.counters["median_ns"] = latenessNs[last / 2];
    state.counters["p99_ns"] = latenessNs[last * 99 / 100];
}

// The one message of a task among as many as the argument says, posted first in their middle, then after them;
// "ns" is per pending message. Those with due times stay pending.
template <typename Queue>
void Removal(benchmark::State& state)
{
    constexpr uint64_t HOUR_NS = 3'600'000'000'000;
    const auto pending = static_cast<uint64_t>(state.range(0));
    const auto due = static_cast<Due>(state.range(1));
    ItemTimer timer(state);
    Task others;
    Task removed;
    [[maybe_unused]] Parker<Queue> parker;
    Running<Queue> queue;
    if constexpr (CAN<StartOf, Queue>) {
        parker.Park(queue);
    }
    const uint64_t firstDueNs = NowNs() + HOUR_NS;
    const auto post = [&](Task* task, uint64_t index) {
        PostAt<Queue>(queue, task, due == AT_ONCE ? 0 : firstDueNs + OffsetNs(index, pending, due));
    };
    for (uint64_t i = 0; i < pending; ++i) {
        post(i == pending / 2 ? &removed : &others, i);
    }
    for (auto _ : state) {
        const uint64_t beginNs = NowNs();
        queue.Remove(&removed);
        timer.Add(NowNs() - beginNs, pending);
        post(&removed, pending / 2);
    }
    if constexpr (CAN<StartOf, Queue>) {
        parker.Release();
    }
}

// Registers the rows that a Queue can do.
template <typename Queue>
void AddQueueRows(const char* subject)
{
    const std::vector<int64_t> atOnce(CAN<PostOf, Queue> ? 1 : 0, AT_ONCE);
    std::vector<int64_t> dues(atOnce);
    if (CAN<PostDelayedOf, Queue>) {
        dues.insert(dues.end(), {IN_ORDER, IN_NO_ORDER});
    }
    if constexpr (CAN<PostOf, Queue>) {
        Register("queue/burst", subject, "a message, queued and run", Burst<Queue>)
            ->ArgNames({"pending", "due"})
            ->ArgsProduct({{100, 1'000, 10'000, 100'000, 1'000'000}, dues});
        Register("queue/post", subject, "a message", Post<Queue>)->ArgName("producers")->Arg(1)->Arg(2);
        Register("queue/hop", subject, "a hop", Hop<Queue>);
    }
    if constexpr (CAN<StartOf, Queue> && CAN<PostDelayedOf, Queue>) {
        Register("queue/timers", subject, "processor time, a message", Timers<Queue>)
            ->ArgName("rounds_before")
            ->Arg(0)
            ->Arg(1)
            ->Iterations(1);
    }
    if constexpr ((CAN<StartOf, Queue> && CAN<PostDelayedOf, Queue>) || CAN<SleepOf, Queue>) {
        Register("queue/lateness", subject, "after 1 ms", Lateness<Queue>)->ArgName("real_time")->Arg(0)->Arg(1);
    }
    if constexpr (CAN<RemoveOf, Queue>) {
        Register("queue/removal", subject, "a pending message", Removal<Queue>)
            ->ArgNames({"pending", "due"})
            ->ArgsProduct({{10, 100, 1'000, 10'000, 100'000, 1'000'000}, dues});
    }
}

}  // namespace bench
