#pragma once

// The rows of queues. A queue is a class with
//
//     Queue();                                            // starts its worker thread
//     ~Queue();                                           // joins it
//     void Post(Task* task);                              // calls task->Run() on the worker; from any thread
//     void PostDelayed(Task* task, uint64_t delayNs);     // the same, later
//     void Remove(Task* task);                            // drops what is pending for it
//
// or some of these: it has figures in the rows for which these are enough. A collection of messages without a
// worker has Insert(Task* task, uint64_t dueNs) instead of posting; a bare call that delays its thread,
// SleepNs(delayNs).

#include "bench.h"
#include "osal/msg_queue.h"

#include <array>
#include <csignal>
#include <functional>
#include <pthread.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace bench {

// Any queue runs it through Run(); it is a handler for the library's own.
struct Task : osal::IMsgHandler {
    void Run() { HandleMsg(mArg); }
    void HandleMsg(int32_t&) override {}
    void Wait() override {}
    void NotifyFinished() override {}

    int32_t mArg = 0;
};

struct Call : Task {
    explicit Call(std::function<void()> call) : mCall(std::move(call)) {}
    void HandleMsg(int32_t&) override { mCall(); }

    std::function<void()> mCall;
};

BENCH_OPERATION(PostOf, Post(nullptr));
BENCH_OPERATION(PostDelayedOf, PostDelayed(nullptr, 0));
BENCH_OPERATION(RemoveOf, Remove(nullptr));
BENCH_OPERATION(InsertOf, Insert(nullptr, 0));
BENCH_OPERATION(SleepOf, SleepNs(0));

// Holds the worker, so that messages posted meanwhile are only queued.
template <typename Queue>
struct Parker {
    void Park(Queue& queue)
    {
        if constexpr (CAN<PostOf, Queue>) {
            queue.Post(&mPark);
            mParked.Wait();
        }
    }
    void Release() { mRelease.Set(); }

    Event mParked, mRelease;
    uint64_t mReleasedNs = 0;  // when the worker went on; to be read after a later message has run
    Call mPark{[this] {
        mParked.Set();
        mRelease.Wait();
        mReleasedNs = NowNs();
    }};
};

// Waits for the last of a number of messages. The time is taken on the worker: the wake-up of the thread that
// waits is no part of it.
struct CountDown : Task {
    void Wait() override { mDone.Wait(); }
    void HandleMsg(int32_t&) override
    {
        if (--mLeft == 0) {
            mEndNs = NowNs();
            mDone.Set();
        }
    }

    Event mDone;
    uint64_t mLeft = 0;  // set before the first message is posted: the lock of the queue makes it visible
    uint64_t mEndNs = 0;
};

enum Due : int64_t { AT_ONCE, IN_ORDER, SHUFFLED };

// Time between two messages with due times of their own.
constexpr uint64_t STEP_NS = 200;

// How far behind the first due time a message's own is.
inline uint64_t OffsetNs(uint64_t index, uint64_t messages, Due due)
{
    // The factor has no divisor in common with the powers of ten.
    return (due == SHUFFLED ? index * 61'803 % messages : index) * STEP_NS;
}

// Posts a message that is due at that time; at once for 0.
template <typename Queue>
void PostAt(Queue& queue, Task* task, uint64_t dueNs)
{
    if constexpr (CAN<InsertOf, Queue>) {
        queue.Insert(task, dueNs);
    } else if (dueNs == 0) {
        queue.Post(task);
    } else if constexpr (CAN<PostDelayedOf, Queue>) {
        const uint64_t nowNs = NowNs();
        queue.PostDelayed(task, std::max(dueNs, nowNs + 1) - nowNs);
    }
}

// All messages are queued while the worker is parked, and then run. With the memory that a pending message takes
// in the first round, and what is left of it when the queue is idle again.
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
    Queue queue;
    for (auto _ : state) {
        parker.Park(queue);
        work.mLeft = messages;
        const double beginBytes = InUseBytes();
        const uint64_t beginNs = NowNs();
        const uint64_t firstDueNs = beginNs + messages * 1'000;  // behind the last posting
        for (uint64_t i = 0; i < messages; ++i) {
            PostAt<Queue>(queue, &work, due == AT_ONCE ? 0 : firstDueNs + OffsetNs(i, messages, due));
        }
        const uint64_t queueNs = NowNs() - beginNs;
        if (state.counters.count("bytes") == 0) {
            state.counters["bytes"] = (InUseBytes() - beginBytes) / static_cast<double>(messages);
        }
        if (due != AT_ONCE) {  // until all are due, by coarse clocks too
            const uint64_t lastDueNs = firstDueNs + messages * STEP_NS + 20'000'000;
            std::this_thread::sleep_for(std::chrono::nanoseconds(lastDueNs - std::min(lastDueNs, NowNs())));
            timer.Spend(NowNs() - beginNs);
        }
        parker.Release();
        work.Wait();
        const uint64_t runNs = work.mEndNs - parker.mReleasedNs;
        parker.Park(queue);  // the worker is done with the last message
        if (state.counters.count("idle_bytes") == 0) {
            state.counters["idle_bytes"] = InUseBytes() - beginBytes;
        }
        parker.Release();
        lastNs[due] = queueNs + runNs;
        timer.Add(lastNs[due], messages);
        timer.Share("queue_ns", queueNs, messages);
        timer.Share("run_ns", runNs, messages);
    }
}

// From before the first message is posted until the last one has run, with as many producers as the argument says.
template <typename Queue>
void Post(benchmark::State& state)
{
    constexpr uint64_t MESSAGES = 20'000;
    ItemTimer timer(state);
    CountDown work;
    Queue queue;
    for (auto _ : state) {
        work.mLeft = MESSAGES;
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
        timer.Add(work.mEndNs - beginNs, MESSAGES);
        for (std::thread& producer : producers) {
            producer.join();
        }
    }
}

