#pragma once

/// @file
/// Thread: a worker with a name, a real-time priority and a repeatable start and stop.

#include "osal/export.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

/// Everything that the library offers.
namespace osal {

/// **Stop a subclass object before its destruction begins**: when ~Thread() stops the worker, the subclass and
/// its Run() are already gone. Destroy it only when no other thread is in one of its operations.
///
/// A thread runs the Run() of a subclass again and again on one worker, until Run() returns false or Stop() is
/// called. After Stop() it can be started again, under a new name and priority.
///
/// - Threads: any thread may call any operation. Stop() waits for the Run() that is under way and does not
///   wake one that blocks: wake it first. Several Stop() at once all return after the worker has ended. Stop()
///   on the worker itself is refused with a warning; a worker that destroys its own object is let go, and ends
///   when Run() returns, which must not touch the object any more.
/// - Memory: what was written before Start() is visible to Run(); what Run() wrote is visible after Stop().
/// - Results: 0 or a negated Linux error number. Running out of memory throws std::bad_alloc and leaves the
///   object stopped.
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
    /// A static priority under SCHED_FIFO, handed to the system unchanged; any of 1 to 99 may be cast to it.
    ///
    /// Without the right to real-time scheduling the worker says so in the log and runs with the scheduling of
    /// the thread that started it. Threads that Run() creates inherit its scheduling.
    enum Priority : int {
        PRIORITY_MIN = 1,  ///< The lowest real-time priority: still ahead of every ordinary thread.
        PRIORITY_DEFAULT = 10,  ///< For workers without a reason for another one.
        PRIORITY_MAX = 99,  ///< The highest: ahead of most threads of the kernel itself.
    };

    /// A stopped object.
    Thread();
    /// As Stop(); too late for a subclass whose Run() may still be called.
    virtual ~Thread();
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    /// Starts a worker. The kernel keeps 15 bytes of its name; with an empty name it keeps that of the
    /// calling thread, after a warning. Returns 0; -17 (EEXIST), with an info line and nothing changed, while
    /// there is a worker, also one that ended by itself and was not stopped yet; -12 (ENOMEM), after an error
    /// line, when the system refuses a thread: the object stays stopped, and a later Start() may succeed.
    int32_t Start(const std::string& name, Priority priority);

    /// Asks the worker to end and waits until it has. Does nothing when there is none.
    void Stop();

    /// The worker's kernel thread id, -1 while there is none; one that ended by itself counts until Stop().
    /// Right after Start() it may still be -1, or the previous worker's, until the new worker has got as far
    /// as to record its own.
    int32_t GetId();

protected:
    /// One step of the body, called on the worker; true asks to be called again. Must not throw.
    virtual bool Run() = 0;

private:
    friend class MsgQueue;

    void ThreadFunc();
    // Whether the calling thread is the worker. Reads nothing of the object.
    bool IsWorker() const;

    std::string mName;
    Priority mPriority;
    int32_t mId;
    std::unique_ptr<std::thread> mThread;  // null while stopped
    std::atomic<bool> mStop;  // set with mThread set: a Stop() is under way
    std::mutex mMutex;  // guards mName, mPriority, mId, mThread; taken after a queue's lock, never before
    std::condition_variable mCond;  // the worker has recorded mId; mStops has changed
    uint32_t mStops;  // how often a worker was stopped: tells a waiting Stop() that its own is over
};

}  // namespace osal
