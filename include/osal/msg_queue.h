#pragma once

/// @file
/// MsgQueue and its handlers: work at once or after a delay, in due-time order, on a worker.

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

/// What a queue calls.
///
/// Handlers belong to the caller, who deletes one only when no queue holds a message for it, no queue is
/// dropping its messages, its HandleMsg() is not running and no thread waits on it.
///
/// The order of the virtual operations is part of the binary interface.
class OSAL_API IMsgHandler {
public:
    /// See above for when a handler may be deleted.
    virtual ~IMsgHandler();

    /// Called on the queue's worker when the message is due, with no lock held: it may queue and remove
    /// messages on the same queue, but must neither wait there for another message of the queue nor throw.
    /// `arg` is 0 and what is written to it is seen by nobody.
    virtual void HandleMsg(int32_t& arg) = 0;

    /// Blocks until the handler is finished.
    virtual void Wait() = 0;

    /// Marks the handler finished. Called by its own code when its work is done, and by the queue, under the
    /// queue's lock, for each message that it drops: it must neither call back into that queue nor throw.
    virtual void NotifyFinished() = 0;
};

/// A handler with a completion signal: any number of threads may Wait() for NotifyFinished().
///
/// **A waiter cannot tell a handled message from a dropped one.** The queue does not call NotifyFinished()
/// after HandleMsg(): a handler on which somebody waits does so itself. One object carries one completion:
/// once finished it stays so, and every later Wait() returns at once, even if it is queued again.
///
/// Wait() returns as soon as NotifyFinished() is called, while HandleMsg() may still be running: where the
/// waiter deletes the handler, that call is the last thing that HandleMsg() does. For a handler with several
/// messages the first one that is dropped or handled ends the wait; the queue may still be dropping the others.
class OSAL_API MsgHandlerBase : public IMsgHandler {
public:
    /// A handler that is not finished.
    MsgHandlerBase();
    ~MsgHandlerBase() override;
    MsgHandlerBase(const MsgHandlerBase&) = delete;
    MsgHandlerBase& operator=(const MsgHandlerBase&) = delete;

    void Wait() override;
    void NotifyFinished() override;

private:
    bool mFinished;
    std::mutex mMutex;  // guards mFinished; taken after a queue's lock, never before
    std::condition_variable mCond;
};

/// **Destroy a queue only when no other thread is in one of its operations**, and a handler only when the queue is
/// done with it: RemoveMsg() does not wait for a HandleMsg() already running, so it does not by itself make it
/// safe to delete the handler. RemoveMsg() and Stop() call NotifyFinished() under the queue's lock: it must not
/// call back into the queue.
///
/// A queue runs message handlers one after another, in due-time order, on a worker thread of its own. Handlers
/// stay the caller's.
///
/// - Order: earliest due time first; equal due times in the order of queuing. A handler never starts before
///   its due time; how late it starts depends on the handlers before it and on the system.
/// - Threads: any thread may call any operation, handlers included. Start() and Stop() that meet wait for each
///   other. On the worker itself Stop() is refused, with a warning, and changes nothing; a handler that
///   destroys its own queue, with the same warnings, ends the worker when it returns.
/// - Units: delays are nanoseconds on the monotonic clock. Keep delays below 2^63 ns (292 years): one whose due
///   time overflows 64 bits is due at once, in no particular place among what is due already.
/// - Results: 0 or a negated Linux error number. Running out of memory throws std::bad_alloc, in QueueMsg() and
///   Start() alone, and leaves the queue as it was.
///
/// ```cpp
/// osal::MsgQueue queue;
/// queue.Start("decoder", osal::Thread::PRIORITY_DEFAULT);
/// queue.QueueMsg(&handler, 20'000'000);  // in 20 ms
/// handler.Wait();
/// ```
class OSAL_API MsgQueue {
public:
    /// A stopped queue.
    MsgQueue();
    /// As Stop(); on the worker itself, too, the pending messages are dropped.
    virtual ~MsgQueue();
    MsgQueue(const MsgQueue&) = delete;
    MsgQueue& operator=(const MsgQueue&) = delete;

    /// Starts the worker under a name and a priority, as Thread::Start() does. 0 when it runs, or already
    /// ran under its old name, with an info line. -12 (ENOMEM) when there is no memory for the worker object or
    /// the system refuses the thread: the queue stays stopped. While another thread stops the queue, it waits
    /// for that and starts anew; -17 (EEXIST), with the info line, if the worker itself asks for it then.
    int32_t Start(const std::string& name, Thread::Priority priority);

    /// Refuses new messages, waits for the HandleMsg() that is running, then drops all pending messages in
    /// due-time order, with one NotifyFinished() each. Does nothing on a stopped queue.
    void Stop();

    /// The worker's kernel thread id, which is not what SetThreadPriority() takes; -1 without a worker, while
    /// the queue is being stopped, and until a new worker has recorded its id.
    int32_t GetThreadId();

    /// Queues `handler` to run once, `delayNs` from now; the same handler may be queued several times.
    /// Returns 0, or -38 (ENOSYS) if `handler` is null or, with an error line, the queue is not running.
    int32_t QueueMsg(IMsgHandler* handler, uint64_t delayNs);

    /// Drops all pending messages of `handler`, with one NotifyFinished() each. Walks the whole queue. Does
    /// nothing for null.
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
    std::unique_ptr<Thread> mThread;  // set with mStopped set: a Stop() is under way
    bool mStopped;
    std::mutex mMutex;  // guards all fields; taken before a thread's and a handler's lock
    std::condition_variable mCond;  // a message became the earliest, or mStopped or mThread changed
    std::map<uint64_t, std::list<MsgItem>> mMsgs;  // by due time in ns; a list may gather others, or run empty
    uint32_t mStops;  // how often a worker was stopped: tells a waiting Stop() that its own is over
    uint64_t mNowNs;  // the worker's last reading of the clock: what is due by then is due without another
};

}  // namespace osal
