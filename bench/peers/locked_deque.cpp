#include "../peer.h"

#include <condition_variable>
#include <deque>
#include <mutex>

namespace bench {

// A queue as one would write it by hand: no delays, and only what is necessary.
struct LockedDeque {
    ~LockedDeque()
    {
        Post(nullptr);
        mThread.join();
    }
    void Post(Task* task)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mTasks.push_back(task);
        mCond.notify_one();
    }

    Task* Next()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mCond.wait(lock, [this] { return !mTasks.empty(); });
        Task* const task = mTasks.front();
        mTasks.pop_front();
        return task;
    }

    std::mutex mMutex;  // guards mTasks
    std::condition_variable mCond;
    std::deque<Task*> mTasks;  // null ends the worker
    std::thread mThread{[this] {
        while (Task* const task = Next()) {
            task->Run();
        }
    }};
};

const bool REGISTERED = Add<LockedDeque>("locked deque", Kind::BOUND);

}  // namespace bench
