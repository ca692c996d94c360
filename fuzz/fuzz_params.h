// Shared by the parameter-set harnesses: a record's element listing (name and value of every
// element present, in bitstream order) is what "reads back equal" compares, so parts of a
// record that its syntax leaves unread never take part.
#pragma once
#include <cstdint>
#include <algorithm>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "streamutil/param_elements.h"
#include "streamutil/zr_bitstream.h"
#include "fuzz_check.h"

struct Listing {
  std::vector<std::pair<std::string, int64_t>> elements;
  // A ue(v)/se(v) value whose code number reaches 2^24 - 1: the library's ue(v) writer codes
  // those 48 bits too long (kept), so such a record does not read back.
  bool longCode = false;
  bool operator==(const Listing& other) const { return elements == other.elements; }
};

inline void collect(void* user, const char* name, int64_t value, int32_t bits) {
  auto* listing = static_cast<Listing*>(user);
  listing->elements.emplace_back(name, value);
  if (bits == 0 && (value >= 8388607 || value <= -8388607)) listing->longCode = true;
}

template <class Record, class Lister>
Listing listOf(const Record& record, Lister lister) {
  Listing listing;
  lister(&record, collect, &listing);
  return listing;
}

// A bit reader over caller bytes (the readers work on a private copy).
inline zr_bitstream readerOver(const uint8_t* data, size_t size) {
  return zr_bitstream{const_cast<uint8_t*>(data), static_cast<int64_t>(size), uint64_t(size) * 8, 0};
}

// The HEVC readers and writers: what reads writes, and the written unit reads back to a record
// that writes the same bytes. Positive se(v) values are written with the library's own signed
// code (kept: they read back as -(v + 1)), so only a record without them must also read back
// with the same elements. `normalise` clears what the writer deliberately does not carry over.
#include <memory>

#include "streamutil/hevc_params.h"

template <class Record>
struct HevcCalls {
  uint32_t (*read)(zr_bitstream*, Record*, HEVC_DECODED*, uint64_t);
  int32_t (*write)(Record*, uint8_t*, size_t);
  void (*list)(const Record*, klxutilParamElementSink, void*);
  void (*normalise)(Record&);
};

inline bool anyPositiveSigned(const Listing& listing) {
  static const char* const kSigned[] = {"init_qp_minus26", "pps_cb_qp_offset", "pps_cr_qp_offset",
                                        "pps_beta_offset_div2", "pps_tc_offset_div2",
                                        "scaling_list_dc_coef_minus8", "scaling_list_delta_coef"};
  for (const auto& [name, value] : listing.elements)
    for (const char* s : kSigned)
      if (value > 0 && name == s) return true;
  return false;
}

template <class Record>
void hevcRoundTrip(const uint8_t* data, size_t size, const HevcCalls<Record>& calls) {
  constexpr uint32_t kFailed = 0xFFFFFFFFu;
  if (size == 0 || size > 4096) return;
  zr_bitstream in = readerOver(data, size);
  auto first = std::make_unique<Record>();
  HEVC_DECODED summary{};
  const uint32_t read = calls.read(&in, first.get(), &summary, uint64_t(size) * 8);
  check(read == kFailed || read <= size);
  if (read == 0 || read == kFailed) return;
  if (listOf(*first, calls.list).longCode) return;
  std::vector<uint8_t> written(kHevcParamSetMaxBytes);
  const int32_t n = calls.write(first.get(), written.data(), written.size());
  check(n > 2 && size_t(n) <= written.size());
  calls.normalise(*first);
  const Listing expected = listOf(*first, calls.list);  // after the writer's forced fields
  auto second = std::make_unique<Record>();
  zr_bitstream again = readerOver(written.data(), size_t(n));
  const uint32_t reread = calls.read(&again, second.get(), nullptr, uint64_t(n) * 8);
  const bool readsBack = reread != 0 && reread != kFailed;
  if (!anyPositiveSigned(expected)) {
    check(readsBack);
    check(listOf(*second, calls.list) == expected);
  }
  if (!readsBack) return;
  std::vector<uint8_t> rewritten(kHevcParamSetMaxBytes);
  const int32_t n2 = calls.write(second.get(), rewritten.data(), rewritten.size());
  check(n2 == n && std::equal(written.begin(), written.begin() + n, rewritten.begin()));
}
