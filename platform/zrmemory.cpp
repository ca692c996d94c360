#include "platform/zrmemory.h"

#include <cstdlib>
#include <cstring>

void* ZRAlloc(size_t size) {
  if (size == 0) return nullptr;
  return std::calloc(1, size);
}

void ZRFree(void* block) { std::free(block); }

void CopyMemoryFast(void* dst, const void* src, size_t count) {
  if (count) std::memmove(dst, src, count);
}
void ZeroMemoryFast(void* dst, size_t count) {
  if (count) std::memset(dst, 0, count);
}
void zrOSCopyMemory(void* dst, const void* src, size_t count) { CopyMemoryFast(dst, src, count); }
void zrOSZeroMemory(void* dst, size_t count) { ZeroMemoryFast(dst, count); }
