// A queue and threads under load, on the system's own clock and scheduler.

#include "osal/msg_queue.h"
#include "support.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <gtest/gtest.h>
#include <list>
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

constexpr std::chrono::seconds LIMIT{90};  // only a broken library uses it up

// Ends the program when the object lives for longer than LIMIT.
class Watchdog {
public:
    explicit Watchdog(const char* what)
        : mThread([what, done = mDone.get_future()] {
              if (done.wait_for(LIMIT) == std::future_status::timeout) {
                  fprintf(stderr, "waited too long for %s\n", what);
                  abort();
              }
          })
    {
    }
    ~Watchdog()
    {
        mDone.set_value();
        mThread.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

private:
    std::promise<void> mDone;
    std::thread mThread;
};

struct Message : osal::MsgHandlerBase {
    void HandleMsg(int32_t&) override
    {
        isEarly = Clock::now() < notBefore;
        NotifyFinished();
    }
    void NotifyFinished() override { ++ends; }

    Clock::time_point notBefore;
    bool isAccepted = false;
    bool isEarly = false;
    std::atomic<int> ends{0};
};

}  // namespace

TEST(Load, LosesNoMessageAndRunsNoneEarly)
{
    constexpr std::array<uint64_t, 3> DELAYS_NS{0, 50'000, 1'000'000};
    MsgQueue queue;
    const Watchdog watchdog("a queue under load");
    std::array<std::list<Message>, 3> messages;
    std::vector<std::thread> producers;
    std::atomic<size_t> producing{messages.size()};
    ASSERT_EQ(0, queue.Start("load", Thread::PRIORITY_MIN));
    for (auto& lane : messages) {
        producers.emplace_back([&] {
            for (size_t i = 0; i < OSAL_LOAD_MESSAGES / messages.size(); ++i) {
                Message& message = lane.emplace_back();
                const uint64_t delayNs = DELAYS_NS[i % DELAYS_NS.size()];
                message.notBefore = Clock::now() + std::chrono::nanoseconds(delayNs);
                message.isAccepted = queue.QueueMsg(&message, delayNs) == 0;
                if (i % 64 == 0) {
                    queue.RemoveMsg(&message);
                }
            }
            --producing;
        });
    }
    int restarts = 0;
    for (; producing > 0; ++restarts) {
        queue.Stop();
        EXPECT_EQ(0, queue.Start("load", Thread::PRIORITY_MIN));
        std::this_thread::sleep_for(std::chrono::microseconds(500));  // some load in between, for no end
    }
    for (auto& producer : producers) {
        producer.join();
    }
    queue.Stop();
    size_t accepted = 0;
    for (const auto& lane : messages) {
        for (const Message& message : lane) {
            ASSERT_EQ(message.isAccepted ? 1 : 0, message.ends);
            ASSERT_FALSE(message.isEarly);
            accepted += message.isAccepted ? 1 : 0;
        }
    }
    EXPECT_GT(accepted, 0U);
    std::cout << accepted << " messages accepted, " << restarts << " restarts\n";
}

TEST(Load, ThreadsStartAndStopFromManySides)
{
    struct Spinner : Thread {
        ~Spinner() override { Stop(); }
        bool Run() override { return ++runs % 100 != 0; }
        std::atomic<int> runs{0};
    } spinner;
    const Watchdog watchdog("threads that start and stop");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&, i] {
            for (int n = 0; n < 300; ++n) {
                if ((n + i) % 2 == 0) {
                    spinner.Start("spinner", Thread::PRIORITY_MIN);
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
    EXPECT_GT(spinner.runs, 0);
}
