#include "queue_shapes.h"

#include <event2/event.h>
#include <event2/thread.h>

namespace bench {

namespace {

// One-shot events, which the base makes and releases by itself. Its usual clock is as coarse as the scheduler's
// tick.
template <bool IS_PRECISE>
class EventQueue {
public:
    static constexpr const char* NAME = IS_PRECISE ? "libevent_precise" : "libevent";

    EventQueue()
    {
        static const int locking = evthread_use_pthreads();  // before the first base
        benchmark::DoNotOptimize(locking);
        event_config* const config = event_config_new();
        event_config_set_flag(config, IS_PRECISE ? EVENT_BASE_FLAG_PRECISE_TIMER : 0);
        mBase = event_base_new_with_config(config);
        event_config_free(config);
    }
    ~EventQueue() { event_base_free(mBase); }
    EventQueue(const EventQueue&) = delete;
    EventQueue& operator=(const EventQueue&) = delete;

    void Start()
    {
        mThread = std::thread([this] { event_base_loop(mBase, EVLOOP_NO_EXIT_ON_EMPTY); });
    }
    void Stop()
    {
        // On the loop itself, which would not notice the call before it runs.
        const timeval now{};
        event_base_once(
            mBase, -1, EV_TIMEOUT,
            [](int, short, void* base) { event_base_loopbreak(static_cast<event_base*>(base)); }, mBase, &now);
        mThread.join();
    }
    void Post(osal::IMsgHandler* handler) { PostDelayed(handler, 0); }
    void PostDelayed(osal::IMsgHandler* handler, uint64_t delayNs)
    {
        const uint64_t delayUs = (delayNs + 999) / 1'000;
        timeval delay{};
        delay.tv_sec = static_cast<time_t>(delayUs / 1'000'000);
        delay.tv_usec = static_cast<suseconds_t>(delayUs % 1'000'000);
        event_base_once(mBase, -1, EV_TIMEOUT, OnEvent, handler, &delay);
    }

private:
    static void OnEvent(int, short, void* handler)
    {
        int32_t arg = 0;
        static_cast<osal::IMsgHandler*>(handler)->HandleMsg(arg);
    }

    event_base* mBase;
    std::thread mThread;
};

const bool REGISTERED = Version("libevent", event_get_version()) &&
                        RegisterQueue<EventQueue<false>, ALL_BUT_REMOVAL>() &&
                        RegisterQueue<EventQueue<true>, TIMERS | LATENESS>();

}  // namespace

}  // namespace bench
