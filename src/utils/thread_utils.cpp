#include "osal/utils.h"

#include "../log.h"

#include <cstring>
#include <pthread.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <utils/CallStack.h>

namespace osal {

namespace {

constexpr const char* TAG = "NuThread";

// The interface passes the handle as a long. The system's type is an unsigned long on some platforms.
static_assert(sizeof(pthread_t) == sizeof(long));

}  // namespace

pid_t GetTid() { return static_cast<pid_t>(syscall(SYS_gettid)); }

long GetThreadId() { return static_cast<long>(pthread_self()); }

void SetThreadName(const std::string& name)
{
    if (name.empty()) {
        LOGW("%s: ThreadName can't be empty.", __func__);
        return;
    }
    // Not pthread_setname_np(), which refuses a long name instead of shortening it.
    prctl(PR_SET_NAME, name.c_str(), 0, 0, 0);
}

int SetThreadPriority(long thread, int priority)
{
    const auto handle = static_cast<pthread_t>(thread);
    int policy = 0;
    sched_param param{};
    int error = pthread_getschedparam(handle, &policy, &param);
    if (error != 0) {
        LOGE("%s: pthread_getschedparam failed: %d, %s", __func__, error, strerror(error));
        return error;
    }
    param.sched_priority = priority;
    error = pthread_setschedparam(handle, SCHED_FIFO, &param);
    if (error != 0) {
        LOGE("%s: pthread_setschedparam failed: %d, %s", __func__, error, strerror(error));
        return error;
    }
    return 0;
}

int PrintBacktrace(int value)
{
    const android::CallStack stack("DEBUG", 1);
    return value;
}

}  // namespace osal
