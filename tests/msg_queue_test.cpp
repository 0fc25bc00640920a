#include "osal/msg_queue.h"
#include "osal/utils.h"
#include "support.h"

#include <ctime>
#include <functional>
#include <gtest/gtest.h>

using osal::IMsgHandler;
using osal::MsgHandlerBase;
using osal::MsgQueue;
using osal::Thread;
using Clock = std::chrono::steady_clock;

namespace {

constexpr const char* TAG = "MsgQueue";
constexpr uint64_t HOUR_NS = 3'600'000 * NS_PER_MS;

class MsgQueueTest : public testing::Test {
protected:
    // Notes what happens to it under its name, in one list for all handlers of the test.
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

    void Note(const std::string& what)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mNotes.push_back(what);
        mTimes.push_back(Clock::now());
    }
    Notes TakeNotes()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return std::move(mNotes);
    }
    void StartQueue() { ASSERT_EQ(0, mQueue.Start("queue", Thread::PRIORITY_MIN)); }
    // The worker blocks in a handler until released: what is queued meanwhile races with nothing.
    void ParkWorker()
    {
        StartQueue();
        ASSERT_EQ(0, mQueue.QueueMsg(&mParker, 0));
        ASSERT_TRUE(mParked.Wait());
        TakeNotes();
    }
    void Queue(IMsgHandler& handler, uint64_t delayNs) { EXPECT_EQ(0, mQueue.QueueMsg(&handler, delayNs)); }

    std::mutex mMutex;
    Notes mNotes;
    std::vector<Clock::time_point> mTimes;
    Event mParked;
    Event mRelease;
    Recorder mParker{*this, "parker", [this] {
                         mParked.Set();
                         mRelease.Wait();
                     }};
    MsgQueue mQueue;
};

}  // namespace

TEST_F(MsgQueueTest, RefusesMessagesUnlessItRuns)
{
    const LogCapture log;
    Recorder handler(*this, "handler");
    EXPECT_EQ(-38, mQueue.QueueMsg(nullptr, 0));
    EXPECT_EQ(-38, mQueue.QueueMsg(&handler, 0));
    mQueue.RemoveMsg(nullptr);
    mQueue.RemoveMsg(&handler);
    mQueue.Stop();
    EXPECT_EQ(-1, mQueue.GetThreadId());
    StartQueue();
    EXPECT_EQ(-38, mQueue.QueueMsg(nullptr, 0));
    mQueue.Stop();
    mQueue.Stop();
    EXPECT_EQ(-38, mQueue.QueueMsg(&handler, 0));
    const LogLine refused{ANDROID_LOG_ERROR, TAG, "QueueMsg: QueueMsg thread not start!"};
    EXPECT_EQ((LogLines{refused, refused}), log.Lines(TAG));
    EXPECT_EQ(Notes{}, TakeNotes());
}

TEST_F(MsgQueueTest, StartsOnceAndAgainAfterStop)
{
    const LogCapture log;
    Recorder handler(*this, "handler", [this] {
        EXPECT_EQ(osal::GetTid(), mQueue.GetThreadId());
        Note(KernelThreadName(osal::GetTid()));
    });
    for (const std::string name : {"first", "second"}) {
        EXPECT_EQ(0, mQueue.Start(name, Thread::PRIORITY_MIN));
        EXPECT_EQ(0, mQueue.Start("ignored", Thread::PRIORITY_MAX));
        Recorder last(*this, "last");
        Queue(handler, 0);
        Queue(last, 0);
        last.Wait();
        EXPECT_EQ((Notes{"handler", name, "last"}), TakeNotes());
        mQueue.Stop();
        EXPECT_EQ(-1, mQueue.GetThreadId());
    }
    EXPECT_EQ((LogLines{{ANDROID_LOG_INFO, TAG, "Start: MsgProcessor first is not stop, ignored!"},
                        {ANDROID_LOG_INFO, TAG, "Start: MsgProcessor second is not stop, ignored!"}}),
              log.Lines(TAG));
}

