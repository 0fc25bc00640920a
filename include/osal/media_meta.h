#pragma once

/// @file
/// MediaMeta: typed values under text keys, with copy, merge, iteration and dump.

#include "osal/export.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>

namespace osal {

class MediaParam;

/// Type of one metadata value. The numbers travel in parcels and stand in log lines: they never change.
enum MetaType : int32_t {
    META_TYPE_NONE = 0,  ///< No value: an item as MetaItem::Create() makes it.
    META_TYPE_INT8 = 1,  ///< `int8Value`
    META_TYPE_INT16 = 2,  ///< `int16Value`
    META_TYPE_INT32 = 3,  ///< `int32Value`
    META_TYPE_INT64 = 4,  ///< `int64Value`
    META_TYPE_UINT8 = 5,  ///< `uint8Value`
    META_TYPE_UINT16 = 6,  ///< `uint16Value`
    META_TYPE_UINT32 = 7,  ///< `uint32Value`
    META_TYPE_UINT64 = 8,  ///< `uint64Value`
    META_TYPE_FLOAT = 9,  ///< `floatValue`
    META_TYPE_DOUBLE = 10,  ///< `doubleValue`
    META_TYPE_POINTER = 11,  ///< `pointerValue`
    META_TYPE_STRING = 12,  ///< `stringValue`
    META_TYPE_BYTE_BUFFER = 13,  ///< `byteBufferValue`
    META_TYPE_FRACTION = 14,  ///< `fractionValue`
    META_TYPE_RECT = 15,  ///< `rectValue`
    META_TYPE_OBJECT = 16,  ///< `mObject`, outside the union
};

/// Typed values under text keys, walked in ascending byte order of the keys.
///
/// **Not for use from two threads at once**: callers serialise the calls on a container, and on all containers
/// that share items with it (see Copy()). Only getters, ContainsKey() and Dump() may run beside each other;
/// Begin() and End(), although const, may not.
///
/// - Types: a key keeps the type of the value that made its entry: a setter of another type is refused, a
///   getter of another type fails, whatever the widths. Only Destroy() removes entries.
/// - Sharing: an item may belong to several containers. Setting an existing key changes its item in place, so
///   every holder of the item sees the new value.
/// - Reach: the 8- and 16-bit and the unsigned integers can be set, read, walked and copied, and no more:
///   Merge() skips them, a parcel carries them without their values, Dump() does not show them.
/// - Lifetime: texts and byte blocks are the container's own copies; getters hand out pointers into them,
///   which the caller neither frees nor keeps beyond the next change of the entry. Objects are shared.
///   Addresses set with SetPointer() are never dereferenced and never freed.
/// - Results: true, or false with outputs and container unchanged, except where an operation says more.
///   Running out of memory throws std::bad_alloc and leaves the container as it was, likewise.
///
/// ```cpp
/// auto meta = osal::MediaMeta::Create();
/// meta->SetString("mime", "audio/raw");
/// meta->SetInt32("sample-rate", 48000);
/// int32_t rate = 44100;                     // kept when there is no such entry
/// meta->GetInt32("sample-rate", rate);
/// ```
class OSAL_API MediaMeta {
public:
    /// A ratio. The denominator of a stored one is never 0 unless it came from a parcel; nothing is reduced.
    struct Fraction {
        int32_t num;  ///< Numerator.
        int32_t den;  ///< Denominator.
    };

    /// Four integers whose meaning is the caller's.
    struct Rect {
        int32_t a;  ///< The first.
        int32_t b;  ///< The second.
        int32_t c;  ///< The third.
        int32_t d;  ///< The fourth.
    };

    /// A block of bytes. The count comes first, unlike in the argument lists of SetByteBuffer() and
    /// GetByteBuffer().
    struct ByteBuffer {
        uint64_t size;  ///< Count of bytes.
        uint8_t* data;  ///< The bytes; whose they are depends on where the structure comes from.
    };

