#pragma once

#include "osal/msg_queue.h"

#include <android/log.h>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

constexpr uint64_t HOUR_NS = 3'600'000'000'000;

struct LogLine {
    int prio;
    std::optional<std::string> tag;  // none for a null tag
    std::string text;

    bool operator==(const LogLine& other) const
    {
        return prio == other.prio && tag == other.tag && text == other.text;
    }
    friend std::ostream& operator<<(std::ostream& out, const LogLine& line)
    {
        return out << line.prio << ' ' << line.tag.value_or("<null>") << ": " << line.text;
    }
};

using LogLines = std::vector<LogLine>;

// True while this thread records a log line: these allocations are not made by the library.
extern thread_local bool isLogging;

// The log lines of all threads since construction.
class LogCapture {
public:
    LogCapture();
    // The lines under `tag`, or all.
    LogLines Lines(const char* tag = nullptr) const;
};

// Set once, also by a queue that runs it; any number of threads of a simulation may wait for it.
struct Event : osal::MsgHandlerBase {
    void HandleMsg(int32_t&) override { Set(); }
    void Set() { NotifyFinished(); }
};

// The kernel's name of the calling thread.
std::string ThreadName();

// How many files this process has open.
size_t OpenDescriptors();
