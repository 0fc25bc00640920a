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
#include <functional>
#include <gtest/gtest.h>
#include <new>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

namespace {

// How many allocations of this thread still succeed; negative for all.
thread_local int allocationsLeft = -1;
enum Failure { NONE, OF_STRDUP, OF_NEW, OF_NOTHROW_NEW };
thread_local Failure failure = NONE;  // the last one
thread_local int allocations = 0;

// While true, every allocation of sizeof(shared) bytes returns `shared`, so that a copy overlaps, which memcpy_s()
// refuses.
thread_local bool isShared = false;
uint8_t shared[osal::MEDIA_PARAM_CAPACITY];

// While true, no thread may allocate or release memory.
std::atomic<bool> isSteady{false};
std::atomic<int> liveBlocks{0};

void CheckSteady(const char* operation)
{
    if (isSteady && !isLogging) {
        isSteady = false;  // the message needs memory
        ADD_FAILURE() << "operator " << operation << " while a queue is in steady use";
    }
}

bool NextAllocationFails(Failure kind)
{
    if (isLogging) {
        return false;
    }
    ++allocations;
    if (allocationsLeft < 0 || allocationsLeft-- > 0) {
        return false;
    }
    allocationsLeft = -1;
    failure = kind;
    return true;
}

}  // namespace

extern "C" char* strdup(const char* text) noexcept
{
    const size_t size = strlen(text) + 1;
    return static_cast<char*>(NextAllocationFails(OF_STRDUP) ? nullptr : memcpy(malloc(size), text, size));
}

// Kept from inlining, which would show the compiler a malloc() released by delete.
__attribute__((noinline)) void* operator new(size_t size)
{
    CheckSteady("new");
    if (isShared && size == sizeof(shared)) {
        return shared;
    }
    if (NextAllocationFails(OF_NEW)) {
        throw std::bad_alloc();
    }
    ++liveBlocks;
    return malloc(size);
}

void* operator new(size_t size, const std::nothrow_t& /*tag*/) noexcept
{
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        failure = OF_NOTHROW_NEW;
        return nullptr;
    }
}

__attribute__((noinline)) void operator delete(void* block) noexcept
{
    CheckSteady("delete");
    liveBlocks -= block != nullptr ? 1 : 0;
    if (block != shared) {
        free(block);
    }
}

void operator delete(void* block, size_t /*size*/) noexcept { operator delete(block); }

// The sanitizers' own do not call the ones above.
void* operator new[](size_t size) { return operator new(size); }
void operator delete[](void* block) noexcept { operator delete(block); }
void operator delete[](void* block, size_t /*size*/) noexcept { operator delete(block); }

namespace {

// Its body ends at once.
struct BriefThread : osal::Thread {
    ~BriefThread() override { Stop(); }
    bool Run() override
    {
        EXPECT_EQ('t', ThreadName()[0]);
        return false;
    }
};

}  // namespace

