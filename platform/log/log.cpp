#include <android/log.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <poll.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

char PriorityLetter(int prio)
{
    constexpr std::array<char, 9> letters{'?', '?', 'V', 'D', 'I', 'W', 'E', 'F', 'S'};
    return prio >= 0 && prio < static_cast<int>(letters.size()) ? letters[static_cast<size_t>(prio)] : '?';
}

// One write() where the system takes it whole, so that lines of several processes do not mix either.
bool WriteWhole(const char* text, size_t size)
{
    while (size > 0) {
        const ssize_t written = write(STDERR_FILENO, text, size);
        if (written >= 0) {
            text += written;
            size -= static_cast<size_t>(written);
        } else if (errno == EAGAIN) {
            pollfd waiting{STDERR_FILENO, POLLOUT, 0};
            poll(&waiting, 1, -1);
        } else if (errno != EINTR) {
            return false;
        }
    }
    return true;
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
    char* line = nullptr;
    va_list args;
    va_start(args, fmt);
    const int textSize = vasprintf(&text, fmt, args);
    va_end(args);
    // The columns of `logcat -v threadtime`.
    const int lineSize =
        textSize < 0
            ? -1
            : asprintf(&line, "%02d-%02d %02d:%02d:%02d.%03ld %5d %5ld %c %-8s: %s\n", local.tm_mon + 1,
                       local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, now.tv_nsec / 1'000'000, getpid(),
                       syscall(SYS_gettid), PriorityLetter(prio), tag != nullptr ? tag : "", text);
    int result = -ENOMEM;
    if (lineSize >= 0) {
        flockfile(stderr);  // for lines that take more than one write()
        result = WriteWhole(line, static_cast<size_t>(lineSize)) ? lineSize : -errno;
        funlockfile(stderr);
        free(line);
    }
    if (textSize >= 0) {
        free(text);
    }
    errno = callerErrno;
    return result;
}
