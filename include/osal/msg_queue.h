#pragma once

/// @file
/// MsgQueue and its handlers: work on a worker thread, immediately or after a delay, in due-time order.

#include "osal/export.h"
#include "osal/thread.h"

#include <condition_variable>
#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace osal {

/// The interface of a message handler, which a queue calls. Derive handlers from MsgHandlerBase.
///
/// A handler belongs to the code that queues it. **Delete a handler only when all of this is true**:
/// - No queue has a pending message for the handler, and no RemoveMsg() or Stop() is dropping such a message.
/// - HandleMsg() of the handler is not running or about to run, or does nothing more after its call of
///   NotifyFinished(). **RemoveMsg() alone is not enough**: the worker may have taken a message just before, and
///   call HandleMsg() after RemoveMsg() has returned.
/// - No thread is in Wait() of the handler.
///
/// If the handler was queued in one queue only and is not queued again, the first two are true after a Stop() of
/// that queue on another thread than the worker, and when a message that was queued after the return of
/// RemoveMsg() has run in that queue. For a handler with one message and one waiter, the return of Wait() is
/// enough, if HandleMsg() calls NotifyFinished() as its last action.
///
/// A handler may delete itself: HandleMsg() as its last action, and NotifyFinished() when a queue drops the last
/// message, if the rest of the list above is true. The queue does not use the handler after these calls.
///
/// The order of the virtual operations is part of the binary interface.
class OSAL_API IMsgHandler {
public:
    /// The class comment says when a handler may be deleted.
    virtual ~IMsgHandler();

    /// Handles one message, on the worker of the queue, at or after the due time. No lock is held: HandleMsg() may
    /// queue and remove messages on the same queue. It must not wait for another message of the same queue, and
    /// must not throw. `arg` is 0, and nobody reads what HandleMsg() writes to it.
    virtual void HandleMsg(int32_t& arg) = 0;

    /// Blocks until the handler is finished.
    virtual void Wait() = 0;

    /// Marks the handler as finished. The handler's own code calls NotifyFinished() when the work is done. A queue
    /// calls it for each message that the queue drops, **with the lock of the queue held**: NotifyFinished() must
    /// not call that queue, and must not throw.
    virtual void NotifyFinished() = 0;
};

/// A handler that can be waited for: any number of threads can Wait() for NotifyFinished().
///
/// **A waiter cannot tell a handled message from a dropped message.** The queue does not call NotifyFinished()
/// after HandleMsg(): if a thread waits for the handler, HandleMsg() has to call it. One object finishes
/// once: a finished handler stays finished, and every later Wait() returns at once, even if the handler is
/// queued again. With several messages, the first message that is handled or dropped ends the wait.
///
/// Memory: what a thread wrote before NotifyFinished() is visible after Wait().
class OSAL_API MsgHandlerBase : public IMsgHandler {
public:
    /// Creates a handler that is not finished.
    MsgHandlerBase();
    ~MsgHandlerBase() override;
    MsgHandlerBase(const MsgHandlerBase&) = delete;
    MsgHandlerBase& operator=(const MsgHandlerBase&) = delete;

    void Wait() override;
    void NotifyFinished() override;

private:
    bool mFinished;
    std::mutex mMutex;  // guards mFinished; locked after the lock of a queue, never before
    std::condition_variable mCond;
};

