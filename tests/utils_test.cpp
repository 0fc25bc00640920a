#include "osal/utils.h"
#include "support.h"

#include <ctime>
#include <gtest/gtest.h>
#include <pthread.h>
#include <thread>
#include <unistd.h>

namespace {

int64_t RawTimeUs(clockid_t clock)
{
    timespec now{};
    EXPECT_EQ(0, clock_gettime(clock, &now));
    return now.tv_sec * 1'000'000 + now.tv_nsec / 1'000;
}

// Runs `body` on a thread of its own, so that names and priorities do not stick to the test's thread.
template <typename Body>
void OnOwnThread(Body body)
{
    std::thread(body).join();
}

}  // namespace

TEST(Clocks, ReadTheirClockInMicroseconds)
{
    const auto expectBetween = [](clockid_t clock, int64_t (*read)()) {
        for (int i = 0; i < 100; ++i) {
            const int64_t before = RawTimeUs(clock);
            const int64_t byName = read();
            const int64_t byId = osal::GetTimeByClockType(clock);
            const int64_t after = RawTimeUs(clock);
            EXPECT_TRUE(before <= byName && byName <= byId && byId <= after) << clock;
        }
    };
    expectBetween(CLOCK_REALTIME, osal::GetTimeUs);
    expectBetween(CLOCK_MONOTONIC, osal::GetTimeUsBoot);
    expectBetween(CLOCK_BOOTTIME, osal::GetTimeUsBootWithSuspend);
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

TEST(ThreadUtils, SetARealTimePriorityOrSayWhyNot)
{
    const bool allowed = RealTimeAllowed();
    OnOwnThread([allowed] {
        const auto scheduling = [] {
            int policy = 0;
            sched_param param{};
            EXPECT_EQ(0, pthread_getschedparam(pthread_self(), &policy, &param));
            return std::make_pair(policy, param.sched_priority);
        };
        const auto before = scheduling();
        const auto failed = [](int error) {
            return LogLine{ANDROID_LOG_ERROR, "NuThread",
                           "SetThreadPriority: pthread_setschedparam failed: " + std::to_string(error) + ", " +
                               strerror(error)};
        };
        LogCapture log;
        EXPECT_EQ(EINVAL, osal::SetThreadPriority(osal::GetThreadId(), 0));
        EXPECT_EQ(EINVAL, osal::SetThreadPriority(osal::GetThreadId(), 100));
        EXPECT_EQ((LogLines{failed(EINVAL), failed(EINVAL)}), log.Lines());
        EXPECT_EQ(before, scheduling());

        log = LogCapture();
        const int result = osal::SetThreadPriority(osal::GetThreadId(), 10);
        if (allowed) {
            EXPECT_EQ(0, result);
            EXPECT_EQ(LogLines{}, log.Lines());
            EXPECT_EQ(std::make_pair(SCHED_FIFO, 10), scheduling());
        } else {
            EXPECT_EQ(EPERM, result);
            EXPECT_EQ(LogLines{failed(EPERM)}, log.Lines());
            EXPECT_EQ(before, scheduling());
        }
    });
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
