#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "frame/amplify.h"

namespace {

// The gain as it is meant, for one sample: times 3, divided by 2 toward zero, the low 16 bits kept.
int16_t louder(int sample) {
    return static_cast<int16_t>(static_cast<uint16_t>(sample * 3 / 2));
}

TEST(Amplify, RaisesByHalfTowardZeroAndWraps) {
    std::vector<int16_t> samples = {0, 1, -1, 2, -2, 3, -3, 1000, -1001, 30000, -30000, 32767, -32768};
    amplify(samples.data(), samples.size());
    EXPECT_EQ(samples,
              (std::vector<int16_t>{0, 1, -1, 3, -3, 4, -4, 1500, -1501, -20536, 20536, -16386, 16384}));
}

TEST(Amplify, EverySample) {
    std::vector<int16_t> samples, expected;
    for (int sample = -32768; sample <= 32767; sample++) {
        samples.push_back(static_cast<int16_t>(sample));
        expected.push_back(louder(sample));
    }
    amplify(samples.data(), samples.size());
    EXPECT_EQ(samples, expected);
}

// Vector code works in blocks: no count and no start may reach the neighbours.
TEST(Amplify, NothingButItsSamples) {
    for (size_t start = 0; start < 9; start++) {
        for (size_t count = 0; count < 40; count++) {
            std::vector<int16_t> samples(60, 100), expected(60, 100);
            for (size_t i = start; i < start + count; i++) expected[i] = 150;
            amplify(samples.data() + start, count);
            ASSERT_EQ(samples, expected) << start << " " << count;
        }
    }
}

}  // namespace