    /// Base of the objects that a container shares; it needs nothing of them but that they can be released.
    class OSAL_API MetaBase {
    public:
        /// Called when the last reference goes, which may be an item's.
        virtual ~MetaBase();
    };

    /// One value, held by shared pointer only. Callers that walk a container read the fields directly:
    /// `mType` names the one member of `mValue` that has a meaning.
    class OSAL_API MetaItem {
    public:
        /// A new item of META_TYPE_NONE, released by Destroy() when its last reference goes. `mValue` is
        /// left unset.
        static std::shared_ptr<MetaItem> Create();

        /// The deleter of every item: releases what the item owns, then the item. Not for callers.
        static void Destroy(MetaItem* item);

        /// For Create(), which callers use instead.
        MetaItem();
        /// Lets go of the object alone: texts and blocks are released by Destroy().
        ~MetaItem();
        MetaItem(const MetaItem&) = delete;
        MetaItem& operator=(const MetaItem&) = delete;

        MetaType mType;  ///< Which value the item has.
        /// One member for each type but META_TYPE_OBJECT.
        union Value {
            int8_t int8Value;  ///< META_TYPE_INT8
            int16_t int16Value;  ///< META_TYPE_INT16
            int32_t int32Value;  ///< META_TYPE_INT32
            int64_t int64Value;  ///< META_TYPE_INT64
            uint8_t uint8Value;  ///< META_TYPE_UINT8
            uint16_t uint16Value;  ///< META_TYPE_UINT16
            uint32_t uint32Value;  ///< META_TYPE_UINT32
            uint64_t uint64Value;  ///< META_TYPE_UINT64
            float floatValue;  ///< META_TYPE_FLOAT
            double doubleValue;  ///< META_TYPE_DOUBLE
            void* pointerValue;  ///< META_TYPE_POINTER: an address that the item does not own.
            char* stringValue;  ///< META_TYPE_STRING, from strdup(); null in an entry that came without its text.
            ByteBuffer byteBufferValue;  ///< META_TYPE_BYTE_BUFFER, with data from new[].
            Fraction fractionValue;  ///< META_TYPE_FRACTION
            Rect rectValue;  ///< META_TYPE_RECT
        } mValue;  ///< The value, unless it is an object.
        std::shared_ptr<MetaBase> mObject;  ///< Only in META_TYPE_OBJECT, and may be empty there too.
    };

    /// What a container is inside: entries in ascending byte order of their keys.
    using ItemMap = std::map<std::string, std::shared_ptr<MetaItem>>;

    /// A position in a container's key order.
    ///
    /// Invalid once the container is cleared or destroyed; adding and setting keys keeps it valid. At the end
    /// position Key() is empty, Value() is an empty pointer, and ++ does not move.
    ///
    /// ```cpp
    /// for (auto it = meta->Begin(); it != meta->End(); ++it) {
    ///     Use(it.Key(), it.Value()->mType);
    /// }
    /// ```
    class OSAL_API ConstIterator {
    public:
        /// For Begin() and End(), which callers use instead.
        ConstIterator(const ItemMap& map, ItemMap::const_iterator position)
            : mMap(&map), mIter(position), mEnd(map.end())
        {
        }
        /// Takes the position alone: a copy does not know its map.
        ConstIterator(const ConstIterator& other) : mMap(nullptr), mIter(other.mIter), mEnd(other.mEnd) {}
        ~ConstIterator() = default;
        /// Takes the position alone, likewise.
        ConstIterator& operator=(const ConstIterator& other)
        {
            mIter = other.mIter;
            mEnd = other.mEnd;
            return *this;
        }

        /// Moves to the next entry, and not beyond the end.
        ConstIterator& operator++()
        {
            if (mIter != mEnd) {
                ++mIter;
            }
            return *this;
        }
        /// Returns the new position, as `++it` does, not the old one.
        ConstIterator operator++(int) { return ++*this; }
        /// The iterator itself, whose Key() and Value() are the entry.
        ConstIterator& operator*() { return *this; }

