#include "osal/msg_queue.h"

#include "osal/utils.h"
#include "support.h"
#include "system.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <gtest/gtest.h>
#include <list>
#include <random>
#include <thread>

using osal::IMsgHandler;
using osal::MsgHandlerBase;
using osal::MsgQueue;
using osal::Thread;

namespace {

constexpr const char* TAG = "MsgQueue";

// In a simulation: what is due runs at exactly its due time.
class MsgQueueTest : public testing::Test {
protected:
    // Notes what happens to it and when, in one list for all handlers of the test.
    class Recorder : public MsgHandlerBase {
    public:
        Recorder(MsgQueueTest& test, std::string name, std::function<void()> body = {})
            : mTest(test), mName(std::move(name)), mBody(std::move(body))
        {
        }
        void HandleMsg(int32_t& arg) override
        {
            EXPECT_EQ(0, arg);
            arg = 1;
            mTest.Note(mName);
            if (mBody) {
                mBody();
            }
            MsgHandlerBase::NotifyFinished();
        }
        void NotifyFinished() override
        {
            mTest.Note(mName + " dropped");
            MsgHandlerBase::NotifyFinished();
        }

    private:
        MsgQueueTest& mTest;
        std::string mName;
        std::function<void()> mBody;
    };

    using Notes = std::vector<std::string>;

    // With the time since the test began, unless that is 0.
    void Note(const std::string& what)
    {
        const uint64_t ns = Simulation::NowNs() - mStartNs;
        const std::lock_guard<std::mutex> lock(mMutex);
        mNotes.push_back(what + (ns != 0 ? " @" + std::to_string(ns) : ""));
    }
    Notes TakeNotes()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return std::move(mNotes);
    }
    void StartQueue() { ASSERT_EQ(0, mQueue.Start("queue", Thread::PRIORITY_MIN)); }
    // The worker blocks in a handler until released.
    void ParkWorker()
    {
        StartQueue();
        Queue(mParker, 0);
        Simulation::LetOthersRun();
        TakeNotes();
    }
    void Queue(IMsgHandler& handler, uint64_t delayNs) { EXPECT_EQ(0, mQueue.QueueMsg(&handler, delayNs)); }

    const Simulation mSimulation;
    const uint64_t mStartNs = Simulation::NowNs();
    std::mutex mMutex;
    Notes mNotes;
    Event mRelease;
    Recorder mParker{*this, "parker", [this] { mRelease.Wait(); }};
    MsgQueue mQueue;
};

}  // namespace

TEST_F(MsgQueueTest, RefusesMessagesUnlessItRuns)
{
    const LogCapture log;
    Recorder handler(*this, "handler");
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(-38, mQueue.QueueMsg(nullptr, 0));
        EXPECT_EQ(-38, mQueue.QueueMsg(&handler, 0));
        mQueue.RemoveMsg(nullptr);
        mQueue.RemoveMsg(&handler);
        mQueue.Stop();
        EXPECT_EQ(-1, mQueue.GetThreadId());
        StartQueue();
        EXPECT_EQ(-38, mQueue.QueueMsg(nullptr, 0));
        mQueue.Stop();
    }
    const LogLine refused{ANDROID_LOG_ERROR, TAG, "QueueMsg: QueueMsg thread not start!"};
    EXPECT_EQ((LogLines{refused, refused}), log.Lines());
    EXPECT_EQ(Notes{}, TakeNotes());
}

