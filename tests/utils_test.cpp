#include "osal/utils.h"

#include "support.h"
#include "system.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

// Runs `body` on a thread of its own, so that names and priorities do not stick to the test's thread.
template <typename Body>
void OnOwnThread(Body body)
{
    std::thread(body).join();
}

}  // namespace

TEST(Clocks, ReadTheirClockInMicroseconds)
{
    constexpr int64_t HOUR_US = 3'600'000'000;
    timespec before{};
    timespec after{};
    EXPECT_EQ(0, clock_gettime(CLOCK_BOOTTIME, &before));
    const int64_t bootUs = osal::GetTimeUsBootWithSuspend();
    EXPECT_EQ(0, clock_gettime(CLOCK_BOOTTIME, &after));
    EXPECT_LE(before.tv_sec * 1'000'000 + before.tv_nsec / 1'000, bootUs);
    EXPECT_GE(after.tv_sec * 1'000'000 + after.tv_nsec / 1'000, bootUs);

    const Simulation simulation;
    Simulation::MoveWallClock(static_cast<int64_t>(HOUR_NS));
    const int64_t monotonicUs = osal::GetTimeUsBoot();
    const int64_t wallUs = osal::GetTimeUs();
    EXPECT_EQ(static_cast<int64_t>(Simulation::NowNs() / 1'000), monotonicUs);
    Simulation::MoveWallClock(-2 * static_cast<int64_t>(HOUR_NS));
    Simulation::Sleep(2'000'001'999);  // what is less than a microsecond is cut off
    EXPECT_EQ(monotonicUs + 2'000'001, osal::GetTimeUsBoot());
    EXPECT_EQ(monotonicUs + 2'000'001, osal::GetTimeByClockType(CLOCK_MONOTONIC));
    EXPECT_EQ(wallUs + 2'000'001 - 2 * HOUR_US, osal::GetTimeUs());
}

TEST(Clocks, ReportAnUnknownClockWithoutTag)
{
    const LogCapture log;
    EXPECT_EQ(-1, osal::GetTimeByClockType(100));
    EXPECT_EQ((LogLines{{ANDROID_LOG_ERROR, std::nullopt, "GetTimeByClockType failed! clockType: 100"}}),
              log.Lines());
}

TEST(ThreadUtils, IdentifyTheCallingThread)
{
    EXPECT_EQ(getpid(), osal::GetTid());
    OnOwnThread([] {
        EXPECT_NE(getpid(), osal::GetTid());
        EXPECT_EQ(static_cast<long>(pthread_self()), osal::GetThreadId());
    });
}

TEST(ThreadUtils, NameTheCallingThreadByFifteenBytes)
{
    OnOwnThread([] {
        const LogCapture log;
        osal::SetThreadName("twenty-characters-20");
        EXPECT_EQ("twenty-characte", KernelThreadName(osal::GetTid()));
        EXPECT_EQ(LogLines{}, log.Lines());
        osal::SetThreadName("");
        EXPECT_EQ("twenty-characte", KernelThreadName(osal::GetTid()));
        EXPECT_EQ((LogLines{{ANDROID_LOG_WARN, "NuThread", "SetThreadName: ThreadName can't be empty."}}),
                  log.Lines());
    });
}

TEST(ThreadUtils, SetThePriorityOfAnotherThread)
{
    const Simulation simulation;
    std::thread other([] {});
    EXPECT_EQ(0, osal::SetThreadPriority(static_cast<long>(other.native_handle()), 99));
    const auto scheduling = Simulation::LastScheduling();
    EXPECT_NE(0, pthread_equal(other.native_handle(), scheduling.thread));
    EXPECT_TRUE(scheduling.policy == SCHED_FIFO && scheduling.priority == 99);
    other.join();
}

namespace outer {

// Exported and not inlined, so that the backtrace can name it.
__attribute__((noinline, visibility("default"))) int CallsPrintBacktrace(int value)
{
    return osal::PrintBacktrace(value) + (value != 0 ? 0 : 1);
}

}  // namespace outer

TEST(ThreadUtils, PrintABacktraceFromThePrintingFunctionOutwards)
{
    const LogCapture log;
    EXPECT_EQ(-5, outer::CallsPrintBacktrace(-5));
    const LogLines lines = log.Lines();
    ASSERT_GE(lines.size(), 3U);
    for (const LogLine& line : lines) {
        EXPECT_EQ(ANDROID_LOG_DEBUG, line.prio);
        EXPECT_EQ("DEBUG", line.tag);
    }
    EXPECT_NE(std::string::npos, lines[0].text.find("osal::PrintBacktrace(int)")) << lines[0];
    EXPECT_NE(std::string::npos, lines[1].text.find("outer::CallsPrintBacktrace(int)")) << lines[1];
}
