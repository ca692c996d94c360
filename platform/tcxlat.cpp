// SMPTE ST 12-1 timecode counting: frame counts to hours/minutes/seconds/frames and back, for
// the nominal rates and the two drop-frame counts. Format bits are described in tcxlat.h.
#include "platform/tcxlat.h"

#include <cstring>

namespace {

struct TcRate {
  uint32_t type;
  uint32_t fps;            // nominal frames per second (the frames field counts 0..fps-1)
  uint32_t dropPerMinute;  // frame numbers skipped at minutes not divisible by ten
};

constexpr TcRate kRates[] = {
    {TC_FILM, 24, 0}, {TC_NDF30, 30, 0}, {TC_DF2997, 30, 2}, {TC_PAL, 25, 0},
    {TC_50, 50, 0},   {TC_DF5994, 60, 4}, {TC_60, 60, 0},     {TC_2398, 24, 0},
};

constexpr uint32_t kKnownBits =
    TCF_TYPE_MASK | TCF_TEXT | TCF_DIGITS | TCF_DROP_MARK | TCF_ALL_FIELDS | TCF_PAD | TCF_NO_WRAP;

// 132 (23.98 with the drop-frame bit) counts like 23.98: there is no 23.98 drop-frame count.
constexpr uint32_t kFilmDropAlias = TC_2398 | TC_DF2997;

// Resolves the type of a format word; nullptr for TC_FRAMES and for unknown types (check
// isFrameCount first).
const TcRate* rateOf(uint32_t format) {
  uint32_t type = format & TCF_TYPE_MASK;
  if (type == kFilmDropAlias) type = TC_2398;
  for (const auto& r : kRates)
    if (r.type == type) return &r;
  return nullptr;
}

bool isFrameCount(uint32_t format) { return (format & TCF_TYPE_MASK) == TC_FRAMES; }

bool validFlags(uint32_t format) {
  return (format & ~kKnownBits) == 0 && (format & (TCF_TEXT | TCF_DIGITS)) != (TCF_TEXT | TCF_DIGITS);
}

struct Fields {
  uint64_t hours;
  uint32_t minutes, seconds, frames;
};

uint32_t framesPerMinute(const TcRate& r) { return 60 * r.fps - r.dropPerMinute; }
uint32_t framesPerTenMinutes(const TcRate& r) { return 600 * r.fps - 9 * r.dropPerMinute; }
uint32_t framesPerDay(const TcRate& r) { return 144 * framesPerTenMinutes(r); }

// Frame count to fields. Drop-frame counts are first turned into the nominal count they
// display by adding back the frame numbers skipped so far.
Fields toFields(uint64_t count, const TcRate& r) {
  if (r.dropPerMinute) {
    const uint64_t tens = count / framesPerTenMinutes(r);
    const uint64_t rest = count % framesPerTenMinutes(r);
    count += 9 * r.dropPerMinute * tens;
    if (rest >= r.dropPerMinute) count += r.dropPerMinute * ((rest - r.dropPerMinute) / framesPerMinute(r));
  }
  Fields f;
  f.frames = static_cast<uint32_t>(count % r.fps);
  count /= r.fps;
  f.seconds = static_cast<uint32_t>(count % 60);
  count /= 60;
  f.minutes = static_cast<uint32_t>(count % 60);
  f.hours = count / 60;
  return f;
}

bool isDropped(const Fields& f, const TcRate& r) {
  return r.dropPerMinute && f.seconds == 0 && f.frames < r.dropPerMinute && f.minutes % 10 != 0;
}

// Fields to frame count; false when a field is out of range, the frame number is skipped by a
// drop-frame count, or the count does not fit 32 bits.
bool fromFields(const Fields& f, const TcRate& r, bool noWrap, uint32_t* out) {
  if (f.minutes >= 60 || f.seconds >= 60 || f.frames >= r.fps) return false;
  if (!noWrap && f.hours >= 24) return false;
  if (f.hours > 0xFFFFFFFFull / 3600) return false;  // keeps the arithmetic below in 64 bits
  if (isDropped(f, r)) return false;
  const uint64_t totalMinutes = f.hours * 60 + f.minutes;
  const uint64_t nominal = (totalMinutes * 60 + f.seconds) * r.fps + f.frames;
  const uint64_t count = nominal - r.dropPerMinute * (totalMinutes - totalMinutes / 10);
  if (count > 0xFFFFFFFFull) return false;
  *out = static_cast<uint32_t>(count);
  return true;
}

// --- text writing ---

class TextOut {
 public:
  void put(char c) {
    if (len_ < sizeof buf_ - 1) buf_[len_++] = c;
  }
  void number(uint64_t v, int minDigits) {
    char digits[24];
    int n = 0;
    do {
      digits[n++] = static_cast<char>('0' + v % 10);
      v /= 10;
    } while (v);
    while (n < minDigits) digits[n++] = '0';
    while (n) put(digits[--n]);
  }
  bool copyTo(void* out, size_t outSize) const {
    if (len_ + 1 > outSize) return false;
    std::memcpy(out, buf_, len_);
    static_cast<char*>(out)[len_] = '\0';
    return true;
  }

