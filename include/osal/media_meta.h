#pragma once

/// @file
/// MediaMeta: typed values under string keys, with copy, merge, iteration and dump.

#include "osal/export.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace osal {

class MediaParam;

/// Type of one metadata value. The numbers are stored in parcels and printed in log lines: they never change.
enum MetaType : int32_t {
    META_TYPE_NONE = 0,  ///< No value: a new item from MetaItem::Create().
    META_TYPE_INT8 = 1,  ///< 8-bit signed integer, in `int8Value`.
    META_TYPE_INT16 = 2,  ///< 16-bit signed integer, in `int16Value`.
    META_TYPE_INT32 = 3,  ///< 32-bit signed integer, in `int32Value`.
    META_TYPE_INT64 = 4,  ///< 64-bit signed integer, in `int64Value`.
    META_TYPE_UINT8 = 5,  ///< 8-bit unsigned integer, in `uint8Value`.
    META_TYPE_UINT16 = 6,  ///< 16-bit unsigned integer, in `uint16Value`.
    META_TYPE_UINT32 = 7,  ///< 32-bit unsigned integer, in `uint32Value`.
    META_TYPE_UINT64 = 8,  ///< 64-bit unsigned integer, in `uint64Value`.
    META_TYPE_FLOAT = 9,  ///< 32-bit floating-point number, in `floatValue`.
    META_TYPE_DOUBLE = 10,  ///< 64-bit floating-point number, in `doubleValue`.
    META_TYPE_POINTER = 11,  ///< Address that the item does not own, in `pointerValue`.
    META_TYPE_STRING = 12,  ///< String that the item owns, in `stringValue`.
    META_TYPE_BYTE_BUFFER = 13,  ///< Bytes that the item owns, in `byteBufferValue`.
    META_TYPE_FRACTION = 14,  ///< Ratio of two integers, in `fractionValue`.
    META_TYPE_RECT = 15,  ///< Four integers, in `rectValue`.
    META_TYPE_OBJECT = 16,  ///< Shared object, in `mObject` (not in the union).
};

/// A container of entries in ascending byte order of the keys. An entry is a string key with an item; an item is a
/// value with its type.
///
/// **Never use a container from two threads at the same time**: callers serialise all calls on a container, and
/// on all containers that share items with it (see Copy()). Only getters, ContainsKey() and Dump() may run at the
/// same time as each other. Begin() and End() may not, although they are const.
///
/// - Types: an entry keeps the type of the value that created it. A setter of another type is refused and a
///   getter of another type fails, also between integers of the same width. Only ReadFromMediaParam() replaces
///   the type of a key, and only Destroy() removes entries.
/// - Sharing: an item may belong to several containers. Setting an existing key changes its item in place, so
///   every container with this item has the new value.
/// - Limited types: the 8-bit, 16-bit and unsigned integers can be set, read, iterated and copied. Merge() skips
///   them, a parcel carries them without their values, and Dump() does not show their values.
/// - Lifetime: strings and byte buffers are copies that the container owns. Getters return pointers into them: the
///   caller neither frees these pointers nor uses them after the next change of the entry. Objects are shared.
///   Addresses from SetPointer() are never dereferenced and never freed.
/// - Results: true on success. On failure false, with outputs and container unchanged, unless an operation says
///   otherwise. If memory runs out, std::bad_alloc is thrown and the container is unchanged, unless an operation
///   says otherwise.
///
/// ```cpp
/// auto meta = osal::MediaMeta::Create();
/// meta->SetString("mime", "audio/raw");
/// meta->SetInt32("sample-rate", 48000);
/// int32_t rate = 44100;                     // unchanged if there is no such entry
/// meta->GetInt32("sample-rate", rate);
/// ```
class OSAL_API MediaMeta {
public:
    /// A ratio, which is never reduced. In an entry, the denominator is not 0, except in an entry from a parcel.
    struct Fraction {
        int32_t num;  ///< Numerator.
        int32_t den;  ///< Denominator.
    };

    /// Four integers, whose meaning the caller defines.
    struct Rect {
        int32_t a;  ///< First integer.
        int32_t b;  ///< Second integer.
        int32_t c;  ///< Third integer.
        int32_t d;  ///< Fourth integer.
    };

