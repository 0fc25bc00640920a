#pragma once

#include "output.h"

#include <array>
#include <cstdint>
#include <sys/types.h>

// The far end of the pipeline: a process of its own that gets a file as a memory-file region over a UNIX socket
// and writes it down, part by part, as the parts are released.
class Sink {
public:
    // What the sink process found and did.
    struct Report {
        uint64_t bytes;
        int writableMapErrno;  // with which the system refused to map the region writable
        std::array<char, 256> error;  // why it gave up; empty if it did not
    };

    // Forks the sink process; call it before the first thread starts. Nothing is written for an empty
    // `outPath`. Throws std::runtime_error, like all operations here.
    explicit Sink(const std::string& outPath);
    // Ends the sink process if it still runs.
    ~Sink();
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    void SendRegion(int fd);
    // Releases the part of the region behind the one before. False when the sink is gone.
    bool SendBuffer(uint64_t sizeBytes) noexcept;
    // Blocks until the sink has written the whole region, and puts the output in its place. A sink that an
    // interrupt ended takes this process with it.
    Report WaitForReport();

private:
    Output mOutput;
    int mSocket;
    pid_t mProcess;
};
