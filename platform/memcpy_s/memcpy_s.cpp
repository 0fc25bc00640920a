#include <memcpy_s.h>

#include <cerrno>
#include <cstring>

int memcpy_s(void* dest, size_t destsz, const void* src, size_t count)
{
    if (dest == nullptr || destsz > RSIZE_MAX) {
        return EINVAL;
    }
    // As integers: pointers into different objects have no order.
    const auto to = reinterpret_cast<uintptr_t>(dest);
    const auto from = reinterpret_cast<uintptr_t>(src);
    const bool overlap = to < from ? from - to < count : to - from < count;
    if (src == nullptr || count > RSIZE_MAX || count > destsz || overlap) {
        memset(dest, 0, destsz);
        return count > destsz ? ERANGE : EINVAL;
    }
    memcpy(dest, src, count);
    return 0;
}
