// Threads and queues under load.

#include "osal/msg_queue.h"
#include "osal/utils.h"
#include "support.h"

#include <array>
#include <atomic>
#include <fstream>
#include <gtest/gtest.h>
#include <list>
#include <random>
#include <sstream>
#include <thread>

using osal::MsgQueue;
using osal::Thread;

// Nobody looks at the log here, and keeping each refusal would take its memory.
extern "C" int __android_log_print(int, const char*, const char*, ...)
{
    return 0;
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t PRODUCERS = 3;
constexpr size_t ROUND_MESSAGES = 10'000;  // of one producer
constexpr std::array<uint64_t, 3> DELAYS_NS{0, 50'000, 1'000'000};

// The number of a message that another one queues, on the worker: it has no place in the order.
constexpr int64_t FOLLOWER = -1;

class Message;

// What the handlers of one producer share.
struct Lane {
    MsgQueue* queue = nullptr;
    std::list<Message> messages;
    std::array<int64_t, DELAYS_NS.size()> lastRun{};  // by delay; touched by the one worker only
    std::atomic<int> pending{0};
    std::atomic<int> misordered{0};
};

class Message : public osal::MsgHandlerBase {
public:
    Message(Lane& lane, int64_t number, size_t delay) : mLane(lane), mNumber(number), mDelay(delay) {}

    // On the producer's thread, or on the worker for a follower.
    bool Queue()
    {
        ++mLane.pending;
        mNotBefore = Clock::now() + std::chrono::nanoseconds(DELAYS_NS[mDelay]);
        mIsAccepted = mLane.queue->QueueMsg(this, DELAYS_NS[mDelay]) == 0;
        mLane.pending -= mIsAccepted ? 0 : 1;
        return mIsAccepted;
    }
    void HandleMsg(int32_t&) override
    {
        mIsEarly = Clock::now() < mNotBefore;
        if (mNumber != FOLLOWER) {
            mLane.misordered += mNumber <= mLane.lastRun[mDelay] ? 1 : 0;
            mLane.lastRun[mDelay] = mNumber;
        }
        if (mFollower != nullptr) {
            mFollower->Queue();
            if (mRemovesFollower) {
                mLane.queue->RemoveMsg(mFollower);
            }
        }
        ++mRuns;
        --mLane.pending;
        MsgHandlerBase::NotifyFinished();
    }
    void NotifyFinished() override
    {
        ++mDrops;
        --mLane.pending;
        MsgHandlerBase::NotifyFinished();
    }
    bool IsConserved() const { return mRuns + mDrops == (mIsAccepted ? 1 : 0) && !mIsEarly; }
    bool HasRun() const { return mRuns != 0; }
    void SetFollower(Message& follower, bool isRemoved)
    {
        mFollower = &follower;
        mRemovesFollower = isRemoved;
    }

private:
    Lane& mLane;
    const int64_t mNumber;
    const size_t mDelay;
    Message* mFollower = nullptr;
    bool mRemovesFollower = false;
    Clock::time_point mNotBefore;
    bool mIsAccepted = false;
    bool mIsEarly = false;
    std::atomic<int> mRuns{0};
    std::atomic<int> mDrops{0};
};

// Queues a round of messages, removing and waiting for some, and having some queue and remove others.
void Produce(Lane& lane, unsigned int seed)
{
    std::mt19937 random(seed);
    lane.lastRun.fill(-1);
    for (size_t i = 0; i < ROUND_MESSAGES; ++i) {
        Message& message = lane.messages.emplace_back(lane, static_cast<int64_t>(i), random() % DELAYS_NS.size());
        if (random() % 8 == 0) {
            message.SetFollower(lane.messages.emplace_back(lane, FOLLOWER, 0), random() % 2 == 0);
        }
        const bool isAccepted = message.Queue();
        if (isAccepted && random() % 64 == 0) {
            lane.queue->RemoveMsg(&message);
        }
        if (isAccepted && random() % 64 == 0) {
            message.Wait();
        }
        while (lane.pending > 500) {
            std::this_thread::yield();
        }
    }
}

// How often the thread has gone to sleep so far.
long Sleeps(int tid)
{
    std::ifstream status("/proc/self/task/" + std::to_string(tid) + "/status");
    const std::string name = "voluntary_ctxt_switches:";
    for (std::string line; std::getline(status, line);) {
        if (line.compare(0, name.size(), name) == 0) {
            return std::stol(line.substr(name.size()));
        }
    }
    return -1;
}

struct Handler : osal::MsgHandlerBase {
    void HandleMsg(int32_t&) override { NotifyFinished(); }
};

}  // namespace

TEST(Load, ConservesEachMessage)
{
    size_t messages = 0;
    size_t ran = 0;
    for (unsigned int round = 0; messages < OSAL_LOAD_MESSAGES; ++round) {
        MsgQueue queue;
        ASSERT_EQ(0, queue.Start("load", Thread::PRIORITY_MIN));
        std::array<Lane, PRODUCERS> lanes;
        std::vector<std::thread> producers;
        std::atomic<size_t> producing{PRODUCERS};
        for (size_t i = 0; i < PRODUCERS; ++i) {
            lanes[i].queue = &queue;
            producers.emplace_back([&, i] {
                Produce(lanes[i], round * 100 + static_cast<unsigned int>(i));
                --producing;
            });
        }
        // Every other round, the queue is stopped and started all the time.
        while (round % 2 == 1 && producing > 0) {
            queue.Stop();
            ASSERT_EQ(0, queue.Start("load", Thread::PRIORITY_MIN));
            std::this_thread::sleep_for(std::chrono::microseconds(200));  // some load in between, for no end
        }
        for (auto& producer : producers) {
            producer.join();
        }
        queue.Stop();
        for (Lane& lane : lanes) {
            size_t lost = 0;
            for (const Message& message : lane.messages) {
                lost += message.IsConserved() ? 0 : 1;
                ran += message.HasRun() ? 1 : 0;
            }
            messages += lane.messages.size();
            ASSERT_EQ(0U, lost) << "round " << round;
            ASSERT_EQ(0, lane.misordered) << "round " << round;
            ASSERT_EQ(0, lane.pending) << "round " << round;
        }
    }
    EXPECT_GT(ran, messages / 4);
    std::cout << messages << " messages, " << ran << " ran\n";
}

TEST(Load, AnIdleWorkerSleeps)
{
    if (OSAL_IS_EMULATED) {
        GTEST_SKIP() << "the emulator's own threads wake up";
    }
    Handler hour;
    MsgQueue queue;
    ASSERT_EQ(0, queue.Start("idle", Thread::PRIORITY_MIN));
    for (const bool hasMessage : {false, true}) {
        Handler handler;
        ASSERT_EQ(0, queue.QueueMsg(&handler, 0));
        handler.Wait();
        if (hasMessage) {
            ASSERT_EQ(0, queue.QueueMsg(&hour, 3'600'000 * NS_PER_MS));
        }
        // Settled once it has slept through a while; a worker that wakes up again and again never does.
        const int tid = queue.GetThreadId();
        const auto giveUp = Clock::now() + WAIT_LIMIT;
        long before = -1;
        long after = Sleeps(tid);
        while (before != after && Clock::now() < giveUp) {
            before = after;
            std::this_thread::sleep_for(std::chrono::seconds(1));
            after = Sleeps(tid);
        }
        EXPECT_EQ(before, after);
        EXPECT_GE(after, 1);
    }
}

TEST(Load, ThreadsStartAndStopFromManySides)
{
    struct Spinner : Thread {
        ~Spinner() override { Stop(); }
        bool Run() override { return ++runs % 100 != 0; }
        std::atomic<int> runs{0};
    } spinner;
    std::atomic<int> starts{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 300; ++n) {
                if ((n + i) % 2 == 0) {
                    starts += spinner.Start("spinner", Thread::PRIORITY_MIN) == 0 ? 1 : 0;
                } else {
                    spinner.Stop();
                }
                spinner.GetId();
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    spinner.Stop();
    EXPECT_EQ(-1, spinner.GetId());
    EXPECT_GT(starts, 0);
}
