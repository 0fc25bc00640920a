#include "support.h"

#include <android/log.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
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
    logLines.push_back(std::string(1, "??VDIWEF"[prio]) + " " + (tag != nullptr ? tag : "(null)") + ": " + text);
    isLogging = false;
    errno = 0;  // the library may not rely on it
    return size;
}

LogCapture::LogCapture()
{
    const std::lock_guard<std::mutex> lock(logMutex);
    LogLines().swap(logLines);
}

LogLines LogCapture::Lines() const
{
    const std::lock_guard<std::mutex> lock(logMutex);
    return logLines;
}

std::string ThreadName()
{
    char name[16];
    prctl(PR_GET_NAME, name);
    return name;
}
