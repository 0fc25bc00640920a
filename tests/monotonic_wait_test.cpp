// The wait for Android, over a stand-in for the one call that only bionic has.

#include <cerrno>
#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>

namespace {

timespec lastDeadline{};
int lastResult = -1;

// No test waits longer, and a deadline on another clock would let one wait for years.
constexpr time_t MAX_WAIT_S = 48 * 3600;

}  // namespace

extern "C" int pthread_cond_timedwait_monotonic_np(pthread_cond_t* cond, pthread_mutex_t* mutex,
                                                   const timespec* deadline)
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    lastDeadline = *deadline;
    lastResult = deadline->tv_sec - now.tv_sec > MAX_WAIT_S
                     ? EINVAL
                     : pthread_cond_clockwait(cond, mutex, CLOCK_MONOTONIC, deadline);
    return lastResult;
}

#include "monotonic_wait/android/monotonic_wait.h"

namespace {

using Clock = std::chrono::steady_clock;

Clock::time_point LastDeadline()
{
    return Clock::time_point(std::chrono::seconds(lastDeadline.tv_sec) +
                             std::chrono::nanoseconds(lastDeadline.tv_nsec));
}

}  // namespace

TEST(MonotonicWait, OfAndroidLastsUntilItsDeadline)
{
    constexpr std::chrono::milliseconds duration{20};
    std::mutex mutex;
    std::condition_variable cond;
    std::unique_lock<std::mutex> lock(mutex);
    const auto before = Clock::now();
    do {
        osal::WaitMonotonic(cond, lock, duration);
    } while (lastResult == 0);  // woken for no reason
    EXPECT_EQ(ETIMEDOUT, lastResult);
    EXPECT_GE(LastDeadline(), before + duration);
    EXPECT_GE(Clock::now(), LastDeadline());
    EXPECT_TRUE(lock.owns_lock());
}

TEST(MonotonicWait, OfAndroidEndsWhenNotified)
{
    constexpr std::chrono::nanoseconds duration = std::chrono::hours(24) + std::chrono::nanoseconds(999'999'999);
    std::mutex mutex;
    std::condition_variable cond;
    bool notified = false;
    std::unique_lock<std::mutex> lock(mutex);
    std::thread notifier([&] {
        const std::lock_guard<std::mutex> inner(mutex);  // free once the wait has begun
        notified = true;
        cond.notify_all();
    });
    while (!notified) {
        const auto before = Clock::now();
        osal::WaitMonotonic(cond, lock, duration);
        EXPECT_GE(LastDeadline(), before + duration);
        EXPECT_LE(LastDeadline(), Clock::now() + duration);
        EXPECT_EQ(0, lastResult);  // a deadline that is not valid is refused
        if (lastResult != 0) {
            break;
        }
    }
    lock.unlock();
    notifier.join();
}
