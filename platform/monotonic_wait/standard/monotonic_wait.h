#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace osal {

// Waits until `cond` is notified or `duration` has passed on the monotonic clock. May also return early.
inline void WaitMonotonic(std::condition_variable& cond, std::unique_lock<std::mutex>& lock,
                          std::chrono::nanoseconds duration)
{
    cond.wait_for(lock, duration);
}

}  // namespace osal
