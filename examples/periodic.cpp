// A periodic handler whose period does not drift.

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
        // Counted from the previous due time, not from now: otherwise lateness adds up.
        mDueUs = (mTicks == 0 ? nowUs : mDueUs) + 5'000;
        std::printf("tick %d\n", ++mTicks);
        const int64_t delayUs = std::max<int64_t>(0, mDueUs - nowUs);
        if (mTicks == 3 || mQueue.QueueMsg(this, static_cast<uint64_t>(delayUs) * 1'000) != 0) {
            NotifyFinished();  // also if the queue is stopping: a thread may wait for the ticker
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
    queue.Stop();  // before the ticker is destroyed: its last HandleMsg() may still be running
    return 0;
}
