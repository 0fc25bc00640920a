// A jitter buffer: packets arrive out of order, and each is played at its presentation time, in that order.

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <osal/media_meta.h>
#include <osal/msg_queue.h>
#include <osal/utils.h>

//! [buffer]
class JitterBuffer : public osal::MsgHandlerBase {
public:
    bool Start() { return mQueue.Start("jitter-buffer", osal::Thread::PRIORITY_DEFAULT) == 0; }

    void Add(int64_t ptsUs, const char* packet)  // on the thread that receives packets
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        const int64_t delayUs = ptsUs - osal::GetTimeUsBoot();
        if (delayUs < 0) {
            ++mLate;
        } else if (mPackets.emplace(ptsUs, packet).second &&  // false: a duplicate
                   mQueue.QueueMsg(this, static_cast<uint64_t>(delayUs) * 1'000) != 0) {
            mPackets.erase(ptsUs);  // a packet without a message would be played in place of the fence
        }
    }

    // Returns the counters when all packets are played. The fence is one message more than packets: Stop() alone
    // would drop the packets that are not due yet.
    std::shared_ptr<osal::MediaMeta> End(int64_t lastPtsUs)
    {
        const int64_t delayUs = std::max<int64_t>(0, lastPtsUs - osal::GetTimeUsBoot());
        if (mQueue.QueueMsg(this, static_cast<uint64_t>(delayUs) * 1'000) == 0) {
            Wait();
        }
        mQueue.Stop();
        auto counters = osal::MediaMeta::Create();
        counters->SetInt64("played", mPlayed);  // Dump() does not show unsigned values
        counters->SetInt64("late", mLate);
        return counters;
    }

private:
    //! [handle]
    // A message says that a packet is due, not which one: `arg` is always 0. Each message plays the earliest
    // packet. One handler for each packet would not keep the order: each delay counts from another reading of the
    // clock.
    void HandleMsg(int32_t& /*arg*/) override
    {
        std::unique_lock<std::mutex> lock(mMutex);
        if (mPackets.empty()) {  // the fence
            NotifyFinished();
            return;
        }
        const auto packet = mPackets.extract(mPackets.begin());
        ++mPlayed;
        lock.unlock();
        std::printf("plays %s\n", packet.mapped());
    }
    //! [handle]

    std::mutex mMutex;  // guards the packets
    std::map<int64_t, const char*> mPackets;
    int64_t mPlayed = 0;
    int64_t mLate = 0;
    osal::MsgQueue mQueue;  // last, so that it is destroyed first: its worker uses the other fields
};
//! [buffer]

int main()
{
    JitterBuffer buffer;
    if (!buffer.Start()) {
        return 1;
    }
    const int64_t firstUs = osal::GetTimeUsBoot() + 1'000'000;
    buffer.Add(firstUs, "packet 0");
    buffer.Add(firstUs + 40'000, "packet 2");
    buffer.Add(firstUs + 20'000, "packet 1");
    buffer.Add(firstUs - 2'000'000, "a late packet");
    buffer.End(firstUs + 40'000)->Dump();
}
