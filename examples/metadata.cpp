// The description of a stream: typed values under text keys.

#include <cstdint>
#include <cstdio>
#include <iterator>
#include <memory>
#include <osal/media_meta.h>

namespace {

// Objects are shared, never copied.
struct ColorSpace : osal::MediaMeta::MetaBase {
    int primaries = 9;
};

void PrintEntries(const osal::MediaMeta& meta)
{
    for (auto it = meta.Begin(); it != meta.End(); ++it) {  // in the order of the keys
        const osal::MediaMeta::MetaItem& item = *it.Value();
        if (item.mType == osal::META_TYPE_INT32) {  // the type names the one member that has a meaning
            std::printf("  %s = %d\n", it.Key().c_str(), item.mValue.int32Value);
        } else if (item.mType == osal::META_TYPE_STRING) {
            std::printf("  %s = \"%s\"\n", it.Key().c_str(), item.mValue.stringValue);
        } else {
            std::printf("  %s: type %d\n", it.Key().c_str(), static_cast<int>(item.mType));
        }
    }
}

}  // namespace

int main()
{
    uint8_t codecConfig[] = {0x01, 0x64, 0x00, 0x1f};
    const auto video = osal::MediaMeta::Create();
    if (!video->SetString("title", "Untitled") || !video->SetInt32("width", 1280) ||
        !video->SetFraction("frame-rate", 30000, 1001) ||
        !video->SetByteBuffer("codec-config", codecConfig, std::size(codecConfig)) ||
        !video->SetObject("color-space", std::make_shared<ColorSpace>())) {
        return 1;
    }

    int32_t rotation = 0;  // a missing entry leaves it alone, so what stands here is the default
    const bool hasRotation = video->GetInt32("rotation", rotation);
    std::printf("rotation: %d, %s\n", rotation, hasRotation ? "from an entry" : "the default");
    std::printf("an int64 for an int32 entry: %s\n", video->SetInt64("width", 1920) ? "stored" : "refused");

    const auto update = osal::MediaMeta::Create();
    if (!update->SetString("title", "Harbour at night") || !update->SetInt32("height", 720) ||
        !video->Merge(update)) {
        return 1;
    }
    std::printf("merged:\n");
    PrintEntries(*video);

    // The copy shares all items but texts and byte blocks; what is added to it is its own.
    const auto copy = video->Copy();
    if (!copy || !copy->SetInt32("width", 1920) || !copy->SetString("title", "Copy") ||
        !copy->SetInt32("bit-rate", 4000000)) {
        return 1;
    }
    std::printf("the original, after its copy was changed:\n");
    PrintEntries(*video);

    uint8_t* block = nullptr;  // will be the entry's own: valid until bytes are set again, not to be freed
    int32_t blockSize = 0;
    std::shared_ptr<osal::MediaMeta::MetaBase> object;
    if (!video->GetByteBuffer("codec-config", block, blockSize) || !copy->GetObject("color-space", object)) {
        return 1;
    }
    const auto colorSpace = std::dynamic_pointer_cast<ColorSpace>(object);
    std::printf("codec-config ends with 0x%02x\n", block[blockSize - 1]);
    std::printf("color primaries: %d\n", colorSpace ? colorSpace->primaries : -1);
    return 0;
}
