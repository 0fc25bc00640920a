#pragma once

/// @file
/// MediaParam: values, strings and shared objects in sequence, inside one process.

#include "osal/export.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace osal {

/// Capacity of a parcel for fixed-size values, in bytes.
inline constexpr uint64_t MEDIA_PARAM_CAPACITY = 32768;

/// Result of a fixed-size read without enough unread bytes, and of a fixed-size write without enough room.
inline constexpr int32_t ERR_NO_MORE = -1;

/// Base class of the objects that a parcel carries. The parcel holds and releases references, and does nothing
/// else with the objects.
class OSAL_API MediaRefBase {
public:
    /// Runs when the last reference is released, possibly by a parcel.
    virtual ~MediaRefBase();
};

/// A parcel: values that are written one after another and read in the same order, inside one process.
///
/// **Never use a parcel from two threads at the same time, not even to read**: the const reads move the read
/// positions.
///
/// - Order: fixed-size values, strings and objects are three separate sequences, each in the order of
///   writing. Types are not recorded: the reader reads the same widths that were written. Reads and writes may
///   alternate. Nothing moves a read position back; only a copy of the parcel reads from the start.
/// - Capacity: MEDIA_PARAM_CAPACITY bytes of fixed-size values, which never grow. Strings and objects do not
///   use this capacity.
/// - Copies: a parcel has no move operation. Returning a parcel by value may copy its 32 KiB, and the copy reads
///   from the start.
/// - Results: 0 or -1 (ERR_NO_MORE), or the value itself. If memory runs out, std::bad_alloc is thrown and the
///   parcel is unchanged.
///
/// ```cpp
/// osal::MediaParam param;
/// param.WriteInt32(48000);
/// param.WriteString("audio/raw");
/// int32_t rate = param.ReadInt32();
/// const char* mime = param.ReadString();
/// ```
class OSAL_API MediaParam {
public:
    /// Creates an empty parcel.
    MediaParam();
    /// Creates a copy of `other` that reads from the start, as from Copy(). If `other` has a capacity of 0, logs
    /// an error, and the new parcel has a capacity of 0, too: all its fixed-size writes and reads fail.
    MediaParam(const MediaParam& other);
    /// As the other copy constructor. From null, logs an error, and the new parcel has a capacity of 0. **Where a
    /// parcel is expected, a pointer is converted to such a copy without a sign of it.**
    MediaParam(const MediaParam* other);
    /// As Copy().
    MediaParam& operator=(const MediaParam& other);
    /// Releases the objects, the last written first.
    ~MediaParam();

    /// Makes this parcel a copy of `other` that reads from the start. Strings are copied, objects are shared.
    /// `other` keeps its read positions. Null logs an error and changes nothing. A copy onto itself changes
    /// nothing, not even the read positions. An `other` with a capacity of 0 logs an error and leaves this parcel
    /// empty with a capacity of 0: all its fixed-size writes and reads fail. The same happens if the platform
    /// refuses to copy the bytes.
    void Copy(const MediaParam* other);

    /// @name Writing fixed-size values
    /// @{

    /// Appends one value in native byte order, without padding: 4 bytes for int32_t and float, 8 bytes for the
    /// other types. If the value does not fit, logs an error, changes nothing and returns -1; a smaller value may
    /// still fit. Addresses are never dereferenced.
    int32_t WriteInt32(int32_t value);
    int32_t WriteInt64(int64_t value);
    int32_t WriteFloat(float value);
    int32_t WriteDouble(double value);
    int32_t WriteRawPointer(const uint8_t* ptr);

    /// @}

    /// @name Writing strings and objects
    /// @{

    /// Appends a copy of the string and returns 0. For null, stores nothing, logs nothing and returns -1.
    int32_t WriteString(const char* str);
    /// Appends a reference to the object, or an empty pointer. Always returns 0.
    int32_t WritePointer(const std::shared_ptr<MediaRefBase>& ref);

    /// @}

    /// @name Reading fixed-size values into an output
    /// @{

    /// Reads the next value to `*out` and returns 0. If fewer bytes are unread than the value needs, logs an
    /// error, changes neither the output nor the read position and returns -1. For null, logs nothing and returns
    /// -1.
    int32_t ReadInt32(int32_t* out) const;
    int32_t ReadInt64(int64_t* out) const;
    int32_t ReadFloat(float* out) const;
    int32_t ReadDouble(double* out) const;
    int32_t ReadRawPointer(uint8_t** out) const;

    /// @}

    /// @name Reading fixed-size values as results
    /// @{

    /// Reads the next value and returns it. If fewer bytes are unread than the value needs, logs an error, does
    /// not change the read position and returns 0 or null: only the error line tells this from a stored zero.
    int32_t ReadInt32() const;
    int64_t ReadInt64() const;
    float ReadFloat() const;
    double ReadDouble() const;
    uint8_t* ReadRawPointer() const;

    /// @}

    /// @name Reading strings and objects
    /// @{

    /// Returns the next string, or null after the last one. The parcel owns the string, which is valid until
    /// another string is written, the parcel is assigned or destroyed, or Copy() changes the parcel.
    const char* ReadString() const;
    /// Returns a new reference to the next object, or an empty pointer after the last one.
    std::shared_ptr<MediaRefBase> ReadPointer() const;

    /// @}

private:
    template <typename T>
    int32_t WriteFixed(T value);
    template <typename T>
    int32_t ReadFixed(T* out) const;
    template <typename T>
    T ReadFixedOrZero() const;
    void Reset();

    std::unique_ptr<uint8_t[]> mData;
    uint64_t mCapacity = 0;
    uint64_t mWritePos = 0;  // at most mCapacity
    mutable uint64_t mReadPos = 0;  // at most mWritePos
    std::vector<std::string> mStrings;
    mutable uint64_t mStringReadIndex = 0;
    std::vector<std::shared_ptr<MediaRefBase>> mRefs;
    mutable uint64_t mRefReadIndex = 0;
};

}  // namespace osal
