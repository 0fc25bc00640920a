#include "../peer.h"

#include <glib.h>

namespace bench {

struct GlibQueue {
    ~GlibQueue()
    {
        g_main_loop_quit(mLoop);
        mThread.join();
        g_main_loop_unref(mLoop);
        g_main_context_unref(mContext);
    }
    void Post(Task* task) { Attach(g_idle_source_new(), task); }
    void PostDelayed(Task* task, uint64_t delayNs)
    {
        GSource* const source = g_timeout_source_new(0);  // its interval would be in milliseconds
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

    static gboolean Dispatch(gpointer task)
    {
        static_cast<Task*>(task)->Run();
        return G_SOURCE_REMOVE;
    }
    void Attach(GSource* source, Task* task)
    {
        g_source_set_priority(source, G_PRIORITY_DEFAULT);
        g_source_set_callback(source, Dispatch, task, nullptr);
        g_source_attach(source, mContext);
        g_source_unref(source);
    }

    GMainContext* const mContext = g_main_context_new();
    GMainLoop* const mLoop = g_main_loop_new(mContext, FALSE);
    std::thread mThread{[this] { g_main_loop_run(mLoop); }};
};

const std::string VERSION = Dotted(GLIB_MAJOR_VERSION, GLIB_MINOR_VERSION, GLIB_MICRO_VERSION);
const bool REGISTERED = Add<GlibQueue>("GLib", Kind::PEER, "GLib " + VERSION);

}  // namespace bench
