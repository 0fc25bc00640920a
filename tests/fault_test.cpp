// Calls of the system and allocations that fail.

#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "osal/memfd.h"
#include "osal/msg_queue.h"
#include "osal/utils.h"
#include "support.h"
#include "system.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <sys/mman.h>
#include <unistd.h>

namespace {

// How many allocations of this thread still succeed; negative for all.
thread_local int allocationsLeft = -1;
thread_local bool allocationFailed = false;
thread_local int allocations = 0;
std::atomic<int> liveAllocations{0};

bool NextAllocationFails()
{
    if (isLogging) {
        return false;
    }
    ++allocations;
    if (allocationsLeft < 0 || allocationsLeft-- > 0) {
        return false;
    }
    allocationsLeft = -1;
    allocationFailed = true;
    return true;
}

}  // namespace

extern "C" char* strdup(const char* text) noexcept
{
    const size_t size = strlen(text) + 1;
    auto* copy = static_cast<char*>(NextAllocationFails() ? nullptr : malloc(size));
    return copy != nullptr ? static_cast<char*>(memcpy(copy, text, size)) : nullptr;
}

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

__attribute__((noinline)) void operator delete(void* block) noexcept
{
    liveAllocations -= block != nullptr ? 1 : 0;
    free(block);
}

void operator delete(void* block, size_t /*size*/) noexcept { operator delete(block); }

namespace {

// A body that ends at once.
struct BriefThread : osal::Thread {
    ~BriefThread() override { Stop(); }
    bool Run() override { return false; }
};

struct Handler : osal::MsgHandlerBase {
    void HandleMsg(int32_t&) override { NotifyFinished(); }
};

// A null tag is none.
LogLine Error(const char* tag, const std::string& text)
{
    return {ANDROID_LOG_ERROR, tag != nullptr ? std::optional<std::string>(tag) : std::nullopt, text};
}

}  // namespace

TEST(Faults, OfEachSystemCallAreReportedAndLeaveNothingBehind)
{
    const int region = osal::MemfdCreateRegion("n", 4096);
    ASSERT_GE(region, 1);
    const std::string fd = std::to_string(region);
    const Simulation simulation;
    BriefThread thread;
    osal::MsgQueue queue;
    Handler handler;
    // "@" stands for the error number in the texts.
    const auto expect = [](const char* tag, const char* call, int error, const std::vector<std::string>& texts,
                           const std::function<void()>& run) {
        SCOPED_TRACE(std::string(call) + ": " + strerror(error));
        const size_t descriptors = OpenDescriptors();
        const LogCapture log;
        FailCall(call, error);
        run();
        FailCall(nullptr);
        LogLines expected;
        for (std::string text : texts) {
            if (const size_t at = text.find('@'); at != std::string::npos) {
                text.replace(at, 1, std::to_string(error));
            }
            expected.push_back(Error(tag, text));
        }
        EXPECT_EQ(expected, log.Lines(tag));
        EXPECT_EQ(descriptors, OpenDescriptors());
    };
    const auto create = [] { EXPECT_EQ(-1, osal::MemfdCreateRegion("n", 4096)); };
    const auto seal = [=] { EXPECT_EQ(-1, osal::MemfdSetProtRegion(region, PROT_READ)); };
    const std::string sealFailed = "MemfdSetProtRegion(" + fd + ", 1): F_SEAL_FUTURE_WRITE seal failed: @.";
    const std::string createFailed = "MemfdCreateRegion(n, 4096) failed: @.";
    const char* const tag = "Memoryfd";
    expect(tag, "memfd_create", EMFILE, {createFailed}, create);
    expect(tag, "ftruncate", ENOSPC, {"ftruncate(n, 4096) failed for memfd creation: @."}, create);
    expect(tag, "fcntl add", EPERM, {sealFailed}, seal);
    expect(tag, "fcntl add", EINVAL, {sealFailed, "The kernel does not support this function."}, seal);
    expect(tag, "fcntl get", EINVAL, {"Invalid memfd: " + fd}, [=] { EXPECT_FALSE(osal::MemfdIsValid(region)); });
    expect(tag, "fstat", EOVERFLOW, {"MemfdGetRegionSize(" + fd + "): fstat failed: @."},
           [=] { EXPECT_EQ(-1, osal::MemfdGetRegionSize(region)); });
    const int kept = dup(0);
    close(0);
    expect(tag, "fcntl dup", EMFILE, {createFailed}, create);
    EXPECT_EQ(0, dup2(kept, 0));
    close(kept);
    const std::string clockFailed = "GetTimeByClockType failed! clockType: ";
    expect(nullptr, "clock_gettime", EPERM, {clockFailed + "0", clockFailed + "1", clockFailed + "7"}, [] {
        EXPECT_EQ(-1, osal::GetTimeUs());
        EXPECT_EQ(-1, osal::GetTimeUsBoot());
        EXPECT_EQ(-1, osal::GetTimeUsBootWithSuspend());
    });
    const auto prioritise = [](int error) {
        return [error] { EXPECT_EQ(error, osal::SetThreadPriority(osal::GetThreadId(), 1)); };
    };
    const std::string failed = "SetThreadPriority: pthread_";
    expect("NuThread", "pthread_getschedparam", ESRCH, {failed + "getschedparam failed: @, No such process"},
           prioritise(ESRCH));
    expect("NuThread", "pthread_setschedparam", EPERM,
           {failed + "setschedparam failed: @, Operation not permitted"}, prioritise(EPERM));
    const std::string refused = "Start: Create thread t failed!";
    expect("NuThread", "pthread_create", EAGAIN, {refused, refused}, [&] {
        EXPECT_EQ(-12, thread.Start("t", osal::Thread::PRIORITY_MIN));
        EXPECT_EQ(-1, thread.GetId());
        thread.Stop();
        EXPECT_EQ(-12, queue.Start("t", osal::Thread::PRIORITY_MIN));
        EXPECT_EQ(-1, queue.GetThreadId());
        EXPECT_EQ(-38, queue.QueueMsg(&handler, 0));
    });
    // What failed works afterwards, and a worker runs with the scheduling that it has.
    EXPECT_EQ(0, osal::MemfdSetProtRegion(region, PROT_READ));
    close(region);
    const LogCapture log;
    FailCall("pthread_setschedparam", EPERM);
    EXPECT_EQ(0, thread.Start("t", osal::Thread::PRIORITY_MIN));
    Simulation::LetOthersRun();
    FailCall(nullptr);
    EXPECT_EQ((LogLines{Error("NuThread", failed + "setschedparam failed: 1, Operation not permitted"),
                        {ANDROID_LOG_WARN, "NuThread",
                         "t, SetThreadPriority ret:1, mId:" + std::to_string(thread.GetId())}}),
              log.Lines());
    EXPECT_EQ(0, queue.Start("t", osal::Thread::PRIORITY_MIN));
    EXPECT_EQ(0, queue.QueueMsg(&handler, 0));
    handler.Wait();
}

