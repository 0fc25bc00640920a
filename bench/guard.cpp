// Operations of the library, one after another, for scripts/bench_guard.sh to count: instructions as callgrind
// sees them, and allocations. Counts do not depend on what else the machine does, as times do.
//
// Each operation has a process of its own, forked from one that has used nothing yet: what one leaves on the heap
// does not change the counts of the next. Only the thread that measures is counted.

#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "osal/thread.h"
#include "osal/utils.h"
#include "queue_rows.h"

#include <cstdlib>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>
#include <valgrind/callgrind.h>

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

using bench::Call;
using bench::Event;
using osal::MediaMeta;
using osal::MediaParam;

// Enough for what happens once in a while, such as growing, to have its share in each operation.
constexpr uint64_t TIMES = 500;

void Require(bool isRight)
{
    if (!isRight) {
        _exit(1);
    }
}

// Prints the name, how often the operation is done, and its allocations; callgrind writes the instructions to a
// file of its own, under the same name.
class Count {
public:
    explicit Count(std::string name) : mName(std::move(name)) {}

    void Begin()
    {
        mBefore = allocations;
        CALLGRIND_ZERO_STATS;
    }
    void End(uint64_t times)
    {
        CALLGRIND_DUMP_STATS_AT(mName.c_str());
        std::printf("%s %lu %lu\n", mName.c_str(), times, allocations - mBefore);
        std::fflush(stdout);
    }
    template <typename Work>
    void Each(Work work)
    {
        Begin();
        for (uint64_t i = 0; i < TIMES; ++i) {
            work(i);
        }
        End(TIMES);
    }

private:
    const std::string mName;
    uint64_t mBefore = 0;
};

template <typename Measure>
void Operation(const std::string& name, Measure measure)
{
    const pid_t child = fork();
    if (child == 0) {
        measure(Count(name));
        _exit(0);
    }
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child || status != 0) {
        std::fprintf(stderr, "guard: wrong result of %s\n", name.c_str());
        std::exit(1);
    }
}

constexpr const char* TEXT = "audio/mpeg; version=4";

// One family of setters, with a getter. A key is long or short: the short form of a std::string ends at 15.
struct Family {
    const char* mName;
    bool (*mSet)(MediaMeta& meta, const char* key, uint64_t round);
    bool (*mGet)(const MediaMeta& meta, const char* key);
};

template <typename T>
bool Get(const MediaMeta& meta, bool (MediaMeta::*get)(const char*, T&) const, const char* key)
{
    T value{};
    return (meta.*get)(key, value);
}

const std::array<Family, 6> FAMILIES{{
    {"int32", [](auto& meta, auto* key, auto i) { return meta.SetInt32(key, static_cast<int32_t>(i)); },
     [](auto& meta, auto* key) { return Get(meta, &MediaMeta::GetInt32, key); }},
    {"fraction", [](auto& meta, auto* key, auto) { return meta.SetFraction(key, 30'000, 1'001); },
     [](auto& meta, auto* key) { return Get<MediaMeta::Fraction>(meta, &MediaMeta::GetFraction, key); }},
    {"rect", [](auto& meta, auto* key, auto) { return meta.SetRect(key, 0, 0, 1'920, 1'080); },
     [](auto& meta, auto* key) { return Get<MediaMeta::Rect>(meta, &MediaMeta::GetRect, key); }},
    {"string", [](auto& meta, auto* key, auto i) { return meta.SetString(key, TEXT + i % 2); },
     [](auto& meta, auto* key) { return Get(meta, &MediaMeta::GetString, key); }},
    {"byte_buffer",
     [](auto& meta, auto* key, auto) {
         std::array<uint8_t, 64> block{};
         return meta.SetByteBuffer(key, block.data(), block.size());
     },
     [](auto& meta, auto* key) { return Get<MediaMeta::ByteBuffer>(meta, &MediaMeta::GetByteBuffer, key); }},
    {"object",
     [](auto& meta, auto* key, auto) {
         static const auto object = std::make_shared<MediaMeta::MetaBase>();
         return meta.SetObject(key, object);
     },
     [](auto& meta, auto* key) { return Get(meta, &MediaMeta::GetObject, key); }},
}};