TEST_F(MsgQueueTest, StartsOnceAndAgainAfterStop)
{
    const LogCapture log;
    pthread_t worker{};
    Recorder handler(*this, "handler", [&] {
        mQueue.Stop();  // refused
        EXPECT_EQ(osal::GetTid(), mQueue.GetThreadId());
        worker = pthread_self();
        Note(KernelThreadName(osal::GetTid()));
    });
    for (const std::string name : {"first", "second"}) {
        EXPECT_EQ(0, mQueue.Start(name, static_cast<Thread::Priority>(7)));
        EXPECT_EQ(0, mQueue.Start("ignored", Thread::PRIORITY_MAX));
        Recorder last(*this, "last");
        Queue(handler, 0);
        Queue(last, 0);
        last.Wait();
        EXPECT_EQ((Notes{"handler", name, "last"}), TakeNotes());
        const auto scheduling = Simulation::LastScheduling();
        EXPECT_TRUE(pthread_equal(worker, scheduling.thread) != 0 && scheduling.priority == 7);
        mQueue.Stop();
        EXPECT_EQ(-1, mQueue.GetThreadId());
    }
    EXPECT_EQ((LogLines{{ANDROID_LOG_INFO, TAG, "Start: MsgProcessor first is not stop, ignored!"},
                        {ANDROID_LOG_WARN, "NuThread", "Stop: Thread first is not allowed to stop itself"},
                        {ANDROID_LOG_INFO, TAG, "Start: MsgProcessor second is not stop, ignored!"},
                        {ANDROID_LOG_WARN, "NuThread", "Stop: Thread second is not allowed to stop itself"}}),
              log.Lines());
}

TEST_F(MsgQueueTest, WakesTheWorkerForAnEarlierMessageAlone)
{
    StartQueue();
    Recorder hour(*this, "hour");
    Recorder sooner(*this, "sooner");
    Queue(hour, HOUR_NS);
    Simulation::LetOthersRun();
    const int waits = Simulation::Waits();
    Queue(hour, HOUR_NS + 1);
    Simulation::LetOthersRun();
    EXPECT_EQ(waits, Simulation::Waits());
    Queue(hour, HOUR_NS);
    Queue(sooner, 10);
    Simulation::LetOthersRun();
    EXPECT_EQ(waits + 1, Simulation::Waits());  // one for both
    Simulation::MoveWallClock(-static_cast<int64_t>(2 * HOUR_NS));  // which moves no due time
    sooner.Wait();
    hour.Wait();
    Simulation::LetOthersRun();
    EXPECT_EQ((Notes{"sooner @10", "hour @3600000000000", "hour @3600000000000"}), TakeNotes());
    mQueue.Stop();
    EXPECT_EQ(Notes{"hour dropped @3600000000000"}, TakeNotes());
}

// Of many due times that have passed, the worker takes several at once.
TEST_F(MsgQueueTest, RunsManyDueTimesInOrderAndRemovesAmongThem)
{
    ParkWorker();
    Recorder gone(*this, "gone");
    Recorder remover(*this, "remover", [&] { mQueue.RemoveMsg(&gone); });
    Recorder a(*this, "a");
    Recorder b(*this, "b");
    Notes expected{"remover @100"};
    expected.insert(expected.end(), 40, "gone dropped @100");
    mQueue.RemoveMsg(&mParker);  // not the one that runs
    Queue(remover, 0);
    for (uint64_t i = 0; i < 40; ++i) {
        Queue(b, 100 - 2 * i);  // the later ones come first
        Queue(gone, 2 * i + 1);
        Queue(a, 99 - 2 * i);
        expected.insert(expected.end(), {"a @100", "b @100"});
    }
    std::this_thread::sleep_for(std::chrono::nanoseconds(100));
    Queue(mParker, 0);  // behind all that is due
    expected.emplace_back("parker @100");
    mRelease.Set();
    Simulation::LetOthersRun();
    EXPECT_EQ(expected, TakeNotes());
}

