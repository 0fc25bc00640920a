#pragma once

#include <array>
#include <csignal>
#include <string>

// What people and the system end a program with. The first one can be switched off (nohup).
constexpr std::array<int, 4> INTERRUPTS{SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// From now on, an interrupt removes the file that is being written before it ends the process. A fork
// inherits that.
void RemoveOutputOnInterrupt();

// Whether `path` is what standard output writes to.
bool IsStandardOutput(const std::string& path);

// A regular file that appears complete or not at all: until Commit(), it is written under a name of its own in
// the same folder. What is no regular file, say a pipe or a device, is written directly. One output at a time.
class Output {
public:
    // Nothing is kept for an empty `path`. Throws std::runtime_error, as Commit() does.
    explicit Output(const std::string& path);
    // As Discard().
    ~Output();
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;

    const std::string& Path() const { return mPath; }
    int Fd() const { return mFd; }  // the caller's to close; -1 if nothing is kept
    // Puts the file in place of the old one, if there is one.
    void Commit();
    // Removes what was not committed.
    void Discard() noexcept;

private:
    std::string mPath;
    std::string mPartPath;  // empty if the output is written directly
    int mFd = -1;
};
