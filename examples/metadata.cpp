// Describes a stream by typed values under string keys.

#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <osal/media_meta.h>

namespace {

//! [object]
struct ColorSpace : osal::MediaMeta::MetaBase {  // objects are shared, never copied
    int primaries = 9;
};
//! [object]

//! [walk]
void PrintEntries(const osal::MediaMeta& meta)
{
    for (auto it = meta.Begin(); it != meta.End(); ++it) {  // in byte order of the keys
        const osal::MediaMeta::MetaItem& item = *it.Value();
        if (item.mType == osal::META_TYPE_INT32) {  // mType tells which member of mValue is valid
            std::printf("  %s = %d\n", it.Key().c_str(), item.mValue.int32Value);
        } else {
            std::printf("  %s: type %d\n", it.Key().c_str(), static_cast<int>(item.mType));
        }
    }
}
//! [walk]

}  // namespace

int main()
{
    //! [fill]
    uint8_t codecConfig[] = {0x01, 0x64, 0x00, 0x1f};
    const auto video = osal::MediaMeta::Create();
    if (!video->SetString("title", "Untitled") || !video->SetInt32("width", 1280) ||
        !video->SetFraction("frame-rate", 30000, 1001) ||
        !video->SetByteBuffer("codec-config", codecConfig, std::size(codecConfig)) ||
        !video->SetObject("color-space", std::make_shared<ColorSpace>())) {
        return 1;
    }
    //! [fill]

    //! [read]
    int32_t rotation = 0;  // the default: a missing entry leaves it unchanged
    const bool hasRotation = video->GetInt32("rotation", rotation);
    std::printf("rotation: %d, %s\n", rotation, hasRotation ? "from an entry" : "the default");
    //! [read]
    std::printf("an int64 for an int32 entry: %s\n", video->SetInt64("width", 1920) ? "stored" : "refused");

    //! [merge]
    const auto update = osal::MediaMeta::Create();
    if (!update->SetInt32("width", 1920) || !update->SetInt32("height", 1080) || !video->Merge(update)) {
        return 1;
    }
    //! [merge]
    PrintEntries(*video);

    //! [get-object]
    std::shared_ptr<osal::MediaMeta::MetaBase> object;
    video->GetObject("color-space", object);  // stays null if there is no such object
    const auto colorSpace = std::dynamic_pointer_cast<ColorSpace>(object);
    //! [get-object]
    std::printf("color primaries: %d\n", colorSpace ? colorSpace->primaries : -1);
}
