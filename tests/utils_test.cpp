#include "osal/utils.h"

#include "support.h"
#include "system.h"

#include <chrono>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>
#include <unistd.h>

TEST(Clocks, AreReadInMicrosecondsAndReportedWithoutTagIfUnknown)
{
    const Simulation simulation;
    Simulation::MoveWallClock(static_cast<int64_t>(HOUR_NS));
    const int64_t monotonicUs = osal::GetTimeUsBoot();
    const int64_t wallUs = osal::GetTimeUs();
    EXPECT_EQ(static_cast<int64_t>(Simulation::NowNs() / 1'000), monotonicUs);
    Simulation::MoveWallClock(-2 * static_cast<int64_t>(HOUR_NS));
    std::this_thread::sleep_for(std::chrono::nanoseconds(2'000'001'999));  // rounded down
    EXPECT_EQ(monotonicUs + 2'000'001, osal::GetTimeUsBoot());
    EXPECT_EQ(wallUs + 2'000'001 - 7'200'000'000, osal::GetTimeUs());
    EXPECT_EQ(monotonicUs + 7'000'001, osal::GetTimeUsBootWithSuspend());  // with 5 s of suspend
    clockid_t clock = 100;
    pthread_getcpuclockid(pthread_self(), &clock);  // a negative number
    EXPECT_GE(osal::GetTimeByClockType(clock), 0);
    const LogCapture log;
    EXPECT_EQ(-1, osal::GetTimeByClockType(100));
    EXPECT_EQ(LogLines{"E (null): GetTimeByClockType failed! clockType: 100"}, log.Lines());
}

TEST(ThreadUtils, IdentifyThreadsAndSetThePriorityOfAnother)
{
    EXPECT_EQ(getpid(), osal::GetTid());
    EXPECT_EXIT(_exit(osal::GetTid() - getpid()), testing::ExitedWithCode(0), "");  // in a child process
    EXPECT_EQ(static_cast<long>(pthread_self()), osal::GetThreadId());
    const Simulation simulation;
    std::thread other([] { EXPECT_NE(getpid(), osal::GetTid()); });
    EXPECT_EQ(0, osal::SetThreadPriority(static_cast<long>(other.native_handle()), 100));  // passed on as it is
    const auto scheduling = Simulation::LastScheduling();
    EXPECT_NE(0, pthread_equal(other.native_handle(), scheduling.thread));
    EXPECT_TRUE(scheduling.policy == SCHED_FIFO && scheduling.priority == 100);
    other.join();
}

TEST(ThreadUtils, PrintABacktraceFromThePrintingFunctionOutwards)
{
    EXPECT_EQ(-5, osal::PrintBacktrace(-5));
    const LogCapture log;
    osal::PrintBacktrace(0);  // again, and for any value
    const LogLines lines = log.Lines();
    ASSERT_GE(lines.size(), 2U);
    EXPECT_EQ(0U, lines[0].find("D DEBUG: #00 pc ")) << lines[0];
    EXPECT_NE(std::string::npos, lines[0].find("osal::PrintBacktrace(int)")) << lines[0];
}
