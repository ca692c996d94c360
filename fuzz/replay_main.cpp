// Replays saved inputs through a libFuzzer harness without libFuzzer: each file named on the
// command line is passed once to LLVMFuzzerTestOneInput. A crash or sanitizer report fails the
// test; a harness's own checks abort.
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

int main(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    std::ifstream file(argv[i], std::ios::binary);
    if (!file) {
      std::fprintf(stderr, "replay: cannot read %s\n", argv[i]);
      return 1;
    }
    const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
  std::printf("replay: %d inputs\n", argc - 1);
  return 0;
}
