#include "osal/media_meta.h"

namespace osal {

namespace {

using Item = MediaMeta::MetaItem;

// The rule of all getters: the item under `key` if there is one of `type`, else null.
const Item* FindItem(const MediaMeta::ItemMap& items, const char* key, MetaType type)
{
    if (key == nullptr) {
        return nullptr;
    }
    const auto position = items.find(key);
    if (position == items.end() || position->second->mType != type) {
        return nullptr;
    }
    return position->second.get();
}

template <typename T, typename Stored>
bool GetPlain(const MediaMeta::ItemMap& items, const char* key, MetaType type, Stored Item::Value::*member,
              T& value)
{
    const Item* item = FindItem(items, key, type);
    if (item == nullptr) {
        return false;
    }
    value = item->mValue.*member;
    return true;
}

}  // namespace

bool MediaMeta::GetInt8(const char* key, int8_t& value) const
{
    return GetPlain(mItems, key, META_TYPE_INT8, &MetaItem::Value::int8Value, value);
}

bool MediaMeta::GetInt16(const char* key, int16_t& value) const
{
    return GetPlain(mItems, key, META_TYPE_INT16, &MetaItem::Value::int16Value, value);
}

bool MediaMeta::GetInt32(const char* key, int32_t& value) const
{
    return GetPlain(mItems, key, META_TYPE_INT32, &MetaItem::Value::int32Value, value);
}

bool MediaMeta::GetInt64(const char* key, int64_t& value) const
{
    return GetPlain(mItems, key, META_TYPE_INT64, &MetaItem::Value::int64Value, value);
}

bool MediaMeta::GetUint8(const char* key, uint8_t& value) const
{
    return GetPlain(mItems, key, META_TYPE_UINT8, &MetaItem::Value::uint8Value, value);
}

bool MediaMeta::GetUint16(const char* key, uint16_t& value) const
{
    return GetPlain(mItems, key, META_TYPE_UINT16, &MetaItem::Value::uint16Value, value);
}

bool MediaMeta::GetUint32(const char* key, uint32_t& value) const
{
    return GetPlain(mItems, key, META_TYPE_UINT32, &MetaItem::Value::uint32Value, value);
}

bool MediaMeta::GetUint64(const char* key, uint64_t& value) const
{
    return GetPlain(mItems, key, META_TYPE_UINT64, &MetaItem::Value::uint64Value, value);
}

bool MediaMeta::GetFloat(const char* key, float& value) const
{
    return GetPlain(mItems, key, META_TYPE_FLOAT, &MetaItem::Value::floatValue, value);
}

bool MediaMeta::GetDouble(const char* key, double& value) const
{
    return GetPlain(mItems, key, META_TYPE_DOUBLE, &MetaItem::Value::doubleValue, value);
}

bool MediaMeta::GetPointer(const char* key, void*& value) const
{
    return GetPlain(mItems, key, META_TYPE_POINTER, &MetaItem::Value::pointerValue, value);
}

bool MediaMeta::GetFraction(const char* key, int32_t& num, int32_t& den) const
{
    Fraction value{};
    if (!GetFraction(key, value)) {
        return false;
    }
    num = value.num;
    den = value.den;
    return true;
}

bool MediaMeta::GetFraction(const char* key, Fraction& value) const
{
    return GetPlain(mItems, key, META_TYPE_FRACTION, &MetaItem::Value::fractionValue, value);
}

bool MediaMeta::GetRect(const char* key, int32_t& a, int32_t& b, int32_t& c, int32_t& d) const
{
    Rect value{};
    if (!GetRect(key, value)) {
        return false;
    }
    a = value.a;
    b = value.b;
    c = value.c;
    d = value.d;
    return true;
}

bool MediaMeta::GetRect(const char* key, Rect& value) const
{
    return GetPlain(mItems, key, META_TYPE_RECT, &MetaItem::Value::rectValue, value);
}

bool MediaMeta::GetString(const char* key, const char*& value) const
{
    return GetPlain(mItems, key, META_TYPE_STRING, &MetaItem::Value::stringValue, value);
}

bool MediaMeta::GetByteBuffer(const char* key, uint8_t*& data, int32_t& size) const
{
    ByteBuffer value{};
    if (!GetByteBuffer(key, value)) {
        return false;
    }
    data = value.data;
    size = static_cast<int32_t>(static_cast<uint32_t>(value.size));
    return true;
}

bool MediaMeta::GetByteBuffer(const char* key, ByteBuffer& value) const
{
    return GetPlain(mItems, key, META_TYPE_BYTE_BUFFER, &MetaItem::Value::byteBufferValue, value);
}

bool MediaMeta::GetObject(const char* key, std::shared_ptr<MetaBase>& value) const
{
    const MetaItem* item = FindItem(mItems, key, META_TYPE_OBJECT);
    if (item == nullptr) {
        return false;
    }
    value = item->mObject;
    return true;
}

}  // namespace osal
