#include "osal/thread.h"

#include "osal/utils.h"

#include <android/log.h>
#include <cerrno>
#include <system_error>
#include <type_traits>

namespace osal {

namespace {

constexpr const char* TAG = "NuThread";

// The object whose worker the calling thread is. It outlives the object itself, so that a worker can tell
// that its Run() has destroyed it.
thread_local const Thread* tWorkerOf = nullptr;

}  // namespace

static_assert(std::is_same_v<std::underlying_type_t<Thread::Priority>, int>);

Thread::Thread() : mName("Unkown"), mPriority(PRIORITY_DEFAULT), mId(-1), mStop(true), mStops(0) {}

Thread::~Thread()
{
    Stop();
    if (IsWorker()) {
        // Which cannot join itself, so that Stop() was refused: it is let go instead.
        tWorkerOf = nullptr;
        mThread->detach();
    }
}

int32_t Thread::Start(const std::string& name, Priority priority)
{
    // Held until the thread exists and all is recorded: the worker's first act is to take it.
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mThread) {
        __android_log_print(ANDROID_LOG_INFO, TAG, "%s:  Thread %s is not stop, ignore!", __func__, mName.c_str());
        return -EEXIST;
    }
    mName = name;
    mStop = false;
    try {
        mThread = std::make_unique<std::thread>(&Thread::ThreadFunc, this);
    } catch (const std::system_error&) {
        __android_log_print(ANDROID_LOG_ERROR, TAG, "%s: Create thread %s failed!", __func__, mName.c_str());
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
        __android_log_print(ANDROID_LOG_WARN, TAG, "%s: Thread %s is not allowed to stop itself", __func__,
                            mName.c_str());
        return;
    }
    if (mStop) {
        // Another thread is joining the worker, and only one may.
        mCond.wait(lock, [this, stops = mStops] { return mStops != stops; });
        return;
    }
    mStop = true;
    lock.unlock();
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

bool Thread::IsWorker() const
{
    return tWorkerOf == this;
}

void Thread::ThreadFunc()
{
    tWorkerOf = this;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mId = GetTid();
        mCond.notify_all();
    }
    // Without the lock from here on: nothing changes the name and the priority while there is a worker.
    SetThreadName(mName);
    const int error = SetThreadPriority(GetThreadId(), mPriority);
    if (error != 0) {
        __android_log_print(ANDROID_LOG_WARN, TAG, "%s, SetThreadPriority ret:%d, mId:%d", mName.c_str(), error,
                            mId);
    }
    // Once Run() has destroyed the object, nothing of it may be read or called.
    while (!mStop && Run() && tWorkerOf == this) {
    }
}

}  // namespace osal
