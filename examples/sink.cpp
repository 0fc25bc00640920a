#include "sink.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <osal/memfd.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr size_t MAX_FMT_BYTES = 4096;

struct BufferMessage {
    uint64_t offset;
    uint64_t sizeBytes;
};

[[noreturn]] void Fail(const std::string& what) { throw std::runtime_error(what + ": " + strerror(errno)); }

// Room for one descriptor beside a message.
union DescriptorRoom {
    cmsghdr align;
    std::array<char, CMSG_SPACE(sizeof(int))> bytes;
};

// --- In the sink process

struct Region {
    int fd = -1;
    Bytes fmtChunk;
};

Region ReceiveRegion(int socket)
{
    Region region;
    region.fmtChunk.resize(MAX_FMT_BYTES);
    iovec data{region.fmtChunk.data(), region.fmtChunk.size()};
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
    memcpy(&region.fd, CMSG_DATA(head), sizeof(region.fd));
    region.fmtChunk.resize(static_cast<size_t>(received));
    return region;
}

Sink::Report RunSink(int socket, const std::string& outPath)
{
    const Region region = ReceiveRegion(socket);
    const int regionSize = osal::MemfdGetRegionSize(region.fd);
    if (regionSize < 0) {
        throw std::runtime_error("what came is no region");
    }
    const auto sizeBytes = static_cast<size_t>(regionSize);
    Sink::Report report{};
    if (mmap(nullptr, sizeBytes, PROT_READ | PROT_WRITE, MAP_SHARED, region.fd, 0) == MAP_FAILED) {
        report.writableMapErrno = errno;
    }
    void* const mapping = mmap(nullptr, sizeBytes, PROT_READ, MAP_SHARED, region.fd, 0);
    if (mapping == MAP_FAILED) {
        Fail("cannot map the region");
    }
    const auto* samples = static_cast<const uint8_t*>(mapping);

    std::unique_ptr<FILE, int (*)(FILE*)> out(nullptr, fclose);
    if (!outPath.empty()) {
        out.reset(fopen(outPath.c_str(), "wb"));
        if (!out) {
            Fail(outPath);
        }
    }
    const auto write = [&](const uint8_t* bytes, size_t size) {
        if (out && fwrite(bytes, 1, size, out.get()) != size) {
            Fail(outPath);
        }
    };
    const Bytes header = WavHeader(region.fmtChunk, sizeBytes);
    write(header.data(), header.size());
    BufferMessage buffer{};
    while (recv(socket, &buffer, sizeof(buffer), 0) == sizeof(buffer)) {
        if (buffer.offset > sizeBytes || buffer.sizeBytes > sizeBytes - buffer.offset) {
            throw std::runtime_error("a buffer lies outside the region");
        }
        write(samples + buffer.offset, buffer.sizeBytes);
        ++report.buffers;
        report.bytes += buffer.sizeBytes;
    }
    const uint8_t padding = 0;
    write(&padding, report.bytes % 2);
    if (out && fclose(out.release()) != 0) {
        Fail(outPath);
    }
    return report;
}

}  // namespace

// --- In the process of the pipeline

Sink::Sink(const std::string& outPath)
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
        return;
    }
    close(sockets[0]);
    Report report{};
    try {
        report = RunSink(sockets[1], outPath);
    } catch (const std::exception& error) {
        snprintf(report.error.data(), report.error.size(), "%s", error.what());
    }
    send(sockets[1], &report, sizeof(report), MSG_NOSIGNAL);
    _exit(0);
}

Sink::~Sink()
{
    close(mSocket);
    if (mProcess > 0) {
        waitpid(mProcess, nullptr, 0);
    }
}

void Sink::SendRegion(int fd, const Bytes& fmtChunk)
{
    if (fmtChunk.size() > MAX_FMT_BYTES) {
        throw std::runtime_error("the format chunk is too long");
    }
    iovec data{const_cast<uint8_t*>(fmtChunk.data()), fmtChunk.size()};
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
    if (sendmsg(mSocket, &message, MSG_NOSIGNAL) < 0) {
        Fail("cannot hand over the region");
    }
}

bool Sink::SendBuffer(uint64_t offset, uint64_t sizeBytes) noexcept
{
    const BufferMessage buffer{offset, sizeBytes};
    return send(mSocket, &buffer, sizeof(buffer), MSG_NOSIGNAL) == sizeof(buffer);
}

Sink::Report Sink::Finish()
{
    shutdown(mSocket, SHUT_WR);
    Report report{};
    ssize_t received = 0;
    do {  // a sink that gave up left messages unread, which is reported before its own
        received = recv(mSocket, &report, sizeof(report), 0);
    } while (received < 0 && errno == ECONNRESET);
    waitpid(mProcess, nullptr, 0);
    mProcess = -1;
    if (received != sizeof(report)) {
        throw std::runtime_error("the sink died");
    }
    if (report.error[0] != '\0') {
        throw std::runtime_error(std::string("sink: ") + report.error.data());
    }
    return report;
}
