// Speed, position and transport timecode arithmetic.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <random>

#include "video/transport.h"

namespace {

constexpr int64_t kUnit = 65520;

TEST(Speed, SetFromAFraction) {
  struct Case { int num, den; int32_t value; };
  const Case kCases[] = {
      {1, 2, 32760}, {-1, 3, -21840}, {5, 0, 0x7FFFFFFF}, {3, 2, 98280}, {-8, 1, -524160}, {1, 65521, 0},
      {-1, 65521, 0}, {1, 13, 5040}, {2, -7, -18720}, {INT_MIN, -1, 0},
  };
  for (const auto& c : kCases) {
    CKLXSpeed s;
    EXPECT_EQ(s.Set(c.num, c.den), c.value) << c.num << "/" << c.den;
    EXPECT_EQ(s.value, c.value);
  }
}

TEST(Speed, FromAndToDouble) {
  const std::pair<double, int32_t> kCases[] = {
      {0.5, 32760}, {-0.25, -16380}, {1.5, 98280}, {-0.99999, -65519}, {1e10, INT32_MAX}, {-1e10, INT32_MIN},
      {std::nan(""), 0x7FFFFFFF},
  };
  for (const auto& [d, value] : kCases) {
    CKLXSpeed s;
    s = d;
    EXPECT_EQ(s.value, value) << d;
  }
  EXPECT_DOUBLE_EQ(CKLXSpeed(98280).Double(), 1.5);
  EXPECT_DOUBLE_EQ(CKLXSpeed(-21840).Double(), -1.0 / 3);
}

TEST(Speed, FractionalizeFloorsAndKeepsTheRemainder) {
  std::mt19937 rng(3);
  std::uniform_int_distribution<int32_t> any(INT32_MIN, INT32_MAX);
  for (int i = 0; i < 100000; ++i) {
    int32_t v = i < 6 ? std::array<int32_t, 6>{-1, 0, 65519, 65520, -65520, -65521}[i] : any(rng);
    CKLXSpeed s(v);
    int64_t whole = s.Fractionalize();
    ASSERT_GE(s.value, 0);
    ASSERT_LT(s.value, kUnit);
    ASSERT_EQ(whole * kUnit + s.value, int64_t{v}) << v;
  }
}

TEST(Speed, ProductAndQuotient) {
  EXPECT_EQ((CKLXSpeed(32760) * CKLXSpeed(32760)).value, 16380);
  EXPECT_EQ((CKLXSpeed(-98280) * CKLXSpeed(21840)).value, -32760);
  EXPECT_EQ((CKLXSpeed(65520) / CKLXSpeed(131040)).value, 32760);
  EXPECT_EQ((CKLXSpeed(-1) / CKLXSpeed(3)).value, -21840);
  EXPECT_EQ((CKLXSpeed(7) / CKLXSpeed(0)).value, 0x7FFFFFFF);
}

int64_t units(const CKLXPos& p) { return int64_t{p.frames} * kUnit + p.fraction; }

TEST(Position, SetAsFracIsTruncatedExactDivision) {
  std::mt19937 rng(5);
  std::uniform_int_distribution<int> nums(-1000000, 1000000), dens(-5000, 5000);
  for (int i = 0; i < 100000; ++i) {
    int num = nums(rng), den = dens(rng);
    if (den == 0) continue;
    CKLXPos p;
    p.SetAsFrac(num, den);
    ASSERT_GE(p.fraction, 0);
    ASSERT_LT(p.fraction, kUnit);
    ASSERT_EQ(units(p), int64_t{num} * kUnit / den) << num << "/" << den;
  }
  CKLXPos untouched;
  untouched.Set(4, 5);
  untouched.SetAsFrac(1, 0);
  EXPECT_EQ(units(untouched), 4 * kUnit + 5);
}

TEST(Position, SumsAndDifferencesAreExact) {
  std::mt19937 rng(9);
  std::uniform_int_distribution<int> frames(-100000, 100000), fractions(-200000, 200000);
  for (int i = 0; i < 100000; ++i) {
    CKLXPos a, b;
    a.Set(frames(rng), fractions(rng));
    b.Set(frames(rng), fractions(rng));
    CKLXPos sum = a + b, difference = a - b;
    ASSERT_EQ(units(sum), units(a) + units(b));
    ASSERT_EQ(units(difference), units(a) - units(b));
    ASSERT_TRUE(sum.fraction >= 0 && sum.fraction < kUnit);
    ASSERT_TRUE(difference.fraction >= 0 && difference.fraction < kUnit);
  }
}

TEST(Position, SetFromSpeedReplacesTheFrames) {
  CKLXPos p;
  p.Set(100, 0);
  p.Set(CKLXSpeed(-16380));
  EXPECT_EQ(p.frames, -1);
  EXPECT_EQ(p.fraction, 49140);
  p.Set(CKLXSpeed(131041));
  EXPECT_EQ(p.frames, 2);
  EXPECT_EQ(p.fraction, 1);
}

TEST(TransportTC, InitialStateAndRanges) {
  CKLXTransTC tc;
  EXPECT_EQ(tc.start, 0u);
  EXPECT_EQ(tc.length, 0u);
  EXPECT_TRUE(tc.playCountDirty);
  EXPECT_EQ(tc.playCount, 1u);
  EXPECT_EQ(tc.steps, 0);
  struct Case { int a, b; uint32_t start, end, length; };
  const Case kCases[] = {
      {0, 100, 0, 100, 100}, {200, 100, 100, 200, 100}, {5, 5, 5, 5, 0}, {10, -1, 10, 0xFFFFFFFF, 0xFFFFFFF5},
  };
  for (const auto& c : kCases) {
    tc.SetRange(c.a, c.b);
    EXPECT_EQ(tc.start, c.start);
    EXPECT_EQ(tc.end, c.end);
    EXPECT_EQ(tc.length, c.length);
  }
}

TEST(TransportTC, ModuloWrapsIntoTheRangeWithItsKeptLimits) {
  struct Case { int start, end, frame, wrapped; };
  const Case kCases[] = {
      {0, 100, -1, 99}, {0, 100, -99, 1}, {0, 100, -100, 96},  // below -99: unsigned wrap
      {0, 100, 100, 0}, {100, 200, 250, 150}, {100, 200, -1, 195}, {100, 200, 199, 199},
      {0, 0, -5, -5},  // no length: untouched
  };
  for (const auto& c : kCases) {
    CKLXTransTC tc;
    tc.SetRange(c.start, c.end);
    CKLXPos p;
    p.Set(c.frame, 123);
    tc.SetTC(p);
    EXPECT_EQ(tc.position.frames, c.wrapped) << c.start << ".." << c.end << " at " << c.frame;
    EXPECT_EQ(tc.position.fraction, 123);
  }
}

TEST(TransportTC, SpeedSettersCentreSlowMotion) {
  CKLXTransTC tc;
  CKLXTransTC2 tc2;
  const std::pair<int32_t, int32_t> kCases[] = {{65520, 0}, {-65520, 0}, {16380, 32760}, {0, 32760}, {131040, 32760}};
  for (const auto& [speed, fraction] : kCases) {
    tc.position.fraction = 777;
    tc.SetSpeed(CKLXSpeed(speed));
    EXPECT_EQ(tc.position.fraction, fraction) << speed;
    tc2.position.fraction = 777;
    tc2.SetSpeedZero(CKLXSpeed(speed));
    EXPECT_EQ(tc2.position.fraction, std::abs(speed) == 65520 ? 0 : 777) << speed;
    EXPECT_TRUE(tc2.playCountDirty);
  }
}

TEST(TransportTC, PlayCount) {
  CKLXTransTC tc;
  tc.SetSpeed(CKLXSpeed(16380));
  EXPECT_EQ(tc.PlayCount(), 2u);  // (65519 - 32760) / 16380 + 1
  EXPECT_FALSE(tc.playCountDirty);
  tc.position.fraction = 0;  // cached until something marks it dirty
  EXPECT_EQ(tc.PlayCount(), 2u);
  tc.SetSpeed(CKLXSpeed(-16380));
  EXPECT_EQ(tc.PlayCount(), 3u);  // 32760 / 16380 + 1
  tc.SetSpeed(CKLXSpeed(0));
  EXPECT_EQ(tc.PlayCount(), 1u);
  EXPECT_TRUE(tc.playCountDirty);  // not cached at still or normal speed
  tc.SetSpeed(CKLXSpeed(65520));
  EXPECT_EQ(tc.PlayCount(), 1u);
  EXPECT_TRUE(tc.playCountDirty);
}

// Steps a transport and checks every position against exact arithmetic: the position after
// any number of steps is the start plus speed x (sum of play counts), with no drift.
struct TransportRun {
  int num, den;  // speed as a fraction of normal play
  int start, end;  // range (end 0: none)
};

void stepAndCheck(const TransportRun& run, int stepCount) {
  CKLXTransTC tc;
  if (run.end) tc.SetRange(run.start, run.end);
  int firstFrame = run.end ? (run.start + run.end) / 2 : 5000;
  tc.SetTC(firstFrame);
  CKLXSpeed speed;
  speed.Set(run.num, run.den);
  ASSERT_EQ(int64_t{speed.value} * run.den, int64_t{run.num} * kUnit) << "speed not exact";
  tc.SetSpeed(speed);
  int64_t exact = int64_t{firstFrame} * kUnit + tc.position.fraction;
  int64_t periods = 0;
  bool slow = std::abs(speed.value) < kUnit;
  for (int i = 0; i < stepCount; ++i) {
    int before = tc.position.frames;
    uint32_t count = tc.PlayCount();
    ++tc;
    periods += count;
    exact += int64_t{speed.value} * count;
    int64_t frame = exact >= 0 ? exact / kUnit : -((-exact + kUnit - 1) / kUnit);
    int64_t fraction = exact - frame * kUnit;
    if (run.end) {
      int64_t length = run.end - run.start;
      frame = run.start + (((frame - run.start) % length) + length) % length;
    }
    ASSERT_EQ(tc.position.frames, frame) << "step " << i;
    ASSERT_EQ(tc.position.fraction, fraction) << "step " << i;
    if (slow) {
      // Slow motion shows each frame for its play count, then moves exactly one frame.
      int moved = tc.position.frames - before;
      if (run.end && std::abs(moved) > 1) moved += moved > 0 ? -(run.end - run.start) : (run.end - run.start);
      ASSERT_EQ(moved, speed.value > 0 ? 1 : -1) << "step " << i;
    }
  }
  EXPECT_EQ(tc.steps, stepCount);
  // The whole run covers exactly the distance the speed implies.
  EXPECT_EQ(int64_t{speed.value} * periods, int64_t{run.num} * periods * kUnit / run.den);
}

TEST(TransportTC, SteppingHasNoDrift) {
  const TransportRun kRuns[] = {
      {1, 4, 0, 0}, {1, 2, 0, 0}, {3, 2, 0, 0}, {-1, 1, 0, 0}, {-1, 4, 0, 0}, {1, 3, 0, 0}, {1, 7, 0, 0},
      {-1, 13, 0, 0}, {4, 1, 0, 0}, {-8, 1, 0, 0}, {1, 1, 0, 0}, {-3, 2, 0, 0}, {2, 15, 0, 0},
      // Wrapping forward in any range, and backward through frame 0 of a range that starts there.
      {1, 4, 100, 350}, {3, 2, 37, 537}, {8, 1, 1000, 1333}, {1, 1, 5, 6}, {-1, 2, 0, 300}, {-3, 2, 0, 77},
      {-8, 1, 0, 1001}, {-1, 9, 0, 10},
  };
  for (const auto& run : kRuns) {
    SCOPED_TRACE(testing::Message() << run.num << "/" << run.den << " range " << run.start << ".." << run.end);
    stepAndCheck(run, 10000);
  }
}

// At normal speed and faster the play count is 1, so n single steps equal one += n (which
// counts as one step), and -= n takes the transport back to where it was.
TEST(TransportTC, CompoundStepsMatchSingleStepsAtSpeed) {
  for (int num : {1, 3, 4, -1, -5}) {
    CKLXTransTC single, compound;
    CKLXSpeed speed;
    speed.Set(num, 2 - (num % 2 != 0));  // 1/1, 3/1, 4/2, -1/1, -5/1
    for (CKLXTransTC* tc : {&single, &compound}) {
      tc->SetRange(0, 1000);
      tc->SetTC(500);
      tc->SetSpeed(speed);
    }
    for (int i = 0; i < 10; ++i) ++single;
    --single;
    EXPECT_EQ(compound += 9, single.position.frames) << num;  // the operators give the new frame
    EXPECT_EQ(single.position.fraction, compound.position.fraction) << num;
    EXPECT_EQ(compound.steps, 1);  // a compound step counts once
    EXPECT_EQ(compound -= 9, 500) << num;
    EXPECT_EQ(compound.steps, 0);
    EXPECT_EQ(single.steps, 9);
    single.SetTC(7);
    EXPECT_EQ(single.steps, 0);
  }
}

}  // namespace
