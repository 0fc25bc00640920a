#pragma once

#include "input.h"

#include <string>
#include <sys/types.h>

// The far end of the pipeline: a process of its own, which can only read the slots of a region. It writes them to
// a WAV file as they are released, and confirms each. The file appears complete or not at all, also when an
// interrupt ends one of the processes. One sink at a time.
class Sink {
public:
    // Forks the sink process; call it before the first thread starts. Slot k of the region begins at k *
    // `slotBytes`. Keeps nothing for an empty `path`. Throws std::runtime_error, as Commit() does.
    Sink(const std::string& path, const Input& input, int region, size_t slotBytes);
    // Ends the sink process if it still runs, and removes a file that was not committed.
    ~Sink();
    Sink(const Sink&) = delete;
    Sink& operator=(const Sink&) = delete;

    // With which the system refused the sink a writable mapping of the region.
    int WritableMapErrno() const { return mWritableMapErrno; }
    // Releases the first frames of a slot. False when the sink is gone, as for WaitForSlot().
    bool SendSlot(uint32_t number, uint32_t frames) noexcept;
    // Blocks until the sink has written one slot more.
    bool WaitForSlot() noexcept;
    // Asks the sink to end, because the stream is complete or broken.
    void End(bool isComplete) noexcept { SendSlot(isComplete ? 0 : 1, 0); }
    // Returns false if the sink process has not ended within `timeoutMs`; -1 waits without limit. If the sink was
    // not asked to end, this process ends in the same way, and at once: a worker that reads a pipe would not stop.
    bool WaitForEnd(int timeoutMs);
    // Puts the file in place of an old one.
    void Commit();

private:
    pid_t mProcess = -1;
    int mSocket = -1;
    int mWritableMapErrno = 0;
};
