#include "output.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace {

std::atomic<const char*> partPath{nullptr};  // of the file being written, for the signal handler

[[noreturn]] void Fail(const std::string& path) { throw std::system_error(errno, std::generic_category(), path); }

void RemovePart(int signal)
{
    const char* const path = partPath;
    if (path != nullptr) {
        unlink(path);
    }
    raise(signal);  // with the default action, so that a shell sees what ended the process
}

// Links lead to the file that is to be replaced, which need not be in their own folder.
std::string ResolveLinks(const std::string& path)
{
    const std::unique_ptr<char, void (*)(void*)> resolved(realpath(path.c_str(), nullptr), free);
    return resolved ? resolved.get() : path;
}

}  // namespace

void RemoveOutputOnInterrupt()
{
    struct sigaction action {};
    action.sa_handler = RemovePart;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : INTERRUPTS) {
        struct sigaction before {};
        sigaction(signal, nullptr, &before);
        // Scripts start background programs with SIGINT ignored, which is no reason to be deaf to a kill -INT.
        if (signal != SIGHUP || before.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
}

bool IsStandardOutput(const std::string& path)
{
    struct stat file {};
    struct stat standard {};
    return stat(path.c_str(), &file) == 0 && fstat(STDOUT_FILENO, &standard) == 0 &&
           file.st_dev == standard.st_dev && file.st_ino == standard.st_ino;
}

Output::Output(const std::string& path) : mPath(path)
{
    if (path.empty()) {
        return;
    }
    struct stat old {};
    const bool exists = stat(path.c_str(), &old) == 0;
    const bool isStandard = IsStandardOutput(path);
    if (isStandard || (exists && !S_ISREG(old.st_mode))) {
        mFd = isStandard ? fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0) : open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (mFd < 0) {
            Fail(path);
        }
        return;
    }
    if (exists && access(path.c_str(), W_OK) != 0) {
        Fail(path);
    }
    mPath = ResolveLinks(path);
    const mode_t mask = umask(0);
    umask(mask);
    // The name does not derive from that of the file, which may be as long as names can be.
    mPartPath = mPath.substr(0, mPath.rfind('/') + 1) + ".media_pipeline.XXXXXX";

    // No signal between the making of the file and the moment from which on the handler removes it.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &before);
    mFd = mkostemp(mPartPath.data(), O_CLOEXEC);
    const int error = errno;
    partPath = mFd >= 0 ? mPartPath.c_str() : nullptr;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (mFd < 0) {
        errno = error;
        Fail(path);
    }
    fchmod(mFd, exists ? old.st_mode & 0777 : 0666 & ~mask);
}

Output::~Output() { Discard(); }

void Output::Commit()
{
    if (partPath != nullptr && rename(mPartPath.c_str(), mPath.c_str()) != 0) {
        Fail(mPath);
    }
    partPath = nullptr;
}

void Output::Discard() noexcept
{
    if (partPath != nullptr) {
        unlink(mPartPath.c_str());
        partPath = nullptr;
    }
}
