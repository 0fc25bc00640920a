#include "model.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

using Bytes = std::vector<uint8_t>;

TEST(Model, ContainersAndParcelsAgreeWithIt)
{
    for (unsigned int seed = 1; seed <= 200; ++seed) {
        std::mt19937 random(seed);
        Bytes choices(150 * STEP_BYTES);
        for (uint8_t& choice : choices) {
            choice = static_cast<uint8_t>(random());
        }
        if (!RunModel(choices.data(), choices.size()).empty()) {
            for (size_t end = choices.size(); end > 0; end -= STEP_BYTES) {  // leaves out what it fails without
                Bytes rest = choices;
                const auto first = rest.begin() + static_cast<ptrdiff_t>(end - STEP_BYTES);
                rest.erase(first, first + STEP_BYTES);
                choices = RunModel(rest.data(), rest.size()).empty() ? choices : rest;
            }
            FAIL() << "seed " << seed << ", no step of this can be left out:\n"
                   << RunModel(choices.data(), choices.size());
        }
    }
}
