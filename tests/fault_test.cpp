// Calls and allocations that fail. The functions below take the place of the system's for the library, too.

#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "osal/memfd.h"
#include "osal/msg_queue.h"
#include "osal/utils.h"
#include "support.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <pthread.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

// The one call that fails, and how.
const char* failingCall = nullptr;
int failure = 0;

// The failure of `call`, 0 if it is to succeed.
int FailureOf(const char* call)
{
    return failingCall != nullptr && strcmp(call, failingCall) == 0 ? failure : 0;
}

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

int Failed(int error)
{
    errno = error;
    return -1;
}

// How many allocations of this thread still succeed; negative for all.
thread_local int allocationsLeft = -1;
thread_local bool allocationFailed = false;
std::atomic<int> liveAllocations{0};

bool NextAllocationFails()
{
    if (isLogging || allocationsLeft < 0 || allocationsLeft-- > 0) {
        return false;
    }
    allocationsLeft = -1;
    allocationFailed = true;
    return true;
}

}  // namespace

extern "C" {

// Six arguments are read, however few there are; whatever the others hold, the system does not look at it.
__attribute__((no_sanitize("address"))) long syscall(long number, ...) noexcept
{
    va_list args;
    va_start(args, number);
    const long a = va_arg(args, long), b = va_arg(args, long), c = va_arg(args, long), d = va_arg(args, long),
               e = va_arg(args, long), f = va_arg(args, long);
    va_end(args);
    const int error = number == SYS_memfd_create ? FailureOf("memfd_create") : 0;
    return error != 0 ? Failed(error) : Real<long(long, ...)>("syscall")(number, a, b, c, d, e, f);
}

int ftruncate(int fd, off_t size) noexcept
{
    const int error = FailureOf("ftruncate");
    return error != 0 ? Failed(error) : Real<int(int, off_t)>("ftruncate")(fd, size);
}

int fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    const long arg = va_arg(args, long);
    va_end(args);
    const int error = FailureOf(command == F_ADD_SEALS   ? "fcntl add"
                                : command == F_GET_SEALS ? "fcntl get"
                                : command == F_DUPFD     ? "fcntl dup"
                                                         : "");
    return error != 0 ? Failed(error) : Real<int(int, int, ...)>("fcntl")(fd, command, arg);
}

int fstat(int fd, struct stat* status) noexcept
{
    const int error = FailureOf("fstat");
    return error != 0 ? Failed(error) : Real<int(int, struct stat*)>("fstat")(fd, status);
}

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    const int error = FailureOf("clock_gettime");
    return error != 0 ? Failed(error) : Real<int(clockid_t, timespec*)>("clock_gettime")(clock, time);
}

int pthread_getschedparam(pthread_t thread, int* policy, sched_param* param) noexcept
{
    const int error = FailureOf("pthread_getschedparam");
    return error != 0 ? error
                      : Real<int(pthread_t, int*, sched_param*)>("pthread_getschedparam")(thread, policy, param);
}

int pthread_setschedparam(pthread_t thread, int policy, const sched_param* param) noexcept
{
    const int error = FailureOf("pthread_setschedparam");
    return error != 0
               ? error
               : Real<int(pthread_t, int, const sched_param*)>("pthread_setschedparam")(thread, policy, param);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*), void* arg) noexcept
{
    const int error = FailureOf("pthread_create");
    return error != 0 ? error : Real<decltype(pthread_create)>("pthread_create")(thread, attributes, body, arg);
}

char* strdup(const char* text) noexcept
{
    const size_t size = strlen(text) + 1;
    auto* copy = static_cast<char*>(NextAllocationFails() ? nullptr : malloc(size));
    return copy != nullptr ? static_cast<char*>(memcpy(copy, text, size)) : nullptr;
}

}  // extern "C"

