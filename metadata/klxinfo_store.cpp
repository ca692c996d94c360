// KLXINFOREC to and from the configuration store and the per-user file "UserMetadata.xml".
#include <cstdio>
#include <cstring>

#include "metadata/klxinfo.h"
#include "platform/zrcfg.h"
#include "platform/zrfile.h"
#include "platform/zrmemory.h"

namespace {

// Slack allocated behind every item text read from the store.
constexpr uint32_t kTextSlack = 4;

// Reads one text item. Only a value with some text replaces the slot; a missing key or an
// empty value (nothing but its terminator) leaves the slot as it was. A value that cannot be
// read after its size was learned leaves the slot empty.
void readTextItem(ZRCFGHANDLE store, const char* key, char*& slot) {
  uint32_t size = 0;
  if (zrCFGValueString(store, KLXINFO_DEFAULT_KEY, key, nullptr, &size, 0) != ZR_CFG_OK) return;
  if (size <= 1) return;
  ZRFree(slot);
  uint32_t capacity = size + kTextSlack;
  slot = static_cast<char*>(ZRAlloc(capacity));
  if (!slot) return;
  if (zrCFGValueString(store, KLXINFO_DEFAULT_KEY, key, slot, &capacity, 0) != ZR_CFG_OK) {
    ZRFree(slot);
    slot = nullptr;
    return;
  }
  slot[size + kTextSlack - 1] = '\0';
}

// Reads one numeric item; a failed read keeps the slot's previous value.
void readNumericItem(ZRCFGHANDLE store, const char* key, uint32_t& slot) {
  if (zrCFGValueDword(store, KLXINFO_DEFAULT_KEY, key, nullptr, 0) != ZR_CFG_OK) return;
  uint32_t previous = slot;
  if (zrCFGValueDword(store, KLXINFO_DEFAULT_KEY, key, &slot, 0) != ZR_CFG_OK) slot = previous;
}

void setVersionString(char*& slot) {
  ZRFree(slot);
  slot = static_cast<char*>(ZRAlloc(KLXINFO_VERSION_TEXT_SIZE));
  if (slot)
    snprintf(slot, KLXINFO_VERSION_TEXT_SIZE, "%d.%d.%d.%d", KLXINFO_VERSION_MAJOR, KLXINFO_VERSION_MINOR,
             KLXINFO_VERSION_RELEASE, KLXINFO_VERSION_BUILD);
}

// Keeps the first real error; deleting a key that is not there is not one.
void noteError(int& first, int result) {
  if (first == ZR_CFG_OK && result != ZR_CFG_OK && result != ZR_CFG_NOT_FOUND) first = result;
}

int writeTextItem(ZRCFGHANDLE store, const char* key, const char* text) {
  if (!text) return zrCFGDeleteValue(store, KLXINFO_DEFAULT_KEY, key);
  // The length handed over covers the text, its terminator and one byte more, as the store has
  // always been given; the store stops at the terminator.
  uint32_t length = static_cast<uint32_t>(strlen(text)) + 2;
  return zrCFGValueString(store, KLXINFO_DEFAULT_KEY, key, const_cast<char*>(text), &length, 1);
}

// Unset numerics are deleted so that the store mirrors the record: a later read then leaves
// the reader's own value in place instead of forcing 0xFFFFFFFF on it.
int writeNumericItem(ZRCFGHANDLE store, const char* key, uint32_t value) {
  if (value == KLXINFO_NOT_SET) return zrCFGDeleteValue(store, KLXINFO_DEFAULT_KEY, key);
  return zrCFGValueDword(store, KLXINFO_DEFAULT_KEY, key, &value, 1);
}

// Holds a store batch open for the life of a whole-record read or write: the record is read
// from one consistent view of the file, and written in one transaction (one lock, one re-read,
// one write) instead of one per item.
class StoreBatch {
 public:
  explicit StoreBatch(ZRCFGHANDLE store) : store_(store), open_(zrCFGBeginBatch(store) == ZR_CFG_OK) {}
  ~StoreBatch() { end(0); }
  StoreBatch(const StoreBatch&) = delete;
  StoreBatch& operator=(const StoreBatch&) = delete;
  int end(int commit) {
    if (!open_) return ZR_CFG_OK;
    open_ = false;
    return zrCFGEndBatch(store_, commit);
  }

