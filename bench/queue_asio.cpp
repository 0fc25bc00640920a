#include "queue_shapes.h"

#include <asio.hpp>

namespace bench {

namespace {

class AsioQueue {
public:
    static constexpr const char* NAME = "asio";

    void Start()
    {
        mThread = std::thread([this] { mContext.run(); });
    }
    void Stop()
    {
        mWork.reset();
        mThread.join();
    }
    void Post(osal::IMsgHandler* handler)
    {
        asio::post(mContext, [handler] {
            int32_t arg = 0;
            handler->HandleMsg(arg);
        });
    }
    void PostDelayed(osal::IMsgHandler* handler, uint64_t delayNs)
    {
        // Shared: it may expire before async_wait() has returned.
        const auto timer = std::make_shared<asio::steady_timer>(mContext, std::chrono::nanoseconds(delayNs));
        timer->async_wait([timer, handler](const asio::error_code&) {
            int32_t arg = 0;
            handler->HandleMsg(arg);
        });
    }

private:
    asio::io_context mContext{1};  // run by one thread
    asio::executor_work_guard<asio::io_context::executor_type> mWork{mContext.get_executor()};
    std::thread mThread;
};

const bool REGISTERED =
    Version("Asio", {ASIO_VERSION / 100'000, ASIO_VERSION / 100 % 1'000, ASIO_VERSION % 100}) &&
    RegisterQueue<AsioQueue, ALL_BUT_REMOVAL>();

}  // namespace

}  // namespace bench
