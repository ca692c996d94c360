// vidRateScaled's approximate answer: the whole frames per second times 100, over 100; the
// fraction is dropped before scaling (12.5 gives 1200/100, not 1250/100). Rows outside these
// bands are in rate_test.cpp.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "video/video.h"

namespace {

// Below 14 and between 15.5 and 23 the rate is taken as it is: the answer is floor(fps) * 100.
TEST(RateScaledApproximate, RandomRatesInTheUntouchedBands) {
  std::mt19937_64 rng(11);
  std::uniform_real_distribution<double> low(0.0, 14.0), mid(15.5001, 22.9999);
  for (int i = 0; i < 2000; ++i) {
    double fps = (i % 2) ? low(rng) : mid(rng);
    uint32_t rate = 0, scale = 0;
    ASSERT_EQ(vidRateScaled(fps, &rate, &scale), 1) << fps;
    ASSERT_EQ(scale, 100u);
    ASSERT_EQ(rate, static_cast<uint32_t>(std::floor(fps)) * 100) << fps;
  }
}

}  // namespace
