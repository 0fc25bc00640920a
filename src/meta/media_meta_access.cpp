#include "osal/media_meta.h"

#include "media_meta_internal.h"

#include <cstdlib>
#include <cstring>
#include <memcpy_s.h>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

namespace osal {

namespace {

using Item = MediaMeta::MetaItem;
using Value = Item::Value;

template <typename T>
struct Member {
    MetaType type;
    T Value::*pointer;
};
template <typename T>
Member(MetaType, T Value::*) -> Member<T>;

// The member of the union for each type that the setters and getters copy.
// clang-format off: two members on a line
constexpr std::tuple MEMBERS{
    Member{META_TYPE_INT8, &Value::int8Value},         Member{META_TYPE_INT16, &Value::int16Value},
    Member{META_TYPE_INT32, &Value::int32Value},       Member{META_TYPE_INT64, &Value::int64Value},
    Member{META_TYPE_UINT8, &Value::uint8Value},       Member{META_TYPE_UINT16, &Value::uint16Value},
    Member{META_TYPE_UINT32, &Value::uint32Value},     Member{META_TYPE_UINT64, &Value::uint64Value},
    Member{META_TYPE_FLOAT, &Value::floatValue},       Member{META_TYPE_DOUBLE, &Value::doubleValue},
    Member{META_TYPE_POINTER, &Value::pointerValue},   Member{META_TYPE_BYTE_BUFFER, &Value::byteBufferValue},
    Member{META_TYPE_FRACTION, &Value::fractionValue}, Member{META_TYPE_RECT, &Value::rectValue},
};
// clang-format on

// Does not compile for a type without a member.
template <typename T>
constexpr Member<T> MEMBER_OF = std::get<Member<T>>(MEMBERS);

// The rule of all setters. Runs `store` on the item of the entry if the item is of `type`, or on a new all-zero
// item, which is inserted if `store` returns true. Returns true if the item is in the container and `store`
// returned true.
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
bool SetPlain(MediaMeta::ItemMap& items, const char* key, T value)
{
    return SetItem(items, key, MEMBER_OF<T>.type, [value](Item& item) {
        item.mValue.*MEMBER_OF<T>.pointer = value;
        return true;
    });
}

// The item that a getter of `type` reads, or null.
const Item* FindItem(const MediaMeta::ItemMap& items, const char* key, MetaType type)
{
    if (key == nullptr) {
        return nullptr;
    }
    const auto position = items.find(key);
    return position != items.end() && position->second->mType == type ? position->second.get() : nullptr;
}

// The rule of all getters. Runs `load` on the item of the entry if the item is of `type`.
template <typename Load>
bool GetItem(const MediaMeta::ItemMap& items, const char* key, MetaType type, Load load)
{
    const Item* const item = FindItem(items, key, type);
    if (item != nullptr) {
        load(*item);
    }
    return item != nullptr;
}

template <typename T>
bool GetPlain(const MediaMeta::ItemMap& items, const char* key, T& value)
{
    return GetItem(items, key, MEMBER_OF<T>.type,
                   [&value](const Item& item) { value = item.mValue.*MEMBER_OF<T>.pointer; });
}

}  // namespace

bool StoreString(Item& item, const char* value)
{
    char*& stored = item.mValue.stringValue;
    if (value == nullptr) {
        return false;
    }
    if (stored != nullptr && strcmp(stored, value) == 0) {
        return true;
    }
    char* copy = strdup(value);  // before the old string is released, which may contain `value`
    if (copy == nullptr) {
        LOGE("fail to alloc mem for str");
        return false;
    }
    free(stored);
    stored = copy;
    return true;
}

bool CheckBuffer(const char* key, MediaMeta::ByteBuffer buffer)
{
    if (key == nullptr || buffer.data == nullptr || buffer.size == 0) {
        LOGE("name %p, data %p, size %zu", static_cast<const void*>(key), static_cast<void*>(buffer.data),
             buffer.size);
        return false;
    }
    return true;
}

bool StoreBuffer(Item& item, MediaMeta::ByteBuffer buffer)
{
    // Copied before the old bytes are released: `buffer` may be these bytes.
    std::unique_ptr<uint8_t[]> copy(new uint8_t[buffer.size]);  // not make_unique(), which zeroes the bytes first
    const bool isCopied = memcpy_s(copy.get(), buffer.size, buffer.data, buffer.size) == 0;
    delete[] item.mValue.byteBufferValue.data;
    item.mValue.byteBufferValue = {buffer.size, copy.release()};
    return isCopied;
}

bool MediaMeta::SetInt8(const char* key, int8_t value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetInt16(const char* key, int16_t value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetInt32(const char* key, int32_t value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetInt64(const char* key, int64_t value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetUint8(const char* key, uint8_t value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetUint16(const char* key, uint16_t value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetUint32(const char* key, uint32_t value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetUint64(const char* key, uint64_t value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetFloat(const char* key, float value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetDouble(const char* key, double value) { return SetPlain(mItems, key, value); }
bool MediaMeta::SetPointer(const char* key, void* value) { return SetPlain(mItems, key, value); }

bool MediaMeta::SetFraction(const char* key, Fraction value)
{
    return value.den != 0 && SetPlain(mItems, key, value);
}

bool MediaMeta::SetFraction(const char* key, int32_t num, int32_t den) { return SetFraction(key, {num, den}); }

bool MediaMeta::SetRect(const char* key, Rect value) { return SetPlain(mItems, key, value); }

bool MediaMeta::SetRect(const char* key, int32_t a, int32_t b, int32_t c, int32_t d)
{
    return SetRect(key, Rect{a, b, c, d});
}

bool MediaMeta::SetString(const char* key, const char* value)
{
    return SetItem(mItems, key, META_TYPE_STRING, [value](Item& item) { return StoreString(item, value); });
}

bool MediaMeta::SetByteBuffer(const char* key, ByteBuffer value)
{
    bool isCopied = false;
    const auto store = [&](Item& item) {
        isCopied = StoreBuffer(item, value);
        return true;  // the item has the new buffer in any case
    };
    return CheckBuffer(key, value) && SetItem(mItems, key, META_TYPE_BYTE_BUFFER, store) && isCopied;
}

bool MediaMeta::SetByteBuffer(const char* key, uint8_t* data, uint64_t size)
{
    return SetByteBuffer(key, ByteBuffer{size, data});
}

bool MediaMeta::SetObject(const char* key, const std::shared_ptr<MetaBase>& value)
{
    return SetItem(mItems, key, META_TYPE_OBJECT, [&value](Item& item) {
        auto previous = value;  // released last: the destructor of the previous object may call the container
        item.mObject.swap(previous);
        return true;
    });
}

bool MediaMeta::GetInt8(const char* key, int8_t& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetInt16(const char* key, int16_t& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetInt32(const char* key, int32_t& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetInt64(const char* key, int64_t& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetUint8(const char* key, uint8_t& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetUint16(const char* key, uint16_t& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetUint32(const char* key, uint32_t& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetUint64(const char* key, uint64_t& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetFloat(const char* key, float& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetDouble(const char* key, double& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetPointer(const char* key, void*& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetFraction(const char* key, Fraction& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetRect(const char* key, Rect& value) const { return GetPlain(mItems, key, value); }
bool MediaMeta::GetByteBuffer(const char* key, ByteBuffer& value) const { return GetPlain(mItems, key, value); }

bool MediaMeta::GetFraction(const char* key, int32_t& num, int32_t& den) const
{
    return GetItem(mItems, key, META_TYPE_FRACTION, [&](const Item& item) {
        num = item.mValue.fractionValue.num;
        den = item.mValue.fractionValue.den;
    });
}

bool MediaMeta::GetRect(const char* key, int32_t& a, int32_t& b, int32_t& c, int32_t& d) const
{
    return GetItem(mItems, key, META_TYPE_RECT, [&](const Item& item) {
        const Rect& value = item.mValue.rectValue;
        a = value.a;
        b = value.b;
        c = value.c;
        d = value.d;
    });
}

bool MediaMeta::GetByteBuffer(const char* key, uint8_t*& data, int32_t& size) const
{
    return GetItem(mItems, key, META_TYPE_BYTE_BUFFER, [&](const Item& item) {
        data = item.mValue.byteBufferValue.data;
        size = static_cast<int32_t>(static_cast<uint32_t>(item.mValue.byteBufferValue.size));
    });
}

bool MediaMeta::GetString(const char* key, const char*& value) const
{
    return GetItem(mItems, key, META_TYPE_STRING, [&value](const Item& item) { value = item.mValue.stringValue; });
}

bool MediaMeta::GetObject(const char* key, std::shared_ptr<MetaBase>& value) const
{
    return GetItem(mItems, key, META_TYPE_OBJECT, [&value](const Item& item) { value = item.mObject; });
}

}  // namespace osal
