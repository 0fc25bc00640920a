#include "osal/msg_queue.h"

#include "osal/utils.h"
#include "support.h"
#include "system.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <thread>

using osal::MsgHandlerBase;
using osal::MsgQueue;
using osal::Thread;

namespace {

constexpr const char* REFUSED = "E MsgQueue: QueueMsg: QueueMsg thread not start!";

using Notes = std::vector<std::string>;

// Tells `onEnd` whether it runs, or is dropped.
struct Recorder : MsgHandlerBase {
    void HandleMsg(int32_t& arg) override
    {
        EXPECT_EQ(0, arg);
        arg = 1;
        onEnd(true);
        MsgHandlerBase::NotifyFinished();
    }
    void NotifyFinished() override
    {
        onEnd(false);
        MsgHandlerBase::NotifyFinished();
    }
    std::function<void(bool isRun)> onEnd;
};

// In a simulation: a message runs at exactly its due time.
struct MsgQueueTest : testing::Test {
    // Notes what happens to it, in one list for all handlers of the test.
    struct Handler : Recorder {
        Handler(MsgQueueTest& test, const std::string& name)
        {
            onEnd = [this, &test, name](bool isRun) {
                test.Note(name + (isRun ? "" : " dropped"));
                if (isRun && body) {
                    body();
                }
            };
        }
        std::function<void()> body;
    };

    // Adds the time since the test began, unless that is 0.
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
    // The handler of that name, made when it is first named.
    Handler* Named(const std::string& name)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return &mHandlers.try_emplace(name, *this, name).first->second;
    }
    void Queue(const std::string& name, uint64_t delayNs) { EXPECT_EQ(0, mQueue.QueueMsg(Named(name), delayNs)); }
    void Start(const std::string& name = "queue")
    {
        ASSERT_EQ(0, mQueue.Start(name, static_cast<Thread::Priority>(100)));
    }
    // Queues a handler that runs `body` once mRelease is set, and waits until it is called.
    void QueueParked(std::function<void()> body)
    {
        Named("parked")->body = [this, body = std::move(body)] {
            mRelease.Wait();
            body();
        };
        Queue("parked", 0);
        Simulation::LetOthersRun();
    }

    const Simulation mSimulation;
    const uint64_t mStartNs = Simulation::NowNs();
    const LogCapture mLog;
    std::mutex mMutex;
    Notes mNotes;
    Event mRelease;
    std::map<std::string, Handler> mHandlers;
    MsgQueue mQueue;
};

}  // namespace

TEST_F(MsgQueueTest, RefusesMessagesUnlessStartedAndStartsAgainAfterStop)
{
    Named("handler")->body = [&] {
        mQueue.Stop();  // refused
        EXPECT_EQ(osal::GetTid(), mQueue.GetThreadId());
        Note(ThreadName());
    };
    LogLines expected;
    for (const std::string name : {"first", "second"}) {
        EXPECT_EQ(-1, mQueue.GetThreadId());
        EXPECT_EQ(-38, mQueue.QueueMsg(nullptr, 0));
        EXPECT_EQ(-38, mQueue.QueueMsg(Named("handler"), 0));
        mQueue.RemoveMsg(Named("handler"));
        mQueue.Stop();
        Start(name);
        EXPECT_EQ(-1, mQueue.GetThreadId());  // the worker has not begun
        EXPECT_EQ(-38, mQueue.QueueMsg(nullptr, 0));
        EXPECT_EQ(0, mQueue.Start("ignored", Thread::PRIORITY_MAX));
        Queue("handler", 0);
        Queue("last", 0);
        mQueue.RemoveMsg(nullptr);
        Simulation::LetOthersRun();
        EXPECT_EQ((Notes{"handler", name, "last"}), TakeNotes());
        const auto scheduling = Simulation::LastScheduling();
        EXPECT_EQ(100, scheduling.priority);  // passed on as it is
        mQueue.Stop();
        expected.insert(expected.end(),
                        {REFUSED, "I MsgQueue: Start: MsgProcessor " + name + " is not stop, ignored!",
                         "W NuThread: Stop: Thread " + name + " is not allowed to stop itself"});
    }
    EXPECT_EQ(expected, mLog.Lines());
}

