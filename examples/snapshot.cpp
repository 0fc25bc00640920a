// A container for several threads: one lock guards it, and each reader gets separate items.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <osal/media_meta.h>
#include <string>

namespace {

//! [lock]
class Format {
public:
    bool SetRate(int32_t rate)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mMeta->SetInt32("sample-rate", rate);
    }

    // The snapshot has separate items, so its reader needs no lock. Copy() would share the rate.
    std::shared_ptr<osal::MediaMeta> Snapshot() const
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        auto snapshot = osal::MediaMeta::Create();
        return snapshot->Merge(mMeta) ? snapshot : nullptr;
    }

private:
    mutable std::mutex mMutex;  // guards mMeta, also while it is read
    std::shared_ptr<osal::MediaMeta> mMeta = osal::MediaMeta::Create();
};
//! [lock]

}  // namespace

int main()
{
    Format format;
    std::shared_ptr<osal::MediaMeta> snapshot;
    int32_t rate = 0;
    if (!format.SetRate(44100) || (snapshot = format.Snapshot()) == nullptr || !format.SetRate(48000) ||
        !snapshot->GetInt32("sample-rate", rate) || !snapshot->SetString("title", "First")) {
        return 1;
    }
    std::printf("rate of the snapshot: %d\n", rate);

    //! [share]
    const auto copy = snapshot->Copy();
    copy->SetInt32("sample-rate", 96000);
    snapshot->GetInt32("sample-rate", rate);
    std::printf("after a change of its copy: %d\n", rate);  // 96000: both share the item
    //! [share]

    //! [keep]
    const char* title = nullptr;
    if (!snapshot->GetString("title", title)) {
        return 1;
    }
    const std::string kept = title;  // copied: the entry owns `title` and frees it when the string changes
    if (!snapshot->SetString("title", "Second")) {
        return 1;
    }
    //! [keep]
    std::printf("kept: %s\n", kept.c_str());
}
