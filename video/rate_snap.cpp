#include "video/rate_snap.h"

#include <cmath>

namespace {

RateSnap approx(double x) { return {SnapKind::kApprox, x}; }
RateSnap exact(SnapKind kind) { return {kind, 0}; }

// 29.97 or 30, for a rate already folded onto the 30 band.
RateSnap thirtyTest(double x) {
  if (x <= 29) return approx(x);
  if (x < 30) return exact(SnapKind::k2997);
  if (x < 30.9) return exact(SnapKind::k30);
  return approx(x);
}

RateSnap filmTest(double x) { return exact(x < 24 ? SnapKind::k2398 : SnapKind::k24); }

// Indexed by SnapKind.
constexpr SnapTarget kTargets[] = {
    {0, 0, 2},          {24000, 1001, 128}, {24, 1, 1},  {25, 1, 8},          {30000, 1001, 4},
    {30, 1, 2},         {48, 1, 1},         {50, 1, 16}, {60000, 1001, 32},   {60, 1, 64},
};

}  // namespace

// Low and high multiples fold onto their base rate: 14.985 -> 29.97, 47.95 -> 23.98,
// 71.93 -> 23.98, 100 -> 25, 119.88 -> 29.97.
RateSnap snapRate(double fps) {
  if (std::isnan(fps)) return approx(0);
  if (fps < 14) return approx(fps);
  if (fps <= 15.5) return thirtyTest(fps * 2);
  if (fps < 23) return approx(fps);
  if (fps <= 24.9) return filmTest(fps);
  if (fps < 25.1) return exact(SnapKind::k25);
  if (fps < 47) return thirtyTest(fps);
  if (fps <= 48.5) return filmTest(fps / 2);
  if (fps < 71) {
    if (fps > 60) return approx(fps);
    if (fps < 49) return exact(SnapKind::k48);
    if (fps >= 60) return exact(SnapKind::k60);
    if (fps >= 59) return exact(SnapKind::k5994);
    if (fps >= 50) return exact(SnapKind::k50);
    return approx(fps);
  }
  if (fps <= 72.5) return filmTest(fps / 3);
  if (fps < 100 || fps > 120) return approx(fps);
  double quarter = fps / 4;
  if (quarter < 25.1) return exact(SnapKind::k25);
  return thirtyTest(quarter);
}

const SnapTarget& snapTarget(SnapKind kind) { return kTargets[static_cast<int>(kind)]; }
