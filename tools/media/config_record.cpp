// See config_record.h.
#include "config_record.h"

#include <algorithm>

namespace media {

namespace {

// A bounds-checked cursor over a record.
struct Cursor {
  const uint8_t* data;
  size_t size, at = 0;
  bool ok = true;
  uint32_t u8() { return need(1) ? data[at++] : 0; }
  uint32_t u16() {
    if (!need(2)) return 0;
    const uint32_t v = uint32_t(data[at]) << 8 | data[at + 1];
    at += 2;
    return v;
  }
  bool unit(std::vector<Bytes>& into) {
    const uint32_t n = u16();
    if (!need(n)) return false;
    into.emplace_back(data + at, data + at + n);
    at += n;
    return true;
  }
  bool need(size_t n) {
    ok = ok && size - at >= n;
    return ok;
  }
};

void put16(Bytes& out, size_t v) {
  out.push_back(uint8_t(v >> 8));
  out.push_back(uint8_t(v));
}

int avcType(const Bytes& u) { return u.empty() ? -1 : u[0] & 0x1F; }
int hevcType(const Bytes& u) { return u.empty() ? -1 : (u[0] >> 1) & 0x3F; }

// Offset just past the avcC PPS arrays (the start of the High-profile extension), 0 on error.
size_t avcArraysEnd(const Bytes& record, ConfigRecord* out) {
  Cursor c{record.data(), record.size()};
  if (c.u8() != 1) return 0;
  c.u8(), c.u8(), c.u8();
  const int lengthSize = int(c.u8() & 3) + 1;
  std::vector<Bytes> units;
  for (uint32_t n = c.u8() & 0x1F; n-- && c.ok;) c.unit(units);
  for (uint32_t n = c.u8(); n-- && c.ok;) c.unit(units);
  if (!c.ok) return 0;
  if (out) {
    out->lengthSize = lengthSize;
    out->units = std::move(units);
  }
  return c.at;
}

}  // namespace

bool readAvcC(const uint8_t* data, size_t size, ConfigRecord& out) {
  return avcArraysEnd(Bytes(data, data + size), &out) != 0;
}

bool readHvcC(const uint8_t* data, size_t size, ConfigRecord& out) {
  Cursor c{data, size};
  if (c.u8() != 1 || !c.need(21)) return false;
  c.at = 21;
  const int lengthSize = int(c.u8() & 3) + 1;
  std::vector<Bytes> units;
  for (uint32_t arrays = c.u8(); arrays-- && c.ok;) {
    c.u8();
    for (uint32_t n = c.u16(); n-- && c.ok;) c.unit(units);
  }
  if (!c.ok) return false;
  out.lengthSize = lengthSize;
  out.units = std::move(units);
  return true;
}

Bytes rewriteAvcC(const Bytes& old, const std::vector<Bytes>& units) {
  const size_t end = avcArraysEnd(old, nullptr);
  if (!end) return {};
  Bytes out(old.begin(), old.begin() + 5);
  std::vector<const Bytes*> sps, pps;
  for (const auto& u : units) {
    if (avcType(u) == 7) sps.push_back(&u);
    if (avcType(u) == 8) pps.push_back(&u);
  }
  if (!sps.empty() && sps.front()->size() >= 4) std::copy_n(sps.front()->begin() + 1, 3, out.begin() + 1);
  out.push_back(uint8_t(0xE0 | std::min<size_t>(sps.size(), 31)));
  for (size_t i = 0; i < sps.size() && i < 31; ++i) put16(out, sps[i]->size()), out.insert(out.end(), sps[i]->begin(), sps[i]->end());
  out.push_back(uint8_t(std::min<size_t>(pps.size(), 255)));
  for (size_t i = 0; i < pps.size() && i < 255; ++i) put16(out, pps[i]->size()), out.insert(out.end(), pps[i]->begin(), pps[i]->end());
  out.insert(out.end(), old.begin() + long(end), old.end());
  return out;
}

Bytes rewriteHvcC(const Bytes& old, const std::vector<Bytes>& units) {
  ConfigRecord check;
  if (!readHvcC(old.data(), old.size(), check)) return {};
  Bytes out(old.begin(), old.begin() + 22);
  std::vector<int> types;
  for (const auto& u : units)
    if (std::find(types.begin(), types.end(), hevcType(u)) == types.end()) types.push_back(hevcType(u));
  out.push_back(uint8_t(types.size()));
  for (int type : types) {
    out.push_back(uint8_t(0x80 | type));  // array_completeness: every unit of the type is here
    const size_t count = size_t(std::count_if(units.begin(), units.end(), [&](const Bytes& u) { return hevcType(u) == type; }));
    put16(out, count);
    for (const auto& u : units)
      if (hevcType(u) == type) put16(out, u.size()), out.insert(out.end(), u.begin(), u.end());
  }
  return out;
}

}  // namespace media
