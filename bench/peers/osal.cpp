#include "../peer.h"
#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "osal/thread.h"

namespace bench {

class OsalQueue {
public:
    // No real-time priority: the system refuses it, and the worker keeps the scheduling that the workers of the
    // other queues have, too.
    void Start() { mQueue.Start("bench", static_cast<osal::Thread::Priority>(0)); }
    void Stop() { mQueue.Stop(); }
    void Post(Task* task) { mQueue.QueueMsg(task, 0); }
    void PostDelayed(Task* task, uint64_t delayNs) { mQueue.QueueMsg(task, delayNs); }
    void Remove(Task* task) { mQueue.RemoveMsg(task); }

private:
    osal::MsgQueue mQueue;
};

class OsalContainer {
public:
    explicit OsalContainer(std::shared_ptr<osal::MediaMeta> meta = osal::MediaMeta::Create())
        : mMeta(std::move(meta))
    {
    }

    void Set(const Entry& entry, int32_t value) { mMeta->SetInt32(entry.mKey.c_str(), value); }
    void Set(const Entry& entry, double value) { mMeta->SetDouble(entry.mKey.c_str(), value); }
    void Set(const Entry& entry, const char* value) { mMeta->SetString(entry.mKey.c_str(), value); }

    template <typename T>
    uint64_t Read(const Entry& entry) const
    {
        T value{};
        return Get(entry.mKey.c_str(), value) ? Digest(value) : 0;
    }
    uint64_t Walk() const
    {
        uint64_t sum = 0;
        const auto end = mMeta->End();
        for (auto it = mMeta->Begin(); it != end; ++it) {
            benchmark::DoNotOptimize(it.Value()->mType);
            sum += Digest(it.Key());
        }
        return sum;
    }
    OsalContainer Copy() const { return OsalContainer(mMeta->Copy()); }

private:
    bool Get(const char* key, int32_t& value) const { return mMeta->GetInt32(key, value); }
    bool Get(const char* key, double& value) const { return mMeta->GetDouble(key, value); }
    bool Get(const char* key, const char*& value) const { return mMeta->GetString(key, value); }

    std::shared_ptr<osal::MediaMeta> mMeta;
};

class OsalParcel {
public:
    void Write(int64_t value) { mParam.WriteInt64(value); }
    int64_t Read() { return mParam.ReadInt64(); }
    OsalParcel Copy() { return *this; }

private:
    osal::MediaParam mParam;
};

class OsalThread : public osal::Thread {
public:
    ~OsalThread() override { Stop(); }
    void StartAndStop()
    {
        Start("bench-worker", PRIORITY_DEFAULT);
        Stop();
    }

private:
    bool Run() override { return false; }
};

const bool REGISTERED = Add<OsalQueue, OsalContainer, OsalParcel, OsalThread>("osal", Kind::PEER);

}  // namespace bench
