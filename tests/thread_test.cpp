#include "osal/thread.h"
#include "osal/utils.h"
#include "support.h"

#include <functional>
#include <gtest/gtest.h>

using osal::Thread;

namespace {

constexpr const char* TAG = "NuThread";

// Runs a function as its body. Blocks in it until released, by default.
class TestThread : public Thread {
public:
    explicit TestThread(std::function<bool()> body) : mBody(std::move(body)) {}
    ~TestThread() override { Stop(); }

private:
    bool Run() override { return mBody(); }

    std::function<bool()> mBody;
};

// The lines of the Thread class itself: which lines the priority gives depends on the rights.
LogLines ThreadLines(const LogCapture& log)
{
    LogLines lines;
    for (const LogLine& line : log.Lines(TAG)) {
        if (line.text.find("SetThreadPriority") == std::string::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

}  // namespace

TEST(ThreadTest, IsStoppedAtFirst)
{
    const LogCapture log;
    TestThread thread([] { return true; });
    EXPECT_EQ(-1, thread.GetId());
    thread.Stop();
    EXPECT_EQ(LogLines{}, log.Lines());
}

TEST(ThreadTest, NamesItsWorkerAndSetsItsPriority)
{
    const bool allowed = RealTimeAllowed();
    const LogCapture log;
    Event checked;
    TestThread* self = nullptr;
    TestThread thread([&] {
        const pid_t tid = osal::GetTid();
        EXPECT_EQ(tid, self->GetId());
        EXPECT_EQ("worker-with-a-l", KernelThreadName(tid));
        int policy = 0;
        sched_param param{};
        EXPECT_EQ(0, pthread_getschedparam(pthread_self(), &policy, &param));
        EXPECT_EQ(allowed ? SCHED_FIFO : SCHED_OTHER, policy);
        EXPECT_EQ(allowed ? 3 : 0, param.sched_priority);
        checked.Set();
        return false;
    });
    self = &thread;
    ASSERT_EQ(0, thread.Start("worker-with-a-long-name", static_cast<Thread::Priority>(3)));
    ASSERT_TRUE(checked.Wait());
    const std::string id = std::to_string(thread.GetId());  // of the ended worker, while it is not stopped
    thread.Stop();
    const std::string reason = std::to_string(EPERM) + ", " + strerror(EPERM);
    const LogLines refused{{ANDROID_LOG_ERROR, TAG, "SetThreadPriority: pthread_setschedparam failed: " + reason},
                           {ANDROID_LOG_WARN, TAG, "worker-with-a-long-name, SetThreadPriority ret:1, mId:" + id}};
    EXPECT_EQ(allowed ? LogLines{} : refused, log.Lines());
    EXPECT_EQ(-1, thread.GetId());
}

TEST(ThreadTest, RefusesASecondStartUntilItIsStopped)
{
    Event release;
    std::atomic<int> runs{0};
    TestThread thread([&] {
        ++runs;
        release.Wait();
        return false;
    });
    ASSERT_EQ(0, thread.Start("first", Thread::PRIORITY_MIN));
    const LogCapture log;
    EXPECT_EQ(-17, thread.Start("second", Thread::PRIORITY_MIN));
    release.Set();
    while (runs == 0) {
        std::this_thread::yield();
    }
    EXPECT_EQ(-17, thread.Start("third", Thread::PRIORITY_MIN));  // while it ends, and after it has
    const LogLine ignored{ANDROID_LOG_INFO, TAG, "Start:  Thread first is not stop, ignore!"};
    EXPECT_EQ((LogLines{ignored, ignored}), ThreadLines(log));
    thread.Stop();
    EXPECT_EQ(1, runs);
    EXPECT_EQ(0, thread.Start("fourth", Thread::PRIORITY_MIN));
    thread.Stop();
}

TEST(ThreadTest, RunsUntilStoppedAndAgainUnderANewName)
{
    for (const char* name : {"one", "two", ""}) {
        const LogCapture log;
        std::string seenName;
        std::atomic<int> runs{0};
        Event ran;
        TestThread thread([&] {
            seenName = KernelThreadName(osal::GetTid());
            if (++runs >= 2 && seenName != "before") {
                ran.Set();
            }
            return true;
        });
        ASSERT_EQ(0, thread.Start("before", Thread::PRIORITY_MIN));
        thread.Stop();
        ASSERT_EQ(0, thread.Start(name, Thread::PRIORITY_MIN));
        ASSERT_TRUE(ran.Wait());
        thread.Stop();
        if (name[0] == '\0') {
            EXPECT_EQ((LogLines{{ANDROID_LOG_WARN, TAG, "SetThreadName: ThreadName can't be empty."}}),
                      ThreadLines(log));
            EXPECT_EQ(KernelThreadName(osal::GetTid()), seenName);
        } else {
            EXPECT_EQ(name, seenName);
        }
        const int runsAtStop = runs;
        thread.Stop();
        EXPECT_EQ(runsAtStop, runs);
    }
}

TEST(ThreadTest, RefusesToStopItself)
{
    const LogCapture log;
    TestThread* self = nullptr;
    std::atomic<int> runs{0};
    Event done;
    TestThread thread([&] {
        self->Stop();
        EXPECT_NE(-1, self->GetId());
        if (++runs == 2) {
            done.Set();
            return false;
        }
        return true;
    });
    self = &thread;
    ASSERT_EQ(0, thread.Start("selfish", Thread::PRIORITY_MIN));
    ASSERT_TRUE(done.Wait());
    thread.Stop();
    const LogLine refused{ANDROID_LOG_WARN, TAG, "Stop: Thread selfish is not allowed to stop itself"};
    EXPECT_EQ((LogLines{refused, refused}), ThreadLines(log));
}

TEST(ThreadTest, StopsOnceForSeveralStoppers)
{
    for (int round = 0; round < 50; ++round) {
        Event running;
        std::atomic<bool> ended{false};
        TestThread* self = nullptr;
        Event stopping;
        TestThread thread([&] {
            running.Set();
            stopping.Wait();
            self->Stop();  // refused also while others wait for this worker
            ended = true;
            return true;
        });
        self = &thread;
        ASSERT_EQ(0, thread.Start("stopped", Thread::PRIORITY_MIN));
        ASSERT_TRUE(running.Wait());
        const auto stop = [&] {
            stopping.Set();
            thread.Stop();
            EXPECT_TRUE(ended);
            EXPECT_EQ(-1, thread.GetId());
        };
        std::thread first(stop);
        std::thread second(stop);
        stop();
        first.join();
        second.join();
    }
}

TEST(ThreadTest, LetsAWorkerDestroyItsOwnObject)
{
    struct Watch {
        Event destroyed;
        Event threadEnded;
        Thread* thread = nullptr;
    } watch;
    class SelfDestroyer : public Thread {
    public:
        explicit SelfDestroyer(Watch& watch) : mWatch(watch) {}

    private:
        bool Run() override
        {
            SetAtThreadEnd(mWatch.threadEnded);
            Watch& outlivesThis = mWatch;
            delete outlivesThis.thread;
            outlivesThis.destroyed.Set();
            return true;
        }
        Watch& mWatch;
    };
    watch.thread = new SelfDestroyer(watch);
    ASSERT_EQ(0, watch.thread->Start("self-destroyer", Thread::PRIORITY_MIN));
    EXPECT_TRUE(watch.destroyed.Wait());
    EXPECT_TRUE(watch.threadEnded.Wait());
}
