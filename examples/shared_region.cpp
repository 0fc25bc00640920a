// A picture in shared memory: a process that has the descriptor can read it, and none can change it.

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <osal/memfd.h>
#include <sys/mman.h>
#include <unistd.h>

int main()
{
    constexpr size_t SIZE = 4096;
    //! [seal]
    const int fd = osal::MemfdCreateRegion("picture", SIZE);
    void* const picture = fd < 0 ? MAP_FAILED : mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (picture == MAP_FAILED) {
        return 1;
    }
    std::memset(picture, 0x5a, SIZE);
    // The seal does not change existing mappings: a writable one stays writable, so unmap it first. Then seal
    // the content, and also the size: if the region shrank, a reader would die with SIGBUS.
    if (munmap(picture, SIZE) != 0 || osal::MemfdSetProtRegion(fd, PROT_READ) != 0 ||
        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) {
        return 1;
    }
    //! [seal]
    const bool isRefused = write(fd, "x", 1) < 0 && errno == EPERM && ftruncate(fd, 1) < 0 && errno == EPERM;
    std::printf("writing to it and resizing it: %s\n", isRefused ? "refused" : "not refused");
    //! [read]
    const int sizeBytes = osal::MemfdGetRegionSize(fd);  // a reader needs only the descriptor
    const void* const pixels =
        sizeBytes < 0 ? MAP_FAILED : mmap(nullptr, static_cast<size_t>(sizeBytes), PROT_READ, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED) {
        return 1;
    }
    //! [read]
    std::printf("%d bytes, the last is 0x%x\n", sizeBytes,
                static_cast<const unsigned char*>(pixels)[sizeBytes - 1]);
}
