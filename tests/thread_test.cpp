#include "osal/thread.h"

#include "osal/utils.h"
#include "support.h"
#include "system.h"

#include <atomic>
#include <functional>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <thread>

using osal::Thread;

namespace {

// Calls a function in Run(), in a simulation. Without Stop() in its destructor, so a test stops it or lets it end.
struct TestThread : Thread {
    explicit TestThread(std::function<bool()> function) : body(std::move(function)) {}
    bool Run() override
    {
        EXPECT_EQ(osal::GetTid(), GetId());
        return body();
    }
    std::function<bool()> body;
};

}  // namespace

TEST(Thread, NamesItsWorkerAndSetsItsPriority)
{
    const Simulation simulation;
    const LogCapture log;
    static_assert(Thread::PRIORITY_MIN == 1 && Thread::PRIORITY_DEFAULT == 10 && Thread::PRIORITY_MAX == 99);
    std::atomic<int> runs{0};
    TestThread thread([&] {
        EXPECT_EQ(1, prctl(PR_GET_TIMERSLACK));
        EXPECT_EQ("worker-named-\xE2\x99", ThreadName());
        const auto scheduling = Simulation::LastScheduling();
        EXPECT_NE(0, pthread_equal(pthread_self(), scheduling.thread));
        EXPECT_EQ(SCHED_FIFO, scheduling.policy);
        EXPECT_EQ(Thread::PRIORITY_DEFAULT, scheduling.priority);
        return ++runs < 3;
    });
    EXPECT_EQ(-1, thread.GetId());
    thread.Stop();
    ASSERT_EQ(0, thread.Start("worker-named-\xE2\x99\xAB", Thread::PRIORITY_DEFAULT));
    EXPECT_EQ(-17, thread.Start("another", Thread::PRIORITY_MAX));
    EXPECT_EQ(-1, thread.GetId());  // the worker has not begun
    Simulation::LetOthersRun();
    EXPECT_EQ(3, runs);
    EXPECT_EQ(-17, thread.Start("another", Thread::PRIORITY_MIN));
    EXPECT_NE(-1, thread.GetId());  // the worker has ended, but nobody has stopped it
    const char* const ignored = "I NuThread: Start:  Thread worker-named-\xE2\x99\xAB is not stop, ignore!";
    EXPECT_EQ((LogLines{ignored, ignored}), log.Lines());
}  // stopped by its destructor

TEST(Thread, RunsUntilStoppedAndAgainUnderANewName)
{
    const Simulation simulation;
    const LogCapture log;
    const std::string ownName = ThreadName();
    std::string seenName;
    int runs = 0;
    TestThread thread([&] {
        seenName = ThreadName();
        EXPECT_EQ(Thread::PRIORITY_DEFAULT, Simulation::LastScheduling().priority);
        TestThread other([] { return false; });
        EXPECT_EQ(0, other.Start("other", Thread::PRIORITY_DEFAULT));
        other.Stop();  // not refused on the worker of another object
        ++runs;
        Simulation::LetOthersRun();
        return true;
    });
    ASSERT_EQ(0, thread.Start("before", Thread::PRIORITY_MIN));
    thread.Stop();
    EXPECT_EQ(0, runs);  // stopped before the worker began
    for (const std::string name : {"one", "two", ""}) {
        runs = 0;
        ASSERT_EQ(0, thread.Start(name, Thread::PRIORITY_DEFAULT));
        Simulation::LetOthersRun();
        Simulation::LetOthersRun();  // the worker waits for this thread, too
        thread.Stop();
        EXPECT_EQ(2, runs);
        EXPECT_EQ(name.empty() ? ownName : name, seenName);
    }
    EXPECT_EQ(LogLines{"W NuThread: SetThreadName: ThreadName can't be empty."}, log.Lines());
}

TEST(ThreadSchedules, EachStopReturnsAfterTheWorkerHasEnded)
{
    ForEachSeed(80, [](unsigned int) {
        const LogCapture log;
        Event release;
        bool hasEnded = false;
        Thread* self = nullptr;
        TestThread thread([&] {
            release.Wait();
            self->Stop();  // refused, also while others wait for this worker
            EXPECT_EQ(osal::GetTid(), self->GetId());
            EXPECT_EQ(Thread::PRIORITY_MAX, Simulation::LastScheduling().priority);
            hasEnded = true;
            return true;
        });
        self = &thread;
        const auto stop = [&] {
            thread.Stop();
            EXPECT_TRUE(hasEnded);
        };
        ASSERT_EQ(0, thread.Start("stopped", Thread::PRIORITY_MAX));
        Simulation::LetOthersRun();
        const int32_t id = thread.GetId();
        std::thread first(stop);
        std::thread second(stop);
        Simulation::LetOthersRun();
        EXPECT_EQ(id, thread.GetId());
        EXPECT_EQ(-17, thread.Start("another", Thread::PRIORITY_MIN));
        release.Set();
        stop();
        EXPECT_EQ(-1, thread.GetId());
        first.join();
        second.join();
        EXPECT_EQ((LogLines{"I NuThread: Start:  Thread stopped is not stop, ignore!",
                            "W NuThread: Stop: Thread stopped is not allowed to stop itself"}),
                  log.Lines());
    });
}
