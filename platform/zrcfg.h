// The configuration store: a persistent hierarchical store of named DWORD and string values
// under backslash key paths ("Quorvane\MetaData\Default").
//
// The system store (handle ZR_CFG_SYSTEM, -1) is one XML file: $QUORVANE_CONFIG when set, else
// $XDG_CONFIG_HOME/quorvane/config.xml (~/.config/quorvane/config.xml). The path is looked up
// on every call, so a change of $QUORVANE_CONFIG takes effect at once. zrCFGOpen opens any
// other XML file ("UserMetadata.xml") as a store of its own.
//
// Key and value names match without regard to ASCII case, like registry names, and keep the
// case they were first written with. Empty path components ("A\\B\") are ignored; an empty or
// null key path is the root. A null value name is the same as "".
//
// Every write is its own transaction and is on disk when the call returns: under an exclusive
// lock on "<file>.lock" the file is re-read (so values written meanwhile by another process
// are merged, not overwritten), the change is applied, and the result goes to "<file>.tmp",
// which is synced and renamed over the old file. A crash at any point leaves either the old or
// the new file. A corrupt file is reported through ErrOut, read as empty, and kept aside as
// "<file>.bad" (".bad1", ".bad2"... when that exists) when the next write replaces it.
//
// Reads are served from the handle's parsed copy of the file, which is checked against the
// bytes on disk on every call and re-parsed only when they differ, so a value written by
// another process or handle is seen by the next read.
#pragma once
#include <cstdint>

extern "C" {

typedef intptr_t ZRCFGHANDLE;
#define ZR_CFG_SYSTEM ((ZRCFGHANDLE)-1)
#define ZR_CFG_INVALID ((ZRCFGHANDLE)0)

// Results: 0 success; ZR_CFG_NOT_FOUND when the key or value does not exist; ZR_CFG_MORE_DATA
// when a string buffer is too small (*size then holds the size needed); ZR_CFG_ERROR otherwise
// (bad argument, unknown handle, a value of the other type, a file that cannot be read or written).
#define ZR_CFG_OK        0
#define ZR_CFG_NOT_FOUND 2      // ERROR_FILE_NOT_FOUND
#define ZR_CFG_MORE_DATA 234    // ERROR_MORE_DATA
#define ZR_CFG_NO_MORE_ITEMS 259  // ERROR_NO_MORE_ITEMS: an enumeration index past the end
#define ZR_CFG_ERROR     1

// Value types reported by zrCFGEnumValue.
#define ZR_CFG_TYPE_NONE   0u  // a value whose type this build does not know
#define ZR_CFG_TYPE_STRING 1u  // REG_SZ
#define ZR_CFG_TYPE_DWORD  4u  // REG_DWORD

// A handle that is told of a batch of writes (zrCFGBeginBatch) applies them to its own view at
// once and puts them in the file together at zrCFGEndBatch, as one transaction: one lock, one
// re-read, one write. While a batch is open the handle reads the file as it was when the batch
// began, plus the batch's own writes.

// Opens the XML file at path as a store; ZR_CFG_INVALID on failure (null or empty path, a
// directory, a missing parent directory). A missing file opens as an empty store and is
// created by the first write. A relative path is made absolute against the current directory.
ZRCFGHANDLE zrCFGOpen(const char* path);
// zrCFGOpen with conditions, for callers that must not touch a file the user did not mean as a
// store: ZR_CFG_OPEN_EXISTING refuses a missing file; ZR_CFG_OPEN_STORE_ONLY refuses a file that
// holds anything but a store (other XML, text, a truncated store), which zrCFGOpen would read
// as empty and replace on the first write (keeping the old bytes as "<file>.bad").
#define ZR_CFG_OPEN_EXISTING 1u
#define ZR_CFG_OPEN_STORE_ONLY 2u
ZRCFGHANDLE zrCFGOpenEx(const char* path, uint32_t flags);
// Closes a store opened by zrCFGOpen. Outside a batch every write is on disk when its call
// returns, so there is nothing to flush; an open batch is written (flush != 0) or dropped
// (flush == 0). The system handle may be passed: its batch is ended the same way and it stays open.
int zrCFGClose(ZRCFGHANDLE store, int flush);

// Batches nest; the outermost zrCFGEndBatch writes (commit != 0) or drops (commit == 0) every
// write made since the outermost zrCFGBeginBatch. Writes from other processes and handles made
// meanwhile are kept: the batch is replayed on the file as it is at the end. A process that dies
// inside a batch loses that batch and nothing else. ZR_CFG_ERROR for an end without a begin.
int zrCFGBeginBatch(ZRCFGHANDLE store);
int zrCFGEndBatch(ZRCFGHANDLE store, int commit);

// DWORD value: write != 0 stores *value, else reads into *value.
// A read with value == null only tests that the value exists, of either type (0 or ZR_CFG_NOT_FOUND).
// Reading a string value as a DWORD fails with ZR_CFG_ERROR; writing replaces a value of either type.
int zrCFGValueDword(ZRCFGHANDLE store, const char* keyPath, const char* name, uint32_t* value, int write);

// String value. Read: *size is the buffer size in bytes; with buffer == null (or too small)
// *size receives the size needed, terminating NUL included, and the result is 0 (null buffer)
// or ZR_CFG_MORE_DATA (the buffer is then left untouched). An empty string holds no data: its
// size is 0, and a read into a buffer writes just the NUL. Write: stores the text of buffer (at
// most *size bytes, up to its NUL; size may be null for the whole text).
int zrCFGValueString(ZRCFGHANDLE store, const char* keyPath, const char* name, char* buffer, uint32_t* size, int write);

// Removes a value; ZR_CFG_NOT_FOUND when it was not there.
int zrCFGDeleteValue(ZRCFGHANDLE store, const char* keyPath, const char* name);

// Enumeration, like RegEnumValue / RegEnumKeyEx: the index-th value (or sub-key) of keyPath, in
// the store's order. name receives the name (*nameSize bytes of room; null name or too small a
// buffer reports the size needed, NUL included, as the string reads do). ZR_CFG_NOT_FOUND when
// the key does not exist, ZR_CFG_NO_MORE_ITEMS past the last one.
int zrCFGEnumValue(ZRCFGHANDLE store, const char* keyPath, uint32_t index, char* name, uint32_t* nameSize, uint32_t* type);
int zrCFGEnumKey(ZRCFGHANDLE store, const char* keyPath, uint32_t index, char* name, uint32_t* nameSize);

// The file behind a handle (the system store's current path for ZR_CFG_SYSTEM), sized like a
// string read.
int zrCFGGetPath(ZRCFGHANDLE store, char* path, uint32_t* size);
}
