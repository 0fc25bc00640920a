#include "queue_shapes.h"

#include <glib.h>

namespace bench {

namespace {

class GlibQueue {
public:
    static constexpr const char* NAME = "glib";

    GlibQueue() : mContext(g_main_context_new()), mLoop(g_main_loop_new(mContext, FALSE)) {}
    ~GlibQueue()
    {
        g_main_loop_unref(mLoop);
        g_main_context_unref(mContext);
    }
    GlibQueue(const GlibQueue&) = delete;
    GlibQueue& operator=(const GlibQueue&) = delete;

    void Start()
    {
        mThread = std::thread([this] { g_main_loop_run(mLoop); });
    }
    void Stop()
    {
        g_main_loop_quit(mLoop);
        mThread.join();
    }
    void Post(osal::IMsgHandler* handler)
    {
        GSource* const source = g_idle_source_new();
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        Attach(source, handler);
    }
    void PostDelayed(osal::IMsgHandler* handler, uint64_t delayNs)
    {
        GSource* const source = g_timeout_source_new(0);
        // The interval that the source is made with counts in milliseconds, this in microseconds.
        g_source_set_ready_time(source, g_get_monotonic_time() + static_cast<gint64>((delayNs + 999) / 1'000));
        Attach(source, handler);
    }
    void Remove(osal::IMsgHandler* handler)
    {
        GSource* const source = g_main_context_find_source_by_user_data(mContext, handler);
        if (source != nullptr) {
            g_source_destroy(source);
        }
    }

private:
    static gboolean Dispatch(gpointer data)
    {
        int32_t arg = 0;
        static_cast<osal::IMsgHandler*>(data)->HandleMsg(arg);
        return G_SOURCE_REMOVE;
    }
    void Attach(GSource* source, osal::IMsgHandler* handler)
    {
        g_source_set_callback(source, Dispatch, handler, nullptr);
        g_source_attach(source, mContext);
        g_source_unref(source);
    }

    GMainContext* const mContext;
    GMainLoop* const mLoop;
    std::thread mThread;
};

const bool REGISTERED = Version("GLib", {GLIB_MAJOR_VERSION, GLIB_MINOR_VERSION, GLIB_MICRO_VERSION}) &&
                        RegisterQueue<GlibQueue, ALL_BUT_REMOVAL | REMOVAL | REMOVAL_TIMED>();

}  // namespace

}  // namespace bench
