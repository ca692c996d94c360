// Speed, position and transport timecode for play, shuttle, jog and loop.
//
// All arithmetic is integer, in one unit: 65520 = one frame per step (normal play). 65520 is
// 2^4 x 3^2 x 5 x 7 x 13, so 1/2, 1/3, 1/4 ... 1/10, 1/12, 1/13, 1/14 and 1/15 speed are exact
// and slow or reverse play steps through frames without drift.
#pragma once
#include <cstddef>
#include <cstdint>

// One frame per step.
constexpr int32_t KLX_SPEED_UNIT = 65520;
// A speed that is not defined (a zero denominator).
constexpr int32_t KLX_SPEED_UNDEFINED = 0x7FFFFFFF;

// A signed speed in 1/65520 frame per step.
class CKLXSpeed {
 public:
  int32_t value = 0;

  CKLXSpeed() = default;
  explicit constexpr CKLXSpeed(int32_t units) : value(units) {}

  // num/den frames per step (truncated toward zero); den 0 gives KLX_SPEED_UNDEFINED.
  int32_t Set(int num, int den);
  // d frames per step, truncated toward zero; saturates, and NaN gives KLX_SPEED_UNDEFINED.
  CKLXSpeed& operator=(const double& d);
  double Double() const;
  // Keeps value mod 65520 (0..65519) and returns the whole frames (floor): -1 -> 65519, -1.
  int32_t Fractionalize();
};
static_assert(sizeof(CKLXSpeed) == 4);

// a x b in speed units (64-bit product, truncated).
CKLXSpeed operator*(const CKLXSpeed& a, const CKLXSpeed& b);
// a / b in speed units (64-bit, truncated); a zero b gives KLX_SPEED_UNDEFINED.
CKLXSpeed operator/(const CKLXSpeed& a, const CKLXSpeed& b);

// A frame position with a fraction in 1/65520 frame, kept in 0..65519 once normalised.
class CKLXPos {
 public:
  int32_t frames = 0;
  int32_t fraction = 0;

  CKLXPos() = default;

  // Carries whole frames out of the fraction; returns the carry.
  int32_t Normalize();
  CKLXPos& Set(int frames, int fraction);
  // The speed read as a per-step position delta (previous frames are replaced).
  CKLXPos& Set(const CKLXSpeed& speed);
  // num/den frames; a negative remainder borrows one frame. den 0 leaves the position as is.
  CKLXPos& SetAsFrac(int num, int den);
};
static_assert(sizeof(CKLXPos) == 8);

CKLXPos operator+(const CKLXPos& a, const CKLXPos& b);
CKLXPos operator-(const CKLXPos& a, const CKLXPos& b);

// A running transport timecode: advances by its speed once per step, wraps inside a range and
// knows how many steps the current frame is shown for at slow speed.
class CKLXTransTC {
 public:
  uint32_t start;
  uint32_t end;
  uint32_t length;  // 0 = no wrapping
  CKLXPos position;
  CKLXSpeed speed;
  bool playCountDirty;
  int32_t steps;      // steps since the last SetTC
  uint32_t playCount;

  CKLXTransTC();

  // The range between a and b, whichever is lower first; b = -1 means open-ended.
  void SetRange(int a, int b);
  void SetTC(const CKLXPos& pos);
  void SetTC(int frames);
  // Stores the speed; the fraction is 0 at normal play forward or reverse and half a frame
  // otherwise, so slow and fast motion start centred on a frame.
  const CKLXSpeed& SetSpeed(const CKLXSpeed& newSpeed);

  // Steps the current frame is shown at the present speed (1 at normal speed or faster).
  uint32_t PlayCount();
  // Wraps the position into the range. Positions -99..-1 are lifted by the length first;
  // anything lower wraps as an unsigned number.
  void Modulo();

  const CKLXPos& operator++();
  const CKLXPos& operator--();
  // n steps at once; steps changes by one only.
  int operator+=(int n);
  int operator-=(int n);

 protected:
  void step(int64_t multiple, int stepChange);
};

// Variant whose speed setter keeps the fraction at slow speeds.
class CKLXTransTC2 : public CKLXTransTC {
 public:
  const CKLXSpeed& SetSpeedZero(const CKLXSpeed& newSpeed);
};

static_assert(sizeof(CKLXTransTC) == 36);
static_assert(offsetof(CKLXTransTC, position) == 12);
static_assert(offsetof(CKLXTransTC, speed) == 20);
static_assert(offsetof(CKLXTransTC, playCountDirty) == 24);
static_assert(offsetof(CKLXTransTC, steps) == 28);
static_assert(offsetof(CKLXTransTC, playCount) == 32);
static_assert(sizeof(CKLXTransTC2) == sizeof(CKLXTransTC));