/// A message queue: calls message handlers one after another, in due-time order, on its own worker thread.
///
/// **Destroy a queue only when no other thread is in one of its operations.** IMsgHandler says when a handler may
/// be deleted.
///
/// - Order: the earliest due time first, and equal due times in the order of queuing. A handler never starts
///   before its due time. The handlers before it and the system decide how late it starts.
/// - Threads: any thread may call any operation, and handlers may too. A Start() and a Stop() at the same time run
///   one after the other. A Stop() that meets another Stop() drops the pending messages at once, and returns after
///   the worker has ended. **While HandleMsg() waits for another thread, that thread must not call Start() or
///   Stop()**: Stop() waits for HandleMsg(), and Start() waits for a Stop() that is in progress.
/// - On the worker: Stop() is refused with a warning and changes nothing. A handler may destroy its own queue,
///   even while the QueueMsg() that queued it is still returning. The destructor logs this warning twice and drops
///   the pending messages. The worker ends when the handler returns.
/// - Memory: what a thread wrote before QueueMsg() is visible in HandleMsg().
/// - Allocations: until it is destroyed, a queue keeps the memory of up to 32 messages and 32 due times that it
///   does not need any more, at most 4 KiB. If never more than 32 messages are pending, RemoveMsg() and the worker
///   neither allocate nor free memory, and QueueMsg() allocates at most 32 times for messages and 32 times for due
///   times after Start(): never again once as many messages have been pending at the same time, each with a due
///   time of its own that had not passed.
/// - Log: the log function may be called with the lock of the queue held. A log function that a program defines
///   itself must not call the same queue.
/// - Units: delays are nanoseconds on the monotonic clock. Keep delays below 2^63 ns (292 years): a message whose
///   due time does not fit into 64 bits is due at once, at any place among the messages that are due.
/// - Results: 0 or a negated Linux error number. If memory runs out, QueueMsg() throws std::bad_alloc, and Start()
///   throws it or returns -12: the queue is unchanged. No other operation throws.
///
/// ```cpp
/// osal::MsgQueue queue;
/// queue.Start("decoder", osal::Thread::PRIORITY_DEFAULT);
/// queue.QueueMsg(&handler, 20'000'000);  // in 20 ms
/// handler.Wait();
/// ```
class OSAL_API MsgQueue {
public:
    /// Creates a stopped queue.
    MsgQueue();
    /// Calls Stop(). On the worker itself, it drops the pending messages and detaches the worker.
    virtual ~MsgQueue();
    MsgQueue(const MsgQueue&) = delete;
    MsgQueue& operator=(const MsgQueue&) = delete;

    /// Starts the worker with a name and a priority, as Thread::Start() does. Returns 0 on success. If a
    /// worker is already running, logs an info line, keeps its name and priority and returns 0. Returns -12
    /// (ENOMEM) if there is no memory for the worker object or the system refuses the thread: the queue stays
    /// stopped.
    ///
    /// While another thread stops the queue, Start() waits and then starts a new worker. On the worker that is
    /// being stopped, Start() logs the info line and returns -17 (EEXIST).
    int32_t Start(const std::string& name, Thread::Priority priority);

    /// Refuses new messages, waits for the HandleMsg() that is running or about to run, then drops all pending
    /// messages in due-time order and calls NotifyFinished() for each. If another thread is stopping the queue,
    /// drops the pending messages first, and then waits until the queue is stopped. Does nothing on a stopped
    /// queue. Refused on the worker.
    void Stop();

    /// Returns the kernel thread id of the worker, which is not a handle for SetThreadPriority(). -1 without a
    /// worker, during Stop(), and until a new worker has recorded its id.
    int32_t GetThreadId();

    /// Queues `handler` to run once, `delayNs` from now. The same handler may be queued several times. Returns 0
    /// on success. Returns -38 (ENOSYS) for a null handler (logs nothing) and if the queue is not running (logs an
    /// error).
    int32_t QueueMsg(IMsgHandler* handler, uint64_t delayNs);

    /// Drops all pending messages of `handler` and calls NotifyFinished() for each. **Does not wait for a
    /// HandleMsg() that is running or about to run**: IMsgHandler says when the handler may be deleted. Does
    /// nothing for null.
    ///
    /// Keep the queue of a real-time worker short if messages are removed from it: RemoveMsg() visits every
    /// pending message with the lock held, and the worker and all callers of the queue wait for this lock.
    void RemoveMsg(IMsgHandler* handler);

private:
    class MsgQueueThread;

    struct MsgItem {
        IMsgHandler* mHandler;
        int32_t mArg;
    };

    bool MsgProcessor();
    void DropAll();

    std::string mName;
    std::unique_ptr<Thread> mThread;  // while mStopped is true, a set pointer means that a Stop() is in progress
    bool mStopped;
    std::mutex mMutex;  // guards all fields; locked before the lock of a thread or a handler
    std::condition_variable mCond;  // signalled when a message became the earliest, or mStopped or mThread changed
    // Pending messages by due time in nanoseconds. If its due time has passed, a list may also hold messages with
    // later due times that have passed too. A list is empty from when the worker takes its last message until the
    // next step or an operation uses or removes it: the first list only, unless a due time overflows.
    std::map<uint64_t, std::list<MsgItem>> mMsgs;
    uint32_t mStops;  // number of completed stops; a waiting Stop() returns when it changes
    uint64_t mNowNs;  // the worker's last reading of the clock; due times up to it have passed
    // Nodes of removed messages and of their empty lists, at most 32 each, for reuse. The keys have no meaning.
    std::list<MsgItem> mSpareItems;
    std::multimap<uint64_t, std::list<MsgItem>> mSpareLists;
};

}  // namespace osal
