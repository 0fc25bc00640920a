// The wait for Android, over a stand-in for the one call that only bionic has.

#include <chrono>
#include <gtest/gtest.h>
#include <pthread.h>

static std::chrono::nanoseconds lastDeadline{};

extern "C" int pthread_cond_timedwait_monotonic_np(pthread_cond_t*, pthread_mutex_t*, const timespec* deadline)
{
    EXPECT_TRUE(deadline->tv_nsec >= 0 && deadline->tv_nsec < 1'000'000'000);  // or the wait is refused
    lastDeadline = std::chrono::seconds(deadline->tv_sec) + std::chrono::nanoseconds(deadline->tv_nsec);
    return 0;
}

#include "monotonic_wait/android/monotonic_wait.h"

TEST(MonotonicWait, OfAndroidAsksForItsDeadlineOnTheMonotonicClock)
{
    std::mutex mutex;
    std::condition_variable cond;
    std::unique_lock<std::mutex> lock(mutex);
    const std::chrono::nanoseconds longest(1LL << 62);
    const auto before = std::chrono::steady_clock::now().time_since_epoch();
    osal::WaitMonotonic(cond, lock, longest);
    EXPECT_GE(lastDeadline, before + longest);
    EXPECT_LE(lastDeadline, std::chrono::steady_clock::now().time_since_epoch() + longest);
}
