#include "osal/media_param.h"

#include "../log.h"

#include <cstring>
#include <memcpy_s.h>
#include <utility>

namespace osal {

namespace {

constexpr const char* TAG = "MediaParam";

// From the last to the first: an object that was written later may depend on objects that were written before it.
void ReleaseRefs(std::vector<std::shared_ptr<MediaRefBase>>& refs)
{
    while (!refs.empty()) {
        // Released when the parcel is consistent: the destructor of an object may call the parcel.
        const std::shared_ptr<MediaRefBase> last = std::move(refs.back());
        refs.pop_back();
    }
}

}  // namespace

// The widths that writers and readers of a parcel rely on.
static_assert(sizeof(float) == 4 && sizeof(double) == 8 && sizeof(uint8_t*) == 8);

MediaRefBase::~MediaRefBase() = default;

// new[] and not make_unique(), which zeroes the bytes: no read returns bytes that were not written.
MediaParam::MediaParam() : mData(new uint8_t[MEDIA_PARAM_CAPACITY]), mCapacity(MEDIA_PARAM_CAPACITY) {}

MediaParam::MediaParam(const MediaParam& other) : MediaParam(&other) {}

MediaParam::MediaParam(const MediaParam* other) { Copy(other); }

MediaParam& MediaParam::operator=(const MediaParam& other)
{
    Copy(&other);
    return *this;
}

MediaParam::~MediaParam() { Reset(); }

void MediaParam::Copy(const MediaParam* other)
{
    if (other == nullptr) {
        LOGE("%s: Target pointer can not be nullptr", __func__);
        return;
    }
    if (other == this) {
        return;
    }
    const uint64_t size = other->mCapacity;
    if (size == 0) {
        Reset();
        LOGE("%s:Copy failed, invalid size: %zu.", __func__, size);
        return;
    }
    // All allocations come first: if one throws, this parcel is unchanged.
    std::unique_ptr<uint8_t[]> data(new uint8_t[size]);
    // Assigned, not constructed: libc++ 14 leaks a vector whose copy construction runs out of memory.
    std::vector<std::string> strings;
    strings = other->mStrings;
    auto refs = other->mRefs;

    if (memcpy_s(data.get(), size, other->mData.get(), size) != 0) {
        Reset();
        LOGE("%s: memcpy failed.", __func__);
        return;
    }
    mData = std::move(data);
    mCapacity = size;
    mWritePos = other->mWritePos;
    mReadPos = 0;
    mStrings = std::move(strings);
    mRefs.swap(refs);
    mStringReadIndex = 0;
    mRefReadIndex = 0;
    ReleaseRefs(refs);
}

void MediaParam::Reset()
{
    mData.reset();
    mCapacity = 0;
    mWritePos = 0;
    mReadPos = 0;
    ReleaseRefs(mRefs);
    mRefReadIndex = 0;
    mStrings.clear();
    mStringReadIndex = 0;
}

template <typename T>
int32_t MediaParam::WriteFixed(T value)
{
    if (mCapacity - mWritePos < sizeof(value)) {
        LOGE("%s failed: ERR_NO_MORE.", __func__);
        return ERR_NO_MORE;
    }
    memcpy(mData.get() + mWritePos, &value, sizeof(value));
    mWritePos += sizeof(value);
    return 0;
}

template <typename T>
int32_t MediaParam::ReadFixed(T* out) const
{
    if (out == nullptr) {
        return ERR_NO_MORE;
    }
    if (mWritePos - mReadPos < sizeof(*out)) {
        LOGE("%s failed: ERR_NO_MORE.", __func__);
        return ERR_NO_MORE;
    }
    memcpy(out, mData.get() + mReadPos, sizeof(*out));
    mReadPos += sizeof(*out);
    return 0;
}

template <typename T>
T MediaParam::ReadFixedOrZero() const
{
    T value{};
    ReadFixed(&value);
    return value;
}

int32_t MediaParam::WriteInt32(int32_t value) { return WriteFixed(value); }

int32_t MediaParam::WriteInt64(int64_t value) { return WriteFixed(value); }

int32_t MediaParam::WriteFloat(float value) { return WriteFixed(value); }

int32_t MediaParam::WriteDouble(double value) { return WriteFixed(value); }

int32_t MediaParam::WriteRawPointer(const uint8_t* ptr) { return WriteFixed(ptr); }

int32_t MediaParam::WriteString(const char* str)
{
    if (str == nullptr) {
        return -1;
    }
    mStrings.emplace_back(str);
    return 0;
}

int32_t MediaParam::WritePointer(const std::shared_ptr<MediaRefBase>& ref)
{
    mRefs.push_back(ref);
    return 0;
}

int32_t MediaParam::ReadInt32(int32_t* out) const { return ReadFixed(out); }

int32_t MediaParam::ReadInt64(int64_t* out) const { return ReadFixed(out); }

int32_t MediaParam::ReadFloat(float* out) const { return ReadFixed(out); }

int32_t MediaParam::ReadDouble(double* out) const { return ReadFixed(out); }

int32_t MediaParam::ReadRawPointer(uint8_t** out) const { return ReadFixed(out); }

int32_t MediaParam::ReadInt32() const { return ReadFixedOrZero<int32_t>(); }

int64_t MediaParam::ReadInt64() const { return ReadFixedOrZero<int64_t>(); }

float MediaParam::ReadFloat() const { return ReadFixedOrZero<float>(); }

double MediaParam::ReadDouble() const { return ReadFixedOrZero<double>(); }

uint8_t* MediaParam::ReadRawPointer() const { return ReadFixedOrZero<uint8_t*>(); }

const char* MediaParam::ReadString() const
{
    return mStringReadIndex < mStrings.size() ? mStrings[mStringReadIndex++].c_str() : nullptr;
}

std::shared_ptr<MediaRefBase> MediaParam::ReadPointer() const
{
    return mRefReadIndex < mRefs.size() ? mRefs[mRefReadIndex++] : nullptr;
}

}  // namespace osal
