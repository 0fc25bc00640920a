// Sends metadata, a time and a buffer through a parcel, from one part of a process to another.

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <utility>
#include <vector>

namespace {

//! [send]
struct Buffer : osal::MediaRefBase {
    explicit Buffer(std::vector<uint8_t> content) : bytes(std::move(content)) {}
    std::vector<uint8_t> bytes;
};

bool Send(osal::MediaParam& param)
{
    const auto format = osal::MediaMeta::Create();
    return format->SetString("mime", "audio/raw") && format->SetInt32("sample-rate", 48000) &&
           format->WriteToMediaParam(&param) && param.WriteInt64(40'000) == 0 &&
           param.WritePointer(std::make_shared<Buffer>(std::vector<uint8_t>{1, 2, 3, 4})) == 0;
}
//! [send]

//! [receive]
bool Receive(const osal::MediaParam& param)  // in the order of Send(): a parcel stores neither names nor types
{
    const auto format = osal::MediaMeta::Create();
    int64_t timeUs = 0;
    const char* mime = nullptr;
    if (!format->ReadFromMediaParam(&param) || !format->GetString("mime", mime) || param.ReadInt64(&timeUs) != 0) {
        return false;
    }
    const auto buffer = std::dynamic_pointer_cast<Buffer>(param.ReadPointer());
    std::printf("%s: %zu bytes at %" PRId64 " us\n", mime, buffer ? buffer->bytes.size() : 0, timeUs);
    return buffer != nullptr;
}
//! [receive]

}  // namespace

int main()
{
    osal::MediaParam param;
    if (!Send(param) || !Receive(param) || param.WriteInt32(44100) != 0) {
        return 1;
    }
    //! [width]
    // Only four bytes are left. Reading eight fails, and leaves the output and the position unchanged. With more
    // bytes left, the read would succeed and return a meaningless value.
    int64_t wide = -7;
    int32_t narrow = 0;
    const bool isWideRead = param.ReadInt64(&wide) == 0;  // false: the result is ERR_NO_MORE
    const bool isNarrowRead = param.ReadInt32(&narrow) == 0;
    //! [width]
    std::printf("eight bytes: %s, four bytes: %s\n", isWideRead ? "read" : "refused",
                isNarrowRead ? "read" : "refused");
}
