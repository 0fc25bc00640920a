// A thread that works step by step and blocks in between.

#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <osal/thread.h>
#include <pthread.h>
#include <string>

namespace {

class Decoder : public osal::Thread {
public:
    ~Decoder() override { End(); }  // not later: ~Thread() comes when Run() and its fields are gone

    int32_t Begin(const std::string& name, Priority priority)
    {
        SetEnding(false);
        return Start(name, priority);
    }

    void End()
    {
        SetEnding(true);  // wakes Run(): Stop() does not, and would wait for ever
        Stop();
    }

    void Decode(int packets)
    {
        std::unique_lock<std::mutex> lock(mPacketsMutex);
        mPackets += packets;
        mChanged.notify_all();
        mChanged.wait(lock, [this] { return mPackets == 0; });
    }

private:
    void SetEnding(bool isEnding)
    {
        const std::lock_guard<std::mutex> lock(mPacketsMutex);
        mIsEnding = isEnding;
        mChanged.notify_all();
    }

    bool Run() override  // one packet; called again for the next one
    {
        std::unique_lock<std::mutex> lock(mPacketsMutex);
        mChanged.wait(lock, [this] { return mIsEnding || mPackets > 0; });
        if (mIsEnding) {
            return false;
        }
        char name[16] = "";
        if (pthread_getname_np(pthread_self(), name, sizeof(name)) == 0) {
            std::printf("%s: packet %d\n", name, ++mDecoded);
        }
        --mPackets;
        mChanged.notify_all();
        return true;
    }

    std::mutex mPacketsMutex;  // guards the fields below
    std::condition_variable mChanged;
    int mPackets = 0;  // that wait to be decoded
    int mDecoded = 0;
    bool mIsEnding = false;
};

}  // namespace

int main()
{
    Decoder decoder;
    // Without the right to real-time scheduling the worker runs all the same, after a warning in the log.
    if (decoder.Begin("video-decoder", osal::Thread::PRIORITY_DEFAULT) != 0) {
        return 1;
    }
    decoder.Decode(/*packets=*/2);
    const bool isRefused = decoder.Start("second", osal::Thread::PRIORITY_DEFAULT) == -EEXIST;
    std::printf("a second worker: %s\n", isRefused ? "refused" : "started");
    decoder.End();
    std::printf("id after the end: %d\n", decoder.GetId());

    // The same object, and all that it holds, with a new worker.
    if (decoder.Begin("thumbnailer", osal::Thread::PRIORITY_MIN) != 0) {
        return 1;
    }
    decoder.Decode(/*packets=*/1);
    return 0;
}
