#include "video/transport.h"

#include <cmath>
#include <cstdlib>

namespace {

// Floor division by the unit: value becomes 0..65519, the whole units are returned.
int32_t splitUnits(int32_t& value) {
  int32_t whole = value / KLX_SPEED_UNIT;
  int32_t rest = value % KLX_SPEED_UNIT;
  if (rest < 0) {
    rest += KLX_SPEED_UNIT;
    whole -= 1;
  }
  value = rest;
  return whole;
}

// 32-bit two's-complement arithmetic without signed overflow.
int32_t wrapAdd(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b)); }
int32_t wrapSub(int32_t a, int32_t b) { return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b)); }

constexpr uint32_t kHalfFrame = KLX_SPEED_UNIT / 2;
// Frame numbers from -99 to -1, read as unsigned.
constexpr uint32_t kFirstSmallNegative = 0xFFFFFF9Du;

}  // namespace

// ---- CKLXSpeed ----------------------------------------------------------------------------

int32_t CKLXSpeed::Set(int num, int den) {
  if (den == 0)
    value = KLX_SPEED_UNDEFINED;
  else
    value = static_cast<int32_t>(static_cast<int64_t>(num) * KLX_SPEED_UNIT / den);
  return value;
}

CKLXSpeed& CKLXSpeed::operator=(const double& d) {
  double units = std::trunc(KLX_SPEED_UNIT * d);
  if (std::isnan(units))
    value = KLX_SPEED_UNDEFINED;
  else if (units >= static_cast<double>(INT32_MAX))
    value = INT32_MAX;
  else if (units <= static_cast<double>(INT32_MIN))
    value = INT32_MIN;
  else
    value = static_cast<int32_t>(units);
  return *this;
}

double CKLXSpeed::Double() const { return value / static_cast<double>(KLX_SPEED_UNIT); }

int32_t CKLXSpeed::Fractionalize() { return splitUnits(value); }

CKLXSpeed operator*(const CKLXSpeed& a, const CKLXSpeed& b) {
  return CKLXSpeed(static_cast<int32_t>(static_cast<int64_t>(a.value) * b.value / KLX_SPEED_UNIT));
}

CKLXSpeed operator/(const CKLXSpeed& a, const CKLXSpeed& b) {
  if (b.value == 0) return CKLXSpeed(KLX_SPEED_UNDEFINED);
  return CKLXSpeed(static_cast<int32_t>(static_cast<int64_t>(a.value) * KLX_SPEED_UNIT / b.value));
}

// ---- CKLXPos ------------------------------------------------------------------------------

int32_t CKLXPos::Normalize() {
  int32_t carry = splitUnits(fraction);
  frames = wrapAdd(frames, carry);
  return carry;
}

CKLXPos& CKLXPos::Set(int newFrames, int newFraction) {
  fraction = newFraction;
  frames = wrapAdd(newFrames, splitUnits(fraction));
  return *this;
}

CKLXPos& CKLXPos::Set(const CKLXSpeed& speed) {
  fraction = speed.value;
  frames = splitUnits(fraction);
  return *this;
}

CKLXPos& CKLXPos::SetAsFrac(int num, int den) {
  if (den == 0) return *this;
  int64_t n = num, d = den;
  frames = static_cast<int32_t>(n / d);
  fraction = static_cast<int32_t>((n % d) * KLX_SPEED_UNIT / d);
  Normalize();
  return *this;
}

CKLXPos operator+(const CKLXPos& a, const CKLXPos& b) {
  CKLXPos sum;
  sum.Set(wrapAdd(a.frames, b.frames), wrapAdd(a.fraction, b.fraction));
  return sum;
}

CKLXPos operator-(const CKLXPos& a, const CKLXPos& b) {
  CKLXPos difference;
  difference.Set(wrapSub(a.frames, b.frames), wrapSub(a.fraction, b.fraction));
  return difference;
}

// ---- CKLXTransTC --------------------------------------------------------------------------

CKLXTransTC::CKLXTransTC()
    : start(0), end(0), length(0), position(), speed(), playCountDirty(true), steps(0), playCount(1) {}

void CKLXTransTC::SetRange(int a, int b) {
  if (b != -1 && b <= a) {
    start = static_cast<uint32_t>(b);
    end = static_cast<uint32_t>(a);
  } else {
    start = static_cast<uint32_t>(a);
    end = static_cast<uint32_t>(b);
  }
  length = end - start;
}

void CKLXTransTC::SetTC(const CKLXPos& pos) {
  if (&pos != &position) {
    position = pos;
    position.Normalize();
  }
  playCountDirty = true;
  Modulo();
  steps = 0;
}

void CKLXTransTC::SetTC(int frames) {
  position.Set(frames, 0);
  steps = 0;
  Modulo();
  playCountDirty = true;
}

const CKLXSpeed& CKLXTransTC::SetSpeed(const CKLXSpeed& newSpeed) {
  speed = newSpeed;
  playCountDirty = true;
  bool normalPlay = std::abs(static_cast<int64_t>(speed.value)) == KLX_SPEED_UNIT;
  position.fraction = normalPlay ? 0 : static_cast<int32_t>(kHalfFrame);
  return speed;
}

const CKLXSpeed& CKLXTransTC2::SetSpeedZero(const CKLXSpeed& newSpeed) {
  speed = newSpeed;
  playCountDirty = true;
  if (std::abs(static_cast<int64_t>(speed.value)) == KLX_SPEED_UNIT) position.fraction = 0;
  return speed;
}

uint32_t CKLXTransTC::PlayCount() {
  if (!playCountDirty) return playCount;
  int64_t magnitude = std::abs(static_cast<int64_t>(speed.value));
  if (magnitude == 0 || magnitude > KLX_SPEED_UNIT - 1) return 1;
  // Steps left before the fraction crosses into the next frame in the direction of play.
  int64_t remaining = speed.value >= 0 ? (KLX_SPEED_UNIT - 1) - int64_t{position.fraction} : int64_t{position.fraction};
  int64_t count = remaining / magnitude;
  playCountDirty = false;
  playCount = static_cast<uint32_t>(std::llabs(count) + 1);
  return playCount;
}

void CKLXTransTC::Modulo() {
  if (length == 0) return;
  uint32_t frame = static_cast<uint32_t>(position.frames);
  if (frame >= kFirstSmallNegative) frame += length;
  position.frames = static_cast<int32_t>(start + (frame - start) % length);
  playCountDirty = true;
}

void CKLXTransTC::step(int64_t multiple, int stepChange) {
  // The delta is a 32-bit product of the speed and the frame's play count, as the recorders
  // have always computed it.
  uint32_t units = static_cast<uint32_t>(speed.value) * PlayCount() * static_cast<uint32_t>(multiple);
  CKLXPos delta;
  delta.Set(CKLXSpeed(static_cast<int32_t>(units)));
  position = stepChange > 0 ? position + delta : position - delta;
  if (length) Modulo();
  steps = wrapAdd(steps, stepChange);
  playCountDirty = true;
}

const CKLXPos& CKLXTransTC::operator++() {
  step(1, +1);
  return position;
}

const CKLXPos& CKLXTransTC::operator--() {
  step(1, -1);
  return position;
}

int CKLXTransTC::operator+=(int n) {
  step(n, +1);
  return position.frames;
}

int CKLXTransTC::operator-=(int n) {
  step(n, -1);
  return position.frames;
}