 private:
  ZRCFGHANDLE store_;
  bool open_;
};

}  // namespace

extern "C" {

int klxInfoReadRegSet(ZRCFGHANDLE store, KLXINFOREC* record) {
  if (!record) return 0;
  StoreBatch batch(store);
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot)
    if (klxInfoTextItems[slot].stored) readTextItem(store, klxInfoTextItems[slot].name, record->text[slot]);
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot)
    if (klxInfoNumericItems[slot].stored) readNumericItem(store, klxInfoNumericItems[slot].name, record->numeric[slot]);
  setVersionString(record->text[kxtVersionString]);
  return 0;
}

int klxInfoWriteRegSet(ZRCFGHANDLE store, KLXINFOREC* record) {
  if (!record) return -1;
  StoreBatch batch(store);
  int firstError = ZR_CFG_OK;
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot)
    if (klxInfoTextItems[slot].stored)
      noteError(firstError, writeTextItem(store, klxInfoTextItems[slot].name, record->text[slot]));
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot)
    if (klxInfoNumericItems[slot].stored)
      noteError(firstError, writeNumericItem(store, klxInfoNumericItems[slot].name, record->numeric[slot]));
  noteError(firstError, batch.end(1));
  return firstError;
}

int klxInfoWriteRegItem(ZRCFGHANDLE store, const KLXINFOREC* record, int item) {
  if (!record || item < 0) return -1;
  int result;
  if (item & KLXINFO_NUMERIC_FLAG) {
    int slot = item - KLXINFO_NUMERIC_FLAG;
    if (slot >= KLXINFO_NUMERIC_ITEMS || !klxInfoNumericItems[slot].stored) return -1;
    result = writeNumericItem(store, klxInfoNumericItems[slot].name, record->numeric[slot]);
  } else {
    if (item >= KLXINFO_TEXT_ITEMS || !klxInfoTextItems[item].stored) return -1;
    result = writeTextItem(store, klxInfoTextItems[item].name, record->text[item]);
  }
  return result == ZR_CFG_NOT_FOUND ? ZR_CFG_OK : result;
}

int klxInfoReadReg(KLXINFOREC* record, int fromSystem, int fromUserFile) {
  if (!record) return 0;
  if (fromSystem) {
    uint32_t disabled = 0;
    if (zrCFGValueDword(ZR_CFG_SYSTEM, KLXINFO_SWITCH_KEY, KLXINFO_SWITCH_NAME, &disabled, 0) != ZR_CFG_OK)
      klxInfoWriteRegSet(ZR_CFG_SYSTEM, record);  // first use: the record's items become the defaults
    else
      klxInfoReadRegSet(ZR_CFG_SYSTEM, record);
  }
  if (fromUserFile && zrOSFileExists(KLXINFO_USER_FILE)) {
    ZRCFGHANDLE user = zrCFGOpen(KLXINFO_USER_FILE);
    if (user != ZR_CFG_INVALID) {
      klxInfoReadRegSet(user, record);
      zrCFGClose(user, 1);
    }
  }
  return 0;
}

int klxInfoWriteReg(KLXINFOREC* record, int toSystem, int toUserFile) {
  if (!record) return 0;
  // A write that was not stored is reported: the caller must not take the record as saved.
  int result = 0;
  if (toSystem) result = klxInfoWriteRegSet(ZR_CFG_SYSTEM, record);
  if (toUserFile && zrOSFileExists(KLXINFO_USER_FILE)) {
    ZRCFGHANDLE user = zrCFGOpen(KLXINFO_USER_FILE);
    const int userResult = user == ZR_CFG_INVALID ? ZR_CFG_ERROR : klxInfoWriteRegSet(user, record);
    if (user != ZR_CFG_INVALID) zrCFGClose(user, 1);
    if (result == 0) result = userResult;
  }
  return result;
}

}  // extern "C"
