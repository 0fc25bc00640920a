#pragma once

#include <chrono>
#include <condition_variable>
#include <ctime>
#include <mutex>
#include <pthread.h>

namespace osal {

// Waits until `cond` is notified or `duration` has passed on the monotonic clock. May also return early. The sum
// of the clock and `duration` must fit into 64 bits of nanoseconds.
//
// Not wait_for(): below API level 30, the standard library waits on the wall clock, and setting that clock back
// would delay every message. The function below exists since API level 28.
inline void WaitMonotonic(std::condition_variable& cond, std::unique_lock<std::mutex>& lock,
                          std::chrono::nanoseconds duration)
{
    const std::chrono::nanoseconds deadline = std::chrono::steady_clock::now().time_since_epoch() + duration;
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(deadline);
    timespec until{};
    until.tv_sec = static_cast<time_t>(seconds.count());
    until.tv_nsec = static_cast<long>((deadline - seconds).count());
    pthread_cond_timedwait_monotonic_np(cond.native_handle(), lock.mutex()->native_handle(), &until);
}

}  // namespace osal
