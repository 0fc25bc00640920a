// Operations of the library, one after another, for scripts/bench_guard.sh to count: instructions as callgrind
// sees them, and allocations. Unlike times, counts do not depend on the load of the machine.
//
// Each operation runs in a process of its own, forked from one that has used nothing yet: what one operation
// leaves on the heap does not change the counts of the next. Instructions are those of the thread that measures,
// allocations those of all threads.

#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "osal/thread.h"
#include "osal/utils.h"
#include "queue_rows.h"

#include <atomic>
#include <cstdlib>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

static std::atomic<uint64_t> allocations{0};

extern "C" void* __libc_malloc(size_t size);

// Replaces the malloc() of the system, for all libraries.
extern "C" __attribute__((visibility("default"))) void* malloc(size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

namespace {

using osal::MediaMeta;
using osal::MediaParam;
using osal::Thread;

// Large enough that rare work, such as growing, has its share in each operation.
constexpr uint64_t TIMES = 500;
constexpr const char* TEXT = "audio/mpeg; version=4";

void Require(bool isRight)
{
    if (!isRight) {
        _exit(1);
    }
}

uint64_t allocationsBefore = 0;

void Begin()
{
    allocationsBefore = allocations;
    CALLGRIND_ZERO_STATS;
}

// Prints name, times and allocations; callgrind writes the instructions to a file under the same name.
void End(const std::string& name, uint64_t times)
{
    CALLGRIND_DUMP_STATS_AT(name.c_str());
    std::printf("%s %lu %lu\n", name.c_str(), times, allocations - allocationsBefore);
    std::fflush(stdout);
}

template <typename Measure>
void Operation(const std::string& name, Measure measure)
{
    const pid_t child = fork();
    if (child == 0) {
        measure();
        _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
        std::fprintf(stderr, "guard: wrong result of %s\n", name.c_str());
        std::exit(1);
    }
}

// Counts `work`, done TIMES times with what `make` returns.
template <typename Make, typename Work>
void CountEach(const std::string& name, Make make, Work work)
{
    Operation(name, [&] {
        auto subject = make();
        Begin();
        for (uint64_t i = 0; i < TIMES; ++i) {
            Require(work(subject, i));
        }
        End(name, TIMES);
    });
}

// Shuffled, and too long for the short form of a std::string, which ends at 15 characters.
const std::vector<std::string> KEYS = [] {
    std::vector<std::string> keys;
    for (uint64_t i = 0; i < TIMES; ++i) {
        keys.push_back("key-of-many-characters-" + std::to_string(1'000 + i * 617 % TIMES));
    }
    return keys;
}();

// 16 entries, of types that a parcel carries.
std::shared_ptr<MediaMeta> MakeFull()
{
    auto meta = MediaMeta::Create();
    for (uint64_t i = 0; i < 15; i += 3) {
        meta->SetInt32(KEYS[i].c_str(), 1);
        meta->SetFraction(KEYS[i + 1].c_str(), 30'000, 1'001);
        meta->SetString(KEYS[i + 2].c_str(), TEXT);
    }
    meta->SetInt32("sample-rate", 48'000);
    return meta;
}

template <typename T, typename Set>
void CountType(const std::string& type, bool (MediaMeta::*get)(const char*, T&) const, Set set)
{
    CountEach("meta.set_new." + type, MediaMeta::Create,
              [&](auto& meta, uint64_t i) { return set(*meta, KEYS[i].c_str(), i); });
    const auto known = [&](const std::string& operation, const char* key, auto work) {
        const auto make = [&] {
            auto meta = MakeFull();
            set(*meta, key, 1);
            return meta;
        };
        CountEach(operation + type, make, [&](auto& meta, uint64_t i) { return work(*meta, key, i); });
    };
    const auto read = [get](auto& meta, auto* key, uint64_t) {
        T value{};
        return (meta.*get)(key, value);
    };
    known("meta.set.", "known-key", set);
    known("meta.get.", "known-key", read);
    known("meta.get_long_key.", "known-key-of-many-characters", read);
}

void CountTypes()
{
    const auto object = std::make_shared<MediaMeta::MetaBase>();
    std::array<uint8_t, 64> block{};
    const auto setInt32 = [](auto& meta, auto* key, uint64_t) { return meta.SetInt32(key, 1); };
    const auto setFraction = [](auto& meta, auto* key, uint64_t) { return meta.SetFraction(key, 30'000, 1'001); };
    const auto setRect = [](auto& meta, auto* key, uint64_t) { return meta.SetRect(key, 0, 0, 1'920, 1'080); };
    const auto setString = [](auto& meta, auto* key, uint64_t i) { return meta.SetString(key, TEXT + i % 2); };
    const auto setBlock = [&](auto& meta, auto* key, uint64_t) { return meta.SetByteBuffer(key, &block[0], 64); };
    const auto setObject = [&](auto& meta, auto* key, uint64_t) { return meta.SetObject(key, object); };
    CountType<int32_t>("int32", &MediaMeta::GetInt32, setInt32);
    CountType<MediaMeta::Fraction>("fraction", &MediaMeta::GetFraction, setFraction);
    CountType<MediaMeta::Rect>("rect", &MediaMeta::GetRect, setRect);
    CountType<const char*>("string", &MediaMeta::GetString, setString);
    CountType<MediaMeta::ByteBuffer>("byte_buffer", &MediaMeta::GetByteBuffer, setBlock);
    CountType<std::shared_ptr<MediaMeta::MetaBase>>("object", &MediaMeta::GetObject, setObject);
}

void CountMeta()
{
    struct Round {
        std::shared_ptr<MediaMeta> mFull = MakeFull();
        std::shared_ptr<MediaMeta> mCopy;
        MediaMeta mEmpty;
        MediaParam mParam;
        MediaParam mFullParam;
    };
    const auto whole = [](const char* name, auto work) {
        const auto make = [] {
            std::vector<Round> rounds(TIMES);
            for (Round& round : rounds) {
                round.mFull->WriteToMediaParam(&round.mFullParam);
            }
            return rounds;
        };
        CountEach(name, make, [&](auto& rounds, uint64_t i) { return work(rounds[i]); });
    };
    whole("meta.copy", [](Round& round) { return (round.mCopy = round.mFull->Copy()) != nullptr; });
    whole("meta.merge", [](Round& round) { return round.mEmpty.Merge(round.mFull); });
    whole("meta.walk", [](Round& round) {
        int32_t types = 0;
        for (auto it = round.mFull->Begin(); it != round.mFull->End(); ++it) {
            types += it.Value()->mType;
        }
        return types > 16;
    });
    whole("meta.release", [](Round& round) { return (round.mFull = nullptr) == nullptr; });
    whole("meta.to_parcel", [](Round& round) { return round.mFull->WriteToMediaParam(&round.mParam); });
    whole("meta.from_parcel", [](Round& round) { return round.mEmpty.ReadFromMediaParam(&round.mFullParam); });
}

template <typename Write, typename Read>
void CountParam(const std::string& type, Write write, Read read)
{
    const auto make = [] { return std::make_unique<MediaParam>(); };
    const auto makeFull = [&] {
        auto param = make();
        for (uint64_t i = 0; i < TIMES; ++i) {
            write(*param);
        }
        return param;
    };
    CountEach("param.write." + type, make, [&](auto& param, uint64_t) { return write(*param) == 0; });
    CountEach("param.read." + type, makeFull, [&](auto& param, uint64_t) { return read(*param); });
    CountEach("param.copy." + type, makeFull, [&](auto& param, uint64_t) {
        MediaParam copy = *param;
        return read(copy);
    });
}

void CountParams()
{
    const auto object = std::make_shared<osal::MediaRefBase>();
    const auto readInt32 = [](auto& param) { return param.ReadInt32() == 1; };
    const auto readInt64 = [](auto& param) { return param.ReadInt64() == 1; };
    const auto readString = [](auto& param) { return param.ReadString()[0] == TEXT[0]; };
    const auto readPointer = [&](auto& param) { return param.ReadPointer() == object; };
    CountParam(
        "int32", [](auto& param) { return param.WriteInt32(1); }, readInt32);
    CountParam(
        "int64", [](auto& param) { return param.WriteInt64(1); }, readInt64);
    CountParam(
        "string", [](auto& param) { return param.WriteString(TEXT); }, readString);
    CountParam(
        "pointer", [&](auto& param) { return param.WritePointer(object); }, readPointer);
}

struct ParkedQueue : osal::MsgQueue {
    ParkedQueue()
    {
        Start("guard", Thread::PRIORITY_DEFAULT);
        mParker.Park(*this);
    }
    ~ParkedQueue() override
    {
        mParker.Release();
        Stop();
    }
    void Post(bench::Task* task) { QueueMsg(task, 0); }

    bench::Parker<ParkedQueue> mParker;
};

// `delayNs` is the delay of a message by its number.
void CountQueue(const std::string& name, uint64_t (*delayNs)(uint64_t index))
{
    bench::Task others, removed;
    const auto post = [&](auto& queue, uint64_t i) { return queue->QueueMsg(&others, delayNs(i)) == 0; };
    const auto make = [&] {
        auto queue = std::make_unique<ParkedQueue>();
        for (uint64_t i = 0; i < TIMES; ++i) {
            post(queue, i);
        }
        queue->RemoveMsg(&others);  // the memory for the messages has been requested once
        return queue;
    };
    CountEach("queue.queue." + name, make, post);
    Operation("queue.remove." + name, [&] {
        ParkedQueue queue;
        for (uint64_t i = 0; i < TIMES; ++i) {
            queue.QueueMsg(i == TIMES / 2 ? &removed : &others, delayNs(i));
        }
        Begin();
        queue.RemoveMsg(&removed);
        End("queue.remove." + name, TIMES);
    });
}

// On the worker, from the end of one message to the end of another one.
void CountRun(const std::string& name, uint64_t delayNs)
{
    Operation(name, [&] {
        bench::Event done;
        bench::Call first([] { Begin(); });
        bench::Task others;
        bench::Call last([&] {
            End(name, TIMES);
            done.Set();
        });
        ParkedQueue queue;
        for (uint64_t i = 0; i <= TIMES; ++i) {
            queue.QueueMsg(i == 0 ? &first : i == TIMES ? &last : &others, delayNs);
        }
        queue.mParker.Release();
        done.Wait();
    });
}

// A message at a time to a worker that waits for it.
void CountFreeWorker()
{
    Operation("queue.free_worker", [] {
        bench::Event done;
        bench::Call message([&] { done.Set(); });
        ParkedQueue queue;
        queue.mParker.Release();
        const auto post = [&] {
            queue.QueueMsg(&message, 0);
            done.Wait();
        };
        post();
        Begin();
        for (uint64_t i = 0; i < TIMES; ++i) {
            post();
        }
        End("queue.free_worker", TIMES);
    });
}

// On the worker, a message that queues itself again, among others that do. All are due before the worker looks.
void CountTimers()
{
    Operation("queue.timers", [] {
        constexpr uint64_t TIMERS = 16;
        bench::Event done;
        ParkedQueue queue;
        uint64_t runs = 0;
        std::vector<bench::Call> timers;
        for (uint64_t i = 0; i < TIMERS; ++i) {
            timers.emplace_back([&, i] {
                if (++runs == TIMES) {
                    Begin();
                } else if (runs == 2 * TIMES) {
                    End("queue.timers", TIMES);
                    done.Set();
                }
                queue.QueueMsg(&timers[i], 1);
            });
        }
        for (bench::Call& timer : timers) {
            queue.QueueMsg(&timer, 1);
        }
        queue.mParker.Release();
        done.Wait();
        queue.Stop();
    });
}

struct Once : Thread {
    ~Once() override { Stop(); }
    bool Run() override
    {
        mRan.Set();
        return false;
    }
    bench::Event mRan;
};

void CountThread()
{
    Operation("thread.start_stop", [] {
        Once thread;
        Begin();
        Require(thread.Start("guard", Thread::PRIORITY_DEFAULT) == 0);
        End("thread.start", 1);
        thread.mRan.Wait();
        Begin();
        thread.Stop();
        End("thread.stop", 1);
    });
}

}  // namespace

int main()
{
    constexpr uint64_t MINUTE_NS = 60'000'000'000;
    CountTypes();
    CountMeta();
    CountParams();
    CountQueue("at_once", [](uint64_t) -> uint64_t { return 0; });
    // Each message has a due time of its own, far from the others: the order does not depend on the clock.
    CountQueue("in_order", [](uint64_t i) { return (i + 1) * MINUTE_NS; });
    CountQueue("shuffled", [](uint64_t i) { return (i * 617 % TIMES + 1) * MINUTE_NS; });
    CountRun("queue.run.at_once", 0);
    CountRun("queue.run.delayed", 1);  // due before the worker looks
    CountTimers();
    for (int i = 0; i < 10; ++i) {  // another thread may hold a lock that is needed: the script takes the least
        CountFreeWorker();
        CountThread();
    }
    CountEach(
        "clock.boot", [] { return 0; }, [](int, uint64_t) { return osal::GetTimeUsBoot() > 0; });
    return 0;
}
