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

// How many lists a step may gather. It also removes the empty list that the step before left in the map, and more
// than one only if due times overflow. Callers that queue messages wait during that time.
constexpr int MAX_GATHERED = 16;

// How many nodes of each kind a queue keeps for reuse.
constexpr size_t MAX_SPARES = 32;

uint64_t NowNs()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
}

// Removes an empty list. Keeps its node, unless there are enough spares.
template <typename Msgs, typename Spares>
void RemoveList(Msgs& msgs, typename Msgs::iterator list, Spares& spares)
{
    if (spares.size() < MAX_SPARES) {
        spares.insert(spares.end(), msgs.extract(list));
    } else {
        msgs.erase(list);
    }
}

// Returns the list of a due time, after adding it if there is none. If there is no memory for it, throws and
// changes nothing that a caller notices.
template <typename Msgs, typename Spares>
auto FindOrAddList(Msgs& msgs, uint64_t dueNs, Spares& spares)
{
    if (spares.empty() && !msgs.empty() && msgs.begin()->second.empty()) {
        RemoveList(msgs, msgs.begin(), spares);
    }
    if (spares.empty()) {
        return msgs.try_emplace(msgs.end(), dueNs);
    }
    auto node = spares.extract(spares.begin());
    node.key() = dueNs;
    const auto position = msgs.insert(msgs.end(), std::move(node));
    // NOLINTNEXTLINE(bugprone-use-after-move): the node is still here if the due time has a list already
    spares.insert(std::move(node));
    return position;
}

// Appends the lists that were due at `nowNs`, the last reading of the clock, to the first list. The next steps
// then only take a message from this list: they do not change the map, and hold the lock for a shorter time. This
// keeps the order: a message that is queued later is not due before that reading, unless its due time overflows,
// so the message belongs after all moved messages.
template <typename Msgs, typename Spares>
void GatherDue(Msgs& msgs, uint64_t nowNs, Spares& spares)
{
    auto& due = msgs.begin()->second;
    auto next = std::next(msgs.begin());
    for (int i = 0; i < MAX_GATHERED && next != msgs.end() && next->first <= nowNs; ++i) {
        const auto list = next++;
        due.splice(due.end(), list->second);
        RemoveList(msgs, list, spares);
    }
}

template <typename Msgs>
void FinishAll(const Msgs& msgs)
{
    for (const auto& [dueNs, items] : msgs) {
        for (const auto& item : items) {
            item.mHandler->NotifyFinished();
        }
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
    decltype(mMsgs) dropped;  // freed after the lock
    std::unique_lock<std::mutex> lock(mMutex);
    if (!mThread) {
        return;
    }
    if (mThread->IsWorker()) {
        mThread->Stop();  // logs the refusal
        return;
    }
    if (mStopped) {
        // Another thread is stopping the worker. The worker may be in a HandleMsg() that waits for a pending
        // handler.
        FinishAll(mMsgs);
        dropped.swap(mMsgs);
        mCond.wait(lock, [this, stops = mStops] { return mStops != stops; });
        return;
    }
    mStopped = true;
    mCond.notify_all();
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
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mStopped) {
        LOGE("%s: QueueMsg thread not start!", __func__);
        return -ENOSYS;
    }
    if (mSpareItems.empty()) {  // first: if this throws, no pending message has changed
        mSpareItems.emplace_back();
    }
    auto position = mMsgs.end();
    if (delayNs == 0 && !mMsgs.empty() && mMsgs.rbegin()->first <= mNowNs) {
        --position;  // all pending messages are known to be due, and this one belongs behind them
    } else {
        // The queue is empty: the last reading serves as the due time.
        const bool isFirst = delayNs == 0 && mMsgs.empty();
        position = FindOrAddList(mMsgs, isFirst ? mNowNs : NowNs() + delayNs, mSpareLists);
    }
    std::list<MsgItem>& items = position->second;
    items.splice(items.end(), mSpareItems, mSpareItems.begin());
    items.back() = MsgItem{handler, 0};
    // Otherwise the worker is awake, or wakes in time for the first message, of which it was notified.
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
        const auto list = position++;
        std::list<MsgItem>& items = list->second;
        for (auto next = items.begin(); next != items.end();) {
            const auto item = next++;
            if (item->mHandler == handler) {
                handler->NotifyFinished();
                if (mSpareItems.size() < MAX_SPARES) {
                    mSpareItems.splice(mSpareItems.begin(), items, item);
                } else {
                    items.erase(item);  // freed here: the node is in the cache now, and not after the walk
                }
            }
        }
        if (items.empty()) {
            RemoveList(mMsgs, list, mSpareLists);
        }
    }
}

bool MsgQueue::MsgProcessor()
{
    std::list<MsgItem> surplus;  // freed after the lock
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mMsgs.empty() && mMsgs.begin()->second.empty()) {
        RemoveList(mMsgs, mMsgs.begin(), mSpareLists);
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
    // The list has a message: empty lists were removed above, and only this thread leaves empty lists behind.
    std::list<MsgItem>& due = head->second;
    if (due.size() == 1) {  // otherwise the next step finds a message here, too
        GatherDue(mMsgs, mNowNs, mSpareLists);
    }
    MsgItem item = due.front();
    std::list<MsgItem>& removed = mSpareItems.size() < MAX_SPARES ? mSpareItems : surplus;
    removed.splice(removed.begin(), due, due.begin());
    lock.unlock();
    item.mHandler->HandleMsg(item.mArg);
    // The handler may have destroyed the queue: from here on, no field of the queue may be used.
    return true;
}

void MsgQueue::DropAll()
{
    decltype(mMsgs) dropped;  // freed after the lock
    const std::lock_guard<std::mutex> lock(mMutex);
    FinishAll(mMsgs);
    dropped.swap(mMsgs);
}

}  // namespace osal
