#include "../peer.h"

#include <deque>

namespace bench {

// What one would write by hand: no delays, and nothing that could not be left out.
class LockedDeque {
public:
    void Start()
    {
        mThread = std::thread([this] { Work(); });
    }
    void Stop()
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
    void Remove(Task* task)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mTasks.erase(std::remove(mTasks.begin(), mTasks.end(), task), mTasks.end());
    }

private:
    void Work()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        for (;;) {
            mCond.wait(lock, [this] { return !mTasks.empty(); });
            Task* const task = mTasks.front();
            mTasks.pop_front();
            if (task == nullptr) {
                return;
            }
            lock.unlock();
            task->Run();
            lock.lock();
        }
    }

    std::thread mThread;
    std::mutex mMutex;  // guards mTasks
    std::condition_variable mCond;
    std::deque<Task*> mTasks;  // null ends the worker
};

const bool REGISTERED = Add<LockedDeque>("locked deque", Kind::BOUND);

}  // namespace bench
