// A picture in shared memory: another process can read it, and no process can change it.

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <osal/memfd.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr size_t SIZE = 4096;

//! [read]
int ReadInChild(int fd)  // the reader needs only the descriptor
{
    const int size = osal::MemfdGetRegionSize(fd);
    void* const pixels =
        size < 0 ? MAP_FAILED : mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED) {
        return 1;
    }
    std::printf("child: %d bytes, the last is 0x%x\n", size, static_cast<unsigned char*>(pixels)[size - 1]);
    return std::fflush(stdout) == 0 ? 0 : 1;  // _exit() does not flush
}
//! [read]

}  // namespace

int main()
{
    //! [seal]
    const int fd = osal::MemfdCreateRegion("picture", SIZE);
    void* const pixels = fd < 0 ? MAP_FAILED : mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED) {
        return 1;
    }
    std::memset(pixels, 0x5a, SIZE);
    // The seal does not change existing mappings: a writable one stays writable, so unmap it first. Then seal
    // the content, and also the size: if the region shrank, a reader would die with SIGBUS.
    if (munmap(pixels, SIZE) != 0 || osal::MemfdSetProtRegion(fd, PROT_READ) != 0 ||
        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) {
        return 1;
    }
    //! [seal]
    const bool isWritable = write(fd, "x", 1) == 1;
    std::printf("writing to it: %s\n", !isWritable && errno == EPERM ? "refused" : "not refused");
    const bool isResized = ftruncate(fd, SIZE / 2) == 0;
    std::printf("resizing it: %s\n", !isResized && errno == EPERM ? "refused" : "not refused");

    std::fflush(stdout);  // otherwise the child would print the same text again
    const pid_t child = fork();  // a descriptor can also be sent over a Unix domain socket
    if (child == 0) {
        _exit(ReadInChild(fd));
    }
    int status = 0;
    const bool hasRead = child > 0 && waitpid(child, &status, 0) == child && status == 0;
    return close(fd) == 0 && hasRead ? 0 : 1;
}