std::vector<std::string> LongKeys(uint64_t count)
{
    std::vector<std::string> keys;
    for (uint64_t i = 0; i < count; ++i) {
        keys.push_back("key-of-many-characters-" + std::to_string(1'000 + i * 617 % count));
    }
    return keys;
}

// 16 entries, of the families that a parcel carries.
void Fill(MediaMeta& meta)
{
    const auto keys = LongKeys(15);
    for (uint64_t i = 0; i < keys.size(); ++i) {
        FAMILIES[i % 4].mSet(meta, keys[i].c_str(), i);
    }
    meta.SetInt32("sample-rate", 48'000);
}

void CountFamily(const Family& family)
{
    const auto ofKey = [&family](const std::string& name, const std::string& key, auto work) {
        Operation(name + family.mName, [&](Count count) {
            MediaMeta meta;
            Fill(meta);
            family.mSet(meta, key.c_str(), 1);
            count.Each([&](uint64_t i) { Require(work(meta, key.c_str(), i)); });
        });
    };
    Operation(std::string("meta.set_new.") + family.mName, [&](Count count) {
        const auto keys = LongKeys(TIMES);
        MediaMeta meta;
        count.Each([&](uint64_t i) { Require(family.mSet(meta, keys[i].c_str(), i)); });
    });
    ofKey("meta.set.", "known-key", family.mSet);
    const auto get = [&](auto& meta, auto* key, uint64_t) { return family.mGet(meta, key); };
    ofKey("meta.get.", "known-key", get);
    ofKey("meta.get_long_key.", "known-key-of-many-characters", get);
}

void CountMeta()
{
    // `work` is given a container of its own in each round, which is full, an empty one, and an empty parcel.
    const auto whole = [](const char* name, auto work) {
        Operation(name, [work](Count count) {
            std::vector<std::shared_ptr<MediaMeta>> full(TIMES);
            for (auto& meta : full) {
                meta = MediaMeta::Create();
                Fill(*meta);
            }
            std::vector<MediaMeta> empty(TIMES);
            std::vector<MediaParam> params(TIMES);
            full[0]->WriteToMediaParam(&params[0]);
            count.Each([&](uint64_t i) { Require(work(full[i], empty[i], params[i])); });
        });
    };
    std::vector<std::shared_ptr<MediaMeta>> copies;
    copies.reserve(TIMES);
    whole("meta.copy", [&](auto& full, auto&, auto&) { return copies.emplace_back(full->Copy()) != nullptr; });
    whole("meta.merge", [](auto& full, auto& empty, auto&) { return empty.Merge(full); });
    whole("meta.walk", [](auto& full, auto&, auto&) {
        int32_t types = 0;
        for (auto it = full->Begin(); it != full->End(); ++it) {
            types += it.Value()->mType;
        }
        return types > 16;
    });
    whole("meta.release", [](auto& full, auto&, auto&) {
        full.reset();
        return true;
    });
    whole("meta.to_parcel", [](auto& full, auto&, auto& param) { return full->WriteToMediaParam(&param); });
    Operation("meta.from_parcel", [](Count count) {
        MediaMeta meta;
        Fill(meta);
        std::vector<MediaMeta> empty(TIMES);
        std::vector<MediaParam> params(TIMES);
        for (MediaParam& param : params) {
            meta.WriteToMediaParam(&param);
        }
        count.Each([&](uint64_t i) { Require(empty[i].ReadFromMediaParam(&params[i])); });
    });
}

void CountParam()
{
    const auto object = std::make_shared<osal::MediaRefBase>();
    const auto count = [](const std::string& type, auto write, auto read) {
        Operation("param.write." + type, [write](Count counted) {
            MediaParam param;
            counted.Each([&](uint64_t) { Require(write(param) == 0); });
        });
        Operation("param.read." + type, [write, read](Count counted) {
            MediaParam param;
            for (uint64_t i = 0; i < TIMES; ++i) {
                write(param);
            }
            counted.Each([&](uint64_t) { Require(read(param)); });
        });
    };
    count(
        "int32", [](auto& param) { return param.WriteInt32(1); },
        [](auto& param) { return param.ReadInt32() == 1; });
    count(
        "int64", [](auto& param) { return param.WriteInt64(1); },
        [](auto& param) { return param.ReadInt64() == 1; });
    count(
        "string", [](auto& param) { return param.WriteString(TEXT); },
        [](auto& param) { return param.ReadString()[0] == TEXT[0]; });
    count(
        "pointer", [&](auto& param) { return param.WritePointer(object); },
        [&](auto& param) { return param.ReadPointer() == object; });
    Operation("param.copy", [](Count counted) {
        MediaParam param;
        param.WriteInt32(1);
        counted.Each([&](uint64_t) { Require(MediaParam(param).ReadInt32() == 1); });
    });
}

// Its worker is parked until Release().
class ParkedQueue : public osal::MsgQueue {
public:
    ParkedQueue()
    {
        Start("guard", osal::Thread::PRIORITY_DEFAULT);
        QueueMsg(&mParker, 0);
        mParked.Wait();
    }
    ~ParkedQueue() override
    {
        Release();
        Stop();
    }
    void Release() { mRelease.Set(); }

private:
    Event mParked;
    Event mRelease;
    Call mParker{[this] {
        mParked.Set();
        mRelease.Wait();
    }};
};

// `delayNs` is the delay of a message by its number.
void CountQueue(const std::string& name, uint64_t (*delayNs)(uint64_t index))
{
    bench::Task others;
    bench::Task removed;
    Operation("queue.queue." + name, [&](Count count) {
        ParkedQueue queue;
        const auto post = [&](uint64_t i) { Require(queue.QueueMsg(&others, delayNs(i)) == 0); };
        for (uint64_t i = 0; i < TIMES; ++i) {
            post(i);
        }
        queue.RemoveMsg(&others);  // from now on the memory for messages is there
        count.Each(post);
    });
    Operation("queue.remove." + name, [&](Count count) {
        ParkedQueue queue;
        for (uint64_t i = 0; i < TIMES; ++i) {
            queue.QueueMsg(i == TIMES / 2 ? &removed : &others, delayNs(i));
        }
        count.Begin();
        queue.RemoveMsg(&removed);
        count.End(TIMES);
    });
}

// On the worker, from the end of one message to the end of another one.
void CountRun(const std::string& name, uint64_t delayNs)
{
    Operation("queue.run." + name, [=](Count count) {
        Event done;
        Call first([&] { count.Begin(); });
        bench::Task others;
        Call last([&] {
            count.End(TIMES);
            done.Set();
        });
        ParkedQueue queue;
        queue.QueueMsg(&first, delayNs);
        for (uint64_t i = 1; i < TIMES; ++i) {
            queue.QueueMsg(&others, delayNs);
        }
        queue.QueueMsg(&last, delayNs);
        queue.Release();
        done.Wait();
    });
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

void CountThread()
{
    Operation("thread.start", [](Count count) {
        Once thread;
        count.Begin();
        Require(thread.Start("guard", osal::Thread::PRIORITY_DEFAULT) == 0);
        count.End(1);
        thread.mRan.Wait();
    });
    Operation("thread.stop", [](Count count) {
        Once thread;
        thread.Start("guard", osal::Thread::PRIORITY_DEFAULT);
        thread.mRan.Wait();
        count.Begin();
        thread.Stop();
        count.End(1);
    });
}

}  // namespace

int main()
{
    constexpr uint64_t MINUTE_NS = 60'000'000'000;
    for (const Family& family : FAMILIES) {
        CountFamily(family);
    }
    CountMeta();
    CountParam();
    CountQueue("at_once", [](uint64_t) -> uint64_t { return 0; });
    // Each message has a due time of its own, far from the others: the order does not depend on the clock.
    CountQueue("in_order", [](uint64_t i) { return (i + 1) * MINUTE_NS; });
    CountQueue("in_no_order", [](uint64_t i) { return (i * 617 % TIMES + 1) * MINUTE_NS; });
    CountRun("at_once", 0);
    CountRun("delayed", 1);  // past as soon as the worker looks
    for (int i = 0; i < 10; ++i) {  // the other thread may be in the way: the script takes the least
        CountThread();
    }
    Operation("clock.boot", [](Count count) { count.Each([](uint64_t) { Require(osal::GetTimeUsBoot() > 0); }); });
    return 0;
}