TEST_F(MsgQueueTest, WakesTheWorkerOnlyForAnEarlierMessage)
{
    constexpr uint64_t YEARS_200_NS = 200 * 365 * 24 * HOUR_NS;
    Start();
    Queue("too far", (1ULL << 63) + HOUR_NS);
    Simulation::LetOthersRun();
    mQueue.RemoveMsg(Named("too far"));
    Queue("hour", HOUR_NS);
    Simulation::LetOthersRun();
    const int waits = Simulation::Waits();
    Queue("hour", HOUR_NS + 1);
    Simulation::LetOthersRun();
    EXPECT_EQ(waits, Simulation::Waits());
    Queue("hour", HOUR_NS);
    Queue("sooner", 10);
    Simulation::LetOthersRun();
    EXPECT_EQ(waits + 1, Simulation::Waits());  // one for both
    Simulation::MoveWallClock(-static_cast<int64_t>(2 * HOUR_NS));  // has no effect on due times
    Named("sooner")->Wait();
    Named("hour")->Wait();
    Simulation::LetOthersRun();
    EXPECT_EQ((Notes{"too far dropped", "sooner @10", "hour @3600000000000", "hour @3600000000000"}), TakeNotes());
    mQueue.RemoveMsg(Named("hour"));
    TakeNotes();
    Queue("far", YEARS_200_NS);
    Queue("overflowing", UINT64_MAX - 5);  // the due time is in the past
    const int waitsBefore = Simulation::Waits();
    Named("far")->Wait();
    EXPECT_EQ(waitsBefore + 4, Simulation::Waits());  // this one, two for the delay, one for the next message
    EXPECT_EQ((Notes{"overflowing @3600000000000", "far @" + std::to_string(HOUR_NS + YEARS_200_NS)}),
              TakeNotes());
}

// The worker takes several of many due times at once.
TEST_F(MsgQueueTest, RunsManyDueTimesInOrderAndRemovesAmongThem)
{
    Start();
    QueueParked([] {});
    Named("remover")->body = [&] { mQueue.RemoveMsg(Named("gone")); };
    Notes expected{"parked", "remover @100"};
    expected.insert(expected.end(), 40, "gone dropped @100");
    mQueue.RemoveMsg(Named("parked"));  // not the running message
    Queue("remover", 0);
    for (uint64_t i = 0; i < 40; ++i) {
        Queue("gone", 4 * (i / 2));  // the first one in one list with its remover
        Queue("b", 100 - 2 * i);  // the later ones come first
        Queue("a", 99 - 2 * i);
        expected.insert(expected.end(), {"a @100", "b @100"});
    }
    std::this_thread::sleep_for(std::chrono::nanoseconds(100));
    Queue("parked", 0);  // after all that is due
    expected.emplace_back("parked @100");
    mRelease.Set();
    Simulation::LetOthersRun();
    EXPECT_EQ(expected, TakeNotes());
}

TEST_F(MsgQueueTest, StopFinishesTheRunningMessageAndDropsThePendingInOrder)
{
    Start();
    QueueParked([this] {
        EXPECT_EQ(-17, mQueue.Start("from the old worker", Thread::PRIORITY_MIN));
        mQueue.Stop();  // refused
        Note("end");
    });
    Queue("c", 2 * HOUR_NS);
    for (const char* name : {"b", "a", "a"}) {
        Queue(name, HOUR_NS);
        Queue(name, 0);
    }
    std::thread stopper([this] {
        mQueue.Stop();
        Note("stopped");
    });
    Simulation::LetOthersRun();
    EXPECT_EQ(-1, mQueue.GetThreadId());
    EXPECT_EQ(-38, mQueue.QueueMsg(Named("a"), 0));
    std::thread starter([this] {  // waits for the stop
        Start("anew");
        Note("started");
    });
    Simulation::LetOthersRun();
    mRelease.Set();
    stopper.join();
    starter.join();
    Queue("c", 0);
    Simulation::LetOthersRun();
    Notes notes = TakeNotes();
    std::sort(notes.end() - 3, notes.end() - 1);  // the order of these is open
    EXPECT_EQ((Notes{"parked", "end", "b dropped", "a dropped", "a dropped", "b dropped", "a dropped", "a dropped",
                     "c dropped", "started", "stopped", "c"}),
              notes);
    EXPECT_EQ((LogLines{REFUSED, "I MsgQueue: Start: MsgProcessor queue is not stop, ignored!",
                        "W NuThread: Stop: Thread queue is not allowed to stop itself"}),
              mLog.Lines());
}

TEST_F(MsgQueueTest, ASecondStopFreesAMessageThatWaitsForAPendingOne)
{
    Start();
    QueueParked([this] {
        Named("pending")->Wait();
        Note("freed");
    });
    Queue("pending", HOUR_NS);
    std::thread first([this] { mQueue.Stop(); });
    mRelease.Set();
    Simulation::LetOthersRun();
    mQueue.Stop();
    EXPECT_EQ((Notes{"parked", "pending dropped", "freed"}), TakeNotes());
    first.join();
}

namespace {

void Sleep(uint64_t ns) { std::this_thread::sleep_for(std::chrono::nanoseconds(ns)); }

}  // namespace

