// A periodic handler whose period does not drift.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <osal/msg_queue.h>
#include <osal/utils.h>

//! [ticker]
class Ticker : public osal::MsgHandlerBase {
public:
    bool Start()
    {
        return mQueue.Start("ticker", osal::Thread::PRIORITY_DEFAULT) == 0 && mQueue.QueueMsg(this, 0) == 0;
    }

private:
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

    int64_t mDueUs = 0;
    int mTicks = 0;
    osal::MsgQueue mQueue;  // last, so that it is destroyed first: its worker uses the fields above
};
//! [ticker]

int main()
{
    Ticker ticker;
    if (!ticker.Start()) {
        return 1;
    }
    ticker.Wait();
    return 0;  // the worker may still be in the last HandleMsg(): ~MsgQueue() waits for it
}