// Whoever meets a Stop waits for it: another Stop, and a Start, unless it is the worker's own.
TEST_F(MsgQueueTest, StopFinishesTheRunningMessageAndDropsThePendingInOrder)
{
    const LogCapture log;
    StartQueue();
    Recorder running(*this, "running", [this] {
        mRelease.Wait();
        EXPECT_EQ(-17, mQueue.Start("from the old worker", Thread::PRIORITY_MIN));
    });
    Recorder a(*this, "a");
    Recorder b(*this, "b");
    Recorder c(*this, "c");
    Queue(running, 0);
    Simulation::LetOthersRun();
    Queue(c, 2 * HOUR_NS);
    for (Recorder* handler : {&b, &a, &a}) {
        Queue(*handler, HOUR_NS);
        Queue(*handler, 0);
    }
    const auto stop = [this] {
        mQueue.Stop();
        Note("stopped");
    };
    std::thread stopper(stop);
    Simulation::LetOthersRun();
    EXPECT_EQ(-1, mQueue.GetThreadId());
    EXPECT_EQ(-38, mQueue.QueueMsg(&a, 0));
    std::thread another(stop);
    Simulation::LetOthersRun();
    std::thread starter([this] {
        EXPECT_EQ(0, mQueue.Start("anew", Thread::PRIORITY_MIN));
        Note("started");
    });
    Simulation::LetOthersRun();
    mRelease.Set();
    for (std::thread* thread : {&stopper, &another, &starter}) {
        thread->join();
    }
    Queue(c, 0);
    Simulation::LetOthersRun();
    Notes notes = TakeNotes();
    std::sort(notes.end() - 4, notes.end() - 1);  // who goes on first is open
    EXPECT_EQ((Notes{"running", "b dropped", "a dropped", "a dropped", "b dropped", "a dropped", "a dropped",
                     "c dropped", "started", "stopped", "stopped", "c"}),
              notes);
    EXPECT_EQ((LogLines{{ANDROID_LOG_ERROR, TAG, "QueueMsg: QueueMsg thread not start!"},
                        {ANDROID_LOG_INFO, TAG, "Start: MsgProcessor queue is not stop, ignored!"}}),
              log.Lines());
}

TEST_F(MsgQueueTest, CanBeDestroyedByItsOwnWorker)
{
    auto* queue = new MsgQueue;
    Recorder pending(*this, "pending");
    Recorder destroyer(*this, "destroyer", [&] {
        EXPECT_EQ(0, queue->QueueMsg(&pending, 0));
        delete queue;
    });
    ASSERT_EQ(0, queue->Start("doomed", Thread::PRIORITY_MIN));
    EXPECT_EQ(0, queue->QueueMsg(&destroyer, 0));
    pending.Wait();
    destroyer.Wait();
    EXPECT_EQ((Notes{"destroyer", "pending dropped"}), TakeNotes());
}

TEST_F(MsgQueueTest, SleepsThroughDelaysBeyondReach)
{
    constexpr uint64_t YEARS_200_NS = 200 * 365 * 24 * HOUR_NS;
    StartQueue();
    Recorder far(*this, "far");
    Recorder overflowing(*this, "overflowing");
    Recorder tooFar(*this, "too far");
    Queue(tooFar, (1ULL << 63) + HOUR_NS);
    Simulation::LetOthersRun();
    mQueue.RemoveMsg(&tooFar);
    EXPECT_EQ(Notes{"too far dropped"}, TakeNotes());
    Queue(far, YEARS_200_NS);
    Queue(overflowing, UINT64_MAX - 5);  // due at once
    const int waits = Simulation::Waits();
    far.Wait();
    EXPECT_EQ(waits + 4, Simulation::Waits());  // ours, two for the delay, one for the next message
    EXPECT_EQ((Notes{"overflowing", "far @" + std::to_string(YEARS_200_NS)}), TakeNotes());
}

namespace {

// Counts what becomes of it, and notes how late it ran, and whether behind what was due before.
struct Message : MsgHandlerBase {
    static int64_t NowNs() { return std::chrono::steady_clock::now().time_since_epoch().count(); }
    void HandleMsg(int32_t&) override
    {
        latenessNs = NowNs() - dueNs;
        isInOrder = *lastDue < std::pair(dueNs, number);
        *lastDue = std::pair(dueNs, number);
        NotifyFinished();
        if (follower != nullptr && follower->Queue(*queue, static_cast<uint64_t>(number % 2)) && number % 3 == 0) {
            queue->RemoveMsg(follower);
        }
    }
    void NotifyFinished() override
    {
        ++ends;
        MsgHandlerBase::NotifyFinished();
    }
    bool Queue(MsgQueue& to, uint64_t delayNs)
    {
        static std::atomic<int> queued{0};
        queue = &to;
        number = ++queued;
        dueNs = NowNs() + static_cast<int64_t>(delayNs);
        isAccepted = to.QueueMsg(this, delayNs) == 0;
        return isAccepted;
    }