// Two threads queue messages, remove some and wait for others, while two may restart the queue.
TEST(MsgQueueSchedules, ConserveEachMessageAndRunItInTime)
{
    ForEachSeed(80, [](unsigned int seed) {
        std::array<std::array<Recorder, 20>, 2> messages;
        std::array<std::atomic<int>, 2> ends{};
        std::array<int, 2> expectedEnds{};
        std::array<std::pair<uint64_t, size_t>, 2> last;  // due time and number of the last message that ran
        MsgQueue queue;
        EXPECT_EQ(0, queue.Start("queue", Thread::PRIORITY_MIN));
        const auto produce = [&](size_t lane) {
            std::mt19937 random(seed * 10 + static_cast<unsigned int>(lane));
            for (size_t i = 0; i < messages[lane].size(); ++i) {
                Recorder& message = messages[lane][i];
                constexpr std::array<uint64_t, 4> DELAYS_NS{0, 1, 5, 20};
                const uint64_t delayNs = DELAYS_NS[random() % 4];
                const std::pair due(Simulation::NowNs() + delayNs, i);
                message.onEnd = [&, lane, due](bool isRun) {
                    ++ends[lane];
                    if (isRun) {
                        EXPECT_EQ(due.first, Simulation::NowNs());
                        EXPECT_LT(last[lane], due);
                        last[lane] = due;
                    }
                };
                queue.GetThreadId();  // also while another thread destroys the worker
                const bool isQueued = queue.QueueMsg(&message, delayNs) == 0;
                expectedEnds[lane] += isQueued ? 1 : 0;
                if (random() % 4 == 0) {
                    queue.RemoveMsg(&message);
                } else if (isQueued && random() % 4 == 0) {
                    message.Wait();
                }
                Sleep(random() % 4);
            }
        };
        const auto restart = [&] {
            for (int i = 0; i < 2 && seed % 3 == 0; ++i) {
                Sleep(15);
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
            Sleep(20);
        }
        queue.Stop();
        EXPECT_EQ(expectedEnds[0], ends[0]);
        EXPECT_EQ(expectedEnds[1], ends[1]);
    });
}

TEST(MsgQueueSchedules, EachStopAndRemovalReturnsAfterTheDropAndAStartWaits)
{
    ForEachSeed(200, [](unsigned int) {
        int ends = 0;
        Recorder pending;
        pending.onEnd = [&](bool /*isRun*/) {
            Simulation::LetOthersRun();
            ++ends;
        };
        MsgQueue queue;
        const auto start = [&] { EXPECT_EQ(0, queue.Start("queue", Thread::PRIORITY_MIN)); };
        const auto stop = [&] {
            queue.Stop();
            EXPECT_EQ(1, ends);
        };
        const auto remove = [&] {
            queue.RemoveMsg(&pending);
            EXPECT_EQ(1, ends);
        };
        const uint64_t startNs = Simulation::NowNs();
        start();
        EXPECT_EQ(0, queue.QueueMsg(&pending, HOUR_NS));
        std::thread threads[] = {std::thread(stop), std::thread(start), std::thread(stop), std::thread(remove)};
        for (std::thread& thread : threads) {
            thread.join();
        }
        queue.Stop();
        EXPECT_EQ(startNs, Simulation::NowNs());  // no thread has waited for the due time
    });
}

// The thread object is destroyed on its own worker, too, perhaps while QueueMsg() has not returned.
TEST(MsgQueueSchedules, AHandlerMayDestroyItsQueue)
{
    ForEachSeed(80, [](unsigned int) {
        const LogCapture log;
        auto queue = std::make_unique<MsgQueue>();
        MsgQueue& alias = *queue;
        int ends = 0;
        Recorder pending;
        pending.onEnd = [&](bool isRun) { ends += isRun ? 10 : 1; };
        Recorder destroyer;
        destroyer.onEnd = [&](bool /*isRun*/) { queue.reset(); };
        ASSERT_EQ(0, alias.Start("doomed", Thread::PRIORITY_MIN));
        EXPECT_EQ(0, alias.QueueMsg(&pending, HOUR_NS));
        EXPECT_EQ(0, alias.QueueMsg(&destroyer, 0));
        destroyer.Wait();
        EXPECT_EQ(1, ends);
        EXPECT_EQ(2U, log.Lines().size());  // refused stops: of the queue and of its thread
    });
}

TEST(MsgHandlerSchedules, FinishForAllWaitersAndMayBeDestroyedAtOnce)
{
    ForEachSeed(20, [](unsigned int) {
        auto handler = std::make_unique<Event>();
        Event* const shared = handler.get();
        const auto wait = [=] { shared->Wait(); };
        std::thread waiters[] = {std::thread(wait), std::thread(wait)};
        shared->NotifyFinished();
        for (std::thread& waiter : waiters) {
            waiter.join();
        }
        handler = std::make_unique<Event>();
        std::thread notifier([notified = handler.get()] { notified->NotifyFinished(); });
        handler->Wait();
        handler.reset();
        notifier.join();
    });
}
