#include "osal/media_meta.h"

#include "media_meta_internal.h"

#include <android/log.h>
#include <cstdlib>
#include <cstring>
#include <memcpy_s.h>
#include <memory>
#include <utility>

namespace osal {

namespace {

using Item = MediaMeta::MetaItem;

// The rule of all setters. Runs `store` on the item under `key`: an existing one if it is of `type`, else a
// new one, all zero, which is entered only when `store` answers true.
template <typename Store>
bool SetItem(MediaMeta::ItemMap& items, const char* key, MetaType type, Store store)
{
    if (key == nullptr) {
        return false;
    }
    std::string name(key);
    const auto position = items.lower_bound(name);
    if (position != items.end() && position->first == name) {
        Item& item = *position->second;
        return item.mType == type && store(item);
    }
    auto item = CreateZeroItem(type);
    if (!store(*item)) {
        return false;
    }
    items.emplace_hint(position, std::move(name), std::move(item));
    return true;
}

template <typename T>
bool SetPlain(MediaMeta::ItemMap& items, const char* key, MetaType type, T Item::Value::*member, T value)
{
    return SetItem(items, key, type, [member, value](Item& item) {
        item.mValue.*member = value;
        return true;
    });
}

}  // namespace

bool StoreText(MediaMeta::MetaItem& item, const char* value)
{
    char*& text = item.mValue.stringValue;
    if (value == nullptr) {
        return false;
    }
    if (text != nullptr && strcmp(text, value) == 0) {
        return true;
    }
    char* copy = DuplicateText(value);
    if (copy == nullptr) {
        return false;
    }
    free(text);
    text = copy;
    return true;
}

bool CheckBlock(const char* key, MediaMeta::ByteBuffer value)
{
    if (key == nullptr || value.data == nullptr || value.size == 0) {
        __android_log_print(ANDROID_LOG_ERROR, META_LOG_TAG, "name %p, data %p, size %zu",
                            static_cast<const void*>(key), static_cast<void*>(value.data), value.size);
        return false;
    }
    return true;
}

bool StoreBlock(MediaMeta::MetaItem& item, MediaMeta::ByteBuffer value)
{
    // Copied before the old block goes: `value` may be that block.
    std::unique_ptr<uint8_t[]> block(new uint8_t[value.size]);  // not make_unique(), which zeroes it first
    const bool copied = memcpy_s(block.get(), value.size, value.data, value.size) == 0;
    delete[] item.mValue.byteBufferValue.data;
    item.mValue.byteBufferValue = {value.size, block.release()};
    return copied;
}

bool MediaMeta::SetInt8(const char* key, int8_t value)
{
    return SetPlain(mItems, key, META_TYPE_INT8, &MetaItem::Value::int8Value, value);
}

bool MediaMeta::SetInt16(const char* key, int16_t value)
{
    return SetPlain(mItems, key, META_TYPE_INT16, &MetaItem::Value::int16Value, value);
}

bool MediaMeta::SetInt32(const char* key, int32_t value)
{
    return SetPlain(mItems, key, META_TYPE_INT32, &MetaItem::Value::int32Value, value);
}

bool MediaMeta::SetInt64(const char* key, int64_t value)
{
    return SetPlain(mItems, key, META_TYPE_INT64, &MetaItem::Value::int64Value, value);
}

bool MediaMeta::SetUint8(const char* key, uint8_t value)
{
    return SetPlain(mItems, key, META_TYPE_UINT8, &MetaItem::Value::uint8Value, value);
}

bool MediaMeta::SetUint16(const char* key, uint16_t value)
{
    return SetPlain(mItems, key, META_TYPE_UINT16, &MetaItem::Value::uint16Value, value);
}

bool MediaMeta::SetUint32(const char* key, uint32_t value)
{
    return SetPlain(mItems, key, META_TYPE_UINT32, &MetaItem::Value::uint32Value, value);
}

bool MediaMeta::SetUint64(const char* key, uint64_t value)
{
    return SetPlain(mItems, key, META_TYPE_UINT64, &MetaItem::Value::uint64Value, value);
}

bool MediaMeta::SetFloat(const char* key, float value)
{
    return SetPlain(mItems, key, META_TYPE_FLOAT, &MetaItem::Value::floatValue, value);
}

bool MediaMeta::SetDouble(const char* key, double value)
{
    return SetPlain(mItems, key, META_TYPE_DOUBLE, &MetaItem::Value::doubleValue, value);
}

bool MediaMeta::SetPointer(const char* key, void* value)
{
    return SetPlain(mItems, key, META_TYPE_POINTER, &MetaItem::Value::pointerValue, value);
}

bool MediaMeta::SetFraction(const char* key, Fraction value)
{
    return value.den != 0 && SetPlain(mItems, key, META_TYPE_FRACTION, &MetaItem::Value::fractionValue, value);
}

bool MediaMeta::SetFraction(const char* key, int32_t num, int32_t den)
{
    return SetFraction(key, Fraction{num, den});
}

bool MediaMeta::SetRect(const char* key, Rect value)
{
    return SetPlain(mItems, key, META_TYPE_RECT, &MetaItem::Value::rectValue, value);
}

bool MediaMeta::SetRect(const char* key, int32_t a, int32_t b, int32_t c, int32_t d)
{
    return SetRect(key, Rect{a, b, c, d});
}

bool MediaMeta::SetString(const char* key, const char* value)
{
    return SetItem(mItems, key, META_TYPE_STRING, [value](MetaItem& item) { return StoreText(item, value); });
}

bool MediaMeta::SetByteBuffer(const char* key, ByteBuffer value)
{
    bool copied = false;
    return CheckBlock(key, value) &&
           SetItem(mItems, key, META_TYPE_BYTE_BUFFER,
                   [value, &copied](MetaItem& item) {
                       copied = StoreBlock(item, value);
                       return true;
                   }) &&
           copied;
}

bool MediaMeta::SetByteBuffer(const char* key, uint8_t* data, uint64_t size)
{
    return SetByteBuffer(key, ByteBuffer{size, data});
}

bool MediaMeta::SetObject(const char* key, const std::shared_ptr<MetaBase>& value)
{
    return SetItem(mItems, key, META_TYPE_OBJECT, [&value](MetaItem& item) {
        // The previous object goes last: its destructor may call back into the container.
        auto previous = value;
        item.mObject.swap(previous);
        return true;
    });
}

}  // namespace osal
