// Operations of the library, one after another, for scripts/bench_guard.sh to count: instructions as callgrind
// sees them, and allocations. Counts do not depend on what else the machine does, as times do.
//
// Each operation has a process of its own, forked from one that has used nothing yet: what one leaves on the heap
// does not change the counts of the next. Only the thread that measures is counted.

#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "osal/msg_queue.h"
#include "osal/thread.h"
#include "osal/utils.h"

#include <array>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <sys/wait.h>
#include <tuple>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <valgrind/callgrind.h>
#include <vector>

// Takes the place of the library's own, so that its output is not part of what is counted.
extern "C" __attribute__((visibility("default"), format(printf, 3, 4))) int __android_log_print(int prio,
                                                                                                const char* tag,
                                                                                                const char* fmt,
                                                                                                ...);
int __android_log_print(int, const char*, const char*, ...)
{
    return 0;
}

namespace {

thread_local uint64_t allocations = 0;

}  // namespace

extern "C" void* __libc_malloc(size_t size);

// Takes the place of the system's, for all libraries alike.
extern "C" __attribute__((visibility("default"))) void* malloc(size_t size)
{
    ++allocations;
    return __libc_malloc(size);
}

namespace {

using osal::MediaMeta;
using osal::MediaParam;

// Prints the name, how often the operation is done, and its allocations; callgrind writes the instructions to a
// file of its own, under the same name.
class Count {
public:
    explicit Count(const char* name) : mName(name) {}

