// A picture in memory that another process can read, but nobody can change any more.

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
constexpr int PIXEL = 0x5a;

// What the other process does: it has the descriptor, and asks the system for the rest.
int ReadInChild(int fd)
{
    const int size = osal::MemfdGetRegionSize(fd);
    void* const pixels =
        size < 0 ? MAP_FAILED : mmap(nullptr, static_cast<size_t>(size), PROT_READ, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED) {
        return 1;
    }
    std::printf("child: %d bytes, the last is 0x%x\n", size, static_cast<unsigned char*>(pixels)[size - 1]);
    return std::fflush(stdout) == 0 ? 0 : 1;  // which _exit() leaves undone
}

bool Share(int fd)
{
    void* const pixels = mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (pixels == MAP_FAILED) {
        return false;
    }
    std::memset(pixels, PIXEL, SIZE);
    // A mapping that can be written stays so under the seal: it goes first. Then the content is sealed, and
    // the size, which is not part of it: a reader would die of a region that shrinks under its mapping.
    if (munmap(pixels, SIZE) != 0 || osal::MemfdSetProtRegion(fd, PROT_READ) != 0 ||
        fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW) != 0) {
        return false;
    }

    const bool isMapped = mmap(nullptr, SIZE, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) != MAP_FAILED;
    std::printf("mapping it to write: %s\n", !isMapped && errno == EPERM ? "refused" : "not refused");
    const bool isResized = ftruncate(fd, SIZE / 2) == 0;
    std::printf("resizing it: %s\n", !isResized && errno == EPERM ? "refused" : "not refused");

    // Not to be printed twice.
    if (std::fflush(stdout) != 0) {
        return false;
    }
    const pid_t child = fork();  // or send the descriptor over a local socket
    if (child == 0) {
        _exit(ReadInChild(fd));
    }
    int status = 0;
    return child > 0 && waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

int main()
{
    const int fd = osal::MemfdCreateRegion("picture", SIZE);
    if (fd == -1) {
        return 1;
    }
    const bool isShared = Share(fd);
    return close(fd) == 0 && isShared ? 0 : 1;
}
