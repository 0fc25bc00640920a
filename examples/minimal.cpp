// Runs a delayed message on a worker thread; its handler reads metadata.

#include <cstdio>
#include <osal/media_meta.h>
#include <osal/msg_queue.h>

class Announcer : public osal::MsgHandlerBase {
public:
    explicit Announcer(const osal::MediaMeta& meta) : mMeta(meta) {}

    void HandleMsg(int32_t& /*arg*/) override  // on the worker
    {
        const char* title = "untitled";
        mMeta.GetString("title", title);
        std::printf("now playing: %s\n", title);
        NotifyFinished();
    }

private:
    const osal::MediaMeta& mMeta;
};

int main()
{
    //! [hand-over]
    const auto meta = osal::MediaMeta::Create();
    meta->SetString("title", "One buffer after another");

    Announcer announcer(*meta);
    osal::MsgQueue queue;
    if (queue.Start("announcer", osal::Thread::PRIORITY_DEFAULT) != 0 ||
        queue.QueueMsg(&announcer, 20'000'000) != 0) {  // in nanoseconds: 20 ms
        return 1;
    }
    //! [hand-over]
    announcer.Wait();
}
