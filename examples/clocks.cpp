// Clocks, and what a thread can say about itself.

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <osal/utils.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

const char* YesNo(bool value)
{
    return value ? "yes" : "no";
}

bool MeasureSleep()
{
    // Not GetTimeUs(), which jumps when the system time is set.
    const int64_t startUs = osal::GetTimeUsBoot();
    const int64_t startCpuUs = osal::GetTimeByClockType(CLOCK_THREAD_CPUTIME_ID);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const int64_t endCpuUs = osal::GetTimeByClockType(CLOCK_THREAD_CPUTIME_ID);
    const int64_t endUs = osal::GetTimeUsBoot();
    if (startUs == -1 || startCpuUs == -1 || endCpuUs == -1 || endUs == -1) {
        return false;
    }
    std::printf("the interval is at least 5 ms: %s\n", YesNo(endUs - startUs >= 5'000));
    std::printf("the thread computed for less than that: %s\n", YesNo(endCpuUs - startCpuUs < endUs - startUs));
    return true;
}

void DescribeThread()
{
    // The kernel's id, as tools show it, is one thing; the handle that POSIX calls take is another.
    std::printf("a thread has the id of the process: %s\n", YesNo(osal::GetTid() == getpid()));

    osal::SetThreadName("a-renderer-of-subtitles");
    char name[16] = "";
    if (pthread_getname_np(pthread_self(), name, sizeof(name)) == 0) {
        std::printf("its name is cut to 15 bytes: %s\n", name);
    }

    // A positive error number, not a negated one.
    const int error = osal::SetThreadPriority(osal::GetThreadId(), 10);
    std::printf("real-time priority is had, or refused for want of the right: %s\n",
                YesNo(error == 0 || error == EPERM));

    // The stack goes to the log; the value comes back, so that a failing return can be wrapped in the call.
    std::printf("the backtrace hands on: %d\n", osal::PrintBacktrace(-EINVAL));
}

}  // namespace

int main()
{
    if (!MeasureSleep()) {
        return 1;
    }
    std::printf("a clock that there is not: %d\n", static_cast<int>(osal::GetTimeByClockType(1000)));
    std::printf("the first thread has the id of the process: %s\n", YesNo(osal::GetTid() == getpid()));
    std::thread(DescribeThread).join();
    return 0;
}
