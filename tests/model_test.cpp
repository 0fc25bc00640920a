#include "model.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

Bytes Without(const Bytes& bytes, size_t begin, size_t size)
{
    Bytes rest = bytes;
    const auto first = rest.begin() + static_cast<ptrdiff_t>(begin);
    rest.erase(first, first + static_cast<ptrdiff_t>(std::min(size, rest.size() - begin)));
    return rest;
}

// The shortest sequence that still fails, as far as leaving out halves, quarters and so on leads.
Bytes Shrink(Bytes failing)
{
    for (size_t steps = failing.size() / STEP_BYTES / 2; steps > 0; steps /= 2) {
        for (size_t begin = 0; begin < failing.size();) {
            const Bytes rest = Without(failing, begin, steps * STEP_BYTES);
            if (RunModel(rest.data(), rest.size()).empty()) {
                begin += steps * STEP_BYTES;
            } else {
                failing = rest;
            }
        }
    }
    return failing;
}

}  // namespace

TEST(Model, ContainersAndParcelsAgreeWithIt)
{
    for (unsigned int seed = 1; seed <= 200; ++seed) {
        std::mt19937 random(seed);
        Bytes choices(150 * STEP_BYTES);
        for (uint8_t& choice : choices) {
            choice = static_cast<uint8_t>(random());
        }
        if (!RunModel(choices.data(), choices.size()).empty()) {
            choices = Shrink(choices);
            FAIL() << "seed " << seed << ", the shortest sequence that fails:\n"
                   << RunModel(choices.data(), choices.size());
        }
    }
}
