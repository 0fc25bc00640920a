// How to delete a handler whose message may be running at this moment.

#include <chrono>
#include <cstdio>
#include <osal/msg_queue.h>
#include <thread>

namespace {

//! [fence]
class Fence : public osal::MsgHandlerBase {
public:
    void HandleMsg(int32_t& /*arg*/) override { NotifyFinished(); }
};

// Afterwards the handler can be deleted, unless it was queued anew. Not for the worker, which would wait for
// itself.
void Withdraw(osal::MsgQueue& queue, osal::IMsgHandler& handler)
{
    queue.RemoveMsg(&handler);
    Fence fence;  // a new one each time: a handler is finished once and for all
    if (queue.QueueMsg(&fence, 0) == 0) {
        fence.Wait();  // it runs, or is dropped, when the worker is done with what it was doing
    } else {
        queue.Stop();  // the queue takes no more: if somebody is stopping it, until that is over
    }
}
//! [fence]

class Slow : public osal::MsgHandlerBase {
public:
    explicit Slow(bool& hasEnded) : mHasEnded(hasEnded) {}

    void HandleMsg(int32_t& /*arg*/) override
    {
        NotifyFinished();  // too early for whoever would delete the handler after Wait()
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        mHasEnded = true;
    }

private:
    bool& mHasEnded;
};

}  // namespace

int main()
{
    bool hasEnded = false;
    osal::MsgQueue queue;
    {
        Slow slow(hasEnded);
        if (queue.Start("slow", osal::Thread::PRIORITY_DEFAULT) != 0 || queue.QueueMsg(&slow, 0) != 0) {
            return 1;
        }
        slow.Wait();
        Withdraw(queue, slow);
    }
    std::printf("withdrawn when it had %s\n", hasEnded ? "ended" : "begun");
    return 0;
}
