// libFuzzer target: containers and parcels against the model.

#include "model.h"

#include <android/log.h>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace {

std::vector<std::string> logTexts;

}  // namespace

extern "C" int __android_log_print(int /*prio*/, const char* /*tag*/, const char* fmt, ...)
{
    std::array<char, 256> text{};
    va_list args;
    va_start(args, fmt);
    const int size = vsnprintf(text.data(), text.size(), fmt, args);
    va_end(args);
    logTexts.emplace_back(text.data());
    return size;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string difference = RunModel(data, size, [] { return std::exchange(logTexts, {}); });
    if (!difference.empty()) {
        fprintf(stderr, "%s\n", difference.c_str());
        abort();
    }
    return 0;
}
