// A container that two threads use: one lock around it, and readers with items of their own.

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

    // With items of its own, so that the reader needs no lock. Copy() would share the rate.
    std::shared_ptr<osal::MediaMeta> Snapshot() const
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        auto snapshot = osal::MediaMeta::Create();
        return snapshot->Merge(mMeta) ? snapshot : nullptr;
    }

private:
    mutable std::mutex mMutex;  // guards mMeta, for readers too
    std::shared_ptr<osal::MediaMeta> mMeta = osal::MediaMeta::Create();
};
//! [lock]

}  // namespace

int main()
{
    Format format;
    if (!format.SetRate(44100)) {
        return 1;
    }
    const auto snapshot = format.Snapshot();
    int32_t rate = 0;
    if (!format.SetRate(48000) || !snapshot || !snapshot->GetInt32("sample-rate", rate) ||
        !snapshot->SetString("title", "First")) {
        return 1;
    }
    std::printf("the snapshot's rate: %d\n", rate);

    //! [share]
    const auto copy = snapshot->Copy();
    if (!copy || !copy->SetInt32("sample-rate", 96000) || !snapshot->GetInt32("sample-rate", rate)) {
        return 1;
    }
    std::printf("after its copy was set: %d\n", rate);  // 96000: they share the item
    //! [share]

    //! [keep]
    const char* title = nullptr;
    if (!snapshot->GetString("title", title)) {
        return 1;
    }
    const std::string kept = title;  // the text is the entry's own: not to be freed, gone with the next one
    if (!snapshot->SetString("title", "Second")) {
        return 1;
    }
    //! [keep]
    std::printf("kept: %s\n", kept.c_str());
    return 0;
}
