// A handler that comes again and again, without drifting.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <osal/msg_queue.h>
#include <osal/utils.h>

namespace {

//! [ticker]
class Ticker : public osal::MsgHandlerBase {
public:
    explicit Ticker(osal::MsgQueue& queue) : mQueue(queue) {}

    void HandleMsg(int32_t& /*arg*/) override
    {
        const int64_t nowUs = osal::GetTimeUsBoot();  // the queue's clock
        // Counted from the last due time, not from now, so that lateness does not add up.
        mDueUs = (mTicks == 0 ? nowUs : mDueUs) + 5'000;
        std::printf("tick %d\n", ++mTicks);
        const int64_t delayUs = std::max<int64_t>(0, mDueUs - nowUs);
        if (mTicks == 3 || mQueue.QueueMsg(this, static_cast<uint64_t>(delayUs) * 1'000) != 0) {
            NotifyFinished();  // also when the queue is being stopped: somebody may wait
        }
    }

private:
    osal::MsgQueue& mQueue;
    int64_t mDueUs = 0;
    int mTicks = 0;
};
//! [ticker]

}  // namespace

int main()
{
    osal::MsgQueue queue;
    Ticker ticker(queue);
    if (queue.Start("ticker", osal::Thread::PRIORITY_DEFAULT) != 0 || queue.QueueMsg(&ticker, 0) != 0) {
        return 1;
    }
    ticker.Wait();
    queue.Stop();  // the ticker goes before the queue does, and its last HandleMsg() may still be returning
    return 0;
}
