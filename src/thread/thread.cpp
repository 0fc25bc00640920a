#include "osal/thread.h"

#include "osal/utils.h"

#include "../log.h"

#include <cerrno>
#include <sys/prctl.h>
#include <system_error>
#include <type_traits>

namespace osal {

namespace {

constexpr const char* TAG = "NuThread";

// The object of which the calling thread is the worker. The pointer outlives the object, so that a worker can tell
// that Run() has destroyed the object.
thread_local const Thread* tWorkerOf = nullptr;

}  // namespace

static_assert(std::is_same_v<std::underlying_type_t<Thread::Priority>, int>);

Thread::Thread() : mName("Unkown"), mPriority(PRIORITY_DEFAULT), mId(-1), mStop(true), mStops(0) {}

Thread::~Thread()
{
    Stop();
    if (IsWorker()) {
        // The worker cannot join itself, and Stop() was refused. The detached worker ends after Run().
        tWorkerOf = nullptr;
        mThread->detach();
    }
}

int32_t Thread::Start(const std::string& name, Priority priority)
{
    // Held until all fields are set: the first action of the worker is to lock the mutex.
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mThread) {
        LOGI("%s:  Thread %s is not stop, ignore!", __func__, mName.c_str());
        return -EEXIST;
    }
    mName = name;
    mStop = false;
    try {
        mThread = std::make_unique<std::thread>(&Thread::ThreadFunc, this);
    } catch (const std::system_error&) {
        LOGE("%s: Create thread %s failed!", __func__, mName.c_str());
        return -ENOMEM;
    }
    mPriority = priority;
    return 0;
}

void Thread::Stop()
{
    std::unique_lock<std::mutex> lock(mMutex);
    if (!mThread) {
        return;
    }
    if (IsWorker()) {
        LOGW("%s: Thread %s is not allowed to stop itself", __func__, mName.c_str());
        return;
    }
    if (mStop) {
        // Another thread is joining the worker, and only one thread may.
        mCond.wait(lock, [this, stops = mStops] { return mStops != stops; });
        return;
    }
    mStop = true;
    lock.unlock();
    // mThread is read without the lock: while mStop is set and mThread too, only this call may change it.
    mThread->join();
    lock.lock();
    mThread.reset();
    ++mStops;
    mCond.notify_all();
}

int32_t Thread::GetId()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return mThread ? mId : -1;
}

bool Thread::IsWorker() const { return tWorkerOf == this; }

void Thread::ThreadFunc()
{
    tWorkerOf = this;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mId = GetTid();
        mCond.notify_all();
    }
    // Without the lock from here on: nothing changes mName, mPriority and mId while there is a worker.
    SetThreadName(mName);
    // A thread's waits may end late by its timer slack, which lets the system wake the processor less often. A
    // worker wants its waits to end on time. Before the priority: a kernel may have a slack of its own for
    // real-time threads.
    prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL);
    const int error = SetThreadPriority(GetThreadId(), mPriority);
    if (error != 0) {
        LOGW("%s, SetThreadPriority ret:%d, mId:%d", mName.c_str(), error, mId);
    }
    // If Run() has destroyed the object, no field of the object may be used.
    while (!mStop && Run() && tWorkerOf == this) {
    }
}

}  // namespace osal
