#pragma once

/// @file
/// Clocks, thread ids, names and priorities, and a backtrace. Safe from any thread.

#include "osal/export.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace osal {

/// @name Clocks
/// Microseconds, nanoseconds cut off; -1, with an error line, when the system does not offer the clock.
/// @{

/// The clock with the given POSIX clock id, such as CLOCK_THREAD_CPUTIME_ID.
OSAL_API int64_t GetTimeByClockType(int clockType);

/// Wall-clock time since the Unix epoch. It jumps when the system time is set.
OSAL_API int64_t GetTimeUs();

/// Monotonic time since boot, without the time spent in suspend.
OSAL_API int64_t GetTimeUsBoot();

/// Monotonic time since boot, with the time spent in suspend.
OSAL_API int64_t GetTimeUsBootWithSuspend();

/// @}

/// @name Threads
/// @{

/// The calling thread's kernel id.
OSAL_API pid_t GetTid();

/// The calling thread's POSIX handle, as SetThreadPriority() takes it. It is no kernel id, such as GetTid(),
/// Thread::GetId() and MsgQueue::GetThreadId() give, and the other way round.
OSAL_API long GetThreadId();

/// Names the calling thread. The kernel keeps the first 15 bytes, even if that cuts a UTF-8 sequence. An
/// empty name logs a warning and changes nothing.
OSAL_API void SetThreadName(const std::string& name);

/// Puts a thread of this process under SCHED_FIFO with the given priority (1 to 99 on Linux; nothing is
/// clamped), whatever its policy was; threads that it creates inherit both. Anything but the POSIX handle of a
/// thread that was neither joined nor ended detached crashes or hits another thread: a kernel id is none.
/// Returns 0, or, after an error line, the positive error number of the POSIX call that failed, with the
/// thread's scheduling unchanged: EPERM without the right to real-time scheduling, EINVAL for the priority.
OSAL_API int SetThreadPriority(long thread, int priority);

/// Writes the calling thread's stack to the log under the tag "DEBUG" and returns `value` unchanged.
OSAL_API int PrintBacktrace(int value);

/// @}

}  // namespace osal
