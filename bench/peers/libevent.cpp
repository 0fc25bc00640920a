#include "../peer.h"

#include <event2/event.h>
#include <event2/thread.h>

namespace bench {

// One-shot events, which the base makes and releases by itself. Its usual clock is as coarse as the scheduler's
// tick.
class EventQueue {
public:
    explicit EventQueue(int flags = 0)
    {
        static const int locking = evthread_use_pthreads();  // before the first base
        benchmark::DoNotOptimize(locking);
        event_config* const config = event_config_new();
        event_config_set_flag(config, flags);
        mBase = event_base_new_with_config(config);
        event_config_free(config);
    }
    ~EventQueue() { event_base_free(mBase); }

    void Start()
    {
        mThread = std::thread([this] { event_base_loop(mBase, EVLOOP_NO_EXIT_ON_EMPTY); });
    }
    void Stop()
    {
        // On the loop itself, which would not notice the call before it runs.
        PostOnce([](int, short, void* base) { event_base_loopbreak(static_cast<event_base*>(base)); }, mBase, 0);
        mThread.join();
    }
    void Post(Task* task) { PostDelayed(task, 0); }
    void PostDelayed(Task* task, uint64_t delayNs)
    {
        PostOnce([](int, short, void* data) { static_cast<Task*>(data)->Run(); }, task, delayNs);
    }

private:
    void PostOnce(event_callback_fn function, void* data, uint64_t delayNs)
    {
        const uint64_t delayUs = (delayNs + 999) / 1'000;
        timeval delay{};
        delay.tv_sec = static_cast<time_t>(delayUs / 1'000'000);
        delay.tv_usec = static_cast<suseconds_t>(delayUs % 1'000'000);
        event_base_once(mBase, -1, EV_TIMEOUT, function, data, &delay);
    }

    event_base* mBase;
    std::thread mThread;
};

// With a clock that costs more to read; without delays there is no difference.
class PreciseEventQueue : public EventQueue {
public:
    PreciseEventQueue() : EventQueue(EVENT_BASE_FLAG_PRECISE_TIMER) {}
    void Post(Task* task) = delete;
};

const std::string VERSION = std::string("libevent ") + event_get_version();
const bool REGISTERED = Add<EventQueue>("libevent", Kind::PEER, VERSION) &&
                        Add<PreciseEventQueue>("libevent, precise", Kind::PEER, VERSION);

}  // namespace bench