TEST_F(MsgQueueTest, RunsInDueTimeOrderAndNeverEarly)
{
    ParkWorker();
    Recorder soon(*this, "soon");
    Recorder late(*this, "late");
    Recorder first(*this, "first");
    Recorder second(*this, "second");
    Queue(soon, 1);  // and due by the time that the next one is queued
    const auto before = Clock::now();
    Queue(late, 50 * NS_PER_MS);
    Queue(first, 0);
    Queue(second, 0);
    Queue(first, 0);
    mRelease.Set();
    late.Wait();
    EXPECT_EQ((Notes{"soon", "first", "second", "first", "late"}), TakeNotes());
    EXPECT_GE(mTimes.back() - before, std::chrono::milliseconds(50));
}

TEST_F(MsgQueueTest, WakesForAnEarlierMessageAndKeepsTheLaterOne)
{
    StartQueue();
    Recorder hour(*this, "hour");
    Recorder later(*this, "later");
    Recorder sooner(*this, "sooner");
    Queue(hour, HOUR_NS);
    const auto before = Clock::now();
    Queue(later, 30 * NS_PER_MS);
    Queue(sooner, 10 * NS_PER_MS);
    later.Wait();
    EXPECT_EQ((Notes{"sooner", "later"}), TakeNotes());
    EXPECT_GE(mTimes.back() - before, std::chrono::milliseconds(30));
    mQueue.Stop();
    EXPECT_EQ(Notes{"hour dropped"}, TakeNotes());
}

TEST_F(MsgQueueTest, RemovesAllMessagesOfOneHandlerButNotTheRunningOne)
{
    ParkWorker();
    Recorder gone(*this, "gone");
    Recorder stays(*this, "stays");
    Recorder last(*this, "last");
    Queue(gone, 0);
    Queue(stays, 0);
    Queue(gone, HOUR_NS);
    Queue(stays, 0);
    Queue(last, 0);
    mQueue.RemoveMsg(&gone);
    mQueue.RemoveMsg(&mParker);
    gone.Wait();
    mRelease.Set();
    last.Wait();
    EXPECT_EQ((Notes{"gone dropped", "gone dropped", "stays", "stays", "last"}), TakeNotes());
}

TEST_F(MsgQueueTest, RunsManyDueTimesInOrderAndRemovesAmongThem)
{
    ParkWorker();
    Recorder gone(*this, "gone");
    Recorder remover(*this, "remover", [&] { mQueue.RemoveMsg(&gone); });
    Recorder a(*this, "a");
    Recorder b(*this, "b");
    Recorder last(*this, "last");
    Notes expected{"remover"};
    expected.insert(expected.end(), 40, "gone dropped");
    Queue(remover, 1);
    for (int i = 0; i < 40; ++i) {
        for (Recorder* handler : {&a, &gone, &b}) {
            Queue(*handler, 1);  // due a little later than the one before
        }
        expected.insert(expected.end(), {"a", "b"});
    }
    Queue(last, 1);
    expected.emplace_back("last");
    mRelease.Set();
    last.Wait();
    EXPECT_EQ(expected, TakeNotes());
}

TEST_F(MsgQueueTest, StopFinishesTheRunningMessageAndDropsThePendingInOrder)
{
    ParkWorker();
    Recorder a(*this, "a");
    Recorder b(*this, "b");
    Queue(b, 2 * HOUR_NS);
    Queue(a, HOUR_NS);
    Queue(b, 0);
    Queue(a, 0);
    std::thread stopper([this] { mQueue.Stop(); });
    while (mQueue.GetThreadId() != -1) {
        std::this_thread::yield();
    }
    Note("refused " + std::to_string(mQueue.QueueMsg(&a, 0)));
    mRelease.Set();
    stopper.join();
    a.Wait();
    EXPECT_EQ((Notes{"refused -38", "b dropped", "a dropped", "a dropped", "b dropped"}), TakeNotes());
}

TEST_F(MsgQueueTest, RefusesToBeStoppedByItsOwnWorker)
{
    const LogCapture log;
    StartQueue();
    Recorder next(*this, "next");
    Recorder stopper(*this, "stopper", [&] {
        Queue(next, 0);
        mQueue.Stop();
        Note("kept running " + std::to_string(mQueue.GetThreadId() == osal::GetTid()));
    });
    Queue(stopper, 0);
    next.Wait();
    EXPECT_EQ((Notes{"stopper", "kept running 1", "next"}), TakeNotes());
    const LogLine refused{ANDROID_LOG_WARN, "NuThread", "Stop: Thread queue is not allowed to stop itself"};
    const LogLines lines = log.Lines();
    EXPECT_EQ(1, std::count(lines.begin(), lines.end(), refused));
}

