// A program that receives the library's log lines itself, and a container that is dumped into them.

#include <cstdarg>
#include <cstdio>
#include <osal/media_meta.h>

//! [log]
extern "C" __attribute__((visibility("default"))) int __android_log_print(int priority, const char* tag,
                                                                          const char* format, ...)
{
    char line[256] = "";
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    std::printf("%d %s: %s\n", priority, tag != nullptr ? tag : "", line);
    return length;
}
//! [log]

int main()
{
    //! [dump]
    const auto meta = osal::MediaMeta::Create();
    if (!meta->SetString("mime", "audio/raw") || !meta->SetInt32("sample-rate", 48000) ||
        !meta->SetUint32("channels", 2)) {
        return 1;
    }
    meta->Dump();  // which knows no unsigned integers
    //! [dump]
    return 0;
}
