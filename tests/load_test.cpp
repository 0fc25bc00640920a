// A queue under load, on the system's own clock and scheduler.

#include "osal/msg_queue.h"

#include <array>
#include <atomic>
#include <chrono>
#include <gtest/gtest.h>
#include <list>
#include <thread>

// Nobody looks at the log here, and keeping each refusal would take its memory.
extern "C" int __android_log_print(int, const char*, const char*, ...)
{
    return 0;
}

namespace {

using Clock = std::chrono::steady_clock;

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
    osal::MsgQueue queue;
    std::array<std::list<Message>, 3> messages;
    std::vector<std::thread> producers;
    std::atomic<size_t> producing{messages.size()};
    ASSERT_EQ(0, queue.Start("load", osal::Thread::PRIORITY_MIN));
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
    while (producing > 0) {
        queue.Stop();
        EXPECT_EQ(0, queue.Start("load", osal::Thread::PRIORITY_MIN));
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
}