    void Begin()
    {
        mAllocationsBefore = allocations;
        CALLGRIND_ZERO_STATS;
    }
    void End(uint64_t times)
    {
        CALLGRIND_DUMP_STATS_AT(mName);
        std::printf("%s %llu %llu\n", mName, static_cast<unsigned long long>(times),
                    static_cast<unsigned long long>(allocations - mAllocationsBefore));
        std::fflush(stdout);
    }
    template <typename Work>
    void Run(uint64_t times, Work work)
    {
        Begin();
        for (uint64_t i = 0; i < times; ++i) {
            work(i);
        }
        End(times);
    }

private:
    const char* mName;
    uint64_t mAllocationsBefore = 0;
};

void Require(bool isRight, const char* what)
{
    if (!isRight) {
        std::fprintf(stderr, "guard: wrong result: %s\n", what);
        _exit(1);
    }
}

// Enough for what happens once in a while, such as growing, to have its share in each operation.
constexpr uint64_t TIMES = 500;

// Of one length, too long for the short form of a std::string; SHORT_KEY is not.
std::vector<std::string> Keys(uint64_t count)
{
    std::vector<std::string> keys;
    for (uint64_t i = 0; i < count; ++i) {
        keys.push_back("key-of-many-characters-" + std::to_string(1000 + i * 617 % count));
    }
    return keys;
}

constexpr const char* SHORT_KEY = "sample-rate";
constexpr const char* TEXT = "audio/mpeg; version=4";
std::array<uint8_t, 64> block{};
const auto object = std::make_shared<MediaMeta::MetaBase>();
const auto reference = std::make_shared<osal::MediaRefBase>();

using Set = bool (*)(MediaMeta&, const char*, uint64_t);
bool SetInt32(MediaMeta& meta, const char* key, uint64_t round)
{
    return meta.SetInt32(key, static_cast<int32_t>(round));
}
bool SetFraction(MediaMeta& meta, const char* key, uint64_t)
{
    return meta.SetFraction(key, 30'000, 1'001);
}
bool SetRect(MediaMeta& meta, const char* key, uint64_t)
{
    return meta.SetRect(key, 0, 0, 1'920, 1'080);
}
bool SetString(MediaMeta& meta, const char* key, uint64_t round)
{
    return meta.SetString(key, TEXT + round % 2);
}
bool SetByteBuffer(MediaMeta& meta, const char* key, uint64_t)
{
    return meta.SetByteBuffer(key, block.data(), block.size());
}
bool SetObject(MediaMeta& meta, const char* key, uint64_t)
{
    return meta.SetObject(key, object);
}

template <Set SET>
void SetNew(Count count)
{
    const auto keys = Keys(TIMES);
    MediaMeta meta;
    count.Run(TIMES, [&](uint64_t i) { SET(meta, keys[i].c_str(), i); });
    Require(meta.ContainsKey(keys.back().c_str()), "a key that was set");
}

// Among 16 entries. The name of the other one is short.
template <Set SET>
void SetKnown(Count count)
{
    const auto keys = Keys(15);
    MediaMeta meta;
    for (const std::string& key : keys) {
        meta.SetInt32(key.c_str(), 0);
    }
    SET(meta, SHORT_KEY, 1);
    count.Run(TIMES, [&](uint64_t i) { Require(SET(meta, SHORT_KEY, i), "setting"); });
}

// As SetKnown(), for a getter; its outputs are of the types OUT.
template <Set SET, typename... Out>
auto Get(bool (MediaMeta::*getter)(const char*, Out&...) const, const char* key = SHORT_KEY)
{
    return [getter, key](Count count) {
        MediaMeta meta;
        for (const std::string& other : Keys(15)) {
            meta.SetInt32(other.c_str(), 0);
        }
        SET(meta, key, 0);
        std::tuple<Out...> values;
        count.Run(TIMES, [&](uint64_t) {
            Require(std::apply([&](Out&... out) { return (meta.*getter)(key, out...); }, values), "reading");
        });
    };
}

// 16 entries: of each type that a parcel carries, in turn.
void Fill(MediaMeta& meta, const std::vector<std::string>& keys)
{
    for (uint64_t i = 0; i < keys.size(); ++i) {
        std::array<Set, 4>{SetInt32, SetFraction, SetRect, SetString}[i % 4](meta, keys[i].c_str(), 0);
    }
}

void Copy(Count count)
{
    MediaMeta meta;
    Fill(meta, Keys(16));
    std::vector<std::shared_ptr<MediaMeta>> copies(TIMES);
    count.Run(TIMES, [&](uint64_t i) { copies[i] = meta.Copy(); });
}

void Merge(Count count)
{
    const auto source = MediaMeta::Create();
    Fill(*source, Keys(16));
    std::vector<MediaMeta> targets(TIMES);
    count.Run(TIMES, [&](uint64_t i) { Require(targets[i].Merge(source), "merging"); });
}

void Walk(Count count)
{
    MediaMeta meta;
    Fill(meta, Keys(16));
    uint64_t sizes = 0;
    count.Run(TIMES, [&](uint64_t) {
        for (auto it = meta.Begin(); it != meta.End(); ++it) {
            sizes += it.Key().size() + static_cast<uint64_t>(it.Value()->mType);
        }
    });
    Require(sizes > TIMES * 16, "walking");
}

void Release(Count count)
{
    std::vector<std::shared_ptr<MediaMeta>> containers;
    for (uint64_t i = 0; i < TIMES; ++i) {
        containers.push_back(MediaMeta::Create());
        Fill(*containers.back(), Keys(16));
    }
    count.Run(TIMES, [&](uint64_t i) { containers[i].reset(); });
}

void MetaFromParcel(Count count)
{
    const auto keys = Keys(16);
    MediaMeta meta;
    Fill(meta, keys);
    std::vector<MediaParam> params(TIMES);
    for (MediaParam& param : params) {
        meta.WriteToMediaParam(&param);
    }
    std::vector<MediaMeta> copies(TIMES);
    count.Run(TIMES, [&](uint64_t i) { copies[i].ReadFromMediaParam(&params[i]); });
    Require(copies.back().ContainsKey(keys.back().c_str()), "a key that came from a parcel");
}

void MetaToParcel(Count count)
{
    MediaMeta meta;
    Fill(meta, Keys(16));
    std::vector<MediaParam> params(TIMES);
    count.Run(TIMES, [&](uint64_t i) { Require(meta.WriteToMediaParam(&params[i]), "writing a container"); });
}

template <typename T>
auto ParcelWrite(int32_t (MediaParam::*write)(T), std::decay_t<T> value)
{
    return [write, value](Count count) {
        MediaParam param;
        count.Run(TIMES, [&](uint64_t) { Require((param.*write)(value) == 0, "writing"); });
    };
}
template <typename T>
bool IsSame(const T& left, const T& right)
{
    return left == right;
}
bool IsSame(const char* left, const char* right)
{
    return std::strcmp(left, right) == 0;
}
template <typename T, typename Read>
auto ParcelRead(int32_t (MediaParam::*write)(T), std::decay_t<T> value, Read (MediaParam::*read)() const)
{
    return [write, value, read](Count count) {
        MediaParam param;
        for (uint64_t i = 0; i < TIMES; ++i) {
            (param.*write)(value);
        }
        count.Run(TIMES, [&](uint64_t) { Require(IsSame((param.*read)(), Read(value)), "reading"); });
    };
}

void ParcelCopy(Count count)
{
    MediaParam param;
    for (int32_t i = 0; i < 2'000; ++i) {
        param.WriteInt32(i);
    }
    count.Run(TIMES, [&](uint64_t) { Require(MediaParam(param).ReadInt64() == int64_t{1} << 32, "copying"); });
}

// A handler that does what it is given.
class Handler : public osal::IMsgHandler {
public:
    explicit Handler(std::function<void()> work = [] {}) : mWork(std::move(work)) {}
    void HandleMsg(int32_t&) override { mWork(); }
    void Wait() override {}
    void NotifyFinished() override {}

private:
    std::function<void()> mWork;
};

class Event {
public:
    void Set()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSet = true;
        mCond.notify_all();
    }
    void Wait()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mCond.wait(lock, [this] { return mSet; });
    }

