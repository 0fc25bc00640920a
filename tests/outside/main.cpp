// Uses each header, so that one that is not installed is missed, and something of each source that it stands for.

#include <cstdio>
#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <osal/memfd.h>
#include <osal/msg_queue.h>
#include <osal/thread.h>
#include <osal/utils.h>
#include <unistd.h>

namespace {

struct Handler : osal::MsgHandlerBase {
    void HandleMsg(int32_t&) override { NotifyFinished(); }
};

struct Once : osal::Thread {
    ~Once() override { Stop(); }
    bool Run() override { return false; }
};

}  // namespace

int main()
{
    const auto meta = osal::MediaMeta::Create();
    meta->SetInt32("answer", 42);
    osal::MediaParam param;
    meta->WriteToMediaParam(&param);
    const int count = param.ReadInt32();

    const int region = osal::MemfdCreateRegion("outside", 4096);
    const int size = osal::MemfdGetRegionSize(region);
    close(region);

    Once once;
    Handler handler;
    osal::MsgQueue queue;
    if (once.Start("once", osal::Thread::PRIORITY_MIN) != 0 ||
        queue.Start("queue", osal::Thread::PRIORITY_MIN) != 0 || queue.QueueMsg(&handler, 0) != 0) {
        return 1;
    }
    handler.Wait();
    return count == 1 && size == 4096 && osal::GetTimeUs() > 0 && std::puts("used from outside") > 0 ? 0 : 1;
}
