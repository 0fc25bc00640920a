// Uses something of each source file. Includes each header, so that a header that is not installed is missed.

#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <osal/memfd.h>
#include <osal/msg_queue.h>
#include <osal/thread.h>
#include <osal/utils.h>

int main()
{
    const auto meta = osal::MediaMeta::Create();
    osal::MediaParam param;
    osal::MsgQueue queue;
    const bool isUsable = meta->SetInt32("answer", 42) && meta->WriteToMediaParam(&param) &&
                          osal::MemfdCreateRegion("", 1) == -1 && osal::GetTimeUs() > 0 &&
                          queue.Start("queue", osal::Thread::PRIORITY_MIN) == 0;
    return isUsable ? 0 : 1;
}
