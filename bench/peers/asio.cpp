#include "../peer.h"

#include <asio.hpp>

namespace bench {

struct AsioQueue {
    ~AsioQueue()
    {
        mWork.reset();
        mThread.join();
    }
    void Post(Task* task)
    {
        asio::post(mContext, [task] { task->Run(); });
    }
    void PostDelayed(Task* task, uint64_t delayNs)
    {
        // Shared: it may expire before async_wait() has returned.
        const auto timer = std::make_shared<asio::steady_timer>(mContext, std::chrono::nanoseconds(delayNs));
        timer->async_wait([timer, task](const asio::error_code&) { task->Run(); });
    }

    asio::io_context mContext{1};  // run by one thread
    asio::executor_work_guard<asio::io_context::executor_type> mWork{mContext.get_executor()};
    std::thread mThread{[this] { mContext.run(); }};
};

const std::string VERSION = Dotted(ASIO_VERSION / 100'000, ASIO_VERSION / 100 % 1'000, ASIO_VERSION % 100);
const bool REGISTERED = Add<AsioQueue>("Asio", Kind::PEER, "Asio " + VERSION);

}  // namespace bench