    /// A byte buffer. The size comes first here, and second in the arguments of SetByteBuffer() and
    /// GetByteBuffer().
    struct ByteBuffer {
        uint64_t size;  ///< Number of bytes.
        uint8_t* data;  ///< First byte. GetByteBuffer() returns the entry's own bytes.
    };

    /// Base class of the objects that a container shares. The container holds and releases references, and does
    /// nothing else with the objects.
    class OSAL_API MetaBase {
    public:
        /// Runs when the last reference is released, possibly by an item.
        virtual ~MetaBase();
    };

    /// One value with its type, always held by a shared pointer. Code that iterates over a container reads the
    /// fields directly: `mType` says which member of `mValue` is valid.
    class OSAL_API MetaItem {
    public:
        /// Returns a new item of META_TYPE_NONE whose deleter is Destroy(). `mValue` is not initialised.
        static std::shared_ptr<MetaItem> Create();

        /// The deleter of every item: releases what the item owns, and deletes the item, which must come from
        /// `new`.
        /// **Never call it for an item that a shared pointer holds**: that item would be deleted twice. Does
        /// nothing for null.
        static void Destroy(MetaItem* item);

        /// For Create(). Makes an item of META_TYPE_NONE whose `mValue` is not initialised, to be released with
        /// Destroy().
        MetaItem();
        /// Releases the object only. Destroy() releases strings and byte buffers.
        ~MetaItem();
        MetaItem(const MetaItem&) = delete;
        MetaItem& operator=(const MetaItem&) = delete;

        MetaType mType;  ///< Type of the value.
        /// One member for each type except META_TYPE_NONE and META_TYPE_OBJECT.
        union Value {
            int8_t int8Value;  ///< For META_TYPE_INT8.
            int16_t int16Value;  ///< For META_TYPE_INT16.
            int32_t int32Value;  ///< For META_TYPE_INT32.
            int64_t int64Value;  ///< For META_TYPE_INT64.
            uint8_t uint8Value;  ///< For META_TYPE_UINT8.
            uint16_t uint16Value;  ///< For META_TYPE_UINT16.
            uint32_t uint32Value;  ///< For META_TYPE_UINT32.
            uint64_t uint64Value;  ///< For META_TYPE_UINT64.
            float floatValue;  ///< For META_TYPE_FLOAT.
            double doubleValue;  ///< For META_TYPE_DOUBLE.
            void* pointerValue;  ///< For META_TYPE_POINTER: an address that the item does not own.
            char* stringValue;  ///< For META_TYPE_STRING: from strdup(). Null if it could not be read
                                ///< from a parcel.
            ByteBuffer byteBufferValue;  ///< For META_TYPE_BYTE_BUFFER: `data` is from new[], or null.
            Fraction fractionValue;  ///< For META_TYPE_FRACTION.
            Rect rectValue;  ///< For META_TYPE_RECT.
        } mValue;  ///< The value, unless `mType` is META_TYPE_OBJECT.
        /// For META_TYPE_OBJECT: the object, or an empty pointer. Otherwise empty.
        std::shared_ptr<MetaBase> mObject;
    };

    /// The map of a container: keys in ascending byte order.
    using ItemMap = std::map<std::string, std::shared_ptr<MetaItem>>;

    /// A position in the key order of a container.
    ///
    /// **Invalid after Destroy() and after the destruction of the container.** Adding and setting keys keeps an
    /// iterator valid.
    /// At the end position Key() is empty, Value() is an empty pointer, and ++ does nothing.
    ///
    /// ```cpp
    /// for (auto it = meta->Begin(); it != meta->End(); ++it) {
    ///     Use(it.Key(), it.Value()->mType);
    /// }
    /// ```
    class OSAL_API ConstIterator {
    public:
        /// Called by Begin() and End() only.
        OSAL_API ConstIterator(const ItemMap& map, ItemMap::const_iterator position);
        /// Creates an iterator at the position of `other`.
        OSAL_API ConstIterator(const ConstIterator& other);
        OSAL_API ~ConstIterator();
        /// Moves to the position of `other`.
        OSAL_API ConstIterator& operator=(const ConstIterator& other);

