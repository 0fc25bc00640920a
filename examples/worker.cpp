// A thread that works in steps and blocks between them.

#include <condition_variable>
#include <cstdio>
#include <mutex>
#include <osal/thread.h>
#include <pthread.h>

//! [thread]
class Decoder : public osal::Thread {
public:
    ~Decoder() override { End(); }  // not later: when ~Thread() runs, Run() and the fields below are gone

    void End()
    {
        {
            const std::lock_guard<std::mutex> lock(mPacketsMutex);
            mIsEnding = true;
        }
        mChanged.notify_all();  // wakes Run(): Stop() does not wake it and would wait forever
        Stop();
        mIsEnding = false;  // for the next Start(); there is no worker now
    }

    void Decode(int packets)  // returns when all packets are decoded
    {
        std::unique_lock<std::mutex> lock(mPacketsMutex);
        mPackets += packets;
        mChanged.notify_all();
        mChanged.wait(lock, [this] { return mPackets == 0; });
    }

private:
    bool Run() override  // decodes one packet; called again for the next one
    {
        std::unique_lock<std::mutex> lock(mPacketsMutex);
        mChanged.wait(lock, [this] { return mIsEnding || mPackets > 0; });
        if (mIsEnding) {
            return false;
        }
        char name[16] = "";
        pthread_getname_np(pthread_self(), name, sizeof(name));
        std::printf("%s: %d to decode\n", name, mPackets--);
        mChanged.notify_all();
        return true;
    }

    std::mutex mPacketsMutex;  // guards the fields below
    std::condition_variable mChanged;
    int mPackets = 0;  // not yet decoded
    bool mIsEnding = false;
};
//! [thread]

int main()
{
    //! [restart]
    Decoder decoder;
    if (decoder.Start("video-decoder", osal::Thread::PRIORITY_DEFAULT) != 0) {
        return 1;
    }
    decoder.Decode(/*packets=*/2);
    decoder.End();
    if (decoder.Start("thumbnailer", osal::Thread::PRIORITY_MIN) != 0) {  // the same object with a new worker
        return 1;
    }
    decoder.Decode(/*packets=*/1);
    //! [restart]
}
