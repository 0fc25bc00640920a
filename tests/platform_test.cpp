// The stand-ins for the platform, built in without the library.

#include <android/log.h>
#include <cerrno>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memcpy_s.h>
#include <thread>
#include <unistd.h>
#include <utils/CallStack.h>

namespace {

std::vector<std::string> CapturedLines()
{
    std::istringstream text(testing::internal::GetCapturedStderr());
    std::vector<std::string> lines;
    for (std::string line; std::getline(text, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

TEST(Log, WritesTheColumnsOfThreadtime)
{
    const auto month = [] {
        const time_t now = time(nullptr);
        return std::to_string(101 + localtime(&now)->tm_mon).substr(1);
    };
    const std::string before = month();
    testing::internal::CaptureStderr();
    errno = 77;
    EXPECT_GT(__android_log_print(ANDROID_LOG_WARN, "Tag", "%s=%d", "text", 5), 0);
    EXPECT_EQ(77, errno);
    EXPECT_GT(__android_log_print(9, nullptr, "%s", ""), 0);
    __android_log_print(-1, "ALongerTagThanTheColumn", "text");
    const std::string head = "(" + before + "|" + month() + ")-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3} +" +
                             std::to_string(getpid()) + " +" + std::to_string(gettid()) + " ";
    using testing::MatchesRegex;
    EXPECT_THAT(CapturedLines(), testing::ElementsAre(MatchesRegex(head + "W Tag     : text=5"),
                                                      MatchesRegex(head + "[?]         : "),
                                                      MatchesRegex(head + "[?] ALongerTagThanTheColumn: text")));
}

// Through a pipe, which takes less than a line at once.
TEST(Log, KeepsLinesOfTwoThreadsWhole)
{
    const int kept = dup(STDERR_FILENO);
    int pipes[2];
    ASSERT_EQ(0, pipe(pipes));
    dup2(pipes[1], STDERR_FILENO);
    close(pipes[1]);
    const auto write = [](char byte) {
        const std::string text(200'000, byte);
        for (int i = 0; i < 10; ++i) {
            __android_log_print(ANDROID_LOG_INFO, "T", "%s", text.c_str());
        }
    };
    std::thread writers([&] {
        std::thread other(write, 'a');
        write('b');
        other.join();
        dup2(kept, STDERR_FILENO);  // which ends what is read below
    });
    std::stringstream received;
    char buffer[4096];
    for (ssize_t size = 0; (size = read(pipes[0], buffer, sizeof(buffer))) > 0;) {
        received.write(buffer, size);
    }
    writers.join();
    close(kept);
    close(pipes[0]);
    for (std::string line; std::getline(received, line);) {
        ASSERT_EQ(200'000, std::count(line.begin() + 40, line.end(), line.back()));
    }
}

// A recursion that the optimiser cannot unroll.
__attribute__((noinline, visibility("default"))) int LogStack(int depth, int32_t ignoreDepth)
{
    if (depth == 0) {
        const android::CallStack stack("Stack", ignoreDepth);
        return 0;
    }
    const int below = LogStack(depth - 1, ignoreDepth);
    asm volatile("" ::: "memory");
    return below + 1;
}

TEST(CallStack, LeavesOutTheInnermostFramesAskedForAndSaysWhenItIsCut)
{
    const auto stackOf = [](volatile int depth, int32_t ignoreDepth) {
        testing::internal::CaptureStderr();
        LogStack(depth, ignoreDepth);
        return CapturedLines();
    };
    const auto all = stackOf(0, 0);
    ASSERT_GE(all.size(), 4U);
    EXPECT_THAT(all[0], testing::ContainsRegex(" D Stack   : #00 pc .*android::CallStack::CallStack"));
    EXPECT_THAT(all[1], testing::ContainsRegex("#01 pc .*LogStack\\(int, int\\)"));
    EXPECT_THAT(all.back(), testing::Not(testing::HasSubstr("<unknown>")));
    EXPECT_THAT(stackOf(0, 1).at(0), testing::ContainsRegex("#00 pc .*LogStack\\(int, int\\)"));
    EXPECT_EQ(0U, stackOf(0, 10'000).size());
    EXPECT_THAT(stackOf(400, 1).back(), testing::HasSubstr("(further frames are not shown)"));
}

TEST(BoundedCopy, CopiesOrZeroesAndSaysSo)
{
    constexpr size_t TOO_LARGE = RSIZE_MAX + 1;
    const std::string old = "abcdefgh";
    std::string to = old;
    EXPECT_NE(0, memcpy_s(nullptr, 8, "source", 3));
    EXPECT_NE(0, memcpy_s(to.data(), TOO_LARGE, "source", 3));
    EXPECT_EQ(0, memcpy_s(to.data(), 8, "source", 0));
    EXPECT_EQ(old, to);
    EXPECT_EQ(0, memcpy_s(to.data(), 8, to.data() + 4, 4));  // side by side is no overlap
    EXPECT_EQ(0, memcpy_s(to.data() + 2, 2, to.data(), 2));
    EXPECT_EQ("efefefgh", to);
    EXPECT_EQ(0, memcpy_s(to.data(), 3, "source", 3));
    EXPECT_EQ("soufefgh", to);
    const std::pair<const char*, size_t> refused[] = {
        {nullptr, 3}, {"source", 9}, {"source", TOO_LARGE}, {to.data(), 1}, {to.data() + 2, 3}};
    for (const auto& [from, count] : refused) {
        to.replace(0, 8, old);
        EXPECT_NE(0, memcpy_s(to.data(), 8, from, count));
        EXPECT_EQ(std::string(8, '\0'), to);
    }
}
