// A description, a time and a buffer on their way through a parcel, from one part of a process to another.

#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <osal/media_meta.h>
#include <osal/media_param.h>
#include <utility>
#include <vector>

namespace {

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

// In the order of Send(): the parcel knows neither names nor types.
bool Receive(const osal::MediaParam& param)
{
    const auto format = osal::MediaMeta::Create();
    int64_t timeUs = 0;
    const char* mime = nullptr;
    int32_t rate = 0;
    if (!format->ReadFromMediaParam(&param) || !format->GetString("mime", mime) ||
        !format->GetInt32("sample-rate", rate) || param.ReadInt64(&timeUs) != 0) {
        return false;
    }
    const auto buffer = std::dynamic_pointer_cast<Buffer>(param.ReadPointer());
    if (!buffer) {
        return false;
    }
    std::printf("%s, %d Hz: %zu bytes at %" PRId64 " us\n", mime, rate, buffer->bytes.size(), timeUs);
    return true;
}

}  // namespace

int main()
{
    osal::MediaParam param;
    if (!Send(param) || !Receive(param)) {
        return 1;
    }

    // What was written as four bytes is read as four bytes. Reading eight fails here for want of bytes and
    // leaves the position alone; with more bytes behind, it would succeed with a senseless value.
    int64_t wide = -7;
    int32_t narrow = 0;
    if (param.WriteInt32(44100) != 0) {
        return 1;
    }
    const bool isWideRefused = param.ReadInt64(&wide) == osal::ERR_NO_MORE && wide == -7;
    std::printf("four bytes read as eight: %s\n", isWideRefused ? "ERR_NO_MORE" : "a value");
    if (param.ReadInt32(&narrow) != 0) {
        return 1;
    }
    std::printf("four bytes read as four: %d\n", narrow);

    // Each of the three sequences has an end of its own.
    std::printf("one more value: %s\n", param.ReadInt32(&narrow) == osal::ERR_NO_MORE ? "ERR_NO_MORE" : "read");
    std::printf("one more string: %s\n", param.ReadString() == nullptr ? "none" : "read");
    std::printf("one more object: %s\n", param.ReadPointer() == nullptr ? "none" : "read");
    return 0;
}
