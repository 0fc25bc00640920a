#include "osal/memfd.h"

#include "../log.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <linux/memfd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace osal {

namespace {

constexpr const char* TAG = "Memoryfd";

// F_SEAL_FUTURE_WRITE, which older headers lack.
constexpr int SEAL_FUTURE_WRITE = 0x10;

// Returns the descriptor of a new memory file, 1 or more, or -1 with errno set. 0 counts as invalid.
int CreateMemoryFile(const char* name)
{
    const int fd = static_cast<int>(syscall(SYS_memfd_create, name, MFD_ALLOW_SEALING));
    if (fd != 0) {
        return fd;
    }
    const int moved = fcntl(fd, F_DUPFD, 1);
    const int error = errno;
    close(fd);
    errno = error;
    return moved;
}

}  // namespace

int MemfdCreateRegion(std::string name, unsigned long size)
{
    const auto signedSize = static_cast<ssize_t>(size);
    if (size == 0 || name.empty()) {
        LOGE("Is memfd name: %s  empty or size: %zd less than zero?", name.c_str(), signedSize);
        return -1;
    }
    const int fd = CreateMemoryFile(name.c_str());
    if (fd == -1) {
        LOGE("%s(%s, %zd) failed: %d.", __func__, name.c_str(), signedSize, errno);
        return -1;
    }
    if (ftruncate(fd, signedSize) == -1) {
        LOGE("ftruncate(%s, %zd) failed for memfd creation: %d.", name.c_str(), signedSize, errno);
        close(fd);
        return -1;
    }
    return fd;
}

bool MemfdIsValid(int fd)
{
    if (fd < 1 || fcntl(fd, F_GET_SEALS) == -1) {
        LOGE("Invalid memfd: %d", fd);
        return false;
    }
    return true;
}

int MemfdSetProtRegion(int fd, int prot)
{
    if (prot <= 0 || !MemfdIsValid(fd)) {
        return -1;
    }
    if ((prot & PROT_WRITE) != 0) {
        LOGD("Only proceed if the fd needs to be write-protected.");
        return 0;
    }
    if (fcntl(fd, F_ADD_SEALS, SEAL_FUTURE_WRITE) == -1) {
        const int error = errno;
        LOGE("%s(%d, %d): F_SEAL_FUTURE_WRITE seal failed: %d.", __func__, fd, prot, error);
        if (error == EINVAL) {
            LOGE("The kernel does not support this function.");
        }
        return -1;
    }
    return 0;
}

int MemfdGetRegionSize(int fd)
{
    if (!MemfdIsValid(fd)) {
        return -1;
    }
    struct stat status {};
    if (fstat(fd, &status) == -1) {
        LOGE("%s(%d): fstat failed: %d.", __func__, fd, errno);
        return -1;
    }
    if (status.st_size > INT_MAX) {
        LOGE("%s(%d): size %lld is more than an int holds.", __func__, fd, static_cast<long long>(status.st_size));
        return -1;
    }
    return static_cast<int>(status.st_size);
}

}  // namespace osal
