// Uses each header, so that one that is not installed is missed, and something of each source that it stands for.

#include <cstdio>
#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <osal/memfd.h>
#include <osal/msg_queue.h>
#include <osal/thread.h>
#include <osal/utils.h>

struct Handler : osal::MsgHandlerBase {
    void HandleMsg(int32_t&) override { NotifyFinished(); }
};

int main()
{
    const auto meta = osal::MediaMeta::Create();
    osal::MediaParam param;
    Handler handler;
    osal::MsgQueue queue;
    if (!meta->SetInt32("answer", 42) || !meta->WriteToMediaParam(&param) ||
        osal::MemfdCreateRegion("", 1) != -1 || queue.Start("queue", osal::Thread::PRIORITY_MIN) != 0 ||
        queue.QueueMsg(&handler, 0) != 0) {
        return 1;
    }
    handler.Wait();
    return osal::GetTimeUs() > 0 && std::puts("used from outside") > 0 ? 0 : 1;
}
