#include "osal/msg_queue.h"

#include <algorithm>
#include <android/log.h>
#include <cerrno>
#include <chrono>
#include <monotonic_wait.h>
#include <new>
#include <utility>

namespace osal {

namespace {

constexpr const char* TAG = "MsgQueue";

// The longest single wait. The standard library adds a wait to the clock in signed 64 bits, which a due time
// far away would overflow; the worker then sleeps in slices.
constexpr uint64_t MAX_WAIT_NS = 24ULL * 3600 * 1'000'000'000;

// How many keys a step may gather: whoever queues a message waits meanwhile.
constexpr int MAX_GATHERED = 16;

uint64_t NowNs()
{
    const auto now = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(now).count());
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
    // On the worker itself Stop() was refused, and what is pending would be lost without a word.
    DropAll();
}

int32_t MsgQueue::Start(const std::string& name, Thread::Priority priority)
{
    std::unique_lock<std::mutex> lock(mMutex);
    // A worker that is being stopped must see mStopped until it has ended, or it would never end.
    while (mThread && mStopped && !mThread->IsWorker()) {
        mCond.wait(lock);
    }
    if (mThread) {
        __android_log_print(ANDROID_LOG_INFO, TAG, "%s: MsgProcessor %s is not stop, ignored!", __func__,
                            mName.c_str());
        return mStopped ? -EEXIST : 0;
    }
    mName = name;
    std::unique_ptr<Thread> worker(new (std::nothrow) MsgQueueThread(this));
    if (!worker) {
        return -ENOMEM;
    }
    // The worker's first step waits for the lock, so it finds what is set below.
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
        mThread->Stop();  // refuses, and says so in the log
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
    mThread->Stop();
    DropAll();
    lock.lock();
    const std::unique_ptr<Thread> worker = std::move(mThread);  // released after the lock
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
    // Allocated ahead of the lock, and of the map entry: an entry left behind without its message would make
    // later messages look as if the worker had been woken for an earlier one.
    std::list<MsgItem> message(1, MsgItem{handler, 0});
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mStopped) {
        __android_log_print(ANDROID_LOG_ERROR, TAG, "%s: QueueMsg thread not start!", __func__);
        return -ENOSYS;
    }
    // With all that is pending known to be due, a message without delay goes behind it: a new reading of the clock
    // would give the same order.
    const bool isNext = delayNs == 0 && (mMsgs.empty() || mMsgs.rbegin()->first <= mNowNs);
    const auto position = mMsgs.try_emplace(mMsgs.end(), isNext ? mNowNs : NowNs() + delayNs);
    position->second.splice(position->second.end(), message);
    if (position == mMsgs.begin()) {
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
        position->second.remove_if([handler](const MsgItem& item) {
            if (item.mHandler != handler) {
                return false;
            }
            handler->NotifyFinished();
            return true;
        });
        position = position->second.empty() ? mMsgs.erase(position) : std::next(position);
    }
}

bool MsgQueue::MsgProcessor()
{
    std::list<MsgItem> message;  // released after the lock
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
    std::list<MsgItem>& due = head->second;
    if (due.size() == 1) {
        // What is due next joins the list: the steps that run it will hold the lock for as good as no time.
        auto next = std::next(head);
        for (int i = 0; i < MAX_GATHERED && next != mMsgs.end() && next->first <= mNowNs; ++i) {
            due.splice(due.end(), next->second);
            next = mMsgs.erase(next);
        }
    }
    message.splice(message.end(), due, due.begin());
    lock.unlock();
    MsgItem& item = message.front();
    item.mHandler->HandleMsg(item.mArg);
    // The handler may have destroyed the queue: nothing of it may be touched from here on.
    return true;
}

void MsgQueue::DropAll()
{
    std::map<uint64_t, std::list<MsgItem>> dropped;  // released after the lock
    const std::lock_guard<std::mutex> lock(mMutex);
    for (const auto& [dueNs, items] : mMsgs) {
        for (const MsgItem& item : items) {
            item.mHandler->NotifyFinished();
        }
    }
    dropped.swap(mMsgs);
}

}  // namespace osal