TEST(Faults, OfTheSystemAreReportedAndTheCallsCanBeRepeated)
{
    const int region = osal::MemfdCreateRegion("n", 4096);
    const Simulation simulation;
    BriefThread thread;
    osal::MsgQueue queue;
    Event handler;
    const LogCapture log;
    FailCall("fcntl", EPERM);
    EXPECT_EQ(-1, osal::MemfdSetProtRegion(region, PROT_READ));
    FailCall("fcntl", EINVAL);
    EXPECT_EQ(-1, osal::MemfdSetProtRegion(region, PROT_READ));
    FailCall("fstat", EOVERFLOW);
    EXPECT_EQ(-1, osal::MemfdGetRegionSize(region));
    FailCall("pthread_getschedparam", ESRCH);
    EXPECT_EQ(ESRCH, osal::SetThreadPriority(osal::GetThreadId(), 1));
    FailCall("pthread_create", EAGAIN);
    EXPECT_EQ(-12, thread.Start("t", osal::Thread::PRIORITY_MIN));
    EXPECT_EQ(-1, thread.GetId());
    thread.Stop();
    EXPECT_EQ(-12, queue.Start("t", osal::Thread::PRIORITY_MIN));
    allocationsLeft = 0;
    EXPECT_EQ(-12, queue.Start("t", osal::Thread::PRIORITY_MIN));
    EXPECT_EQ(-1, queue.GetThreadId());
    allocationsLeft = 0;
    EXPECT_EQ(-38, queue.QueueMsg(&handler, 0));
    allocationsLeft = -1;
    FailCall("pthread_setschedparam", EAGAIN);
    EXPECT_EQ(0, thread.Start("t", osal::Thread::PRIORITY_MAX));
    Simulation::LetOthersRun();
    EXPECT_EQ(SCHED_FIFO, Simulation::LastScheduling().policy);
    FailCall("pthread_setschedparam", EPERM);
    EXPECT_EQ(0, queue.Start("t", osal::Thread::PRIORITY_MIN));
    EXPECT_EQ(0, queue.QueueMsg(&handler, 0));
    handler.Wait();
    FailCall(nullptr);
    EXPECT_EQ(0, osal::MemfdSetProtRegion(region, PROT_READ));
    const std::string fd = std::to_string(region);
    const std::string sealFailed =
        "E Memoryfd: MemfdSetProtRegion(" + fd + ", 1): F_SEAL_FUTURE_WRITE seal failed: ";
    const std::string failed = "E NuThread: SetThreadPriority: pthread_";
    EXPECT_EQ(
        (LogLines{sealFailed + "1.", sealFailed + "22.", "E Memoryfd: The kernel does not support this function.",
                  "E Memoryfd: MemfdGetRegionSize(" + fd + "): fstat failed: 75.",
                  failed + "getschedparam failed: 3, No such process",
                  "E NuThread: Start: Create thread t failed!", "E NuThread: Start: Create thread t failed!",
                  "E MsgQueue: QueueMsg: QueueMsg thread not start!",
                  failed + "setschedparam failed: 11, Resource temporarily unavailable",
                  "W NuThread: t, SetThreadPriority ret:11, mId:" + std::to_string(thread.GetId()),
                  failed + "setschedparam failed: 1, Operation not permitted",
                  "W NuThread: t, SetThreadPriority ret:1, mId:" + std::to_string(queue.GetThreadId())}),
        log.Lines());
    close(region);
}

namespace {

const std::string LONG_TEXT(100, 't');
uint8_t gBytes[] = {1, 2, 3};

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
    Event handler;  // outlives the queues, which may still hold its message
    osal::MsgQueue queue;
    osal::MsgQueue idle;
};

// One for each way to allocate; false for a failure that is told by the result.
const std::function<bool(State&)> OPERATIONS[] = {
    [](State& state) { return state.target.SetInt32(LONG_TEXT.c_str(), 1); },
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
    [](State& state) {
        osal::MediaParam other(state.parcel);
        other.WriteInt32(1);
        other.WriteString(LONG_TEXT.c_str());
        try {
            state.parcel = other;
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(0, state.parcel.ReadInt32());  // nothing was copied
            throw;
        }
        return state.parcel.ReadInt32() == 1;
    },
    [](State& state) {
        osal::MediaParam parcel;
        parcel.WriteInt32(1);
        parcel.WriteInt32(osal::META_TYPE_STRING);
        parcel.WriteString(LONG_TEXT.c_str());
        parcel.WriteString("text");
        const bool isRead = state.target.ReadFromMediaParam(&parcel);
        const char* text = "";
        if (!isRead) {
            EXPECT_TRUE(state.target.GetString(LONG_TEXT.c_str(), text));
            EXPECT_EQ(nullptr, text);  // the entry is stored without its string
            state.target.Destroy();
        }
        return isRead;
    },
    [](State& state) { return state.idle.Start(LONG_TEXT, osal::Thread::PRIORITY_MIN) == 0; },
    [](State& state) { return state.thread.Start(LONG_TEXT, osal::Thread::PRIORITY_MIN) == 0; },
    [](State& state) { return state.queue.QueueMsg(&state.handler, HOUR_NS) == 0; },
};

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
    for (size_t i = 0; i < std::size(OPERATIONS); ++i) {
        int successes = 0;
        for (; successes == 0 || failure != NONE; ++successes) {
            SCOPED_TRACE("operation " + std::to_string(i) + ", allocation " + std::to_string(successes));
            State state;
            const LogLines before = DumpOf(*state.source);
            bool isCompleted = false;
            bool isThrown = false;
            const LogCapture log;
            failure = NONE;
            allocationsLeft = successes;
            try {
                isCompleted = OPERATIONS[i](state);
            } catch (const std::bad_alloc&) {
                isThrown = true;
            }
            allocationsLeft = -1;
            const LogLines lines = log.Lines();
            // An exception or the result tells the failure, and every object can still be used.
            EXPECT_EQ(failure == NONE, isCompleted);
            if (failure != NONE) {
                EXPECT_EQ(failure == OF_NEW, isThrown);
                EXPECT_EQ(failure == OF_STRDUP ? 1 : 0,
                          std::count(lines.begin(), lines.end(), "E MediaMeta: fail to alloc mem for str"));
                EXPECT_EQ(before, DumpOf(*state.source));
                EXPECT_EQ(-38, state.idle.QueueMsg(&state.handler, 0));
            }
            // No entry is left without its string or bytes.
            EXPECT_TRUE(state.source->Copy() && state.target.Copy());
            EXPECT_STREQ("kept", osal::MediaParam(state.parcel).ReadString());
            state.thread.Stop();
            EXPECT_TRUE(OPERATIONS[i](state));
            EXPECT_EQ(before.size(), DumpOf(*state.source).size());
            EXPECT_EQ(0, state.queue.QueueMsg(&state.handler, 0));
            state.handler.Wait();
        }
        EXPECT_GT(successes, 1);
    }
}

