// The size-token table and the bucketing of measured sizes onto it.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "video/vidformat.h"

namespace {

TEST(SizeTokens, OutsideTheTableIsMinusOne) {
  for (int token : {-1000, -1, 0, 129, 2047, 1 << 30}) EXPECT_EQ(vidGetSizeFromToken(token), -1) << token;
  for (int token : {4, 19, 44, 127}) EXPECT_EQ(vidGetSizeFromToken(token), -1) << token;  // unused
}

// Sizes that own no bucket: 1782 and 2880 fall inside their neighbours, UHD words come only
// from explicit rules, and 4096 is token 128.
const std::set<int> kUnbucketedTokens = {90, 91, 92, 100, 101, 106, 120};

// Independent statement of the buckets: a size maps to the token of the largest table size not
// above it, with two kept irregularities (241..242 already map to 243, 1035 still maps to 1024).
int bucketOracle(int pixels) {
  if (pixels < 240 || pixels > 8192) return -1;
  if (pixels == 241 || pixels == 242) return 2;
  if (pixels == 1035) return 48;
  int best = -1, bestSize = -1;
  for (int token = 1; token <= 128; ++token) {
    int size = vidGetSizeFromToken(token);
    if (size < 0 || kUnbucketedTokens.count(token) || size > pixels) continue;
    if (size > bestSize) best = token, bestSize = size;
  }
  return best;
}

TEST(SizeTokens, EverySizeLandsInTheBucketOfTheLargestSizeNotAbove) {
  for (int pixels = -10; pixels <= 9000; ++pixels)
    ASSERT_EQ(vidGetTokenFromSize(pixels), bucketOracle(pixels)) << pixels;
  EXPECT_EQ(vidGetTokenFromSize(1 << 30), -1);
  EXPECT_EQ(vidGetTokenFromSize(-(1 << 30)), -1);
}

TEST(SizeTokens, KeptIrregularities) {
  const std::map<int, int> kCases = {
      {239, -1}, {240, 1}, {241, 2}, {243, 2}, {1024, 48}, {1035, 48}, {1036, 49}, {1044, 50}, {1050, 52}, {1052, 51},
      {857, 38}, {864, 36}, {988, 37}, {2160, 96}, {3840, 107}, {4096, 128}, {7680, 128}, {8192, 128}, {8193, -1},
  };
  for (const auto& [size, token] : kCases) EXPECT_EQ(vidGetTokenFromSize(size), token) << size;
}

}  // namespace