        /// Moves to the next entry. Does nothing at the end position.
        OSAL_API ConstIterator& operator++();
        /// Moves to the next entry, and returns the new position as `++it` does, **not the old position**.
        OSAL_API ConstIterator operator++(int);
        /// Returns the iterator itself, so that `(*it).Key()` is `it.Key()`.
        OSAL_API ConstIterator& operator*();

        /// Returns the key of the entry; an empty string at the end position.
        OSAL_API const std::string& Key() const;
        /// Returns the item of the entry; an empty pointer at the end position. Copies of the pointer keep the
        /// item alive.
        OSAL_API const std::shared_ptr<MetaItem>& Value() const;

        /// Returns true for the same position. Both iterators must belong to the same container.
        OSAL_API bool operator==(const ConstIterator& other) const;
        /// Returns false for the same position. Both iterators must belong to the same container.
        OSAL_API bool operator!=(const ConstIterator& other) const;

    private:
        friend class MediaMeta;

        static const std::string& EmptyKey();
        static const std::shared_ptr<MetaItem>& EmptyValue();

        const ItemMap* mMap;  // tells Key(), Value() and ++ where the entries end
        ItemMap::const_iterator mIter;
    };

    /// Returns a new empty container.
    static std::shared_ptr<MediaMeta> Create();

    /// Creates an empty container, as a member or a base class. Create() is for all other uses.
    MediaMeta();
    /// Releases all items. Items that have another holder stay alive.
    virtual ~MediaMeta();
    MediaMeta(const MediaMeta&) = delete;
    MediaMeta& operator=(const MediaMeta&) = delete;

    /// Removes every entry. Items that have another holder stay alive. The container can be filled again, and
    /// keys may get other types.
    void Destroy();

    /// Returns true if `key` has an entry, of any type. Returns false for null.
    bool ContainsKey(const char* key) const;

    /// @name Setters of numbers and addresses
    /// @{

    /// Stores a value under a copy of `key`: a new key gets a new entry, and an existing entry of the same type
    /// changes in place. Returns false, changes nothing and logs nothing for a null key and for an entry of
    /// another type. All setters follow these rules, unless a setter says otherwise.
    bool SetInt8(const char* key, int8_t value);
    bool SetInt16(const char* key, int16_t value);
    bool SetInt32(const char* key, int32_t value);
    bool SetInt64(const char* key, int64_t value);
    bool SetUint8(const char* key, uint8_t value);
    bool SetUint16(const char* key, uint16_t value);
    bool SetUint32(const char* key, uint32_t value);
    bool SetUint64(const char* key, uint64_t value);
    bool SetFloat(const char* key, float value);
    bool SetDouble(const char* key, double value);
    bool SetPointer(const char* key, void* value);

    /// @}

    /// @name Setters of fractions
    /// @{

    /// As SetInt32(). Also returns false if the denominator is 0.
    bool SetFraction(const char* key, Fraction value);
    bool SetFraction(const char* key, int32_t num, int32_t den);

    /// @}

    /// @name Setters of rectangles
    /// @{

    /// As SetInt32(), for any four integers.
    bool SetRect(const char* key, Rect value);
    bool SetRect(const char* key, int32_t a, int32_t b, int32_t c, int32_t d);

    /// @}

    /// @name Setters of strings, byte buffers and objects
    /// @{

    /// Stores a copy of the string. `value` may point into the entry's own string. An equal string changes
    /// nothing, and pointers from GetString() stay valid; a different string makes them invalid. Also returns
    /// false for a null string (logs nothing). If there is no memory for the copy, logs an error, keeps the old
    /// string and returns false.
    bool SetString(const char* key, const char* value);
    /// Stores a copy of the bytes in a new buffer. Pointers from GetByteBuffer() become invalid, even if the bytes
    /// are equal. `value` may be the entry's own buffer. Logs an error and returns false for a null key, for null
    /// data and for a size of 0. If the platform refuses to copy that many bytes, the entry gets a buffer of that
    /// size with undefined content, and the result is false.
    bool SetByteBuffer(const char* key, ByteBuffer value);
    /// As the other form, with the pointer before the size.
    bool SetByteBuffer(const char* key, uint8_t* data, uint64_t size);
    /// Shares the object and releases the previous object of the entry. An empty pointer is stored too.
    bool SetObject(const char* key, const std::shared_ptr<MetaBase>& value);

