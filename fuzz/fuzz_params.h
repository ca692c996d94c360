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
#include "streamutil/rbsp.h"
#include "streamutil/zr_bitstream.h"
#include "fuzz_check.h"

struct Listing {
  std::vector<std::pair<std::string, int64_t>> elements;
  // A ue(v)/se(v) value whose code number reaches 2^24 - 1: the library's ue(v) writer codes
  // those 48 bits too long (kept), so such a record does not read back.
  bool longCode = false;
  // A u(n) value wider than n bits (a flag of -1): the unit ended before it, and a read past the
  // end gives all ones in 32 bits (kept), which no writer can code. Such a record is not expected to read back.
  bool pastEnd = false;
  bool operator==(const Listing& other) const { return elements == other.elements; }
};

inline void collect(void* user, const char* name, int64_t value, int32_t bits) {
  auto* listing = static_cast<Listing*>(user);
  listing->elements.emplace_back(name, value);
  if (bits == 0 && (value >= 8388607 || value <= -8388607)) listing->longCode = true;
  if (bits > 0 && bits < 32 && (value < 0 || value >= (int64_t{1} << bits))) listing->pastEnd = true;
}

template <class Record, class Lister>
Listing listOf(const Record& record, Lister lister) {
  Listing listing;
  lister(&record, collect, &listing);
  return listing;
}

// True when the H.264 reader's escape removal (from byte 3 on, not near the end, and 0C as an
// escape in a PPS: all kept) sees the same RBSP as ITU-T H.264 7.4.1 would. Only then can a
// written unit be expected to read back.
inline bool avcReaderSeesRbsp(const uint8_t* nal, size_t size, bool isPps) {
  std::vector<uint8_t> standard;
  int zeros = 0;
  for (size_t i = 0; i < size; ++i) {
    if (zeros >= 2 && nal[i] == 3) {
      zeros = 0;
      continue;
    }
    standard.push_back(nal[i]);
    zeros = nal[i] == 0 ? zeros + 1 : 0;
  }
  std::vector<uint8_t> library(nal, nal + size);
  size_t n = size;
  if (size > (isPps ? 5u : 6u)) rbsp::removeAvcEmulationPrevention(library.data(), n, isPps, isPps ? 2 : 4);
  library.resize(n);
  return library == standard;
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
  if (read == 0 || read == kFailed) return;
  const Listing read0 = listOf(*first, calls.list);
  if (read0.longCode || read0.pastEnd) return;
  auto normalised = std::make_unique<Record>(*first);
  calls.normalise(*normalised);
  const Listing expected = listOf(*normalised, calls.list);
  std::vector<uint8_t> written(kHevcParamSetMaxBytes);
  const int32_t n = calls.write(first.get(), written.data(), written.size());
  check(n > 2 && size_t(n) <= written.size());
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