// Moves the calling thread to real-time scheduling, or back.
inline bool SetRealTime(bool isOn)
{
    sched_param param{};
    param.sched_priority = isOn ? 10 : 0;
    return pthread_setschedparam(pthread_self(), isOn ? SCHED_FIFO : SCHED_OTHER, &param) == 0;
}

// Gives the calling thread real-time scheduling for the life of the object, and keeps all processors busy with
// ordinary threads, whose time is that of another process. Workers that are started meanwhile inherit the
// scheduling: all queues get the same, and none has to ask.
class Machine {
public:
    Machine(benchmark::State& state, bool isRealTime, bool isBusy)
    {
        for (unsigned i = 0; isBusy && i < std::thread::hardware_concurrency(); ++i) {
            mBusy.push_back(fork());
            while (mBusy.back() == 0) {
                prctl(PR_SET_PDEATHSIG, SIGKILL);
            }
        }
        if (isRealTime && !SetRealTime(true)) {
            state.SkipWithError("left out: there is no right to real-time scheduling here");
        }
    }
    ~Machine()
    {
        SetRealTime(false);
        for (const pid_t process : mBusy) {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
        }
    }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

private:
    std::vector<pid_t> mBusy;
};

// Processor time of the whole process, since most of the real time is spent waiting. The first argument is the
// number of untimed rounds before: after the first one the heap is one that nodes have been returned to.
template <typename Queue>
void Timers(benchmark::State& state)
{
    constexpr uint64_t MESSAGES = 100'000;
    const Machine machine(state, state.range(1) != 0, state.range(2) != 0);
    ItemTimer timer(state);
    CountDown work;
    Queue queue;
    const auto runAll = [&] {
        work.mLeft = MESSAGES;
        for (uint64_t i = 0; i < MESSAGES; ++i) {
            queue.PostDelayed(&work, OffsetNs(i, MESSAGES, SHUFFLED) + STEP_NS);
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
    const Machine machine(state, state.range(0) != 0, state.range(1) != 0);
    ItemTimer timer(state);
    CountDown hops;
    Queue left, right;
    // Only one side at a time counts: the queues hand the count over.
    const auto bounce = [&](Queue& queue, Call& other) {
        const bool isLast = hops.mLeft == 1;
        hops.Run();
        if (!isLast) {
            queue.Post(&other);
        }
    };
    std::array<Call, 2> sides{Call([&] { bounce(right, sides[1]); }), Call([&] { bounce(left, sides[0]); })};
    for (auto _ : state) {
        hops.mLeft = HOPS;
        const uint64_t beginNs = NowNs();
        left.Post(sides.data());
        hops.Wait();
        timer.Add(hops.mEndNs - beginNs, HOPS);
    }
}

// A bare call that delays its thread is measured on that thread.
template <typename Queue>
void Lateness(benchmark::State& state)
{
    constexpr uint64_t DELAY_NS = 1'000'000;
    const Machine machine(state, state.range(0) != 0, false);
    ItemTimer timer(state);
    CountDown message;
    Queue queue;
    for (auto _ : state) {
        message.mLeft = 1;
        const uint64_t beginNs = NowNs();
        if constexpr (CAN<SleepOf, Queue>) {
            queue.SleepNs(DELAY_NS);
            message.Run();
        } else {
            queue.PostDelayed(&message, DELAY_NS);
        }
        message.Wait();
        const uint64_t latenessNs = message.mEndNs - beginNs - DELAY_NS;
        timer.Share("median_ns", latenessNs, 1);
        timer.Share("p99_ns", latenessNs, 1);
        timer.Spend(message.mEndNs - beginNs);
    }
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
    Task others, removed;
    Parker<Queue> parker;
    Queue queue;
    parker.Park(queue);
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
    parker.Release();
}

// Registers the rows that a Queue can do.
template <typename Queue>
void AddQueueRows(const char* subject)
{
    constexpr bool CAN_DELAY = CAN<PostDelayedOf, Queue>;
    std::vector<int64_t> dues{AT_ONCE, IN_ORDER, SHUFFLED};
    dues.resize(CAN_DELAY || CAN<InsertOf, Queue> ? 3 : 1);
    if constexpr (CAN<PostOf, Queue>) {
        Register("queue/burst", subject, "a message, queued and run", Burst<Queue>)
            ->ArgNames({"pending", "due"})
            ->ArgsProduct({{100, 1'000, 10'000, 100'000, 1'000'000}, dues});
        Register("queue/post", subject, "a message", Post<Queue>)->ArgName("producers")->DenseRange(1, 2);
        Register("queue/hop", subject, "a hop", Hop<Queue>)
            ->ArgNames({"real_time", "busy"})
            ->ArgsProduct({{0, 1}, {0, 1}});
    }
    if constexpr (CAN_DELAY) {
        auto* const row = Register("queue/timers", subject, "processor time, a message", Timers<Queue>);
        row->ArgNames({"rounds_before", "real_time", "busy"})->Iterations(1);
        row->Args({0, 0, 0})->ArgsProduct({{1}, {0, 1}, {0, 1}});
    }
    if constexpr (CAN_DELAY || CAN<SleepOf, Queue>) {
        Register("queue/lateness", subject, "after 1 ms", Lateness<Queue>)->ArgName("real_time")->DenseRange(0, 1);
    }
    if constexpr (CAN<RemoveOf, Queue>) {
        Register("queue/removal", subject, "a pending message", Removal<Queue>)
            ->ArgNames({"pending", "due"})
            ->ArgsProduct({{10, 100, 1'000, 10'000, 100'000, 1'000'000}, dues});
    }
}

}  // namespace bench