        /// The entry's key; empty at the end.
        const std::string& Key() const { return mIter != mEnd ? mIter->first : EmptyKey(); }
        /// The entry's item; an empty pointer at the end. A copy of the pointer keeps the item alive.
        const std::shared_ptr<MetaItem>& Value() const { return mIter != mEnd ? mIter->second : EmptyValue(); }

        /// True for the same position of the same container; others are not to be compared.
        bool operator==(const ConstIterator& other) const { return mIter == other.mIter; }
        /// The opposite.
        bool operator!=(const ConstIterator& other) const { return mIter != other.mIter; }

    private:
        friend class MediaMeta;

        static const std::string& EmptyKey();
        static const std::shared_ptr<MetaItem>& EmptyValue();

        [[maybe_unused]] const ItemMap* mMap;
        ItemMap::const_iterator mIter;
        ItemMap::const_iterator mEnd;
    };

    /// A new empty container.
    static std::shared_ptr<MediaMeta> Create();

    /// An empty container; for members and subclasses, beside Create().
    MediaMeta();
    /// Lets go of all items; those that are still held elsewhere live on.
    virtual ~MediaMeta();
    MediaMeta(const MediaMeta&) = delete;
    MediaMeta& operator=(const MediaMeta&) = delete;

    /// Removes every entry; the container can be filled again, with other types too. Items that are still
    /// held elsewhere live on.
    void Destroy();

    /// True when there is an entry under `key`, whatever its type. False for null.
    bool ContainsKey(const char* key) const;

    /// @name Setters of numbers and addresses
    /// @{

    /// Stores a value under a copy of `key`: a new key makes an entry, an existing entry of the same type is
    /// changed in place. False, with nothing changed and nothing logged, for a null key and for an entry of
    /// another type. All setters keep to this, and some say more.
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

    /// As SetInt32(), and false also when the denominator is 0.
    bool SetFraction(const char* key, Fraction value);
    bool SetFraction(const char* key, int32_t num, int32_t den);

    /// @}

    /// @name Setters of rectangles
    /// @{

    /// As SetInt32(), with any four integers.
    bool SetRect(const char* key, Rect value);
    bool SetRect(const char* key, int32_t a, int32_t b, int32_t c, int32_t d);

    /// @}

    /// @name Setters of texts, blocks and objects
    /// @{

    /// Stores a copy of the text, which may be part of the entry's own. Setting an equal text changes nothing,
    /// so pointers from GetString() stay valid; a different text invalidates them. Also false for a null text,
    /// and, with an error line and the old text kept, when there is no memory for the copy.
    bool SetString(const char* key, const char* value);
    /// Stores a copy of the bytes in a fresh block, even when they are equal: pointers from GetByteBuffer()
    /// become invalid. `value` may be the entry's own block. Also false, with an error line, for a null
    /// key, null data and a count of 0. (A count over SIZE_MAX / 2 cannot be copied: should the block be had at
    /// all, it is stored unfilled, with false.)
    bool SetByteBuffer(const char* key, ByteBuffer value);
    /// The same, with the pointer before the count.
    bool SetByteBuffer(const char* key, uint8_t* data, uint64_t size);
    /// Shares the object and lets go of the entry's previous one. An empty pointer is stored as such.
    bool SetObject(const char* key, const std::shared_ptr<MetaBase>& value);

    /// @}

    /// @name Getters of plain values
    /// @{

    /// Writes the entry's value to the outputs. False, with the outputs untouched and nothing logged, when
    /// `key` is null, has no entry, or has an entry of another type. All getters keep to this, and some say
    /// more.
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

    /// @name Getters of texts, blocks and objects
    /// @{

