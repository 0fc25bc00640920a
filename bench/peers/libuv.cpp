#include "../peer.h"

#include <uv.h>

namespace bench {

// Only uv_async_send() may be called from other threads: what is posted waits in a locked vector until the loop
// fetches it.
class UvQueue {
public:
    UvQueue()
    {
        uv_loop_init(&mLoop);
        uv_async_init(&mLoop, &mWake, OnWake);
        mWake.data = this;
    }
    ~UvQueue() { uv_loop_close(&mLoop); }

    void Start()
    {
        mThread = std::thread([this] { uv_run(&mLoop, UV_RUN_DEFAULT); });
    }
    void Stop()
    {
        Post(nullptr);
        mThread.join();
    }
    void Post(Task* task) { PostDelayed(task, 0); }
    void PostDelayed(Task* task, uint64_t delayNs)
    {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mPosted.push_back({task, delayNs});
        }
        uv_async_send(&mWake);
    }

private:
    struct Message {
        Task* mTask;  // null ends the loop
        uint64_t mDelayNs;
    };

    static void OnWake(uv_async_t* wake)
    {
        auto* const self = static_cast<UvQueue*>(wake->data);
        std::vector<Message> messages;
        {
            const std::lock_guard<std::mutex> lock(self->mMutex);
            messages.swap(self->mPosted);
        }
        uv_update_time(&self->mLoop);  // timers count from when the loop last looked
        for (const Message& message : messages) {
            if (message.mTask == nullptr) {
                uv_close(reinterpret_cast<uv_handle_t*>(wake), nullptr);  // the last handle: the loop ends
            } else if (message.mDelayNs == 0) {
                message.mTask->Run();
            } else {
                auto* const timer = new uv_timer_t;
                uv_timer_init(&self->mLoop, timer);
                timer->data = message.mTask;
                uv_timer_start(timer, OnTimer, (message.mDelayNs + 999'999) / 1'000'000, 0);
            }
        }
    }
    static void OnTimer(uv_timer_t* timer)
    {
        static_cast<Task*>(timer->data)->Run();
        uv_close(reinterpret_cast<uv_handle_t*>(timer),
                 [](uv_handle_t* handle) { delete reinterpret_cast<uv_timer_t*>(handle); });
    }

    uv_loop_t mLoop;
    uv_async_t mWake;
    std::thread mThread;
    std::mutex mMutex;  // guards mPosted
    std::vector<Message> mPosted;
};

const bool REGISTERED = Add<UvQueue>("libuv", Kind::PEER, std::string("libuv ") + uv_version_string());

}  // namespace bench
