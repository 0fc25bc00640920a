// Here the operations that the header defines are not inline, so that the library exports them.
#define OSAL_INLINE
#include "osal/media_meta.h"

#include "media_meta_internal.h"

#include "osal/media_param.h"

#include <initializer_list>
#include <utility>

namespace osal {

namespace {

using Item = MediaMeta::MetaItem;

// Each switch below lists all types and has no default, so that a new type does not compile until it is in every
// switch. The code after a switch handles the types that the operation leaves out, and unknown types.

void LogLeftOut(const char* operation, MetaType type)
{
    LOGE("%s: Should not be here mType: %d", operation, type);
}

// The string, or `substitute` for an entry whose string could not be read from a parcel.
const char* StringOr(const char* substitute, const Item::Value& value)
{
    return value.stringValue != nullptr ? value.stringValue : substitute;
}

// Makes `to` hold its own copy of the string or the bytes of `from`.
bool CopyMemory(const char* key, const Item& from, Item& to)
{
    if (from.mType == META_TYPE_STRING) {
        return StoreString(to, from.mValue.stringValue);
    }
    return CheckBuffer(key, from.mValue.byteBufferValue) && StoreBuffer(to, from.mValue.byteBufferValue);
}

bool MergeItem(MediaMeta& to, const char* key, const Item& item)
{
    const Item::Value& value = item.mValue;
    switch (item.mType) {
        case META_TYPE_INT32: return to.SetInt32(key, value.int32Value);
        case META_TYPE_INT64: return to.SetInt64(key, value.int64Value);
        case META_TYPE_FLOAT: return to.SetFloat(key, value.floatValue);
        case META_TYPE_DOUBLE: return to.SetDouble(key, value.doubleValue);
        case META_TYPE_POINTER: return to.SetPointer(key, value.pointerValue);
        case META_TYPE_STRING: return to.SetString(key, value.stringValue);
        case META_TYPE_BYTE_BUFFER: return to.SetByteBuffer(key, value.byteBufferValue);
        case META_TYPE_FRACTION: return to.SetFraction(key, value.fractionValue);
        case META_TYPE_RECT: return to.SetRect(key, value.rectValue);
        case META_TYPE_OBJECT: return to.SetObject(key, item.mObject);
        case META_TYPE_NONE:
        case META_TYPE_INT8:
        case META_TYPE_INT16:
        case META_TYPE_UINT8:
        case META_TYPE_UINT16:
        case META_TYPE_UINT32:
        case META_TYPE_UINT64: break;
    }
    LogLeftOut("Merge", item.mType);
    return true;
}

void DumpItem(const char* key, const Item& item)
{
    const Item::Value& value = item.mValue;
    const MediaMeta::Fraction& fraction = value.fractionValue;
    const MediaMeta::Rect& rect = value.rectValue;
    const MediaMeta::ByteBuffer& buffer = value.byteBufferValue;
    switch (item.mType) {
        case META_TYPE_NONE: LOGD("empty item"); return;
        case META_TYPE_INT32: LOGD("(%s, int32_t:%d)", key, value.int32Value); return;
        case META_TYPE_INT64: LOGD("(%s, int64_t:%ld)", key, value.int64Value); return;
        case META_TYPE_FLOAT: LOGD("(%s, float:%f)", key, static_cast<double>(value.floatValue)); return;
        case META_TYPE_DOUBLE: LOGD("(%s, double:%f)", key, value.doubleValue); return;
        case META_TYPE_POINTER: LOGD("(%s, pointer:%p)", key, value.pointerValue); return;
        case META_TYPE_STRING: LOGD("(%s, string:%s)", key, StringOr("(null)", value)); return;
        case META_TYPE_BYTE_BUFFER:
            LOGD("(%s, bytebuffer(%p, %zu))", key, static_cast<void*>(buffer.data), buffer.size);
            return;
        case META_TYPE_FRACTION: LOGD("(%s, fraction:(%d/%d))", key, fraction.num, fraction.den); return;
        case META_TYPE_RECT: LOGD("(%s, rect:(%d, %d, %d, %d))", key, rect.a, rect.b, rect.c, rect.d); return;
        case META_TYPE_OBJECT: LOGD("(%s, object:%p)", key, static_cast<void*>(item.mObject.get())); return;
        case META_TYPE_INT8:
        case META_TYPE_INT16:
        case META_TYPE_UINT8:
        case META_TYPE_UINT16:
        case META_TYPE_UINT32:
        case META_TYPE_UINT64: break;
    }
    LOGE("%s: Unknown item: %d", "Dump", item.mType);
}

void WriteInts(MediaParam& param, std::initializer_list<int32_t> values)
{
    for (const int32_t value : values) {
        param.WriteInt32(value);
    }
}

// Returns false if the value is not carried.
bool WriteValue(MediaParam& param, const Item& item)
{
    const Item::Value& value = item.mValue;
    const MediaMeta::Fraction& fraction = value.fractionValue;
    const MediaMeta::Rect& rect = value.rectValue;
    switch (item.mType) {
        case META_TYPE_INT32: param.WriteInt32(value.int32Value); return true;
        case META_TYPE_INT64: param.WriteInt64(value.int64Value); return true;
        case META_TYPE_POINTER: param.WriteInt64(reinterpret_cast<int64_t>(value.pointerValue)); return true;
        case META_TYPE_FLOAT: param.WriteDouble(static_cast<double>(value.floatValue)); return true;
        case META_TYPE_DOUBLE: param.WriteDouble(value.doubleValue); return true;
        // A missing string must not shift the keys and strings after it.
        case META_TYPE_STRING: param.WriteString(StringOr("", value)); return true;
        case META_TYPE_FRACTION: WriteInts(param, {fraction.num, fraction.den}); return true;
        case META_TYPE_RECT: WriteInts(param, {rect.a, rect.b, rect.c, rect.d}); return true;
        case META_TYPE_BYTE_BUFFER: LOGE("MediaParam doesn't support WriteByteBuffer method"); return false;
        case META_TYPE_OBJECT: LOGE("MediaParam doesn't support WriteObject method"); return false;
        case META_TYPE_NONE:
        case META_TYPE_INT8:
        case META_TYPE_INT16:
        case META_TYPE_UINT8:
        case META_TYPE_UINT16:
        case META_TYPE_UINT32:
        case META_TYPE_UINT64: break;
    }
    LogLeftOut("WriteToMediaParam", item.mType);
    return false;
}

// Reads exactly what WriteValue() wrote for the type of the item. Returns false if the item is left without its
// value.
bool ReadValue(const MediaParam& param, Item& item)
{
    Item::Value& value = item.mValue;
    switch (item.mType) {
        case META_TYPE_INT32: value.int32Value = param.ReadInt32(); return true;
        case META_TYPE_INT64: value.int64Value = param.ReadInt64(); return true;
        // NOLINTNEXTLINE(performance-no-int-to-ptr): an address is carried as an integer
        case META_TYPE_POINTER: value.pointerValue = reinterpret_cast<void*>(param.ReadInt64()); return true;
        case META_TYPE_FLOAT: value.floatValue = static_cast<float>(param.ReadDouble()); return true;
        case META_TYPE_DOUBLE: value.doubleValue = param.ReadDouble(); return true;
        case META_TYPE_STRING: return StoreString(item, param.ReadString());
        case META_TYPE_FRACTION: value.fractionValue = {param.ReadInt32(), param.ReadInt32()}; return true;
        case META_TYPE_RECT:
            value.rectValue = {param.ReadInt32(), param.ReadInt32(), param.ReadInt32(), param.ReadInt32()};
            return true;
        case META_TYPE_BYTE_BUFFER: LOGE("MediaParam doesn't support ReadByteBuffer method"); return false;
        case META_TYPE_OBJECT: LOGE("MediaParam doesn't support ReadObject method"); return false;
        case META_TYPE_NONE:
        case META_TYPE_INT8:
        case META_TYPE_INT16:
        case META_TYPE_UINT8:
        case META_TYPE_UINT16:
        case META_TYPE_UINT32:
        case META_TYPE_UINT64: break;
    }
    LogLeftOut("ReadFromMediaParam", item.mType);
    return false;
}

// Returns false if the entry is stored without its value. An entry without a key is skipped.
bool ReadEntry(const MediaParam& param, MediaMeta::ItemMap& items)
{
    const auto type = static_cast<MetaType>(param.ReadInt32());
    const char* key = param.ReadString();
    if (key == nullptr) {
        return true;
    }
    auto item = CreateZeroItem(type);
    const bool isComplete = ReadValue(param, *item);
    items.insert_or_assign(key, std::move(item));
    return isComplete;
}

}  // namespace

const std::string& MediaMeta::ConstIterator::EmptyKey()
{
    static const std::string emptyKey;
    return emptyKey;
}

const std::shared_ptr<MediaMeta::MetaItem>& MediaMeta::ConstIterator::EmptyValue()
{
    static const std::shared_ptr<MetaItem> emptyValue;
    return emptyValue;
}

void MediaMeta::Keep(std::unique_ptr<ConstIterator>& slot, ItemMap::const_iterator position) const
{
    slot = std::make_unique<ConstIterator>(mItems, position);
}

std::shared_ptr<MediaMeta> MediaMeta::Copy() const
{
    auto copy = Create();
    copy->mItems = ItemMap(mItems);  // not assigned: assignment may search the map for each entry
    for (auto& [key, item] : copy->mItems) {
        if (item->mType != META_TYPE_STRING && item->mType != META_TYPE_BYTE_BUFFER) {
            continue;
        }
        auto ownItem = CreateZeroItem(item->mType);
        if (!CopyMemory(key.c_str(), *item, *ownItem)) {
            LOGE("%s: copy %s failed", __func__, key.c_str());
            return nullptr;
        }
        item = std::move(ownItem);
    }
    return copy;
}

bool MediaMeta::Merge(std::shared_ptr<MediaMeta> other)
{
    if (!other) {
        return false;
    }
    for (const auto& [key, item] : other->mItems) {
        if (!MergeItem(*this, key.c_str(), *item)) {
            LOGE("%s: Merge %s failed", __func__, key.c_str());
            return false;
        }
    }
    return true;
}

void MediaMeta::Dump() const
{
    LOGD("######## MediaMeta dump debug");
    for (const auto& [key, item] : mItems) {
        DumpItem(key.c_str(), *item);
    }
}

bool MediaMeta::WriteToMediaParam(MediaParam* param)
{
    if (param == nullptr) {
        return false;
    }
    param->WriteInt32(static_cast<int32_t>(mItems.size()));
    bool isCarried = true;
    for (const auto& [key, item] : mItems) {
        param->WriteInt32(item->mType);
        param->WriteString(key.c_str());
        isCarried = WriteValue(*param, *item) && isCarried;
    }
    return isCarried;
}

bool MediaMeta::ReadFromMediaParam(const MediaParam* param)
{
    if (param == nullptr) {
        return false;
    }
    bool isComplete = true;
    for (int32_t entriesLeft = param->ReadInt32(); entriesLeft > 0; --entriesLeft) {
        isComplete = ReadEntry(*param, mItems) && isComplete;
    }
    return isComplete;
}

}  // namespace osal