 private:
  char buf_[40];
  size_t len_ = 0;
};

void writeTimecode(TextOut& text, const Fields& f, const TcRate& r, uint32_t format) {
  const uint64_t values[4] = {f.hours, f.minutes, f.seconds, f.frames};
  int first = 0;
  if (!(format & TCF_ALL_FIELDS))
    while (first < 2 && values[first] == 0) ++first;
  const char lastSeparator = (r.dropPerMinute && (format & TCF_DROP_MARK)) ? ';' : ':';
  for (int i = first; i < 4; ++i) {
    if (i > first) text.put(i == 3 ? lastSeparator : ':');
    text.number(values[i], (i > first || (format & TCF_PAD)) ? 2 : 1);
  }
}

int fail(void* out, size_t outSize, uint32_t format) {
  if (out && outSize && !(format & TCF_DIGITS)) static_cast<char*>(out)[0] = '\0';
  return -1;
}

// --- text reading ---

bool isBlank(char c) { return c == ' ' || c == '\t'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isSeparator(char c) { return c == ':' || c == ';' || c == '.'; }

// Reads up to maxDigits digits (at least one) as a number; advances p.
bool readNumber(const char*& p, int minDigits, int maxDigits, uint64_t* value) {
  uint64_t v = 0;
  int n = 0;
  while (isDigit(*p) && n < maxDigits) {
    v = v * 10 + static_cast<uint64_t>(*p - '0');
    ++p;
    ++n;
  }
  if (n < minDigits || isDigit(*p)) return false;
  *value = v;
  return true;
}

const char* skipBlanks(const char* p) {
  while (isBlank(*p)) ++p;
  return p;
}

// Two to four fields, right-aligned: the last is frames, the one before seconds, and so on.
bool parseFields(const char* text, Fields* f) {
  const char* p = skipBlanks(text);
  uint64_t values[4];
  int count = 0;
  if (!readNumber(p, 1, 10, &values[count++])) return false;
  while (isSeparator(*p)) {
    if (count == 4) return false;
    ++p;
    if (!readNumber(p, 2, 2, &values[count++])) return false;
  }
  if (*skipBlanks(p) != '\0' || count < 2) return false;
  uint64_t padded[4] = {0, 0, 0, 0};
  for (int i = 0; i < count; ++i) padded[4 - count + i] = values[i];
  if (padded[1] > 59 || padded[2] > 59 || padded[3] > 0xFFFF) return false;
  *f = {padded[0], static_cast<uint32_t>(padded[1]), static_cast<uint32_t>(padded[2]),
        static_cast<uint32_t>(padded[3])};
  return true;
}

bool parseCount(const char* text, uint32_t* frames) {
  const char* p = skipBlanks(text);
  uint64_t v = 0;
  if (!readNumber(p, 1, 10, &v) || *skipBlanks(p) != '\0' || v > 0xFFFFFFFFull) return false;
  *frames = static_cast<uint32_t>(v);
  return true;
}

}  // namespace

int tc2String(uint32_t frames, uint32_t format, void* out, size_t outSize) {
  if (!out || !validFlags(format)) return fail(out, outSize, format);
  if (isFrameCount(format)) {
    if (format & TCF_DIGITS) return -1;
    TextOut text;
    text.number(frames, 1);
    return text.copyTo(out, outSize) ? 0 : fail(out, outSize, format);
  }
  const TcRate* rate = rateOf(format);
  if (!rate) return fail(out, outSize, format);
  uint64_t count = frames;
  if (!(format & TCF_NO_WRAP)) count %= framesPerDay(*rate);
  const Fields f = toFields(count, *rate);
  if (format & TCF_DIGITS) {
    if (outSize < 4 || f.hours > 0xFF) return -1;
    const uint8_t digits[4] = {static_cast<uint8_t>(f.hours), static_cast<uint8_t>(f.minutes),
                               static_cast<uint8_t>(f.seconds), static_cast<uint8_t>(f.frames)};
    std::memcpy(out, digits, 4);
    return 0;
  }
  TextOut text;
  writeTimecode(text, f, *rate, format);
  return text.copyTo(out, outSize) ? 0 : fail(out, outSize, format);
}

int tc2Frame(const char* text, uint32_t type, uint32_t* frames) {
  if (!text || !frames || !validFlags(type)) return -1;
  if (isFrameCount(type)) return (type & TCF_DIGITS) || !parseCount(text, frames) ? -1 : 0;
  const TcRate* rate = rateOf(type);
  if (!rate) return -1;
  Fields f;
  if (type & TCF_DIGITS) {
    const auto* b = reinterpret_cast<const uint8_t*>(text);
    f = {b[0], b[1], b[2], b[3]};
  } else if (!parseFields(text, &f)) {
    return -1;
  }
  return fromFields(f, *rate, (type & TCF_NO_WRAP) != 0, frames) ? 0 : -1;
}
