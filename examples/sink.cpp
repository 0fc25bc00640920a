#include "sink.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <osal/memfd.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

constexpr int BROKE_OFF = 2;  // exit status of the sink process

// Not in the object, because a signal handler uses them.
std::string outPath;
std::string partPath;  // the output until Commit(), or empty
volatile pid_t sinkProcess = -1;
volatile int endingSignal = 0;

struct Slot {
    uint32_t number;
    uint32_t frames;  // 0: the stream is over, complete if `number` is 0 too
};

[[noreturn]] void Fail(const std::string& what) { throw std::system_error(errno, std::generic_category(), what); }

void EndBy(int number)
{
    unlink(partPath.c_str());
    signal(number, SIG_DFL);
    endingSignal = number;
    if (sinkProcess > 0) {
        kill(sinkProcess, SIGKILL);  // which ends a stopped process too
    }
    raise(number);  // so that a shell sees what ended the process
}

void ChooseOutput(const std::string& path, const std::string& input)
{
    outPath = fs::weakly_canonical(path);  // links lead to the file that is to be replaced
    if (fs::exists(outPath) && (!fs::is_regular_file(outPath) || fs::equivalent(outPath, input))) {
        throw std::runtime_error(path + ": the output is the input or no regular file");
    }
    if (fs::exists(outPath) && access(outPath.c_str(), W_OK) != 0) {
        Fail(path);
    }
    partPath = fs::path(outPath).replace_filename(".media_pipeline." + std::to_string(getpid()));
}

// The sink process. Of the region it has only the descriptor, not the mapping. Returns the exit status.
int RunSink(int socket, int out, const Input& input, int region, size_t slotBytes)
{
    const auto sizeBytes = static_cast<size_t>(osal::MemfdGetRegionSize(region));
    if (mmap(nullptr, sizeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, region, 0) != MAP_FAILED) {
        throw std::runtime_error("the region can be mapped writable");
    }
    const int refusal = errno;
    send(socket, &refusal, sizeof(refusal), MSG_NOSIGNAL);
    const void* const slots = mmap(nullptr, sizeBytes, PROT_READ, MAP_SHARED, region, 0);
    if (slots == MAP_FAILED) {
        Fail("cannot map the region");
    }
    SF_INFO info = input.Info();
    info.format = SF_FORMAT_RF64 | input.WavSubtype();
    SNDFILE* const file = out >= 0 ? sf_open_fd(out, SFM_WRITE, &info, SF_TRUE) : nullptr;
    if (out >= 0 && file == nullptr) {
        throw std::runtime_error(outPath + ": " + sf_strerror(nullptr));
    }
    sf_command(file, SFC_RF64_AUTO_DOWNGRADE, nullptr, SF_TRUE);  // plain WAV below 4 GiB
    for (Slot slot{}; recv(socket, &slot, sizeof(slot), 0) == sizeof(slot);) {
        if (slot.frames == 0) {
            return slot.number != 0 ? BROKE_OFF : file != nullptr ? sf_close(file) : 0;
        }
        const void* const samples = static_cast<const char*>(slots) + slot.number * slotBytes;
        if (file != nullptr && !input.Write(file, samples, slot.frames)) {
            throw std::runtime_error(outPath + ": " + sf_strerror(file));
        }
        send(socket, &slot, sizeof(slot), MSG_NOSIGNAL);
    }
    return BROKE_OFF;
}

}  // namespace

Sink::Sink(const std::string& path, const Input& input, int region, size_t slotBytes)
{
    if (!path.empty()) {
        ChooseOutput(path, input.Path());
    }
    for (const int number : {SIGHUP, SIGINT, SIGQUIT, SIGTERM}) {
        if (signal(number, EndBy) == SIG_IGN && number == SIGHUP) {
            signal(number, SIG_IGN);  // nohup; scripts ignore SIGINT for all background programs
        }
    }
    const int out = open(partPath.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (out < 0 && !path.empty()) {
        Fail(path);
    }
    std::array<int, 2> sockets{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) != 0 || (mProcess = fork()) < 0) {
        unlink(partPath.c_str());
        Fail("no sink process");
    }
    if (mProcess == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        close(sockets[0]);
        int status = 1;
        try {
            status = RunSink(sockets[1], out, input, region, slotBytes);
        } catch (const std::exception& error) {
            fprintf(stderr, "media_pipeline: sink: %s\n", error.what());
        }
        if (status != 0) {
            unlink(partPath.c_str());  // nobody else does if the parent was killed
        }
        _exit(status);
    }
    sinkProcess = mProcess;
    mSocket = sockets[0];
    close(sockets[1]);
    if (recv(mSocket, &mWritableMapErrno, sizeof(mWritableMapErrno), 0) != sizeof(mWritableMapErrno)) {
        WaitForEnd(-1);
    }
}

Sink::~Sink()
{
    close(mSocket);
    if (mProcess > 0) {
        sinkProcess = -1;
        kill(mProcess, SIGKILL);
        waitpid(mProcess, nullptr, 0);
    }
    unlink(partPath.c_str());
}

bool Sink::SendSlot(uint32_t number, uint32_t frames) noexcept
{
    const Slot slot{number, frames};
    return send(mSocket, &slot, sizeof(slot), MSG_NOSIGNAL) == sizeof(slot);
}

bool Sink::WaitForSlot() noexcept
{
    Slot slot{};
    return recv(mSocket, &slot, sizeof(slot), 0) == sizeof(slot);
}

bool Sink::WaitForEnd(int timeoutMs)
{
    pollfd closed{mSocket, 0, 0};
    if (poll(&closed, 1, timeoutMs) == 0) {
        return false;
    }
    int status = 0;
    waitpid(mProcess, &status, 0);
    mProcess = sinkProcess = -1;
    if (status == 0 || (WIFEXITED(status) && WEXITSTATUS(status) == BROKE_OFF)) {
        return true;
    }
    unlink(partPath.c_str());
    if (WIFSIGNALED(status)) {
        raise(endingSignal != 0 ? endingSignal : WTERMSIG(status));  // EndBy() may be on another thread
    }
    _exit(1);
}

void Sink::Commit()
{
    if (!partPath.empty() && rename(partPath.c_str(), outPath.c_str()) != 0) {
        Fail(outPath);
    }
}
