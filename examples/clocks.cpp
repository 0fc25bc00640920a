// Clocks, and the name, priority, id and call stack of a thread.

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <osal/utils.h>
#include <pthread.h>
#include <thread>

namespace {

const char* YesNo(bool value) { return value ? "yes" : "no"; }

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
    std::printf("the thread used less CPU time than that: %s\n", YesNo(cpuUs < intervalUs));
}

void DescribeThread()
{
    //! [thread]
    osal::SetThreadName("a-renderer-of-subtitles");
    char name[16] = "";
    pthread_getname_np(pthread_self(), name, sizeof(name));
    std::printf("the name is cut to 15 bytes: %s\n", name);

    // Needs the POSIX handle, not the kernel thread id. An error is a positive number here, not a negated one.
    const int error = osal::SetThreadPriority(osal::GetThreadId(), 10);
    std::printf("real-time priority is granted, or refused without the right: %s\n",
                YesNo(error == 0 || error == EPERM));
    //! [thread]
    //! [backtrace]
    // Writes the call stack to the log and returns its argument, so the call fits into a return statement.
    const int result = osal::PrintBacktrace(-EINVAL);
    //! [backtrace]
    std::printf("PrintBacktrace() returns: %d\n", result);
}

}  // namespace

int main()
{
    MeasureSleep();
    std::thread(DescribeThread).join();
}