TEST(Faults, OfMemoryLeaveTheQueueStopped)
{
    const Simulation simulation;
    osal::MsgQueue queue;
    Handler handler;
    const LogCapture log;
    allocationsLeft = 0;
    EXPECT_EQ(-38, queue.QueueMsg(&handler, 0));  // refused without memory, too
    allocationsLeft = 0;
    EXPECT_EQ(-12, queue.Start("t", osal::Thread::PRIORITY_MIN));
    EXPECT_EQ(-1, allocationsLeft);
    EXPECT_EQ(-1, queue.GetThreadId());
    EXPECT_EQ(LogLines{Error("MsgQueue", "QueueMsg: QueueMsg thread not start!")}, log.Lines());
    EXPECT_EQ(0, queue.Start("t", osal::Thread::PRIORITY_MIN));
}

namespace {

const std::string LONG_KEY(40, 'k');
const std::string LONG_TEXT(100, 't');
uint8_t gBytes[] = {1, 2, 3};

// Counts the entries; a text or block that was released or is not there ends the program.
size_t CountWhole(const osal::MediaMeta& meta)
{
    size_t count = 0;
    for (auto it = meta.Begin(); it != meta.End(); ++it, ++count) {
        const auto& value = it.Value()->mValue;
        EXPECT_TRUE(it.Value()->mType != osal::META_TYPE_STRING || value.stringValue[0] == 't');
        EXPECT_TRUE(it.Value()->mType != osal::META_TYPE_BYTE_BUFFER || value.byteBufferValue.data[2] == 3);
    }
    return count;
}

// What the operations below work on.
struct State {
    State()
    {
        EXPECT_TRUE(source->SetString("text", "text") && source->SetByteBuffer("bytes", gBytes, 3));
        EXPECT_EQ(0, parcel.WriteString("kept"));
        EXPECT_EQ(0, queue.Start("t", osal::Thread::PRIORITY_MIN));
    }

