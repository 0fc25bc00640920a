#pragma once

#include <android/log.h>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

// Only a broken library uses this up, sanitizers and emulators included.
constexpr std::chrono::seconds WAIT_LIMIT{120};

constexpr uint64_t NS_PER_MS = 1'000'000;

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

// Set once, waited for by any number of threads.
class Event {
public:
    void Set()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSet = true;
        mCond.notify_all();
    }
    // False when WAIT_LIMIT has passed.
    bool Wait()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, WAIT_LIMIT, [this] { return mSet; });
    }
    bool IsSet()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mSet;
    }

private:
    std::mutex mMutex;
    std::condition_variable mCond;
    bool mSet = false;
};

// Sets `event` when the calling thread ends, behind everything that the library does on it.
void SetAtThreadEnd(Event& event);

// The name that the kernel has for a thread of this process.
std::string KernelThreadName(int tid);

// Whether this process may put threads under SCHED_FIFO.
bool RealTimeAllowed();
