// Parameter-set section of `quorvane inspect`: placeholder until parameter-set parsing lands.
#include "inspect.h"

void inspectParams(const std::vector<uint8_t>&, StreamCodec, FILE*, cli::Json*) {}