// Kept from inlining, which would show the compiler a malloc() released by delete.
__attribute__((noinline)) void* operator new(size_t size)
{
    void* block = NextAllocationFails() ? nullptr : malloc(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    ++liveAllocations;
    return block;
}

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

void* operator new[](size_t size)
{
    return operator new(size);
}

__attribute__((noinline)) void operator delete(void* block) noexcept
{
    liveAllocations -= block != nullptr ? 1 : 0;
    free(block);
}

void operator delete(void* block, size_t /*size*/) noexcept
{
    operator delete(block);
}

void operator delete[](void* block) noexcept
{
    operator delete(block);
}

void operator delete[](void* block, size_t /*size*/) noexcept
{
    operator delete(block);
}

namespace {

size_t CountEntries(const char* path)
{
    size_t count = 0;
    DIR* directory = opendir(path);
    while (readdir(directory) != nullptr) {
        ++count;
    }
    closedir(directory);
    return count;
}

// A body that ends at once.
struct BriefThread : osal::Thread {
    ~BriefThread() override { Stop(); }
    bool Run() override
    {
        ran.Set();
        return false;
    }
    Event ran;
};

struct Handler : osal::MsgHandlerBase {
    void HandleMsg(int32_t&) override { NotifyFinished(); }
};

struct FaultCase {
    const char* call;
    std::vector<int> errors;
    std::function<void()> run;  // with the call failing
    std::vector<LogLine> lines;  // "@" stands for the error number, "$" for the region, "%" for the worker
};

LogLine Line(const char* tag, const char* text, int prio = ANDROID_LOG_ERROR)
{
    return {prio, tag, text};
}

}  // namespace

TEST(Faults, OfEachSystemCallAreReportedAndLeaveNothingBehind)
{
    const int region = osal::MemfdCreateRegion("n", 4096);
    ASSERT_GE(region, 1);
    BriefThread thread;
    osal::MsgQueue queue;
    Handler handler;
    int workerId = 0;
    std::thread([] {}).join();  // what sanitizers start beside the first thread is there from here on
    const auto create = [] { EXPECT_EQ(-1, osal::MemfdCreateRegion("n", 4096)); };
    const auto seal = [=] { EXPECT_EQ(-1, osal::MemfdSetProtRegion(region, PROT_READ)); };
    const auto prioritise = [] { EXPECT_EQ(failure, osal::SetThreadPriority(osal::GetThreadId(), 1)); };
    const auto sealFailed = Line("Memoryfd", "MemfdSetProtRegion($, 1): F_SEAL_FUTURE_WRITE seal failed: @.");
    const auto refused = Line("NuThread", "Start: Create thread t failed!");
    const FaultCase cases[] = {
        {"memfd_create",
         {EINVAL, EMFILE, ENOSYS, EACCES},
         create,
         {Line("Memoryfd", "MemfdCreateRegion(n, 4096) failed: @.")}},
        {"ftruncate",
         {EFBIG, ENOSPC},
         create,
         {Line("Memoryfd", "ftruncate(n, 4096) failed for memfd creation: @.")}},
        {"fcntl add",
         {EINVAL},
         seal,
         {sealFailed, Line("Memoryfd", "The kernel does not support this function.")}},
        {"fcntl add", {EPERM, EBUSY}, seal, {sealFailed}},
        {"fcntl get",
         {EINVAL},
         [=] { EXPECT_FALSE(osal::MemfdIsValid(region)); },
         {Line("Memoryfd", "Invalid memfd: $")}},
        {"fcntl dup",
         {EMFILE},
         [&] {
             const int kept = dup(0);
             close(0);
             create();
             EXPECT_EQ(0, dup2(kept, 0));
             close(kept);
         },
         {Line("Memoryfd", "MemfdCreateRegion(n, 4096) failed: @.")}},
        {"fstat",
         {EIO, EOVERFLOW},
         [=] { EXPECT_EQ(-1, osal::MemfdGetRegionSize(region)); },
         {Line("Memoryfd", "MemfdGetRegionSize($): fstat failed: @.")}},
        {"clock_gettime",
         {EINVAL, EPERM},
         [] {
             EXPECT_EQ(-1, osal::GetTimeUs());
             EXPECT_EQ(-1, osal::GetTimeUsBoot());
             EXPECT_EQ(-1, osal::GetTimeUsBootWithSuspend());
         },
         {{ANDROID_LOG_ERROR, std::nullopt, "GetTimeByClockType failed! clockType: 0"},
          {ANDROID_LOG_ERROR, std::nullopt, "GetTimeByClockType failed! clockType: 1"},
          {ANDROID_LOG_ERROR, std::nullopt, "GetTimeByClockType failed! clockType: 7"}}},
        {"pthread_getschedparam",
         {ESRCH},
         prioritise,
         {Line("NuThread", "SetThreadPriority: pthread_getschedparam failed: @, No such process")}},
        {"pthread_setschedparam",
         {EPERM},
         prioritise,
         {Line("NuThread", "SetThreadPriority: pthread_setschedparam failed: @, Operation not permitted")}},
        {"pthread_setschedparam",
         {EINVAL},
         prioritise,
         {Line("NuThread", "SetThreadPriority: pthread_setschedparam failed: @, Invalid argument")}},
        {"pthread_setschedparam",
         {EPERM},
         [&] {
             EXPECT_EQ(0, thread.Start("t", osal::Thread::PRIORITY_MIN));
             EXPECT_TRUE(thread.ran.Wait());  // with the scheduling that it has
             workerId = thread.GetId();
             thread.Stop();
         },
         {Line("NuThread", "SetThreadPriority: pthread_setschedparam failed: @, Operation not permitted"),
          Line("NuThread", "t, SetThreadPriority ret:@, mId:%", ANDROID_LOG_WARN)}},
        {"pthread_create",
         {EAGAIN},
         [&] {
             EXPECT_EQ(-12, thread.Start("t", osal::Thread::PRIORITY_MIN));
             EXPECT_EQ(-1, thread.GetId());
             EXPECT_EQ(-12, queue.Start("t", osal::Thread::PRIORITY_MIN));
             EXPECT_EQ(-1, queue.GetThreadId());
             EXPECT_EQ(-38, queue.QueueMsg(&handler, 0));
         },
         {refused, refused, Line("MsgQueue", "QueueMsg: QueueMsg thread not start!")}},
    };
    for (const FaultCase& fault : cases) {
        for (const int error : fault.errors) {
            SCOPED_TRACE(std::string(fault.call) + ": " + strerror(error));
            const size_t descriptors = CountEntries("/proc/self/fd");
            const size_t threads = CountEntries("/proc/self/task");
            const LogCapture log;
            failure = error;
            failingCall = fault.call;
            fault.run();
            failingCall = nullptr;
            LogLines expected = fault.lines;
            for (LogLine& line : expected) {
                for (const auto& [mark, number] :
                     {std::pair('@', error), std::pair('$', region), std::pair('%', workerId)}) {
                    if (const size_t at = line.text.find(mark); at != std::string::npos) {
                        line.text.replace(at, 1, std::to_string(number));
                    }
                }
            }
            EXPECT_EQ(expected, log.Lines());
            EXPECT_EQ(descriptors, CountEntries("/proc/self/fd"));
            // The system may list a thread for a moment after it was joined.
            const auto giveUp = std::chrono::steady_clock::now() + WAIT_LIMIT;
            while (CountEntries("/proc/self/task") != threads && std::chrono::steady_clock::now() < giveUp) {
                std::this_thread::yield();
            }
            EXPECT_EQ(threads, CountEntries("/proc/self/task"));
        }
    }
    // What failed works afterwards.
    EXPECT_EQ(0, osal::MemfdSetProtRegion(region, PROT_READ));
    close(region);
    EXPECT_EQ(0, thread.Start("t", osal::Thread::PRIORITY_MIN));
    EXPECT_TRUE(thread.ran.Wait());
    EXPECT_EQ(0, queue.Start("t", osal::Thread::PRIORITY_MIN));
    EXPECT_EQ(0, queue.QueueMsg(&handler, 0));
    handler.Wait();
}

namespace {

const std::string LONG_KEY(40, 'k');
uint8_t gBytes[] = {1, 2, 3};

// Every entry that is there is whole.
size_t ExpectWhole(const osal::MediaMeta& meta)
{
    size_t count = 0;
    for (auto it = meta.Begin(); it != meta.End(); ++it, ++count) {
        const auto& item = it.Value();
        EXPECT_TRUE(item && item->mType != osal::META_TYPE_NONE);
        EXPECT_TRUE(item->mType != osal::META_TYPE_STRING || strlen(item->mValue.stringValue) > 0);
        const auto& block = item->mValue.byteBufferValue;  // a parcel brings none
        EXPECT_TRUE(item->mType != osal::META_TYPE_BYTE_BUFFER || block.size == 0 || block.data[2] == 3);
    }
    return count;
}

bool Fill(osal::MediaMeta& meta)
{
    return meta.SetInt32(LONG_KEY.c_str(), 1) &&
           meta.SetString("text", "a text that is longer than a short one") &&
           meta.SetByteBuffer("bytes", gBytes, 3) &&
           meta.SetObject("object", std::make_shared<osal::MediaMeta::MetaBase>()) &&
           meta.SetString("text", "other");
}

// Uses everything that allocates. False when an allocation failed that is not told by an exception.
struct Script {
    std::shared_ptr<osal::MediaMeta> source = osal::MediaMeta::Create();
    std::shared_ptr<osal::MediaMeta> target = osal::MediaMeta::Create();
    osal::MediaParam parcel;
    osal::MediaParam parcelCopy;
    BriefThread thread;
    Handler handler;  // outlives the queue, which may still hold its message
    osal::MsgQueue queue;
    bool isCopying = false;

    bool Run()
    {
        if (!Fill(*source) || source->Copy() == nullptr || !target->Merge(source)) {
            return false;
        }
        source->Begin();
        source->End();
        parcel.WritePointer(std::make_shared<osal::MediaRefBase>());
        source->WriteToMediaParam(&parcel);
        parcelCopy.WriteString("kept when a copy fails");
        isCopying = true;
        parcelCopy.Copy(&parcel);
        isCopying = false;
        target->ReadFromMediaParam(&parcelCopy);
        if (thread.Start(LONG_KEY, osal::Thread::PRIORITY_MIN) != 0) {
            return false;
        }
        thread.Stop();
        if (queue.Start(LONG_KEY, osal::Thread::PRIORITY_MIN) != 0) {
            return false;
        }
        queue.QueueMsg(&handler, 3'600'000 * NS_PER_MS);
        queue.RemoveMsg(&handler);
        queue.QueueMsg(&handler, 0);
        return true;
    }

    // Whatever failed before, all of it can be used.
    void ExpectUsable()
    {
        const size_t entries = ExpectWhole(*source);
        ExpectWhole(*target);
        const auto copy = source->Copy();
        ASSERT_NE(nullptr, copy);
        EXPECT_EQ(entries, ExpectWhole(*copy));
        EXPECT_TRUE(Fill(*source) && target->Merge(source));
        if (isCopying) {
            EXPECT_STREQ("kept when a copy fails", parcelCopy.ReadString());
        }
        parcelCopy.Copy(&parcel);
        EXPECT_EQ(0, parcelCopy.WriteInt32(1));
        thread.Stop();
        EXPECT_EQ(0, thread.Start("t", osal::Thread::PRIORITY_MIN));
        EXPECT_EQ(0, queue.Start("t", osal::Thread::PRIORITY_MIN));
        Handler last;
        EXPECT_EQ(0, queue.QueueMsg(&last, 0));
        last.Wait();
    }
};

}  // namespace

TEST(Faults, OfEachAllocationLoseNothing)
{
    EXPECT_TRUE(Script().Run());  // what standard libraries allocate once and keep
    int successes = 0;
    bool isOver = false;
    for (; !isOver; ++successes) {
        SCOPED_TRACE(successes);
        LogCapture log;
        const int liveBefore = liveAllocations;
        {
            Script script;
            bool completed = false;
            allocationFailed = false;
            allocationsLeft = successes;
            try {
                completed = script.Run();
            } catch (const std::bad_alloc&) {
            }
            isOver = allocationsLeft >= 0;
            allocationsLeft = -1;
            // Reading from a parcel tells of a text by its line alone: other entries make it answer false anyway.
            const LogLines lines = log.Lines("MediaMeta");
            const LogLine noText = Line("MediaMeta", "fail to alloc mem for str");
            EXPECT_TRUE(isOver == completed || std::count(lines.begin(), lines.end(), noText) == 1);
            EXPECT_NE(isOver, allocationFailed);
            script.ExpectUsable();
        }
        log = LogCapture();  // its lines count as allocations
        EXPECT_EQ(liveBefore, liveAllocations);
        ASSERT_LT(successes, 1000);
    }
    EXPECT_GT(successes, 50);
}
