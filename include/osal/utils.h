#pragma once

/// @file
/// Clocks; thread ids, names and priorities; a backtrace. All functions may be called from any thread.

#include "osal/export.h"

#include <cstdint>
#include <string>
#include <sys/types.h>

namespace osal {

/// @name Clocks
/// Each returns microseconds, rounded down. If the system does not have the clock, the function logs an error and
/// returns -1.
/// @{

/// Time of the clock with the given POSIX clock id, such as CLOCK_THREAD_CPUTIME_ID.
OSAL_API int64_t GetTimeByClockType(int clockType);

/// Wall-clock time since the Unix epoch. **It jumps when the system time is set.**
OSAL_API int64_t GetTimeUs();

/// Monotonic time since boot, without the time in suspend.
OSAL_API int64_t GetTimeUsBoot();

/// Monotonic time since boot, with the time in suspend.
OSAL_API int64_t GetTimeUsBootWithSuspend();

/// @}

/// @name Threads
/// @{

/// Returns the kernel thread id of the calling thread.
OSAL_API pid_t GetTid();

/// Returns the POSIX handle of the calling thread, for SetThreadPriority(). **It is not the kernel thread id**
/// that GetTid(), Thread::GetId() and MsgQueue::GetThreadId() return.
OSAL_API long GetThreadId();

/// Names the calling thread. The kernel keeps the first 15 bytes, even if that cuts a UTF-8 sequence. An empty
/// name logs a warning and changes nothing.
OSAL_API void SetThreadName(const std::string& name);

/// Gives a thread of this process real-time scheduling (SCHED_FIFO) with the given priority, 1 to 99 on Linux.
/// `thread` is a POSIX handle from GetThreadId(). **The thread must not have been joined, and must not have ended
/// after it was detached**: otherwise the call may crash or change another thread. A kernel thread id in place of
/// the handle has the same effect.
///
/// Threads that the thread creates later inherit policy and priority. Returns 0, or logs an error and returns a
/// positive error number: EPERM without the right to real-time scheduling, EINVAL for an invalid priority. A
/// failure does not change the scheduling of the thread.
OSAL_API int SetThreadPriority(long thread, int priority);

/// Writes the call stack of the calling thread to the log, with the tag "DEBUG". Returns `value`.
OSAL_API int PrintBacktrace(int value);

/// @}

}  // namespace osal
