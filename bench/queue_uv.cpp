#include "queue_shapes.h"

#include <uv.h>

namespace bench {

namespace {

// Only uv_async_send() may be called from other threads: what is posted waits in a locked vector until the loop
// fetches it.
class UvQueue {
public:
    static constexpr const char* NAME = "libuv";

    UvQueue()
    {
        uv_loop_init(&mLoop);
        uv_async_init(&mLoop, &mWake, OnWake);
        mWake.data = this;
    }
    ~UvQueue() { uv_loop_close(&mLoop); }
    UvQueue(const UvQueue&) = delete;
    UvQueue& operator=(const UvQueue&) = delete;

    void Start()
    {
        mThread = std::thread([this] { uv_run(&mLoop, UV_RUN_DEFAULT); });
    }
    void Stop()
    {
        Post(nullptr);
        mThread.join();
    }
    void Post(osal::IMsgHandler* handler) { PostDelayed(handler, 0); }
    void PostDelayed(osal::IMsgHandler* handler, uint64_t delayNs)
    {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mPosted.push_back({handler, delayNs});
        }
        uv_async_send(&mWake);
    }

private:
    struct Message {
        osal::IMsgHandler* mHandler;  // null ends the loop
        uint64_t mDelayNs;
    };

    static void Run(osal::IMsgHandler* handler)
    {
        int32_t arg = 0;
        handler->HandleMsg(arg);
    }
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
            if (message.mHandler == nullptr) {
                uv_close(reinterpret_cast<uv_handle_t*>(wake), nullptr);  // the last handle: the loop ends
            } else if (message.mDelayNs == 0) {
                Run(message.mHandler);
            } else {
                auto* const timer = new uv_timer_t;
                uv_timer_init(&self->mLoop, timer);
                timer->data = message.mHandler;
                uv_timer_start(timer, OnTimer, (message.mDelayNs + 999'999) / 1'000'000, 0);
            }
        }
    }
    static void OnTimer(uv_timer_t* timer)
    {
        Run(static_cast<osal::IMsgHandler*>(timer->data));
        uv_close(reinterpret_cast<uv_handle_t*>(timer),
                 [](uv_handle_t* handle) { delete reinterpret_cast<uv_timer_t*>(handle); });
    }

    uv_loop_t mLoop;
    uv_async_t mWake;
    std::thread mThread;
    std::mutex mMutex;  // guards mPosted
    std::vector<Message> mPosted;
};

const bool REGISTERED = Version("libuv", uv_version_string()) && RegisterQueue<UvQueue, ALL_BUT_REMOVAL>();

}  // namespace

}  // namespace bench
