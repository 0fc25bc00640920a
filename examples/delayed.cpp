// Work at its time: order, removal, a handler that comes again, and what becomes of messages that never ran.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <osal/msg_queue.h>
#include <osal/utils.h>

namespace {

constexpr uint64_t NS_PER_MS = 1'000'000;
constexpr uint64_t NS_PER_HOUR = 3'600'000 * NS_PER_MS;

class Frame : public osal::MsgHandlerBase {
public:
    explicit Frame(const char* name) : mName(name) {}

    void HandleMsg(int32_t& /*arg*/) override
    {
        std::printf("%s runs\n", mName);
        mIsHandled = true;
        NotifyFinished();  // last: whoever waits may destroy the frame from here on
    }

    // Wait() returns for a dropped message too: only the handler itself knows.
    void PrintFate()
    {
        Wait();
        std::printf("%s: %s\n", mName, mIsHandled ? "handled" : "dropped");
    }

private:
    const char* mName;
    bool mIsHandled = false;  // read after Wait() only
};

class Ticker : public osal::MsgHandlerBase {
public:
    int32_t Begin(osal::MsgQueue& queue)
    {
        mQueue = &queue;
        mDueUs = osal::GetTimeUsBoot();  // the queue's clock
        return queue.QueueMsg(this, 0);
    }

    void HandleMsg(int32_t& /*arg*/) override
    {
        std::printf("tick %d\n", ++mTicks);
        mDueUs += 5'000;  // counted from the last due time, not from now, so that lateness does not add up
        const int64_t delayUs = std::max<int64_t>(0, mDueUs - osal::GetTimeUsBoot());
        if (mTicks == 3 || mQueue->QueueMsg(this, static_cast<uint64_t>(delayUs) * 1'000) != 0) {
            NotifyFinished();  // also when the queue is being stopped: somebody may wait
        }
    }

private:
    osal::MsgQueue* mQueue = nullptr;
    int64_t mDueUs = 0;
    int mTicks = 0;
};

}  // namespace

int main()
{
    // Handlers before the queue: on every way out it is destroyed, and so stopped, before they are.
    Frame late("late");
    Frame early("early");
    Frame removed("removed");
    Frame pending("pending");
    Ticker ticker;
    osal::MsgQueue queue;
    if (queue.Start("presenter", osal::Thread::PRIORITY_DEFAULT) != 0 ||
        queue.QueueMsg(&removed, NS_PER_HOUR) != 0 || queue.QueueMsg(&pending, NS_PER_HOUR) != 0 ||
        queue.QueueMsg(&late, 1000 * NS_PER_MS) != 0 || queue.QueueMsg(&early, 0) != 0) {
        return 1;
    }
    late.PrintFate();
    queue.RemoveMsg(&removed);  // drops it at once; one that is running by now would run on
    removed.PrintFate();

    if (ticker.Begin(queue) != 0) {
        return 1;
    }
    ticker.Wait();
    queue.Stop();
    pending.PrintFate();
    return queue.QueueMsg(&early, 0) == 0 ? 1 : 0;  // a stopped queue takes none
}
