// Snapping a floating-point rate onto the broadcast rate it stands for. Shared by
// vidRateScaled (which wants the pair) and vidGetTCType (which wants the timecode type), so
// that the two always agree on where the bands lie.
#pragma once
#include <cstdint>

enum class SnapKind { kApprox, k2398, k24, k25, k2997, k30, k48, k50, k5994, k60 };

struct RateSnap {
  SnapKind kind;
  double approx;  // for kApprox: the value to write in hundredths
};

struct SnapTarget {
  uint32_t rate;
  uint32_t scale;
  uint32_t tctype;
};

RateSnap snapRate(double fps);
// Pair and timecode type of a snapped rate (kApprox: 0/0 and type 2).
const SnapTarget& snapTarget(SnapKind kind);