TEST_F(MsgQueueTest, CanBeDestroyedByItsOwnWorker)
{
    auto* queue = new MsgQueue;
    Recorder pending(*this, "pending");
    Event workerEnded;
    Recorder destroyer(*this, "destroyer", [&] {
        SetAtThreadEnd(workerEnded);
        EXPECT_EQ(0, queue->QueueMsg(&pending, 0));
        delete queue;
    });
    ASSERT_EQ(0, queue->Start("doomed", Thread::PRIORITY_MIN));
    EXPECT_EQ(0, queue->QueueMsg(&destroyer, 0));
    pending.Wait();
    EXPECT_TRUE(workerEnded.Wait());
    EXPECT_EQ((Notes{"destroyer", "pending dropped"}), TakeNotes());
}

// A Start that meets a Stop waits for it: neither the old worker nor a message is left behind.
TEST_F(MsgQueueTest, StartAndStopMayMeet)
{
    for (int round = 0; round < 50; ++round) {
        StartQueue();
        Recorder restarter(*this, "restarter", [&] {
            mParked.Set();
            while (mQueue.GetThreadId() != -1) {
                std::this_thread::yield();
            }
            EXPECT_EQ(-17, mQueue.Start("from the old worker", Thread::PRIORITY_MIN));
        });
        Queue(restarter, 0);
        std::thread stopper([this] { mQueue.Stop(); });
        std::thread another([this] { mQueue.Stop(); });
        while (mQueue.GetThreadId() != -1) {
            std::this_thread::yield();
        }
        EXPECT_EQ(0, mQueue.Start("anew", Thread::PRIORITY_MIN));
        stopper.join();
        another.join();
        mQueue.Stop();
    }
}

TEST_F(MsgQueueTest, SleepsThroughDelaysBeyondReach)
{
    StartQueue();
    Recorder far(*this, "far");
    Recorder now(*this, "now");
    Queue(far, 1ULL << 63);
    Queue(far, UINT64_MAX - (1ULL << 62));
    Queue(now, 0);
    now.Wait();
    const auto processorTime = [] {
        timespec time{};
        EXPECT_EQ(0, clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time));
        return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
    };
    const auto usedBefore = processorTime();
    const auto until = Clock::now() + std::chrono::milliseconds(200);
    std::this_thread::sleep_until(until);  // a worker that spins uses all of this
    EXPECT_LT(processorTime() - usedBefore, std::chrono::milliseconds(100));
    mQueue.RemoveMsg(&far);
    Recorder overflowing(*this, "overflowing");
    Queue(overflowing, UINT64_MAX);
    overflowing.Wait();  // due at once
    EXPECT_EQ((Notes{"now", "far dropped", "far dropped", "overflowing"}), TakeNotes());
}

TEST(MsgHandlerTest, FinishesOnceForAllWaiters)
{
    struct Handler : MsgHandlerBase {
        void HandleMsg(int32_t&) override {}
    } handler;
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) {
        waiters.emplace_back([&] {
            handler.Wait();
            ++released;
        });
    }
    EXPECT_EQ(0, released);
    handler.NotifyFinished();
    for (auto& waiter : waiters) {
        waiter.join();
    }
    handler.NotifyFinished();
    handler.Wait();
    EXPECT_EQ(3, released);
}

// Handlers in other libraries are compiled against this order of slots.
TEST(MsgHandlerTest, KeepsTheOrderOfItsSlots)
{
    struct Handler : IMsgHandler {
        void HandleMsg(int32_t&) override { called = "HandleMsg"; }
        void Wait() override { called = "Wait"; }
        void NotifyFinished() override { called = "NotifyFinished"; }
        std::string called;
    } handler;
    using Slot = void (*)(IMsgHandler*, int32_t*);
    Slot* slots = nullptr;
    memcpy(&slots, static_cast<const void*>(static_cast<IMsgHandler*>(&handler)), sizeof(slots));
    int32_t arg = 0;
    const char* const expected[] = {"HandleMsg", "Wait", "NotifyFinished"};
    for (size_t i = 0; i < 3; ++i) {
        slots[2 + i](&handler, &arg);  // behind the complete and the deleting destructor
        EXPECT_EQ(expected[i], handler.called);
    }
}
