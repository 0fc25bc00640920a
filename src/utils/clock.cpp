#include "osal/utils.h"

#include "../log.h"

#include <ctime>

namespace osal {

namespace {

constexpr const char* TAG = nullptr;  // logged without a tag

}  // namespace

int64_t GetTimeByClockType(int clockType)
{
    timespec now{};
    if (clock_gettime(clockType, &now) != 0) {
        LOGE("GetTimeByClockType failed! clockType: %d", clockType);
        return -1;
    }
    return static_cast<int64_t>(now.tv_sec) * 1'000'000 + now.tv_nsec / 1'000;
}

int64_t GetTimeUs() { return GetTimeByClockType(CLOCK_REALTIME); }

int64_t GetTimeUsBoot() { return GetTimeByClockType(CLOCK_MONOTONIC); }

int64_t GetTimeUsBootWithSuspend() { return GetTimeByClockType(CLOCK_BOOTTIME); }

}  // namespace osal
