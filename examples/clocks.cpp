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

void MeasureSleep()
{
    //! [interval]
    const int64_t startUs = osal::GetTimeUsBoot();  // not GetTimeUs(), which jumps when the system time is set
    const int64_t startCpuUs = osal::GetTimeByClockType(CLOCK_THREAD_CPUTIME_ID);
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const int64_t cpuUs = osal::GetTimeByClockType(CLOCK_THREAD_CPUTIME_ID) - startCpuUs;
    const int64_t intervalUs = osal::GetTimeUsBoot() - startUs;
    //! [interval]
    std::printf("the interval is at least 5 ms: %s\n", YesNo(intervalUs >= 5'000));
    std::printf("the thread computed for less than that: %s\n", YesNo(cpuUs < intervalUs));
    std::printf("a clock that there is not: %d\n", static_cast<int>(osal::GetTimeByClockType(1000)));
}

void DescribeThread()
{
    //! [thread]
    osal::SetThreadName("a-renderer-of-subtitles");
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof(name));
    std::printf("the name is cut to 15 bytes: %s\n", name);

    // The POSIX handle, not the kernel's id; the result is a positive error number, not a negated one.
    const int error = osal::SetThreadPriority(osal::GetThreadId(), 10);
    std::printf("real-time priority is had, or refused for want of the right: %s\n",
                YesNo(error == 0 || error == EPERM));
    //! [thread]
    std::printf("the thread has an id of its own: %s\n", YesNo(osal::GetTid() != getpid()));
    //! [backtrace]
    // The stack goes to the log; the value comes back, so that a failing return can be wrapped in the call.
    const int result = osal::PrintBacktrace(-EINVAL);
    //! [backtrace]
    std::printf("the backtrace hands on: %d\n", result);
}

}  // namespace

int main()
{
    MeasureSleep();
    std::thread(DescribeThread).join();
    return 0;
}
