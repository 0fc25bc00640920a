// The stand-ins for the platform, built in without the library.

#include <android/log.h>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
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
    testing::internal::CaptureStderr();
    errno = 77;
    EXPECT_GT(__android_log_print(ANDROID_LOG_WARN, "Tag", "%s=%d", "text", 5), 0);
    EXPECT_EQ(77, errno);
    EXPECT_GT(__android_log_print(9, nullptr, "%s", ""), 0);
    __android_log_print(-1, "ALongerTagThanTheColumn", "text");
    const std::string head = "[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3} +" +
                             std::to_string(getpid()) + " +" + std::to_string(gettid()) + " ";
    using testing::MatchesRegex;
    EXPECT_THAT(CapturedLines(), testing::ElementsAre(MatchesRegex(head + "W Tag     : text=5"),
                                                      MatchesRegex(head + "[?]         : "),
                                                      MatchesRegex(head + "[?] ALongerTagThanTheColumn: text")));
}

// Of two threads, through a pipe that takes less than a line at once.
TEST(Log, KeepsLinesWhole)
{
    const int stderrCopy = dup(STDERR_FILENO);
    int pipes[2];
    ASSERT_EQ(0, pipe(pipes));
    dup2(pipes[1], STDERR_FILENO);
    close(pipes[1]);
    std::string received;
    std::thread reader([&] {
        std::array<char, 4096> buffer{};
        for (ssize_t size = 0; (size = read(pipes[0], buffer.data(), buffer.size())) > 0;) {
            received.append(buffer.data(), static_cast<size_t>(size));
        }
    });
    std::array<size_t, 2> written{};
    const auto write = [&](size_t which) {
        const std::string text(200'000, static_cast<char>('0' + which));
        for (int i = 0; i < 10; ++i) {
            written[which] += static_cast<size_t>(__android_log_print(ANDROID_LOG_INFO, "T", "%s", text.c_str()));
        }
    };
    std::thread other(write, 0);
    write(1);
    other.join();
    close(STDERR_FILENO);
    reader.join();
    const int refused = __android_log_print(ANDROID_LOG_INFO, "T", "nowhere to go");
    dup2(stderrCopy, STDERR_FILENO);
    close(stderrCopy);
    close(pipes[0]);
    EXPECT_LT(refused, 0);
    EXPECT_EQ(written[0] + written[1], received.size());
    std::istringstream lines(received);
    for (std::string line; std::getline(lines, line);) {
        EXPECT_EQ(200'000, std::count(line.begin() + 40, line.end(), line.back()));
    }
}

__attribute__((noinline, visibility("default"))) void LogStack(int32_t ignoreDepth)
{
    const android::CallStack stack("Stack", ignoreDepth);
}

// The stack of a recursion that the optimiser cannot unroll.
__attribute__((noinline)) int Recurse(int depth)
{
    if (depth == 0) {
        LogStack(1);
        return 0;
    }
    const int below = Recurse(depth - 1);
    asm volatile("" ::: "memory");
    return below + 1;
}

TEST(CallStack, LeavesOutTheInnermostFramesAskedForAndSaysWhenItIsCut)
{
    const auto stackOf = [](int32_t ignoreDepth) {
        testing::internal::CaptureStderr();
        LogStack(ignoreDepth);
        return CapturedLines();
    };
    const auto all = stackOf(0);
    ASSERT_GE(all.size(), 4U);
    EXPECT_THAT(all[0], testing::ContainsRegex(" D Stack   : #00 pc .*android::CallStack::CallStack"));
    EXPECT_THAT(all[1], testing::ContainsRegex("#01 pc .*LogStack\\(int\\)"));
    EXPECT_THAT(all.back(), testing::Not(testing::HasSubstr("<unknown>")));
    EXPECT_EQ(all.size() - 3, stackOf(3).size());
    EXPECT_EQ(0U, stackOf(10'000).size());
    volatile int depth = 400;
    testing::internal::CaptureStderr();
    EXPECT_EQ(400, Recurse(depth));
    EXPECT_THAT(CapturedLines().back(), testing::HasSubstr("(further frames are not shown)"));
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
    EXPECT_EQ("efghefgh", to);
    EXPECT_EQ(0, memcpy_s(to.data(), 3, "source", 3));
    EXPECT_EQ("souhefgh", to);
    const std::pair<const char*, size_t> refused[] = {
        {nullptr, 3}, {"source", 9}, {"source", TOO_LARGE}, {to.data(), 1}, {to.data() + 2, 3}};
    for (const auto& [from, count] : refused) {
        to.replace(0, 8, old);
        EXPECT_NE(0, memcpy_s(to.data(), 8, from, count));
        EXPECT_EQ(std::string(8, '\0'), to);
    }
}