    std::shared_ptr<osal::MediaMeta> source = osal::MediaMeta::Create();
    osal::MediaMeta target;
    osal::MediaParam parcel;
    BriefThread thread;
    Handler handler;  // outlives the queues, which may still hold its message
    osal::MsgQueue queue;
    osal::MsgQueue idle;
};

// One for each way to allocate; false for a failure that is told by the result.
const std::function<bool(State&)> OPERATIONS[] = {
    [](State& state) { return state.target.SetInt32(LONG_KEY.c_str(), 1); },
    [](State& state) { return state.target.SetString("text", LONG_TEXT.c_str()); },
    [](State& state) { return state.source->SetString("text", LONG_TEXT.c_str()); },
    [](State& state) { return state.source->SetByteBuffer("bytes", gBytes, 3); },
    [](State& state) { return state.source->Copy() != nullptr; },
    [](State& state) { return state.target.Merge(state.source); },
    [](State& state) { return state.source->Begin() != state.source->End(); },
    [](State& state) {
        return state.source->WriteToMediaParam(&state.parcel) || state.parcel.ReadString() != nullptr;
    },
    [](State& state) { return state.parcel.WritePointer(std::make_shared<osal::MediaRefBase>()) == 0; },
    [](State& state) { return osal::MediaParam(state.parcel).ReadString() != nullptr; },
    [](State& state) {
        osal::MediaParam parcel;
        for (const int32_t number : {1, 12}) {
            parcel.WriteInt32(number);
        }
        parcel.WriteString(LONG_KEY.c_str());
        parcel.WriteString("text");
        return state.target.ReadFromMediaParam(&parcel);
    },
    // Behind those that copy texts.
    [](State& state) { return state.thread.Start(LONG_KEY, osal::Thread::PRIORITY_MIN) == 0; },
    [](State& state) { return state.idle.Start(LONG_KEY, osal::Thread::PRIORITY_MIN) == 0; },
    [](State& state) { return state.queue.QueueMsg(&state.handler, HOUR_NS) == 0; },
};

constexpr size_t TEXT_OPERATIONS = 11;
const LogLine NO_TEXT = Error("MediaMeta", "fail to alloc mem for str");

LogLines DumpOf(const osal::MediaMeta& meta)
{
    const LogCapture log;
    meta.Dump();
    return log.Lines();
}

}  // namespace

TEST(Faults, OfEachAllocationLoseNothing)
{
    const Simulation simulation;
    int failures = 0;
    for (size_t i = 0; i < std::size(OPERATIONS); ++i) {
        for (int successes = 0; successes == 0 || allocationFailed; ++successes) {
            SCOPED_TRACE("operation " + std::to_string(i) + ", allocation " + std::to_string(successes));
            LogCapture log;
            const int liveBefore = liveAllocations;
            {
                State state;
                const LogLines before = DumpOf(*state.source);
                bool completed = false;
                bool threw = false;
                log = LogCapture();
                allocationFailed = false;
                allocationsLeft = successes;
                try {
                    completed = OPERATIONS[i](state);
                } catch (const std::bad_alloc&) {
                    threw = true;
                }
                allocationsLeft = -1;
                const LogLines lines = log.Lines("MediaMeta");
                failures += allocationFailed ? 1 : 0;
                // A failure is told, by an exception or the result, and leaves everything fit for use.
                EXPECT_NE(allocationFailed, completed);
                if (allocationFailed) {
                    const bool isText = !threw && i < TEXT_OPERATIONS;
                    EXPECT_EQ(isText ? 1 : 0, std::count(lines.begin(), lines.end(), NO_TEXT));
                    EXPECT_EQ(before, DumpOf(*state.source));
                }
                EXPECT_STREQ("kept", osal::MediaParam(state.parcel).ReadString());
                state.thread.Stop();
                EXPECT_TRUE(OPERATIONS[i](state));
                EXPECT_EQ(2U, CountWhole(*state.source));
                CountWhole(state.target);
                EXPECT_EQ(0, state.queue.QueueMsg(&state.handler, 0));
                state.handler.Wait();
            }
            log = LogCapture();  // its lines count as allocations
            EXPECT_EQ(liveBefore, liveAllocations);
        }
    }
    EXPECT_GT(failures, 25);
}

// What runs often.
TEST(Allocations, AreNotMadeForSlotsAndExistingKeys)
{
    osal::MediaMeta meta;
    for (const char* key : {"b", "a"}) {
        meta.SetInt32(key, 1);
        meta.Begin();
        meta.End();
        meta.SetInt32("c", 1);
        const int before = allocations;
        EXPECT_EQ(key, meta.Begin().Key());
        EXPECT_EQ(meta.End(), meta.End());
        EXPECT_TRUE(meta.ContainsKey(key) && meta.SetInt32(key, 2) && !meta.SetInt64(key, 2));
        EXPECT_EQ(before, allocations);
    }
}
