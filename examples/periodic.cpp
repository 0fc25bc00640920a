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

    osal::MsgQueue& mQueue;
    int64_t mDueUs = 0;
    int mTicks = 0;
};
//! [ticker]

//! [owner]
class Metronome {
public:
    bool Play()
    {
        if (mQueue.Start("metronome", osal::Thread::PRIORITY_DEFAULT) != 0 || mQueue.QueueMsg(&mTicker, 0) != 0) {
            return false;
        }
        mTicker.Wait();
        return true;
    }

private:
    Ticker mTicker{mQueue};  // stores the reference only: the queue is not constructed yet
    osal::MsgQueue mQueue;  // last, so that it is destroyed first: its worker uses the ticker
};
//! [owner]

}  // namespace

int main()
{
    return Metronome().Play() ? 0 : 1;  // the last HandleMsg() may still be running: ~MsgQueue() waits for it
}
