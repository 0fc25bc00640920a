#pragma once

#include <android/log.h>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

constexpr uint64_t NS_PER_MS = 1'000'000;
constexpr uint64_t HOUR_NS = 3'600'000 * NS_PER_MS;

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

// Set while this thread notes a line: its allocations are not the library's.
extern thread_local bool isLogging;

// The log lines since construction, those of other threads included.
class LogCapture {
public:
    LogCapture();
    // The lines under `tag`, or all.
    LogLines Lines(const char* tag = nullptr) const;
};

// Set once, waited for by any number of threads of a simulation, which ends a wait for nothing.
class Event {
public:
    void Set();
    void Wait();

private:
    std::mutex mMutex;
    std::condition_variable mCond;
    bool mSet = false;
};

// The name that the kernel has for a thread of this process.
std::string KernelThreadName(int tid);

// How many files this process has open.
size_t OpenDescriptors();
