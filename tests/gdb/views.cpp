// Objects in every state that the pretty-printers of GDB distinguish. GDB stops the program in AllSet().

#include "../system.h"

#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <osal/msg_queue.h>
#include <osal/thread.h>
#include <thread>

namespace {

struct Image : osal::MediaMeta::MetaBase, osal::MediaRefBase {};

struct Frame : osal::MsgHandlerBase {
    void HandleMsg(int32_t& /*arg*/) override { std::this_thread::sleep_for(std::chrono::milliseconds(30)); }
};

struct Decoder : osal::Thread {
    bool Run() override
    {
        std::this_thread::sleep_for(std::chrono::seconds(1));
        return false;
    }
    int mWidth = 1920;
};

}  // namespace

// The breakpoint. Without GDB the program fails, because the simulation ends while other threads live.
void AllSet() {}

int main()
{
    const Simulation simulation;
    const auto meta = osal::MediaMeta::Create();
    uint8_t garbage[512];
    std::memset(garbage, 0xa5, sizeof(garbage));
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
    meta->SetByteBuffer("block", garbage, 4);
    meta->SetByteBuffer("block, long", garbage, 100);
    meta->SetFraction("fraction", 30000, 1001);
    meta->SetRect("rect", 1, -2, 3, -4);
    meta->SetObject("object", std::make_shared<Image>());
    meta->SetObject("object, null", nullptr);
    const auto first = meta->Begin();
    const auto end = meta->End();
    const auto text = first.Value();
    const std::shared_ptr<osal::MediaMeta::MetaItem> nothing;
    const auto unknown = osal::MediaMeta::MetaItem::Create();
    unknown->mType = static_cast<osal::MetaType>(99);
    const auto noValue = osal::MediaMeta::MetaItem::Create();

    osal::MediaMeta inHex;
    inHex.SetInt8("int8", -7);
    inHex.SetFraction("fraction", 30000, 1001);

    osal::MediaParam param;
    param.WriteInt32(1);
    param.WriteInt64(0x1122334455667788);
    param.WriteString("read");
    param.WriteString("unread");
    param.WritePointer(std::make_shared<Image>());
    param.WritePointer(nullptr);
    param.ReadInt32();
    param.ReadString();

    const Decoder unused;
    Decoder ended;
    ended.Start("prober", osal::Thread::PRIORITY_MIN);
    std::this_thread::sleep_for(std::chrono::seconds(2));
    while (std::filesystem::exists("/proc/self/task/" + std::to_string(ended.GetId()))) {
        std::this_thread::yield();  // in real time: the simulation does not see when the system removes the thread
    }

    Frame frame;
    osal::MsgQueue queue;
    queue.Start("presenter", osal::Thread::PRIORITY_MIN);
    for (const uint64_t delayMs : std::initializer_list<uint64_t>{0, 10, 10, 20, 3'600'000, 3'600'000}) {
        queue.QueueMsg(&frame, delayMs * 1'000'000);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(45));  // at 30 ms, the second message starts to run

    // From here on, time stands still.
    const osal::MsgQueue stoppedQueue;
    osal::MsgQueue stoppingQueue;
    stoppingQueue.Start("mixer", osal::Thread::PRIORITY_MIN);
    stoppingQueue.QueueMsg(&frame, 0);
    stoppingQueue.QueueMsg(&frame, 0);
    Simulation::LetOthersRun();
    std::thread([&] { stoppingQueue.Stop(); }).detach();
    Decoder running;
    running.Start("video-decoder", osal::Thread::PRIORITY_MIN);
    Simulation::LetOthersRun();
    Decoder starting;
    starting.Start("splitter", osal::Thread::PRIORITY_MIN);  // the worker would run when this thread waits
    AllSet();
}