TEST(Faults, OfCopiesLeaveZeroedBytesAndAnEmptyParcel)
{
    const auto meta = osal::MediaMeta::Create();
    osal::MediaMeta target;
    const LogCapture log;
    EXPECT_TRUE(meta->SetByteBuffer("b", gBytes, 3));
    isShared = true;
    std::fill(std::begin(shared), std::end(shared), uint8_t{1});
    EXPECT_FALSE(meta->SetByteBuffer("b", shared, sizeof(shared)));
    osal::MediaMeta::ByteBuffer stored{};
    EXPECT_TRUE(meta->GetByteBuffer("b", stored) && stored.size == sizeof(shared));
    EXPECT_EQ(sizeof(shared), std::count(stored.data, stored.data + stored.size, 0));
    EXPECT_EQ(nullptr, meta->Copy());
    EXPECT_FALSE(target.Merge(meta));
    EXPECT_TRUE(target.ContainsKey("b"));
    osal::MediaParam param;
    EXPECT_EQ(0, param.WriteString("s"));
    osal::MediaParam copy;
    EXPECT_EQ(0, copy.WriteString("before"));
    EXPECT_EQ(0, copy.WriteString(copy.ReadString()));  // its own string
    EXPECT_STREQ("before", copy.ReadString());
    copy = param;
    EXPECT_EQ(-1, copy.WriteInt32(1));
    EXPECT_EQ(nullptr, copy.ReadString());
    EXPECT_EQ((LogLines{"E MediaMeta: Copy: copy b failed", "E MediaMeta: Merge: Merge b failed",
                        "E MediaParam: Copy: memcpy failed.", "E MediaParam: WriteFixed failed: ERR_NO_MORE."}),
              log.Lines());
    isShared = false;
}

TEST(Allocations, AreNotMadeForSlotsAndExistingKeys)
{
    osal::MediaMeta meta;
    for (const char* key : {"b", "a"}) {
        meta.SetInt32(key, 1);
        meta.Begin();
        meta.End();
        meta.SetInt32("c", 1);
        const int before = allocations;
        int32_t value = 0;
        EXPECT_TRUE(meta.GetInt32(key, value));
        EXPECT_TRUE(meta.Begin().Key() == key && meta.End() == meta.End());
        EXPECT_TRUE(meta.ContainsKey(key) && meta.SetInt32(key, 2) && !meta.SetInt64(key, 2));
        EXPECT_EQ(before, allocations);
    }
}

// Once as many messages with as many due times have been pending.
TEST(Allocations, AreNotMadeByAQueueInSteadyUse)
{
    struct Sleeper : osal::MsgHandlerBase {
        void HandleMsg(int32_t&) override { std::this_thread::sleep_for(std::chrono::nanoseconds(100)); }
    };
    const Simulation simulation;
    Sleeper kept;
    Sleeper removed;
    osal::MsgQueue queue;
    queue.Start("t", osal::Thread::PRIORITY_MIN);
    const auto use = [&](uint64_t messages, uint64_t stepNs) {
        queue.QueueMsg(&kept, 0);
        Simulation::LetOthersRun();  // the worker sleeps, and its due time has no message any more
        for (uint64_t i = 0; i < messages; ++i) {
            queue.QueueMsg(i % 4 == 0 ? &removed : &kept, messages - i * stepNs);
        }
        queue.RemoveMsg(&removed);
        std::this_thread::sleep_for(std::chrono::hours(1));  // until all have run
    };
    const int blocksBefore = liveBlocks;
    use(32, 1);
    isSteady = true;
    use(32, 1);
    use(32, 0);
    use(32, 1);
    isSteady = false;
    use(1000, 1);
    EXPECT_EQ(blocksBefore + 32 + 32, liveBlocks);
}
