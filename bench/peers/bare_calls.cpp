#include "../peer.h"
#include "osal/media_param.h"

#include <cstring>
#include <sys/prctl.h>

namespace bench {

struct ClockNanosleep {
    void SleepNs(uint64_t delayNs)
    {
        const auto dueNs = static_cast<int64_t>(NowNs() + delayNs);
        const timespec due{dueNs / 1'000'000'000, dueNs % 1'000'000'000};
        clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &due, nullptr);
    }
};

struct StdThread {
    void StartAndStop()
    {
        std::thread([] {
            prctl(PR_SET_NAME, "bench-worker", 0, 0, 0);
            SetRealTime(true);
        }).join();
    }
};

// Nothing is checked.
struct RawBuffer {
    void Write(int64_t value)
    {
        std::memcpy(&mData[mWritten], &value, sizeof(value));
        mWritten += sizeof(value);
    }
    int64_t Read()
    {
        int64_t value = 0;
        std::memcpy(&value, &mData[mRead], sizeof(value));
        mRead += sizeof(value);
        return value;
    }
    RawBuffer Copy()
    {
        RawBuffer copy;
        std::memcpy(copy.mData.get(), mData.get(), mWritten);
        copy.mWritten = mWritten;
        return copy;
    }

    std::unique_ptr<uint8_t[]> mData{new uint8_t[osal::MEDIA_PARAM_CAPACITY]};
    size_t mWritten = 0;
    size_t mRead = 0;
};

const bool REGISTERED = Add<ClockNanosleep>("clock_nanosleep", Kind::BOUND) &&
                        Add<StdThread>("std::thread", Kind::BOUND) && Add<RawBuffer>("memcpy", Kind::BOUND);

}  // namespace bench
