#pragma once

/// @file
/// MediaParam: values, strings and shared objects in a row, inside one process.

#include "osal/export.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace osal {

/// Bytes of fixed-size values that a parcel holds.
inline constexpr uint64_t MEDIA_PARAM_CAPACITY = 32768;

/// Status of a fixed-size read or write for which there are no more bytes.
inline constexpr int32_t ERR_NO_MORE = -1;

/// Base of the objects that a parcel carries by shared pointer; it needs nothing of them but that they can
/// be released.
class OSAL_API MediaRefBase {
public:
    /// Called when the last reference goes, which may be a parcel's.
    virtual ~MediaRefBase();
};

/// Values written one after another and read back in the same order, inside one process.
///
/// **Not for use from two threads at once, readers included**: the const reads move the read positions.
///
/// - Order: fixed-size values, strings and shared pointers are three sequences of their own, each in the
///   order of writing. Nothing records types: the reader reads the widths that were written. Reading and
///   writing may interleave; there is no way back but a copy, which reads from the start.
/// - Room: MEDIA_PARAM_CAPACITY bytes of fixed-size values, which never grow; strings and pointers take none
///   of it.
/// - Results: 0 or -1 (ERR_NO_MORE), or the value itself. Running out of memory throws std::bad_alloc and
///   leaves the parcel as it was.
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
    /// An empty parcel.
    MediaParam();
    /// As Copy() on a parcel that has no store: where `other` has none, every fixed write and read of the new
    /// parcel fails.
    MediaParam(const MediaParam& other);
    /// The same; with null, too, every fixed write and read of the new parcel fails.
    explicit MediaParam(const MediaParam* other);
    /// As Copy().
    MediaParam& operator=(const MediaParam& other);
    /// Lets go of the objects from the last written to the first.
    ~MediaParam();

    /// Makes this parcel a copy of `other` that reads from the start; strings are copied, objects shared.
    /// `other` keeps its own positions. Logs an error and changes nothing for null. Copying a parcel onto
    /// itself changes nothing, read positions included. From a parcel without a store it logs an error and
    /// leaves this one empty with a capacity of 0, so that every fixed write and read fails.
    void Copy(const MediaParam* other);

    /// @name Writing fixed-size values
    /// @{

    /// Appends one fixed-size value, in native byte order without padding: 4 bytes for an int32 and a float, 8
    /// for the others. -1, with an error line and nothing changed, when it does not fit; a narrower value may
    /// still fit. Addresses are never dereferenced.
    int32_t WriteInt32(int32_t value);
    int32_t WriteInt64(int64_t value);
    int32_t WriteFloat(float value);
    int32_t WriteDouble(double value);
    int32_t WriteRawPointer(const uint8_t* ptr);

    /// @}

    /// @name Writing strings and objects
    /// @{

    /// Appends a copy of the text. -1, with nothing stored or logged, for null.
    int32_t WriteString(const char* str);
    /// Appends a reference to the object; an empty pointer is appended too. Always 0.
    int32_t WritePointer(const std::shared_ptr<MediaRefBase>& ref);

    /// @}

    /// @name Reading fixed-size values
    /// @{

    /// Reads the next fixed-size value into `*out`. -1, with an error line and the output and the position
    /// unchanged, when fewer bytes are unread than the value has; -1 without a line for null.
    int32_t ReadInt32(int32_t* out) const;
    int32_t ReadInt64(int64_t* out) const;
    int32_t ReadFloat(float* out) const;
    int32_t ReadDouble(double* out) const;
    int32_t ReadRawPointer(uint8_t** out) const;

    /// @}

    /// @name Reading fixed-size values as results
    /// @{

    /// The same, returning the value. A failure gives zero; only the error line tells it from a stored zero.
    int32_t ReadInt32() const;
    int64_t ReadInt64() const;
    float ReadFloat() const;
    double ReadDouble() const;
    uint8_t* ReadRawPointer() const;

    /// @}

    /// @name Reading strings and objects
    /// @{

    /// The next string, null after the last. It stays the parcel's and valid until a string is written, or
    /// the parcel is copied over or destroyed.
    const char* ReadString() const;
    /// A new reference to the next object, empty after the last.
    std::shared_ptr<MediaRefBase> ReadPointer() const;

    /// @}

private:
    template <typename T>
    int32_t WriteFixed(T value);
    template <typename T>
    int32_t ReadFixed(T* out) const;
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
