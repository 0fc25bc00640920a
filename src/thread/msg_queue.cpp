#include "osal/msg_queue.h"

#include "../log.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <monotonic_wait.h>
#include <new>
#include <utility>

namespace osal {

namespace {

constexpr const char* TAG = "MsgQueue";

// The longest single wait. The end of a wait is the clock plus the wait in signed 64 bits, which a longer wait
// could overflow.
constexpr uint64_t MAX_WAIT_NS = 1ULL << 62;

// How many due times a step may gather. Callers that queue messages wait during that time.
constexpr int MAX_GATHERED = 16;

uint64_t NowNs()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

int32_t RefuseMsg()
{
    LOGE("%s: QueueMsg thread not start!", "QueueMsg");
    return -ENOSYS;
}

// Appends the lists that were due at `nowNs`, the last reading of the clock, to the first list. The steps that run
// these messages then hold the lock for a shorter time. This keeps the order: a message that is queued later is
// never due before that reading, so the message belongs after all moved messages.
template <typename Msgs>
void GatherDue(Msgs& msgs, uint64_t nowNs)
{
    auto& due = msgs.begin()->second;
    auto next = std::next(msgs.begin());
    for (int i = 0; i < MAX_GATHERED && next != msgs.end() && next->first <= nowNs; ++i) {
        due.splice(due.end(), next->second);
        next = msgs.erase(next);
    }
}

}  // namespace

class MsgQueue::MsgQueueThread : public Thread {
public:
    explicit MsgQueueThread(MsgQueue* queue) : mQueue(queue) {}

private:
    bool Run() override { return mQueue->MsgProcessor(); }

    MsgQueue* mQueue;
};

MsgQueue::MsgQueue() : mName("Unknown"), mStopped(true), mStops(0), mNowNs(0) {}

MsgQueue::~MsgQueue()
{
    Stop();
    DropAll();  // on the worker itself, where Stop() is refused
}

int32_t MsgQueue::Start(const std::string& name, Thread::Priority priority)
{
    std::unique_lock<std::mutex> lock(mMutex);
    // A worker that is being stopped must find mStopped set until it has ended. Otherwise it would never end.
    while (mThread && mStopped && !mThread->IsWorker()) {
        mCond.wait(lock);
    }
    if (mThread) {
        LOGI("%s: MsgProcessor %s is not stop, ignored!", __func__, mName.c_str());
        return mStopped ? -EEXIST : 0;
    }
    mName = name;
    std::unique_ptr<Thread> worker(new (std::nothrow) MsgQueueThread(this));
    if (!worker) {
        return -ENOMEM;
    }
    // The first step of the worker waits for the lock, so it finds the fields as they are set below.
    const int32_t result = worker->Start(name, priority);
    if (result == 0) {
        mThread = std::move(worker);
        mStopped = false;
    }
    return result;
}

void MsgQueue::Stop()
{
    std::unique_lock<std::mutex> lock(mMutex);
    if (mThread && mThread->IsWorker()) {
        mThread->Stop();  // logs the refusal
        return;
    }
    if (mThread && mStopped) {
        mCond.wait(lock, [this, stops = mStops] { return mStops != stops; });
        return;
    }
    mStopped = true;
    mCond.notify_all();
    if (!mThread) {
        return;
    }
    lock.unlock();
    // mThread is read without the lock: while mStopped is set and mThread too, only this call may change it.
    mThread->Stop();
    DropAll();
    lock.lock();
    const std::unique_ptr<Thread> worker = std::move(mThread);  // destroyed without the lock
    ++mStops;
    mCond.notify_all();
    lock.unlock();
}

int32_t MsgQueue::GetThreadId()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return mThread && !mStopped ? mThread->GetId() : -1;
}

int32_t MsgQueue::QueueMsg(IMsgHandler* handler, uint64_t delayNs)
{
    if (handler == nullptr) {
        return -ENOSYS;
    }
    // Allocated before the lock, because the worker needs the lock at the same time. Also before the map entry: an
    // entry without a message would make later messages look as if the worker had been woken for an earlier one.
    std::list<MsgItem> message;
    try {
        message.push_back(MsgItem{handler, 0});
    } catch (const std::bad_alloc&) {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mStopped) {  // a stopped queue refuses messages even without memory
            return RefuseMsg();
        }
        throw;
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mStopped) {
        return RefuseMsg();
    }
    auto position = mMsgs.end();
    if (delayNs == 0 && !mMsgs.empty() && mMsgs.rbegin()->first <= mNowNs) {
        --position;  // all pending messages are known to be due, and this one belongs behind them
    } else {
        const bool isFirst = delayNs == 0 && mMsgs.empty();  // due at any reading of the clock
        position = mMsgs.try_emplace(position, isFirst ? mNowNs : NowNs() + delayNs);
    }
    std::list<MsgItem>& items = position->second;
    items.splice(items.end(), message);
    // Otherwise a message that is due no later has woken the worker, or will.
    if (position == mMsgs.begin() && items.size() == 1) {
        mCond.notify_all();
    }
    return 0;
}

void MsgQueue::RemoveMsg(IMsgHandler* handler)
{
    if (handler == nullptr) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    for (auto position = mMsgs.begin(); position != mMsgs.end();) {
        std::list<MsgItem>& items = position->second;
        for (auto item = items.begin(); item != items.end();) {
            if (item->mHandler == handler) {
                handler->NotifyFinished();
                item = items.erase(item);  // freed here: the node is in the cache now, and not after the walk
            } else {
                ++item;
            }
        }
        position = items.empty() ? mMsgs.erase(position) : std::next(position);
    }
}

bool MsgQueue::MsgProcessor()
{
    std::list<MsgItem> message;  // freed after the lock
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mMsgs.empty() && mMsgs.begin()->second.empty()) {
        mMsgs.erase(mMsgs.begin());
    }
    mCond.wait(lock, [this] { return mStopped || !mMsgs.empty(); });
    if (mStopped) {
        return false;
    }
    const auto head = mMsgs.begin();
    if (head->first > mNowNs) {
        mNowNs = NowNs();
        if (head->first > mNowNs) {
            WaitMonotonic(mCond, lock, std::chrono::nanoseconds(std::min(head->first - mNowNs, MAX_WAIT_NS)));
            return true;
        }
    }
    // The list has a message: empty lists were erased above, and only this thread leaves empty lists behind.
    std::list<MsgItem>& due = head->second;
    if (due.size() == 1) {
        GatherDue(mMsgs, mNowNs);
    }
    message.splice(message.end(), due, due.begin());
    lock.unlock();
    MsgItem& item = message.front();
    item.mHandler->HandleMsg(item.mArg);
    // The handler may have destroyed the queue: from here on, no field of the queue may be used.
    return true;
}

void MsgQueue::DropAll()
{
    std::map<uint64_t, std::list<MsgItem>> dropped;  // freed after the lock
    const std::lock_guard<std::mutex> lock(mMutex);
    for (const auto& [dueNs, items] : mMsgs) {
        for (const MsgItem& item : items) {
            item.mHandler->NotifyFinished();
        }
    }
    dropped.swap(mMsgs);
}

}  // namespace osal
