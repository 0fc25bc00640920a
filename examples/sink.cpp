#include "sink.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <osal/memfd.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

[[noreturn]] void Fail(const std::string& what) { throw std::system_error(errno, std::generic_category(), what); }

// Room for one descriptor beside a message.
union DescriptorRoom {
    cmsghdr align;
    std::array<char, CMSG_SPACE(sizeof(int))> bytes;
};

// --- In the sink process

int ReceiveRegion(int socket)
{
    char byte = 0;
    iovec data{&byte, sizeof(byte)};
    DescriptorRoom room{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = room.bytes.data();
    message.msg_controllen = room.bytes.size();
    const ssize_t received = recvmsg(socket, &message, 0);
    const cmsghdr* head = CMSG_FIRSTHDR(&message);
    if (received <= 0 || head == nullptr || head->cmsg_level != SOL_SOCKET || head->cmsg_type != SCM_RIGHTS) {
        throw std::runtime_error("no region came");
    }
    int fd = -1;
    memcpy(&fd, CMSG_DATA(head), sizeof(fd));
    return fd;
}

Sink::Report RunSink(int socket, const Output& output)
{
    const int region = ReceiveRegion(socket);
    const int regionSize = osal::MemfdGetRegionSize(region);
    if (regionSize < 0) {
        throw std::runtime_error("what came is no region");
    }
    const auto sizeBytes = static_cast<size_t>(regionSize);
    Sink::Report report{};
    if (mmap(nullptr, sizeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, region, 0) != MAP_FAILED) {
        throw std::runtime_error("the region can be mapped writable");
    }
    report.writableMapErrno = errno;
    void* const mapping = mmap(nullptr, sizeBytes, PROT_READ, MAP_SHARED, region, 0);
    if (mapping == MAP_FAILED) {
        Fail("cannot map the region");
    }
    const auto* bytes = static_cast<const uint8_t*>(mapping);

    std::unique_ptr<FILE, int (*)(FILE*)> out(output.Fd() >= 0 ? fdopen(output.Fd(), "wb") : nullptr, fclose);
    while (report.bytes < sizeBytes) {
        uint64_t partBytes = 0;
        if (recv(socket, &partBytes, sizeof(partBytes), 0) != sizeof(partBytes)) {
            throw std::runtime_error("the stream broke off");
        }
        if (partBytes > sizeBytes - report.bytes) {
            throw std::runtime_error("a buffer reaches beyond the region");
        }
        if (out && fwrite(bytes + report.bytes, 1, partBytes, out.get()) != partBytes) {
            Fail(output.Path());
        }
        report.bytes += partBytes;
    }
    if (out && fclose(out.release()) != 0) {
        Fail(output.Path());
    }
    return report;
}

}  // namespace

// --- In the process of the pipeline

Sink::Sink(const std::string& outPath) : mOutput(outPath)
{
    std::array<int, 2> sockets{};
    if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, sockets.data()) != 0) {
        Fail("socketpair");
    }
    mSocket = sockets[0];
    mProcess = fork();
    if (mProcess < 0) {
        Fail("fork");
    }
    if (mProcess > 0) {
        close(sockets[1]);
        close(mOutput.Fd());  // or a pipe would not end with the sink
        return;
    }
    close(sockets[0]);
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // also while a pipe that nobody reads blocks the sink
    signal(SIGPIPE, SIG_IGN);  // a pipe that nobody reads any more is an error to report
    Report report{};
    try {
        report = RunSink(sockets[1], mOutput);
    } catch (const std::exception& error) {
        mOutput.Discard();  // the other process may be dead
        snprintf(report.error.data(), report.error.size(), "%s", error.what());
    }
    send(sockets[1], &report, sizeof(report), MSG_NOSIGNAL);
    _exit(0);
}

Sink::~Sink()
{
    close(mSocket);
    if (mProcess > 0) {
        kill(mProcess, SIGTERM);
        waitpid(mProcess, nullptr, 0);
    }
}

void Sink::SendRegion(int fd)
{
    char byte = 0;  // no message, no descriptor
    iovec data{&byte, sizeof(byte)};
    DescriptorRoom room{};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = room.bytes.data();
    message.msg_controllen = room.bytes.size();
    cmsghdr* head = CMSG_FIRSTHDR(&message);
    head->cmsg_level = SOL_SOCKET;
    head->cmsg_type = SCM_RIGHTS;
    head->cmsg_len = CMSG_LEN(sizeof(fd));
    memcpy(CMSG_DATA(head), &fd, sizeof(fd));
    // A sink that is gone already says why in its report.
    if (sendmsg(mSocket, &message, MSG_NOSIGNAL) < 0 && errno != EPIPE) {
        Fail("cannot hand over the region");
    }
}

bool Sink::SendBuffer(uint64_t sizeBytes) noexcept
{
    return send(mSocket, &sizeBytes, sizeof(sizeBytes), MSG_NOSIGNAL) == sizeof(sizeBytes);
}

Sink::Report Sink::WaitForReport()
{
    Report report{};
    ssize_t received = 0;
    do {  // a sink that gave up left messages unread, which is reported before its own
        received = recv(mSocket, &report, sizeof(report), 0);
    } while (received < 0 && errno == ECONNRESET);
    int status = 0;
    waitpid(mProcess, &status, 0);
    mProcess = -1;
    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        if (std::find(INTERRUPTS.begin(), INTERRUPTS.end(), signal) != INTERRUPTS.end()) {
            raise(signal);
        }
        throw std::runtime_error(std::string("the sink was ended: ") + strsignal(signal));
    }
    if (received != sizeof(report)) {
        throw std::runtime_error("the sink died");
    }
    if (report.error[0] != '\0') {
        throw std::runtime_error(std::string("sink: ") + report.error.data());
    }
    mOutput.Commit();
    return report;
}
