// Temporary placeholders for platform services under construction. Every function here fails
// cleanly; each is removed from this file as its real implementation lands.
#include "platform/tcxlat.h"

int tc2String(uint32_t, uint32_t, void* out, size_t outSize) {
  if (out && outSize) static_cast<char*>(out)[0] = '\0';
  return -1;
}
int tc2Frame(const char*, uint32_t, uint32_t*) { return -1; }

