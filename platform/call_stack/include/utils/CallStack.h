#pragma once

#include <cstdint>

namespace android {

// Stand-in for the platform's call stack where there is none.
class CallStack {
public:
    // Writes the calling thread's stack to the log under `logtag` at debug priority, one line a frame, without
    // its `ignoreDepth` innermost frames. Frame 0 is this constructor, frame 1 the function that called it.
    explicit CallStack(const char* logtag, int32_t ignoreDepth = 1);
};

}  // namespace android