    /// @}

    /// @name Getters of numbers, addresses, fractions and rectangles
    /// @{

    /// Copies the value of the entry to the outputs. Returns false, leaves the outputs unchanged and logs nothing
    /// if `key` is null, has no entry, or has an entry of another type. All getters follow these rules.
    bool GetInt8(const char* key, int8_t& value) const;
    bool GetInt16(const char* key, int16_t& value) const;
    bool GetInt32(const char* key, int32_t& value) const;
    bool GetInt64(const char* key, int64_t& value) const;
    bool GetUint8(const char* key, uint8_t& value) const;
    bool GetUint16(const char* key, uint16_t& value) const;
    bool GetUint32(const char* key, uint32_t& value) const;
    bool GetUint64(const char* key, uint64_t& value) const;
    bool GetFloat(const char* key, float& value) const;
    bool GetDouble(const char* key, double& value) const;
    bool GetPointer(const char* key, void*& value) const;
    bool GetFraction(const char* key, int32_t& num, int32_t& den) const;
    bool GetFraction(const char* key, Fraction& value) const;
    bool GetRect(const char* key, int32_t& a, int32_t& b, int32_t& c, int32_t& d) const;
    bool GetRect(const char* key, Rect& value) const;

    /// @}

    /// @name Getters of strings, byte buffers and objects
    /// @{

    /// Sets `value` to the entry's own string, which the caller must not free or change. The string is valid until
    /// a different string is set under the key or the item is released. Sets null if the string could not be read
    /// from a parcel.
    bool GetString(const char* key, const char*& value) const;
    /// Sets `data` to the entry's own bytes, which the caller must not free. The bytes are valid until bytes are
    /// set under the key again or the item is released. Writing to them changes the stored bytes. `size` gets only
    /// the low 32 bits of the size: use the other form for byte buffers of 2 GiB and more. Sets null and 0 if the
    /// entry came from a parcel, which carries no bytes.
    bool GetByteBuffer(const char* key, uint8_t*& data, int32_t& size) const;
    /// As the other form, with the size in 64 bits.
    bool GetByteBuffer(const char* key, ByteBuffer& value) const;
    /// Sets `value` to a new reference to the object, and releases the object that `value` held before. `value`
    /// becomes empty if the entry has no object.
    bool GetObject(const char* key, std::shared_ptr<MetaBase>& value) const;

    /// @}

    /// Returns a new container with the same entries. **The containers share their items**, except strings and
    /// byte buffers, which are copied: setting the key of a shared item in one container changes both. Logs one or
    /// two errors and returns an empty pointer if a string or a byte buffer cannot be copied: the entry came from
    /// a parcel without its value, there is no memory for a string, or the platform refuses to copy that many
    /// bytes. This container never changes.
    std::shared_ptr<MediaMeta> Copy() const;

    /// Sets every entry of `other` in this container through the setters, in key order. Objects are shared. At the
    /// first entry that its setter refuses, logs one or two errors and returns false; the entries before stay
    /// merged.
    /// Setters also refuse entries whose string or bytes could not be read from a parcel, or with the denominator
    /// 0. Entries of 8-bit, 16-bit and unsigned integers, of META_TYPE_NONE and of unknown types are skipped, with
    /// an error line each, and do not change the result. If `other` is an empty pointer, returns false and logs
    /// nothing. If memory runs out, the entries that were merged before stay merged.
    bool Merge(std::shared_ptr<MediaMeta> other);

    /// Returns the position of the first entry, or End() if there is none. **Although const, it must not run at
    /// the same time as another call**: it keeps a copy of the iterator in the container.
    OSAL_API ConstIterator Begin() const;
    /// Returns the position behind the last entry. As Begin(), it must not run at the same time as another call.
    OSAL_API ConstIterator End() const;

