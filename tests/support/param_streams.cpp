#include "support/param_streams.h"

#include <gtest/gtest.h>

#include <sstream>

#include "support/ffmpeg_oracle.h"
#include "support/test_support.h"

namespace ptest {

std::string x265Stream(const std::string& name, const std::string& pixelFormat, const std::string& x265Params,
                       const std::string& size) {
  std::string params = "log-level=error" + (x265Params.empty() ? "" : ":" + x265Params);
  return qtest::encodedStream("params_" + name + ".hevc", "-f lavfi -i testsrc2=size=" + size +
                                                              ":rate=25 -frames:v 3 -pix_fmt " + pixelFormat +
                                                              " -c:v libx265 -x265-params " + params + " -f hevc");
}

std::string x264Stream(const std::string& name, const std::string& pixelFormat, const std::string& profileAndParams,
                       const std::string& size) {
  return qtest::encodedStream("params_" + name + ".h264", "-f lavfi -i testsrc2=size=" + size +
                                                              ":rate=25 -frames:v 3 -pix_fmt " + pixelFormat +
                                                              " -c:v libx264 " + profileAndParams + " -f h264");
}

const Bytes* firstHevcUnit(const std::vector<Bytes>& units, int type) {
  for (const auto& u : units)
    if (u.size() >= 2 && ((u[0] >> 1) & 0x3F) == type) return &u;
  return nullptr;
}

const Bytes* firstAvcUnit(const std::vector<Bytes>& units, int type) {
  for (const auto& u : units)
    if (!u.empty() && (u[0] & 0x1F) == type) return &u;
  return nullptr;
}

size_t escapesIn(const Bytes& b) {
  size_t n = 0;
  for (size_t i = 2; i < b.size(); ++i)
    if (b[i] == 3 && b[i - 1] == 0 && b[i - 2] == 0) ++n;
  return n;
}

std::vector<Bytes> splitAnnexB(const Bytes& s) {
  std::vector<Bytes> units;
  size_t i = 0, start = SIZE_MAX;
  auto finish = [&](size_t end) {
    if (start == SIZE_MAX) return;
    while (end > start && s[end - 1] == 0) --end;
    if (end > start) units.emplace_back(s.begin() + static_cast<long>(start), s.begin() + static_cast<long>(end));
  };
  while (i + 2 < s.size()) {
    if (s[i] == 0 && s[i + 1] == 0 && s[i + 2] == 1) {
      finish(i);
      i += 3;
      start = i;
    } else {
      ++i;
    }
  }
  finish(s.size());
  return units;
}

std::vector<TracedUnit> traceHeaders(const std::string& path) {
  std::vector<TracedUnit> units;
  for (const oracle::TraceLine& t : oracle::traceHeaderLines(path)) {
    if (!t.isElement) {
      units.push_back({t.text, {}});
    } else if (!units.empty()) {
      units.back().elements[t.name.substr(0, t.name.find('['))].push_back(t.value);  // subscripts dropped
    }
  }
  return units;
}

const TracedUnit* firstOfKind(const std::vector<TracedUnit>& units, const std::string& kind) {
  for (const auto& u : units)
    if (u.kind == kind) return &u;
  return nullptr;
}

void ElementCollector::sink(void* user, const char* name, int64_t value, int32_t) {
  auto& e = static_cast<ElementCollector*>(user)->elements;
  std::string n = name;
  // Our records keep some flag groups as one value; spread them the way the syntax codes them.
  if (n == "general_profile_compatibility_flags" || n == "sub_layer_profile_compatibility_flags") {
    std::string flag = n.substr(0, n.size() - 1);
    for (int j = 31; j >= 0; --j) e[flag].push_back((value >> j) & 1);
    return;
  }
  if (n == "general_constraint_indicator_flags") {
    const char* flags[] = {"general_progressive_source_flag", "general_interlaced_source_flag",
                           "general_non_packed_constraint_flag", "general_frame_only_constraint_flag"};
    for (int k = 0; k < 4; ++k) e[flags[k]].push_back((value >> (47 - k)) & 1);
    e["general_inbld_flag"].push_back(value & 1);
    return;
  }
  if (n == "scaling_list_delta_coef") n = "scaling_list_delta_coeff";  // ffmpeg's spelling
  e[n].push_back(value);
}

int compareElements(const ElementValues& ours, const ElementValues& theirs, const std::string& context) {
  int compared = 0;
  for (const auto& [name, values] : ours) {
    auto it = theirs.find(name);
    if (it == theirs.end()) continue;
    ++compared;
    EXPECT_EQ(values, it->second) << context << ": element " << name;
  }
  return compared;
}

}  // namespace ptest

namespace ptest {

HevcUnits hevcUnits(const std::string& path) {
  HevcUnits u;
  u.path = path;
  auto all = splitAnnexB(qtest::readBytes(path));
  if (auto* v = firstHevcUnit(all, 32)) u.vps = *v;
  if (auto* s = firstHevcUnit(all, 33)) u.sps = *s;
  if (auto* p = firstHevcUnit(all, 34)) u.pps = *p;
  return u;
}

}  // namespace ptest

namespace ptest {

template <class Record>
std::unique_ptr<Record> readHevcUnit(Bytes unit, uint32_t* result) {
  auto record = std::make_unique<Record>();
  zr_bitstream s = over(unit);
  uint32_t r;
  if constexpr (std::is_same_v<Record, HEVC_VPS_DECODED>)
    r = klxutilRead_HEVC_VPS(&s, record.get(), nullptr, 0);
  else if constexpr (std::is_same_v<Record, HEVC_SPS_DECODED>)
    r = klxutilRead_HEVC_SPS(&s, record.get(), nullptr, 0);
  else
    r = klxutilRead_HEVC_PPS(&s, record.get(), nullptr, 0);
  if (result)
    *result = r;
  else
    EXPECT_TRUE(r != 0 && r != 0xFFFFFFFFu) << "the unit does not read: " << r;
  return record;
}
template std::unique_ptr<HEVC_VPS_DECODED> readHevcUnit(Bytes, uint32_t*);
template std::unique_ptr<HEVC_SPS_DECODED> readHevcUnit(Bytes, uint32_t*);
template std::unique_ptr<HEVC_PPS_DECODED> readHevcUnit(Bytes, uint32_t*);

}  // namespace ptest
