// The library's parcel, and the bound: a raw copy into a buffer.

#include "parcel_shapes.h"

#include "osal/media_param.h"

#include <memory>

namespace bench {

namespace {

class OsalParcel {
public:
    static constexpr const char* NAME = "osal";

    void Write(int32_t value) { mParam.WriteInt32(value); }
    void Write(int64_t value) { mParam.WriteInt64(value); }
    void Write(const char* value) { mParam.WriteString(value); }
    int32_t ReadInt32() { return mParam.ReadInt32(); }
    int64_t ReadInt64() { return mParam.ReadInt64(); }
    uint64_t ReadTextSize() { return std::strlen(mParam.ReadString()); }
    OsalParcel Copy() { return *this; }

private:
    osal::MediaParam mParam;
};

// Nothing is checked. Texts lie in the same buffer, with their ends.
class RawBuffer {
public:
    static constexpr const char* NAME = "memcpy";

    RawBuffer() : mData(new uint8_t[SIZE_BYTES]) {}

    void Write(int32_t value) { Append(&value, sizeof(value)); }
    void Write(int64_t value) { Append(&value, sizeof(value)); }
    void Write(const char* value) { Append(value, std::strlen(value) + 1); }
    int32_t ReadInt32() { return Next<int32_t>(); }
    int64_t ReadInt64() { return Next<int64_t>(); }
    uint64_t ReadTextSize()
    {
        const size_t size = std::strlen(reinterpret_cast<const char*>(&mData[mReadPos]));
        mReadPos += size + 1;
        return size;
    }
    RawBuffer Copy()
    {
        RawBuffer copy;
        copy.Append(mData.get(), mWritePos);
        return copy;
    }

private:
    static constexpr size_t SIZE_BYTES = osal::MEDIA_PARAM_CAPACITY;

    void Append(const void* data, size_t size)
    {
        std::memcpy(&mData[mWritePos], data, size);
        mWritePos += size;
    }
    template <typename T>
    T Next()
    {
        T value{};
        std::memcpy(&value, &mData[mReadPos], sizeof(value));
        mReadPos += sizeof(value);
        return value;
    }

    std::unique_ptr<uint8_t[]> mData;
    size_t mWritePos = 0;
    size_t mReadPos = 0;
};

const bool REGISTERED = RegisterParcel<OsalParcel>() && RegisterParcel<RawBuffer>();

}  // namespace

}  // namespace bench
