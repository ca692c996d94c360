// The configuration store: a persistent hierarchical store of named DWORD and string values
// under backslash key paths ("Quorvane\MetaData\Default").
//
// The system store (handle ZR_CFG_SYSTEM, -1) is one XML file: $QUORVANE_CONFIG when set, else
// $XDG_CONFIG_HOME/quorvane/config.xml (~/.config/quorvane/config.xml). zrCFGOpen opens any
// other XML file ("UserMetadata.xml") as a store of its own.
//
// Nothing is ever lost: writes go to a temporary file that is synced and renamed over the old
// one under an exclusive lock, after re-reading the file so that values written meanwhile by
// another process are merged, not overwritten. A corrupt file is reported through ErrOut,
// read as empty and kept aside as "<file>.bad".
#pragma once
#include <cstdint>

extern "C" {

typedef intptr_t ZRCFGHANDLE;
#define ZR_CFG_SYSTEM ((ZRCFGHANDLE)-1)
#define ZR_CFG_INVALID ((ZRCFGHANDLE)0)

// Results: 0 success; ZR_CFG_NOT_FOUND when the key or value does not exist; ZR_CFG_MORE_DATA
// when a string buffer is too small (*size then holds the size needed); ZR_CFG_ERROR otherwise.
#define ZR_CFG_OK        0
#define ZR_CFG_NOT_FOUND 2      // ERROR_FILE_NOT_FOUND
#define ZR_CFG_MORE_DATA 234    // ERROR_MORE_DATA
#define ZR_CFG_ERROR     1

// Opens (creating when missing) the XML file at path as a store; ZR_CFG_INVALID on failure.
ZRCFGHANDLE zrCFGOpen(const char* path);
// Closes a store opened by zrCFGOpen; flush != 0 writes pending changes first. The system
// handle may be passed and is then only flushed.
int zrCFGClose(ZRCFGHANDLE store, int flush);

// DWORD value: write != 0 stores *value, else reads into *value.
// A read with value == null only tests that the value exists (0 or ZR_CFG_NOT_FOUND).
int zrCFGValueDword(ZRCFGHANDLE store, const char* keyPath, const char* name, uint32_t* value, int write);

// String value. Read: *size is the buffer size in bytes; with buffer == null (or too small)
// *size receives the size needed, terminating NUL included, and the result is 0 (null buffer)
// or ZR_CFG_MORE_DATA. Write: stores the text of buffer (at most *size bytes, up to its NUL).
int zrCFGValueString(ZRCFGHANDLE store, const char* keyPath, const char* name, char* buffer, uint32_t* size, int write);

// Removes a value; ZR_CFG_NOT_FOUND when it was not there.
int zrCFGDeleteValue(ZRCFGHANDLE store, const char* keyPath, const char* name);
}
