#include "model.h"
#include "support.h"

#include <gtest/gtest.h>
#include <random>

TEST(Model, ContainersAndParcelsAgreeWithIt)
{
    for (unsigned int seed = 1; seed <= 300; ++seed) {
        std::mt19937 random(seed);
        std::vector<uint8_t> choices(4000);
        for (uint8_t& choice : choices) {
            choice = static_cast<uint8_t>(random());
        }
        LogCapture log;
        const std::string difference = RunModel(choices.data(), choices.size(), [&log] {
            std::vector<std::string> texts;
            for (const LogLine& line : log.Lines()) {
                texts.push_back(line.text);
            }
            log = LogCapture();
            return texts;
        });
        ASSERT_EQ("", difference) << "seed " << seed;
    }
}
