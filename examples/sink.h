#pragma once

#include "wav.h"

#include <array>
#include <sys/types.h>

// The far end of the pipeline: a process of its own that gets the samples as a memory-file region over a
// UNIX socket and writes them, buffer by buffer, into a WAV file.
class Sink {
public:
    // What the sink process found and did.
    struct Report {
        uint64_t buffers;
        uint64_t bytes;
        int writableMapErrno;  // with which the system refused to map the region writable; 0 if it did not
        std::array<char, 256> error;  // why it gave up; empty if it did not
    };

    // Forks the sink process; call it before the first thread starts. Nothing is written for an empty
    // `outPath`. Throws std::runtime_error, like all operations here.
    explicit Sink(const std::string& outPath);
    // Ends the sink process if it still runs.
    ~Sink();
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    // Hands the region over, with the format of the samples in it.
    void SendRegion(int fd, const Bytes& fmtChunk);
    // Releases a part of the region to the sink. False when the sink is gone.
    bool SendBuffer(uint64_t offset, uint64_t sizeBytes) noexcept;
    // Ends the stream and waits for the sink process.
    Report Finish();

private:
    int mSocket;
    pid_t mProcess;
};
