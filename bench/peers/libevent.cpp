#include "../peer.h"

#include <event2/event.h>
#include <event2/thread.h>

namespace bench {

event_base* NewBase(int flags)
{
    static const int locking = evthread_use_pthreads();  // before the first base
    benchmark::DoNotOptimize(locking);
    event_config* const config = event_config_new();
    event_config_set_flag(config, flags);
    event_base* const base = event_base_new_with_config(config);
    event_config_free(config);
    return base;
}

// One-shot events, which the base makes and releases itself. Its default clock is as coarse as the tick of the
// scheduler; the precise one costs more to read.
template <int FLAGS>
struct EventQueue {
    ~EventQueue()
    {
        // On the loop itself, which would not notice the call before it runs.
        PostOnce([](int, short, void* base) { event_base_loopbreak(static_cast<event_base*>(base)); }, mBase, 0);
        mThread.join();
        event_base_free(mBase);
    }
    void Post(Task* task) { PostDelayed(task, 0); }
    void PostDelayed(Task* task, uint64_t delayNs)
    {
        PostOnce([](int, short, void* data) { static_cast<Task*>(data)->Run(); }, task, delayNs);
    }

    void PostOnce(event_callback_fn function, void* data, uint64_t delayNs)
    {
        const auto delayUs = static_cast<int64_t>((delayNs + 999) / 1'000);
        const timeval delay{delayUs / 1'000'000, delayUs % 1'000'000};
        event_base_once(mBase, -1, EV_TIMEOUT, function, data, &delay);
    }

    event_base* const mBase = NewBase(FLAGS);
    std::thread mThread{[this] { event_base_loop(mBase, EVLOOP_NO_EXIT_ON_EMPTY); }};
};

const std::string VERSION = std::string("libevent ") + event_get_version();
const bool REGISTERED = Add<EventQueue<0>>("libevent", Kind::PEER, VERSION) &&
                        Add<EventQueue<EVENT_BASE_FLAG_PRECISE_TIMER>>("libevent, precise", Kind::PEER, VERSION);

}  // namespace bench
