// libFuzzer target: containers and parcels against the model.

#include "model.h"

#include <cstdio>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string difference = RunModel(data, size);
    if (!difference.empty()) {
        fprintf(stderr, "%s\n", difference.c_str());
        abort();
    }
    return 0;
}