private:
    std::mutex mMutex;  // guards mSet
    std::condition_variable mCond;
    bool mSet = false;
};

// A queue whose worker is held in a handler until Release(), and again until the end.
class ParkedQueue {
public:
    ParkedQueue()
    {
        mQueue.Start("guard", osal::Thread::PRIORITY_DEFAULT);
        mQueue.QueueMsg(&mParker, 0);
        mParked.Wait();
    }
    ~ParkedQueue()
    {
        mRelease.Set();
        mQueue.Stop();
    }
    osal::MsgQueue& operator*() { return mQueue; }
    void Release() { mRelease.Set(); }

private:
    Event mParked;
    Event mRelease;
    Handler mParker{[this] {
        mParked.Set();
        mRelease.Wait();
    }};
    osal::MsgQueue mQueue;
};

constexpr uint64_t MINUTE_NS = 60'000'000'000;

using DelayNs = uint64_t (*)(uint64_t index);
uint64_t AtOnce(uint64_t)
{
    return 0;
}
// Of the next two each message has a due time of its own, far from the others: the order does not depend on the
// clock, and none is due.
uint64_t InOrder(uint64_t index)
{
    return (index + 1) * MINUTE_NS;
}
uint64_t InNoOrder(uint64_t index)
{
    return (index * 617 % TIMES + 1) * MINUTE_NS;
}
// Past as soon as the worker looks.
uint64_t Soon(uint64_t)
{
    return 1;
}

template <DelayNs DELAY_NS>
void QueueInto(Count count)
{
    Handler handler;
    ParkedQueue queue;
    count.Run(TIMES, [&](uint64_t i) { (*queue).QueueMsg(&handler, DELAY_NS(i)); });
}

// On the worker, from the end of one message to the end of another one.
template <DelayNs DELAY_NS>
void RunQueued(Count count)
{
    Event done;
    Handler first([&] { count.Begin(); });
    Handler handler;
    Handler last([&] {
        count.End(TIMES);
        done.Set();
    });
    ParkedQueue queue;
    (*queue).QueueMsg(&first, DELAY_NS(0));
    for (uint64_t i = 1; i < TIMES; ++i) {
        (*queue).QueueMsg(&handler, DELAY_NS(i));
    }
    (*queue).QueueMsg(&last, DELAY_NS(0));
    queue.Release();
    done.Wait();
}

template <DelayNs DELAY_NS>
void Remove(Count count)
{
    Handler others;
    Handler removed;
    ParkedQueue queue;
    for (uint64_t i = 0; i < TIMES; ++i) {
        (*queue).QueueMsg(i == TIMES / 2 ? &removed : &others, DELAY_NS(i));
    }
    count.Begin();
    (*queue).RemoveMsg(&removed);
    count.End(TIMES);
}

class Once : public osal::Thread {
public:
    ~Once() override { Stop(); }
    Event mRan;

private:
    bool Run() override
    {
        mRan.Set();
        return false;
    }
};

void Start(Count count)
{
    Once thread;
    count.Begin();
    thread.Start("guard", osal::Thread::PRIORITY_DEFAULT);
    count.End(1);
    thread.mRan.Wait();
}

