#pragma once

/// @file
/// Thread: a worker with a name and a real-time priority that can be started and stopped repeatedly.

#include "osal/export.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

/// All classes and functions of the library.
namespace osal {

/// A thread object, whose worker calls Run() of a subclass repeatedly until Run() returns false or Stop() is
/// called.
///
/// **Stop the worker before the object is destroyed**, at the latest in the destructor of the class that defines
/// Run(): when ~Thread() stops the worker, that class is already destroyed. **Destroy an object only when no other
/// thread is in one of its operations.**
///
/// - Threads: any thread may call any operation. **If Run() can block, make sure before Stop() that Run() returns
///   false or cannot block again**: Stop() waits for Run() and does not wake it, and a Run() that was woken once
///   and returned true may be called again, and block for good. If several threads call Stop() at the same time,
///   all calls return after the worker has ended.
/// - On the worker: Stop() is refused with a warning. Run() may destroy its own object, even while the Start()
///   that created the worker is still returning. The worker then ends when Run() returns, and Run() must not use
///   the object any more.
/// - Memory: what the calling thread wrote before Start() is visible in Run(). What Run() wrote is visible after
///   Stop().
/// - Log: the log function may be called with the lock of the object held. A log function that a program defines
///   itself must not call the same object.
/// - Results: 0 or a negated Linux error number. If memory runs out, std::bad_alloc is thrown and the object stays
///   stopped.
///
/// ```cpp
/// class Poller : public osal::Thread {
/// public:
///     ~Poller() override { Stop(); }
/// private:
///     bool Run() override { return PollOnce(); }
/// };
/// ```
class OSAL_API Thread {
public:
    /// A priority for SCHED_FIFO, passed to the system unchanged. Every integer from 1 to 99 may be cast to it.
    ///
    /// If the system refuses the priority, as it does without the right to real-time scheduling, the worker logs
    /// an error and a warning and keeps the scheduling of the thread that called Start(). Before a worker asks for
    /// its priority, it sets its timer slack to 1 ns: its waits are not prolonged to save power. Threads that
    /// Run() creates inherit the scheduling and the timer slack of the worker.
    enum Priority : int {
        PRIORITY_MIN = 1,  ///< The lowest real-time priority, which is above all ordinary threads.
        PRIORITY_DEFAULT = 10,  ///< For workers without special needs.
        PRIORITY_MAX = 99,  ///< The highest priority, which is above most threads of the kernel.
    };

    /// Creates a stopped object.
    Thread();
    /// Calls Stop(). Too late for a subclass whose worker may still call Run().
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Starts a worker. The kernel keeps 15 bytes of its name. With an empty name, the worker logs a warning and
    /// keeps the name of the calling thread.
    ///
    /// Returns 0 on success. Returns -17 (EEXIST), logs an info line and changes nothing if there is a worker; a
    /// worker that ended by itself counts until Stop(). Returns -12 (ENOMEM) and logs an error if the system
    /// refuses the thread: the object stays stopped, and a later Start() may succeed.
    int32_t Start(const std::string& name, Priority priority);

    /// Tells the worker to end and waits until the worker has ended. Right after Start(), the worker may end
    /// without a call of Run(). Does nothing without a worker.
    void Stop();

    /// Returns the kernel thread id of the worker; -1 without a worker. A worker that ended by itself counts until
    /// Stop(). Until the worker has recorded its id, shortly after Start(), the result is -1 or the id of the
    /// previous worker.
    int32_t GetId();

protected:
    /// One step of the work, called on the worker. Returns true to be called again. Must not throw.
    virtual bool Run() = 0;

private:
    friend class MsgQueue;

    void ThreadFunc();
    // Whether the calling thread is the worker. Does not read the object, which may be destroyed.
    bool IsWorker() const;

    std::string mName;
    Priority mPriority;
    int32_t mId;
    std::unique_ptr<std::thread> mThread;  // null while stopped
    std::atomic<bool> mStop;  // while mThread is set, true means that a Stop() is in progress
    // Guards mName, mPriority, mId, mThread, mStops; locked after the lock of a queue, never before.
    std::mutex mMutex;
    std::condition_variable mCond;  // signalled when the worker has recorded mId and when mStops has changed
    uint32_t mStops;  // number of completed stops; a waiting Stop() returns when it changes
};

}  // namespace osal
