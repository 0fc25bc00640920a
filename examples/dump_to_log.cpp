// The program defines the log function, so it receives the log lines of the library. A container is dumped there.

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
    meta->Dump();  // reports "channels" as unknown: its type is unsigned
    //! [dump]
}
