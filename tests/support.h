#pragma once

#include "osal/msg_queue.h"

#include <cstdint>
#include <string>
#include <vector>

constexpr uint64_t HOUR_NS = 3'600'000'000'000;

// As "E Tag: text": the letter of the priority, the tag or "(null)", the text.
using LogLines = std::vector<std::string>;

// True while this thread records a log line: these allocations are not made by the library.
extern thread_local bool isLogging;

// The log lines of all threads since construction.
class LogCapture {
public:
    LogCapture();
    LogLines Lines() const;
};

// Set once, also by a queue that runs it; any number of threads of a simulation may wait for it.
struct Event : osal::MsgHandlerBase {
    void HandleMsg(int32_t&) override { Set(); }
    void Set() { NotifyFinished(); }
};

// The kernel's name of the calling thread.
std::string ThreadName();
