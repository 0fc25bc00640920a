#include "osal/media_meta.h"

#include "media_meta_internal.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <type_traits>

namespace osal {

// Callers in other libraries are compiled against these layouts.
static_assert(sizeof(MediaMeta::Fraction) == 8 && offsetof(MediaMeta::Fraction, den) == 4);
static_assert(sizeof(MediaMeta::Rect) == 16 && offsetof(MediaMeta::Rect, b) == 4 &&
              offsetof(MediaMeta::Rect, c) == 8 && offsetof(MediaMeta::Rect, d) == 12);
static_assert(sizeof(MediaMeta::ByteBuffer) == 16 && offsetof(MediaMeta::ByteBuffer, size) == 0 &&
              offsetof(MediaMeta::ByteBuffer, data) == 8);
static_assert(std::is_same_v<std::underlying_type_t<MetaType>, int32_t>);
static_assert(offsetof(MediaMeta::MetaItem, mType) == 0 && offsetof(MediaMeta::MetaItem, mValue) == 8 &&
              offsetof(MediaMeta::MetaItem, mObject) == 24);
// "%ld" and the mangled names of the 64-bit operations depend on this.
static_assert(std::is_same_v<int64_t, long> && std::is_same_v<uint64_t, unsigned long>);

MediaMeta::MetaBase::~MetaBase() = default;

// NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): the code that sets the type sets the value
MediaMeta::MetaItem::MetaItem() : mType(META_TYPE_NONE) {}

MediaMeta::MetaItem::~MetaItem() = default;

std::shared_ptr<MediaMeta::MetaItem> MediaMeta::MetaItem::Create() { return {new MetaItem, &MetaItem::Destroy}; }

void MediaMeta::MetaItem::Destroy(MetaItem* item)
{
    if (item == nullptr) {
        return;
    }
    if (item->mType == META_TYPE_STRING) {
        free(item->mValue.stringValue);
        item->mValue.stringValue = nullptr;
    } else if (item->mType == META_TYPE_BYTE_BUFFER) {
        delete[] item->mValue.byteBufferValue.data;
        item->mValue.byteBufferValue = {0, nullptr};
    }
    delete item;
}

std::shared_ptr<MediaMeta::MetaItem> CreateZeroItem(MetaType type)
{
    auto item = MediaMeta::MetaItem::Create();
    item->mType = type;
    memset(&item->mValue, 0, sizeof(item->mValue));  // `= {}` zeroes only the first member of a union
    return item;
}

std::shared_ptr<MediaMeta> MediaMeta::Create() { return std::make_shared<MediaMeta>(); }

MediaMeta::MediaMeta() = default;

MediaMeta::~MediaMeta() { Destroy(); }

void MediaMeta::Destroy()
{
    // Released last, when the container is empty and consistent: the destructor of an object may call the
    // container.
    ItemMap released;
    released.swap(mItems);
    // Begin() must not compare with an entry that is gone, and swap() may invalidate the end position.
    if (mBeginIter) {
        *mBeginIter = ConstIterator(mItems, mItems.end());
    }
    if (mEndIter) {
        *mEndIter = ConstIterator(mItems, mItems.end());
    }
}

bool MediaMeta::ContainsKey(const char* key) const { return key != nullptr && mItems.find(key) != mItems.end(); }

}  // namespace osal
