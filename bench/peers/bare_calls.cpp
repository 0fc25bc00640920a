#include "../peer.h"
#include "osal/media_param.h"

#include <cstring>
#include <sys/prctl.h>

namespace bench {

class ClockNanosleep {
public:
    void Start() {}
    void Stop() {}
    void SleepNs(uint64_t delayNs)
    {
        const uint64_t dueNs = NowNs() + delayNs;
        timespec due{};
        due.tv_sec = static_cast<time_t>(dueNs / 1'000'000'000);
        due.tv_nsec = static_cast<long>(dueNs % 1'000'000'000);
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
    }
};

class StdThread {
public:
    void StartAndStop()
    {
        std::thread([] {
            prctl(PR_SET_NAME, "bench-worker", 0, 0, 0);
            SetRealTime(true);
        }).join();
    }
};

// Nothing is checked.
class RawBuffer {
public:
    void Write(int64_t value) { mWritten = Move(&mData[mWritten], &value, sizeof(value)) + mWritten; }
    int64_t Read()
    {
        int64_t value = 0;
        mRead += Move(&value, &mData[mRead], sizeof(value));
        return value;
    }
    RawBuffer Copy()
    {
        RawBuffer copy;
        copy.mWritten = Move(copy.mData.get(), mData.get(), mWritten);
        return copy;
    }

private:
    static size_t Move(void* to, const void* from, size_t size)
    {
        std::memcpy(to, from, size);
        return size;
    }

    std::unique_ptr<uint8_t[]> mData{new uint8_t[osal::MEDIA_PARAM_CAPACITY]};
    size_t mWritten = 0;
    size_t mRead = 0;
};

const bool REGISTERED = Add<ClockNanosleep>("clock_nanosleep", Kind::BOUND) &&
                        Add<StdThread>("std::thread", Kind::BOUND) && Add<RawBuffer>("memcpy", Kind::BOUND);

}  // namespace bench