void Stop(Count count)
{
    Once thread;
    thread.Start("guard", osal::Thread::PRIORITY_DEFAULT);
    thread.mRan.Wait();
    count.Begin();
    thread.Stop();
    count.End(1);
}

struct Operation {
    const char* mName;
    std::function<void(Count)> mMeasure;
};

const std::vector<Operation> OPERATIONS{
    {"meta.set_int32.new", SetNew<SetInt32>},
    {"meta.set_int32.known", SetKnown<SetInt32>},
    {"meta.set_fraction.new", SetNew<SetFraction>},
    {"meta.set_fraction.known", SetKnown<SetFraction>},
    {"meta.set_rect.new", SetNew<SetRect>},
    {"meta.set_rect.known", SetKnown<SetRect>},
    {"meta.set_string.new", SetNew<SetString>},
    {"meta.set_string.known", SetKnown<SetString>},
    {"meta.set_byte_buffer.new", SetNew<SetByteBuffer>},
    {"meta.set_byte_buffer.known", SetKnown<SetByteBuffer>},
    {"meta.set_object.new", SetNew<SetObject>},
    {"meta.set_object.known", SetKnown<SetObject>},
    {"meta.get_int32", Get<SetInt32>(&MediaMeta::GetInt32)},
    {"meta.get_int32.long_key", Get<SetInt32>(&MediaMeta::GetInt32, "sample-rate-of-the-decoder")},
    {"meta.get_fraction", Get<SetFraction, int32_t, int32_t>(&MediaMeta::GetFraction)},
    {"meta.get_rect", Get<SetRect, MediaMeta::Rect>(&MediaMeta::GetRect)},
    {"meta.get_string", Get<SetString>(&MediaMeta::GetString)},
    {"meta.get_byte_buffer", Get<SetByteBuffer, MediaMeta::ByteBuffer>(&MediaMeta::GetByteBuffer)},
    {"meta.get_object", Get<SetObject>(&MediaMeta::GetObject)},
    {"meta.contains_key", Get<SetInt32>(&MediaMeta::ContainsKey)},
    {"meta.copy", Copy},
    {"meta.merge", Merge},
    {"meta.walk", Walk},
    {"meta.release", Release},
    {"meta.to_parcel", MetaToParcel},
    {"meta.from_parcel", MetaFromParcel},
    {"param.write_int32", ParcelWrite(&MediaParam::WriteInt32, 1)},
    {"param.write_int64", ParcelWrite(&MediaParam::WriteInt64, 1)},
    {"param.write_string", ParcelWrite(&MediaParam::WriteString, TEXT)},
    {"param.write_pointer", ParcelWrite(&MediaParam::WritePointer, reference)},
    {"param.read_int32", ParcelRead<int32_t, int32_t>(&MediaParam::WriteInt32, 1, &MediaParam::ReadInt32)},
    {"param.read_int64", ParcelRead<int64_t, int64_t>(&MediaParam::WriteInt64, 1, &MediaParam::ReadInt64)},
    {"param.read_string", ParcelRead(&MediaParam::WriteString, TEXT, &MediaParam::ReadString)},
    {"param.read_pointer", ParcelRead(&MediaParam::WritePointer, reference, &MediaParam::ReadPointer)},
    {"param.copy", ParcelCopy},
    {"queue.post", QueueInto<AtOnce>},
    {"queue.post_delayed.in_order", QueueInto<InOrder>},
    {"queue.post_delayed.in_no_order", QueueInto<InNoOrder>},
    {"queue.run", RunQueued<AtOnce>},
    {"queue.run_delayed", RunQueued<Soon>},
    {"queue.remove", Remove<AtOnce>},
    {"queue.remove_delayed", Remove<InOrder>},
    {"thread.start", Start},
    {"thread.stop", Stop},
    {"clock.boot",
     [](Count count) { count.Run(TIMES, [](uint64_t) { Require(osal::GetTimeUsBoot() > 0, "the clock"); }); }},
};

}  // namespace

int main()
{
    for (const Operation& operation : OPERATIONS) {
        const pid_t child = fork();
        if (child == 0) {
            operation.mMeasure(Count(operation.mName));
            _exit(0);
        }
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
            std::fprintf(stderr, "guard: %s failed\n", operation.mName);
            return 1;
        }
    }
    return 0;
}