    /// Writes every entry to the log at debug priority. An entry of META_TYPE_NONE is written without its key. A
    /// string entry without a string is written as "(null)". 8-bit, 16-bit and unsigned integers and unknown types
    /// are reported as unknown items at error priority, without their values.
    void Dump() const;

    /// Appends the whole container to a parcel. 32-bit and 64-bit signed integers, addresses, floating-point
    /// numbers, strings, fractions and rectangles are carried. Every other entry is written without its value,
    /// with an error line, and makes the result false. Returns false and logs nothing for null.
    ///
    /// **The result does not tell that the parcel is full**: the parcel refuses values that do not fit, with an
    /// error line each. A string entry without a string is written as an empty string, so that the strings after
    /// it keep their places. If memory runs out, the parcel keeps what was written before and must not be read.
    bool WriteToMediaParam(MediaParam* param);

    /// Reads the entries that WriteToMediaParam() wrote to a parcel. Each entry gets a new item, which replaces
    /// the previous item of its key, whatever its type: no other operation changes the type of a key. Other
    /// containers keep the previous item. Other entries stay.
    ///
    /// Returns false if an entry has a type that is not carried (logs an error), has no string (logs nothing), or
    /// if there is no memory for its string (logs an error). Such an entry is stored with its type and an empty
    /// value. Also returns false, and logs nothing, for null.
    ///
    /// **The result does not tell that fixed-size values are missing**: they are read as zeros, with an error line
    /// each from the parcel. Nothing checks that the parcel contains a container: the count is trusted, and
    /// entries without a key are skipped. If memory runs out for anything but a string, std::bad_alloc is
    /// thrown: the entries that were read before stay, and the rest of the parcel must not be read.
    bool ReadFromMediaParam(const MediaParam* param);

private:
    void Keep(std::unique_ptr<ConstIterator>& slot, ItemMap::const_iterator position) const;

    ItemMap mItems;
    // The last iterators that Begin() and End() created.
    mutable std::unique_ptr<ConstIterator> mBeginIter;
    mutable std::unique_ptr<ConstIterator> mEndIter;
};

// Inline for speed: iteration is mostly these operations.

OSAL_INLINE MediaMeta::ConstIterator::ConstIterator(const ItemMap& map, ItemMap::const_iterator position)
    : mMap(&map), mIter(position)
{
}

OSAL_INLINE MediaMeta::ConstIterator::ConstIterator(const ConstIterator& other) = default;

OSAL_INLINE MediaMeta::ConstIterator::~ConstIterator() {}

OSAL_INLINE MediaMeta::ConstIterator& MediaMeta::ConstIterator::operator=(const ConstIterator& other) = default;

OSAL_INLINE MediaMeta::ConstIterator& MediaMeta::ConstIterator::operator++()
{
    if (mIter != mMap->end()) {
        ++mIter;
    }
    return *this;
}

OSAL_INLINE MediaMeta::ConstIterator MediaMeta::ConstIterator::operator++(int) { return ++*this; }

OSAL_INLINE MediaMeta::ConstIterator& MediaMeta::ConstIterator::operator*() { return *this; }

OSAL_INLINE const std::string& MediaMeta::ConstIterator::Key() const
{
    return mIter != mMap->end() ? mIter->first : EmptyKey();
}

OSAL_INLINE const std::shared_ptr<MediaMeta::MetaItem>& MediaMeta::ConstIterator::Value() const
{
    return mIter != mMap->end() ? mIter->second : EmptyValue();
}

OSAL_INLINE bool MediaMeta::ConstIterator::operator==(const ConstIterator& other) const
{
    return mIter == other.mIter;
}

OSAL_INLINE bool MediaMeta::ConstIterator::operator!=(const ConstIterator& other) const
{
    return mIter != other.mIter;
}

OSAL_INLINE MediaMeta::ConstIterator MediaMeta::Begin() const
{
    if (!mBeginIter || mBeginIter->mIter != mItems.begin()) {
        Keep(mBeginIter, mItems.begin());
    }
    return *mBeginIter;
}

OSAL_INLINE MediaMeta::ConstIterator MediaMeta::End() const
{
    if (!mEndIter) {  // the end position never changes
        Keep(mEndIter, mItems.end());
    }
    return *mEndIter;
}

}  // namespace osal
