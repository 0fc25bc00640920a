#pragma once

#include <cstdint>

namespace android {

// Substitute for the platform's call stack, if the system has none.
class CallStack {
public:
    // Writes the calling thread's stack to the log under `logtag` at debug priority, one line for each frame,
    // without its `ignoreDepth` innermost frames. Frame 0 is this constructor, frame 1 the function that called
    // it.
    explicit CallStack(const char* logtag, int32_t ignoreDepth = 1);
};

}  // namespace android
