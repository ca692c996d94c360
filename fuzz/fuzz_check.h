// The property check every harness uses: a broken property aborts, which libFuzzer reports as a
// crash with its input, and the replay under ctest as a failed test.
#pragma once
#include <cstdlib>

inline void check(bool condition) {
  if (!condition) std::abort();
}
