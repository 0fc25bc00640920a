#include "../peer.h"

#include <glib.h>

namespace bench {

class GlibQueue {
public:
    GlibQueue() : mContext(g_main_context_new()), mLoop(g_main_loop_new(mContext, FALSE)) {}
    ~GlibQueue()
    {
        g_main_loop_unref(mLoop);
        g_main_context_unref(mContext);
    }

    void Start()
    {
        mThread = std::thread([this] { g_main_loop_run(mLoop); });
    }
    void Stop()
    {
        g_main_loop_quit(mLoop);
        mThread.join();
    }
    void Post(Task* task)
    {
        GSource* const source = g_idle_source_new();
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        Attach(source, task);
    }
    void PostDelayed(Task* task, uint64_t delayNs)
    {
        GSource* const source = g_timeout_source_new(0);
        // The interval that the source is made with counts in milliseconds, this in microseconds.
        g_source_set_ready_time(source, g_get_monotonic_time() + static_cast<gint64>((delayNs + 999) / 1'000));
        Attach(source, task);
    }
    void Remove(Task* task)
    {
        GSource* const source = g_main_context_find_source_by_user_data(mContext, task);
        if (source != nullptr) {
            g_source_destroy(source);
        }
    }

private:
    static gboolean Dispatch(gpointer task)
    {
        static_cast<Task*>(task)->Run();
        return G_SOURCE_REMOVE;
    }
    void Attach(GSource* source, Task* task)
    {
        g_source_set_callback(source, Dispatch, task, nullptr);
        g_source_attach(source, mContext);
        g_source_unref(source);
    }

    GMainContext* const mContext;
    GMainLoop* const mLoop;
    std::thread mThread;
};

const bool REGISTERED = Add<GlibQueue>(
    "GLib", Kind::PEER, "GLib " + Dotted({GLIB_MAJOR_VERSION, GLIB_MINOR_VERSION, GLIB_MICRO_VERSION}));

}  // namespace bench
