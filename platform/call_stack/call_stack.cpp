#include <utils/CallStack.h>

#include <android/log.h>
#include <array>
#include <cstdlib>
#include <cxxabi.h>
#include <dlfcn.h>
#include <memory>
#include <unwind.h>

namespace {

constexpr size_t MAX_FRAMES = 256;

struct Frames {
    std::array<uintptr_t, MAX_FRAMES> mAddresses;
    size_t mCount;
};

struct Free {
    void operator()(char* block) const { free(block); }
};

_Unwind_Reason_Code Collect(_Unwind_Context* context, void* argument)
{
    auto* frames = static_cast<Frames*>(argument);
    const uintptr_t address = _Unwind_GetIP(context);
    if (address == 0 || frames->mCount == MAX_FRAMES) {
        return _URC_END_OF_STACK;
    }
    frames->mAddresses[frames->mCount++] = address;
    return _URC_NO_REASON;
}

void LogFrame(const char* logtag, size_t number, uintptr_t returnAddress)
{
    // The call is before its return address, which may already belong to the next function.
    const uintptr_t address = returnAddress - 1;
    Dl_info info{};
    // NOLINTNEXTLINE(performance-no-int-to-ptr): the unwinder gives integers, dladdr() takes pointers
    dladdr(reinterpret_cast<void*>(address), &info);
    const uintptr_t offset = address - reinterpret_cast<uintptr_t>(info.dli_fbase);
    const char* const file = info.dli_fname != nullptr ? info.dli_fname : "<unknown>";
    if (info.dli_sname == nullptr) {
        __android_log_print(ANDROID_LOG_DEBUG, logtag, "#%02zu pc %016zx  %s", number, offset, file);
        return;
    }
    int status = 0;
    const std::unique_ptr<char, Free> demangled(abi::__cxa_demangle(info.dli_sname, nullptr, nullptr, &status));
    __android_log_print(ANDROID_LOG_DEBUG, logtag, "#%02zu pc %016zx  %s (%s+%zu)", number, offset, file,
                        demangled ? demangled.get() : info.dli_sname,
                        address - reinterpret_cast<uintptr_t>(info.dli_saddr));
}

}  // namespace

namespace android {

__attribute__((noinline)) CallStack::CallStack(const char* logtag, int32_t ignoreDepth)
{
    // The optimiser decides which frames of this constructor and its helpers the unwinder shows. The return
    // address of this constructor does not depend on the optimiser: it belongs to frame 1.
    const auto callSite = reinterpret_cast<uintptr_t>(__builtin_extract_return_addr(__builtin_return_address(0)));
    Frames frames{};
    _Unwind_Backtrace(Collect, &frames);
    size_t caller = 1;  // if it is not found, only the first ignoreDepth frames are left out
    for (size_t i = 1; i < frames.mCount; ++i) {
        if (frames.mAddresses[i] == callSite) {
            caller = i;
            break;
        }
    }
    const size_t first = caller - 1 + (ignoreDepth > 0 ? static_cast<size_t>(ignoreDepth) : 0);
    for (size_t i = first; i < frames.mCount; ++i) {
        LogFrame(logtag, i - first, frames.mAddresses[i]);
    }
    if (frames.mCount == MAX_FRAMES) {
        __android_log_print(ANDROID_LOG_DEBUG, logtag, "(further frames are not shown)");
    }
}

}  // namespace android