    /// Hands out the entry's own text, valid until a different text is set under the key or the item is
    /// released. Not to be freed or changed. Null when the entry came from a parcel without its text.
    bool GetString(const char* key, const char*& value) const;
    /// Hands out the entry's own block, valid until bytes are set under the key again or the item is
    /// released. Not to be freed; writing into it changes the stored bytes. `size` keeps the low 32 bits of the
    /// count: use the other form for blocks of 2 GiB and more.
    bool GetByteBuffer(const char* key, uint8_t*& data, int32_t& size) const;
    /// The same, with the whole count.
    bool GetByteBuffer(const char* key, ByteBuffer& value) const;
    /// Adds a reference to the object and drops the one that `value` held.
    bool GetObject(const char* key, std::shared_ptr<MetaBase>& value) const;

    /// @}

    /// A new container with the same entries. It shares every item with this one, except texts and byte
    /// blocks, which are copied: setting a shared key in one container changes it in both. Empty pointer,
    /// with one error line or two, when a text or a block cannot be copied: an entry that came from a parcel
    /// without its value, or no memory for a text. This container never changes.
    std::shared_ptr<MediaMeta> Copy() const;

    /// Sets every entry of `other` here through the setters, in key order; objects are shared. Stops with
    /// false and an error line at the first entry that its setter refuses; those before it stay merged.
    /// Entries that have no part in it (8- and 16-bit, unsigned and empty ones, types that there are not) are
    /// skipped with an error line each and do not count as failures. False, with nothing logged, for an empty
    /// `other`. If memory runs out, the entries merged so far stay.
    bool Merge(std::shared_ptr<MediaMeta> other);

    /// The first entry, or End() where there is none. Keeps what it hands out in the container, so although
    /// const it must not run beside any other use of it.
    ConstIterator Begin() const
    {
        if (!mBeginIter || mBeginIter->mIter != mItems.begin()) {
            Keep(mBeginIter, mItems.begin());
        }
        return *mBeginIter;
    }
    /// The position behind the last entry; as Begin().
    ConstIterator End() const
    {
        if (!mEndIter) {  // the end is the same for good
            Keep(mEndIter, mItems.end());
        }
        return *mEndIter;
    }

    /// Writes every entry to the log at debug priority, one without type without its key. The 8- and 16-bit and
    /// the unsigned integers, and types that there are not, are reported as unknown items at error priority,
    /// without their values.
    void Dump() const;

    /// Appends the whole container to a parcel. 32- and 64-bit signed integers, addresses, floats, texts,
    /// fractions and rectangles travel; every other entry travels without its value, gets an error line
    /// and makes the result false. False, with nothing logged, for null. Room is not checked: values that
    /// no longer fit are dropped by the parcel with its own error lines, and the result does not tell. A
    /// text entry that has no text travels as an empty text, so that the entries behind it keep their place.
    /// If memory runs out, the parcel keeps what was written so far and is not fit to be read.
    bool WriteToMediaParam(MediaParam* param);

    /// Reads entries from a parcel that WriteToMediaParam() wrote and puts each in place of what its key
    /// held, of whatever type; other entries stay. An entry that came without a value is stored with its
    /// type, all zero and empty, and makes the result false, with an error line unless only a text was
    /// missing. False, with nothing logged, for null. Nothing checks that the parcel holds a container:
    /// the count is taken at its word, values that are missing are read as zeros, entries whose key is
    /// missing are skipped. If memory runs out, the entries read so far stay; a text for which there is none,
    /// with an error line, leaves its key as it was and makes the result false.
    bool ReadFromMediaParam(const MediaParam* param);

private:
    void Keep(std::unique_ptr<ConstIterator>& slot, ItemMap::const_iterator position) const;

    ItemMap mItems;
    // What Begin() and End() handed out last.
    mutable std::unique_ptr<ConstIterator> mBeginIter;
    mutable std::unique_ptr<ConstIterator> mEndIter;
};

}  // namespace osal
