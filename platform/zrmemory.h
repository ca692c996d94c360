// Memory services of the platform utility library.
#pragma once
#include <cstddef>

extern "C" {
// Heap allocation used for every buffer handed across the library boundary (XML/JSON text,
// metadata item texts). ZRAlloc returns zero-filled memory, or null when size is 0 or memory is out.
void* ZRAlloc(size_t size);
// Releases a ZRAlloc block; null is ignored.
void ZRFree(void* block);

// memcpy/memset with Win32 names. The "Fast" forms are the ones hot paths call.
void CopyMemoryFast(void* dst, const void* src, size_t count);
void ZeroMemoryFast(void* dst, size_t count);
void zrOSCopyMemory(void* dst, const void* src, size_t count);
void zrOSZeroMemory(void* dst, size_t count);
}
