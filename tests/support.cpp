#include "support.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <mutex>
#include <sys/prctl.h>

thread_local bool isLogging = false;

namespace {

std::mutex logMutex;
LogLines logLines;

}  // namespace

// Replaces the function of the library, which the library calls through the dynamic symbol.
extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...)
{
    char text[1024];
    va_list args;
    va_start(args, fmt);
    const int size = vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    const std::lock_guard<std::mutex> lock(logMutex);
    isLogging = true;
    logLines.push_back({prio, tag != nullptr ? std::optional<std::string>(tag) : std::nullopt, text});
    isLogging = false;
    errno = 0;  // the library may not rely on it
    return size;
}

LogCapture::LogCapture()
{
    const std::lock_guard<std::mutex> lock(logMutex);
    LogLines().swap(logLines);
}

LogLines LogCapture::Lines(const char* tag) const
{
    const std::lock_guard<std::mutex> lock(logMutex);
    LogLines lines;
    for (const LogLine& line : logLines) {
        if (tag == nullptr || line.tag == tag) {
            lines.push_back(line);
        }
    }
    return lines;
}

std::string ThreadName()
{
    char name[16];
    prctl(PR_GET_NAME, name);
    return name;
}

size_t OpenDescriptors()
{
    return static_cast<size_t>(std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}));
}
