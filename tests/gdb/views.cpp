// Objects in every state that the pretty-printers of GDB distinguish. GDB stops the program in AllSet(); without
// GDB the program never ends. The time limit of the test also limits the waits here.

#include <atomic>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <memory>
#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <osal/msg_queue.h>
#include <osal/thread.h>
#include <pthread.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace {

constexpr uint64_t NS_PER_MS = 1'000'000;

std::atomic<int64_t> nowNs{5'000'000'000};
std::atomic<bool> isJoinEndless{false};

[[noreturn]] void WaitForever()
{
    for (;;) {
        pause();
    }
}

struct Frame : osal::MsgHandlerBase {
    void HandleMsg(int32_t& /*arg*/) override {}
};

struct Park : osal::MsgHandlerBase {
    void HandleMsg(int32_t& /*arg*/) override
    {
        NotifyFinished();
        WaitForever();
    }
};

struct Buffer : osal::MediaRefBase {};
struct ColorSpace : osal::MediaMeta::MetaBase {};

struct Decoder : osal::Thread {
    explicit Decoder(bool isEndless) : mIsEndless(isEndless) {}
    bool Run() override { return mIsEndless ? pause() != 0 : false; }
    bool mIsEndless;
};

osal::MsgQueue queue;
Frame frame;
Park park;
Frame joining;

// Queues messages on the worker. When it returns, the clock has passed the first two due times.
struct Fill : osal::MsgHandlerBase {
    void HandleMsg(int32_t& /*arg*/) override
    {
        queue.QueueMsg(&park, 10 * NS_PER_MS);
        queue.QueueMsg(&frame, 10 * NS_PER_MS);
        queue.QueueMsg(&frame, 20 * NS_PER_MS);
        queue.QueueMsg(&frame, 3'600'000 * NS_PER_MS);
        queue.QueueMsg(&park, 3'600'000 * NS_PER_MS);
        nowNs += 30 * NS_PER_MS;
    }
};

}  // namespace

// Replacements for functions of the C library: a clock that does not move, and joins that never return.
extern "C" {

int clock_gettime(clockid_t clock, timespec* time) noexcept
{
    if (clock != CLOCK_MONOTONIC) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    }
    *time = {nowNs / 1'000'000'000, nowNs % 1'000'000'000};
    return 0;
}

int pthread_join(pthread_t thread, void** result)
{
    if (isJoinEndless) {
        joining.NotifyFinished();
        WaitForever();
    }
    return reinterpret_cast<decltype(&pthread_join)>(dlsym(RTLD_NEXT, "pthread_join"))(thread, result);
}
}

// The breakpoint.
void AllSet() {}

int main()
{
    const auto meta = osal::MediaMeta::Create();
    uint8_t block[100] = {0x01, 0x64, 0x00, 0x1f};
    meta->SetInt8("int8", -7);
    meta->SetInt16("int16", -300);
    meta->SetInt32("int32", -70000);
    meta->SetInt64("int64", INT64_MIN);
    meta->SetUint8("uint8", 65);
    meta->SetUint16("uint16", 65535);
    meta->SetUint32("uint32", UINT32_MAX);
    meta->SetUint64("uint64", UINT64_MAX);
    meta->SetFloat("float", 0.5F);
    meta->SetDouble("double", -1.25);
    meta->SetPointer("pointer", reinterpret_cast<void*>(0x1234));
    meta->SetString("text", "a \"quoted\" text\n");
    meta->SetByteBuffer("block", block, 4);
    meta->SetByteBuffer("block, long", block, sizeof(block));
    meta->SetFraction("fraction", 30000, 1001);
    meta->SetRect("rect", 1, -2, 3, -4);
    meta->SetObject("object", std::make_shared<ColorSpace>());
    meta->SetObject("object, null", nullptr);
    const auto text = meta->Begin().Value();
    const std::shared_ptr<osal::MediaMeta::MetaItem> nothing;
    const auto unknown = osal::MediaMeta::MetaItem::Create();
    unknown->mType = static_cast<osal::MetaType>(99);
    const osal::MediaMeta noEntries;
    const auto noValue = osal::MediaMeta::MetaItem::Create();
    const auto noText = osal::MediaMeta::MetaItem::Create();
    noText->mType = osal::META_TYPE_STRING;
    noText->mValue.stringValue = nullptr;

    osal::MediaParam param;
    param.WriteInt32(1);
    param.WriteInt64(0x1122334455667788);
    param.WriteString("read");
    param.WriteString("unread");
    param.WritePointer(std::make_shared<Buffer>());
    param.WritePointer(nullptr);
    param.ReadInt32();
    param.ReadString();
    const osal::MediaParam noParts;
    osal::MediaParam longParam;
    for (int32_t i = 0; i < 100; ++i) {
        longParam.WriteInt32(i);
    }

    Fill fill;
    queue.Start("presenter", osal::Thread::PRIORITY_MIN);
    queue.QueueMsg(&fill, 0);
    park.Wait();

    const Decoder unused(true);
    Decoder running(true);
    running.Start("video-decoder", osal::Thread::PRIORITY_MIN);
    while (running.GetId() == -1) {
        std::this_thread::yield();
    }
    Decoder stopped(false);
    stopped.Start("thumbnailer", osal::Thread::PRIORITY_MIN);
    stopped.Stop();
    Decoder ended(false);
    ended.Start("prober", osal::Thread::PRIORITY_MIN);
    while (ended.GetId() == -1 || syscall(SYS_tgkill, getpid(), ended.GetId(), 0) == 0) {
        std::this_thread::yield();
    }

    using Queue = osal::MsgQueue;
    const Queue stoppedQueue;
    const osal::MsgQueue& stoppedQueueReference = stoppedQueue;
    osal::MsgQueue stoppingQueue;
    Park otherPark;
    stoppingQueue.Start("mixer", osal::Thread::PRIORITY_MIN);
    stoppingQueue.QueueMsg(&otherPark, 0);
    otherPark.Wait();
    stoppingQueue.QueueMsg(&frame, 0);
    isJoinEndless = true;
    std::thread([&stoppingQueue] { stoppingQueue.Stop(); }).detach();
    joining.Wait();

    static_cast<void>(stoppedQueueReference);
    alignas(16) unsigned char garbage[512];
    std::memset(garbage, 0xa5, sizeof(garbage));
    AllSet();
    WaitForever();
}
