// How to delete a handler safely while its HandleMsg() may be running.

#include <chrono>
#include <cstdio>
#include <osal/msg_queue.h>
#include <thread>

namespace {

//! [fence]
class Fence : public osal::MsgHandlerBase {
public:
    void HandleMsg(int32_t& /*arg*/) override
    {
        mHasRun = true;
        NotifyFinished();
    }

    bool mHasRun = false;  // read after Wait(), or if the fence was refused
};

// After this call the handler can be deleted, unless it was queued again. Do not call this on the worker: the
// worker would wait for itself. No handler of the queue may destroy the queue.
void Withdraw(osal::MsgQueue& queue, osal::IMsgHandler& handler)
{
    queue.RemoveMsg(&handler);
    Fence fence;  // a new fence for each call: a finished handler stays finished
    if (queue.QueueMsg(&fence, 0) == 0) {
        fence.Wait();  // if the fence runs, the HandleMsg() before it has ended
    }
    if (!fence.mHasRun) {
        queue.Stop();  // the fence was refused or dropped: waits if another thread is still stopping the queue
    }
}
//! [fence]

bool hasEnded = false;

class Slow : public osal::MsgHandlerBase {
    void HandleMsg(int32_t& /*arg*/) override
    {
        NotifyFinished();  // too early: a thread must not delete the handler right after Wait()
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        hasEnded = true;
    }
};

}  // namespace

int main()
{
    osal::MsgQueue queue;
    {
        Slow slow;
        if (queue.Start("slow", osal::Thread::PRIORITY_DEFAULT) != 0 || queue.QueueMsg(&slow, 0) != 0) {
            return 1;
        }
        slow.Wait();
        Withdraw(queue, slow);
    }
    std::printf("when Withdraw() returned, the handler had %s\n", hasEnded ? "ended" : "begun");
}
