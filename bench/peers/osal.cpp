#include "../peer.h"
#include "osal/media_meta.h"
#include "osal/media_param.h"
#include "osal/thread.h"

namespace bench {

struct OsalQueue : osal::MsgQueue {
    // No real-time priority: the system refuses it, and the worker keeps the scheduling that the workers of the
    // other queues have, too.
    OsalQueue() { Start("bench", static_cast<osal::Thread::Priority>(0)); }
    ~OsalQueue() override { Stop(); }
    void Post(Task* task) { QueueMsg(task, 0); }
    void PostDelayed(Task* task, uint64_t delayNs) { QueueMsg(task, delayNs); }
    void Remove(Task* task) { RemoveMsg(task); }
};

struct OsalContainer {
    void Set(const Entry& entry, int32_t value) { mMeta->SetInt32(entry.mKey.c_str(), value); }
    void Set(const Entry& entry, double value) { mMeta->SetDouble(entry.mKey.c_str(), value); }
    void Set(const Entry& entry, const char* value) { mMeta->SetString(entry.mKey.c_str(), value); }
    void Get(const Entry& entry, int32_t& value) const { mMeta->GetInt32(entry.mKey.c_str(), value); }
    void Get(const Entry& entry, double& value) const { mMeta->GetDouble(entry.mKey.c_str(), value); }
    void Get(const Entry& entry, const char*& value) const { mMeta->GetString(entry.mKey.c_str(), value); }
    template <typename Visit>
    void Walk(Visit visit) const
    {
        for (auto it = mMeta->Begin(), end = mMeta->End(); it != end; ++it) {
            visit(it.Value()->mType, it.Key()[0]);
        }
    }
    OsalContainer Copy() const { return {mMeta->Copy()}; }

    std::shared_ptr<osal::MediaMeta> mMeta = osal::MediaMeta::Create();
};

struct OsalParcel : osal::MediaParam {
    void Write(int64_t value) { WriteInt64(value); }
    int64_t Read() { return ReadInt64(); }
    OsalParcel Copy() { return *this; }
};

struct OsalThread : osal::Thread {
    ~OsalThread() override { Stop(); }
    void StartAndStop()
    {
        Start("bench-worker", PRIORITY_DEFAULT);
        Stop();
    }
    bool Run() override { return false; }
};

const bool REGISTERED = Add<OsalQueue, OsalContainer, OsalParcel, OsalThread>("osal", Kind::PEER);

}  // namespace bench
