#include <android/log.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

char PriorityLetter(int prio)
{
    constexpr std::array<char, 9> letters{'?', '?', 'V', 'D', 'I', 'W', 'E', 'F', 'S'};
    return prio >= 0 && prio < static_cast<int>(letters.size()) ? letters[static_cast<size_t>(prio)] : '?';
}

}  // namespace

int __android_log_print(int prio, const char* tag, const char* fmt, ...)
{
    const int callerErrno = errno;
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);

    char* text = nullptr;
    va_list args;
    va_start(args, fmt);
    const bool isFormatted = vasprintf(&text, fmt, args) >= 0;
    va_end(args);
    int result = -ENOMEM;
    if (isFormatted) {
        // glibc 2.36 prints a line of more than 8 KiB in parts, and does not lock the stream in between.
        flockfile(stderr);
        // The columns of `logcat -v threadtime`.
        result = fprintf(stderr, "%02d-%02d %02d:%02d:%02d.%03ld %5d %5ld %c %-8s: %s\n", local.tm_mon + 1,
                         local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec / 1'000'000,
                         getpid(), syscall(SYS_gettid), PriorityLetter(prio), tag != nullptr ? tag : "", text);
        funlockfile(stderr);
        free(text);
    }
    errno = callerErrno;
    return result;
}
