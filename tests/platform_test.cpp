// The stand-ins for the platform, built in without the library.

#include <android/log.h>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <cwchar>
#include <dlfcn.h>
#include <fcntl.h>
#include <future>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <memcpy_s.h>
#include <poll.h>
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

std::atomic<bool> interruptWrite{false};
std::atomic<std::promise<void>*> pollBegins{nullptr};

}  // namespace

extern "C" {

// In the place of the system's, for the log too.
ssize_t write(int fd, const void* data, size_t sizeBytes)
{
    if (interruptWrite.exchange(false)) {
        errno = EINTR;
        return -1;
    }
    static const auto real = reinterpret_cast<ssize_t (*)(int, const void*, size_t)>(dlsym(RTLD_NEXT, "write"));
    return real(fd, data, sizeBytes);
}

int poll(pollfd* files, nfds_t count, int timeoutMs)
{
    if (std::promise<void>* begins = pollBegins.exchange(nullptr)) {
        begins->set_value();
    }
    static const auto real = reinterpret_cast<int (*)(pollfd*, nfds_t, int)>(dlsym(RTLD_NEXT, "poll"));
    return real(files, count, timeoutMs);
}

}  // extern "C"

TEST(Log, WritesTheColumnsOfThreadtime)
{
    const std::string longText(100'000, 'x');
    testing::internal::CaptureStderr();
    errno = 77;
    EXPECT_GT(__android_log_print(ANDROID_LOG_WARN, "Tag", "%s=%d", "text", 5), 0);
    EXPECT_EQ(77, errno);
    __android_log_print(99, nullptr, "no tag");
    __android_log_print(-1, nullptr, "no tag");
    __android_log_print(ANDROID_LOG_DEBUG, "ALongerTagThanTheColumn", "%s", longText.c_str());
    const auto lines = CapturedLines();
    ASSERT_EQ(4U, lines.size());
    const std::string head = "[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}[.][0-9]{3} +" +
                             std::to_string(getpid()) + " +" + std::to_string(gettid()) + " ";
    EXPECT_THAT(lines[0], testing::MatchesRegex(head + "W Tag     : text=5"));
    EXPECT_THAT(lines[1], testing::MatchesRegex(head + "[?]         : no tag"));
    EXPECT_THAT(lines[2], testing::MatchesRegex(head + "[?]         : no tag"));
    EXPECT_NE(std::string::npos, lines[3].find("D ALongerTagThanTheColumn: " + longText));
}

TEST(Log, KeepsLinesOfManyThreadsWhole)
{
    testing::internal::CaptureStderr();
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            const std::string text(static_cast<size_t>(3000 * i + 1), static_cast<char>('a' + i));
            for (int n = 0; n < 50; ++n) {
                __android_log_print(ANDROID_LOG_INFO, "T", "[%s]", text.c_str());
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    std::array<int, 4> seen{};
    for (const std::string& line : CapturedLines()) {
        const std::string text = line.substr(line.find('[') + 1);
        const auto which = static_cast<size_t>(text[0] - 'a');
        ASSERT_LT(which, seen.size());
        EXPECT_EQ(std::string(3000 * which + 1, text[0]) + "]", text);
        ++seen[which];
    }
    EXPECT_EQ((std::array<int, 4>{50, 50, 50, 50}), seen);
}

TEST(CallStack, LeavesOutTheInnermostFramesAskedFor)
{
    const auto stackOf = [](int32_t ignoreDepth) {
        testing::internal::CaptureStderr();
        LogStack(ignoreDepth);
        return CapturedLines();
    };
    const auto all = stackOf(0);
    ASSERT_GE(all.size(), 4U);
    EXPECT_NE(std::string::npos, all[0].find("android::CallStack::CallStack")) << all[0];
    EXPECT_NE(std::string::npos, all[1].find("LogStack(int)")) << all[1];
    for (size_t depth = 1; depth < 4; ++depth) {
        EXPECT_EQ(all.size() - depth, stackOf(static_cast<int32_t>(depth)).size());
    }
    EXPECT_EQ(std::vector<std::string>{}, stackOf(10'000));
    EXPECT_NE(std::string::npos, all[0].find(" D Stack   : #00 pc ")) << all[0];
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

TEST(CallStack, SaysWhenItIsCut)
{
    volatile int depth = 400;
    testing::internal::CaptureStderr();
    EXPECT_EQ(400, Recurse(depth));
    EXPECT_NE(std::string::npos, CapturedLines().back().find("(further frames are not shown)"));
}

TEST(BoundedCopy, CopiesOrZeroesAndSaysSo)
{
    constexpr size_t TOO_LARGE = RSIZE_MAX + 1;
    using Bytes = std::array<char, 8>;
    const Bytes old{'o', 'o', 'o', 'o', 'o', 'o', 'o', 'o'};
    const Bytes zero{};
    const char* const source = "source";
    Bytes to = old;
    EXPECT_EQ(0, memcpy_s(to.data(), to.size(), source, 0));
    EXPECT_EQ(old, to);
    EXPECT_EQ(0, memcpy_s(to.data(), 3, source, 3));
    EXPECT_EQ((Bytes{'s', 'o', 'u', 'o', 'o', 'o', 'o', 'o'}), to);

    EXPECT_NE(0, memcpy_s(nullptr, 8, source, 3));
    to = old;
    EXPECT_NE(0, memcpy_s(to.data(), TOO_LARGE, source, 3));
    EXPECT_EQ(old, to);

    const auto expectZeroed = [&](const char* from, size_t count) {
        to = old;
        EXPECT_NE(0, memcpy_s(to.data(), to.size(), from, count));
        EXPECT_EQ(zero, to);
    };
    expectZeroed(nullptr, 3);
    expectZeroed(source, 9);
    expectZeroed(source, TOO_LARGE);
    expectZeroed(to.data(), 1);
    expectZeroed(to.data() + 2, 3);
    to = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h'};
    EXPECT_EQ(0, memcpy_s(to.data(), 8, to.data() + 4, 4));  // side by side is no overlap
    EXPECT_EQ((Bytes{'e', 'f', 'g', 'h', 'e', 'f', 'g', 'h'}), to);
}