    std::pair<int64_t, int>* lastDue = nullptr;  // of its producer's messages; for the worker alone
    Message* follower = nullptr;  // queued, and perhaps removed, by this one
    MsgQueue* queue = nullptr;
    int number = 0;
    int64_t dueNs = 0;
    bool isAccepted = false;
    int64_t latenessNs = 0;
    bool isInOrder = true;
    std::atomic<int> ends{0};
};

// Two threads queue messages, remove some and wait for others, while two may restart the queue.
std::array<std::list<Message>, 2> UseFromManySides(unsigned int seed, uint64_t unitNs)
{
    const auto sleep = [=](uint64_t units) {
        std::this_thread::sleep_for(std::chrono::nanoseconds(units * unitNs));
    };
    MsgQueue queue;
    EXPECT_EQ(0, queue.Start("queue", Thread::PRIORITY_MIN));
    std::array<std::list<Message>, 2> messages;
    std::array<std::pair<int64_t, int>, 4> lastDue;
    const auto produce = [&](size_t lane) {
        std::mt19937 random(seed * 10 + static_cast<unsigned int>(lane));
        for (int i = 0; i < 20; ++i) {
            Message& message = messages[lane].emplace_back();
            message.lastDue = &lastDue[lane];
            if (random() % 4 == 0) {
                message.follower = &messages[lane].emplace_back();
                message.follower->lastDue = &lastDue[2 + lane];
            }
            constexpr std::array<uint64_t, 4> DELAYS{0, 0, 5, 20};
            if (message.Queue(queue, DELAYS[random() % 4] * unitNs) && random() % 4 == 0) {
                queue.RemoveMsg(&message);
            } else if (message.isAccepted && random() % 4 == 0) {
                message.Wait();
            }
            sleep(random() % 4);
        }
    };
    const auto restart = [&] {
        for (int i = 0; i < 2 && seed % 3 == 0; ++i) {
            sleep(15);
            queue.Stop();
            EXPECT_EQ(0, queue.Start("queue", Thread::PRIORITY_MIN));
        }
    };
    std::thread threads[] = {std::thread(produce, 0), std::thread(produce, 1), std::thread(restart)};
    restart();
    for (std::thread& thread : threads) {
        thread.join();
    }
    if (seed % 3 == 1) {
        sleep(20);
    }
    queue.Stop();
    return messages;
}

}  // namespace

TEST(MsgQueueSchedules, ConserveEachMessageAndRunItInTime)
{
    ForEachSeed(80, [](unsigned int seed) {
        for (const auto& lane : UseFromManySides(seed, 1)) {
            for (const Message& message : lane) {
                EXPECT_EQ(message.isAccepted ? 1 : 0, message.ends);
                EXPECT_EQ(0, message.latenessNs);
                EXPECT_TRUE(message.isInOrder);
            }
        }
    });
}

// On the system's own clock and scheduler.
TEST(MsgQueueLoad, LosesNoMessageAndRunsNoneEarly)
{
    for (unsigned int seed = 1; seed <= 100; ++seed) {
        for (const auto& lane : UseFromManySides(seed, 10'000)) {
            for (const Message& message : lane) {
                ASSERT_EQ(message.isAccepted ? 1 : 0, message.ends);
                ASSERT_LE(0, message.latenessNs);
            }
        }
    }
}

TEST(MsgHandlerTest, FinishesOnceForAllWaiters)
{
    struct Handler : MsgHandlerBase {
        void HandleMsg(int32_t&) override {}
    };
    ForEachSeed(20, [](unsigned int) {
        auto handler = std::make_unique<Handler>();
        std::atomic<int> released{0};
        const auto wait = [&] {
            handler->Wait();
            ++released;
        };
        std::thread waiters[] = {std::thread(wait), std::thread(wait)};
        Simulation::LetOthersRun();
        EXPECT_EQ(0, released);
        std::thread notifier([shared = handler.get()] { shared->NotifyFinished(); });
        for (std::thread& waiter : waiters) {
            waiter.join();
        }
        handler->Wait();
        handler.reset();  // at once
        notifier.join();
    });
}
