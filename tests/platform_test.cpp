// The stand-ins for the platform, built in without the library.

#include <android/log.h>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memcpy_s.h>
#include <thread>
#include <unistd.h>
#include <utils/CallStack.h>

using testing::ContainsRegex;

// Stands in for the call that only bionic has, which the header below uses.
static std::chrono::nanoseconds lastDeadline{};

extern "C" int pthread_cond_timedwait_monotonic_np(pthread_cond_t*, pthread_mutex_t*, const timespec* deadline)
{
    EXPECT_TRUE(deadline->tv_nsec >= 0 && deadline->tv_nsec < 1'000'000'000);  // or the wait is refused
    lastDeadline = std::chrono::seconds(deadline->tv_sec) + std::chrono::nanoseconds(deadline->tv_nsec);
    return 0;
}

#include "monotonic_wait/android/monotonic_wait.h"

TEST(Log, WritesTheColumnsOfThreadtime)
{
    setenv("TZ", "ELSEWHERE-3", 1);  // local time, not UTC
    const auto hour = [] {
        char text[12];
        const time_t now = time(nullptr);
        strftime(text, sizeof(text), "%m-%d %H", localtime(&now));
        return std::string(text);
    };
    const std::string before = hour();
    const std::string longText(2000, 'x');
    testing::internal::CaptureStderr();
    errno = 77;
    EXPECT_GT(__android_log_print(ANDROID_LOG_WARN, "Tag", "%s=%d", "text", 5), 0);
    EXPECT_LT(__android_log_print(ANDROID_LOG_WARN, "Tag", "%ls", L"\u20AC"), 0);  // cannot be formatted
    EXPECT_EQ(77, errno);
    // By another thread, without a tag, and with a priority that has no letter.
    std::thread(__android_log_print, 9, nullptr, "%s", longText.c_str()).join();
    const std::string head =
        "(" + before + "|" + hour() + "):[0-9]{2}:[0-9]{2}[.][0-9]{3} +" + std::to_string(getpid()) + " +";
    EXPECT_THAT(testing::internal::GetCapturedStderr(),
                testing::MatchesRegex(head + std::to_string(gettid()) + " W Tag     : text=5\n" + head + "[0-9]+" +
                                      " [?]         : " + longText + "\n"));
}

// Each asm statement keeps the call before it from becoming a jump, which leaves no frame.
__attribute__((noinline, visibility("default"))) void LogStack(int32_t ignoreDepth)
{
    const android::CallStack stack("Stack", ignoreDepth);
    asm volatile("" ::: "memory");
}

__attribute__((noinline)) static void LogDeepStack(int depth, int32_t ignoreDepth)
{
    depth > 0 ? LogDeepStack(depth - 1, ignoreDepth) : LogStack(ignoreDepth);
    asm volatile("" ::: "memory");
}

[[noreturn]] __attribute__((noinline)) static void LogStackAndThrow()
{
    LogStack(0);
    throw 0;
}

// Its call is its last instruction: the return address is behind the function.
[[noreturn]] __attribute__((noinline, visibility("default"))) void EndInACall() { LogStackAndThrow(); }

TEST(CallStack, LeavesOutTheInnermostFramesAskedForAndSaysWhenItIsCut)
{
    const auto stackOf = [](int depth, int32_t ignoreDepth) {
        testing::internal::CaptureStderr();
        LogDeepStack(depth, ignoreDepth);
        return testing::internal::GetCapturedStderr();
    };
    EXPECT_THAT(stackOf(400, 1), testing::EndsWith("(further frames are not shown)\n"));
    // Nothing is left of the deep stack. A static function has no name at run time.
    EXPECT_THAT(stackOf(0, 0),
                ContainsRegex("^[^\n]* D Stack   : #00 pc [^\n]*android::CallStack::CallStack[^\n]*\n"
                              "[^\n]*#01 pc [^\n]*LogStack\\(int\\)[+][0-9]{1,3}\\)\n"
                              "[^\n]* D Stack   : #02 pc [0-9a-f]{16}  [^\n]*/platform_tests\n"));
    EXPECT_THAT(stackOf(0, 1), ContainsRegex("^[^\n]*#00 pc [^\n]*LogStack\\(int\\)"));
    EXPECT_THAT(stackOf(0, 0), ContainsRegex("\\(main[+]"));  // a name of C
    EXPECT_EQ("", stackOf(0, 200));  // this stack has fewer frames
    testing::internal::CaptureStderr();
    EXPECT_ANY_THROW(EndInACall());
    EXPECT_THAT(testing::internal::GetCapturedStderr(), ContainsRegex("\\(EndInACall\\(\\)[+]"));
}

TEST(BoundedCopy, CopiesOrZeroes)
{
    char to[] = "abcdefghij";
    EXPECT_EQ(0, memcpy_s(to + 2, 2, to, 2));  // side by side is no overlap
    EXPECT_EQ(EINVAL, memcpy_s(to + 5, 2, to + 4, 2));
    EXPECT_EQ(0, memcpy_s(to + 6, SIZE_MAX / 2, to + 9, 1));
    EXPECT_EQ(EINVAL, memcpy_s(to + 7, 1, nullptr, 1));
    EXPECT_EQ(ERANGE, memcpy_s(to + 8, 1, "more", 2));
    EXPECT_EQ(std::string("ababe\0j\0\0j", 10), std::string(to, 10));
}

TEST(MonotonicWait, OfAndroidAsksForItsDeadlineOnTheMonotonicClock)
{
    std::mutex mutex;
    std::condition_variable cond;
    std::unique_lock<std::mutex> lock(mutex);
    const std::chrono::nanoseconds longest(1LL << 62);
    const auto before = std::chrono::steady_clock::now().time_since_epoch();
    osal::WaitMonotonic(cond, lock, longest);
    EXPECT_GE(lastDeadline, before + longest);
    EXPECT_LE(lastDeadline, std::chrono::steady_clock::now().time_since_epoch() + longest);
}
