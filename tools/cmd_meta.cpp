// quorvane meta: the metadata info record in the configuration store and in the per-user file
// "UserMetadata.xml" of the current directory.
#include <strings.h>

#include <cstdio>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "metadata/klxinfo.h"
#include "platform/zrcfg.h"
#include "platform/zrfile.h"
#include "platform/zrmemory.h"

namespace {

constexpr const char* kUsage =
    "usage: quorvane meta list [--user|--system] [--all] [--json]\n"
    "       quorvane meta get [--user|--system] [--json] ITEM\n"
    "       quorvane meta set [--user] ITEM VALUE\n"
    "       quorvane meta delete [--user] ITEM\n"
    "       quorvane meta describe [--json] ID...\n"
    "       quorvane meta tctype TEXT\n\n"
    "Shows and edits the clip metadata items kept under \"Quorvane\\MetaData\\Default\".\n"
    "The system store is $QUORVANE_CONFIG (else ~/.config/quorvane/config.xml); --user works\n"
    "on UserMetadata.xml in the current directory instead (set creates it).\n"
    "  list      the items that are set (--all: every item kept in the store), with their\n"
    "            description identifiers; by default the system store overridden by the\n"
    "            user file, as the library reads them\n"
    "  get       one item's value (exit 1 when it is not set)\n"
    "  set       a text item takes VALUE as it is; a numeric item takes a number (decimal or\n"
    "            0x hex); the timecode-type items also take frames, film, 23.98, film-drop,\n"
    "            pal, drop-frame, 50, 59.94, 60\n"
    "  delete    removes the item from the store\n"
    "  describe  the item name of description identifiers (0..78, 4097..4129,\n"
    "            0x10000..0x10022)\n"
    "  tctype    the timecode type named by TcType=\"...\" in TEXT\n"
    "ITEM is an item name (case does not matter), e.g. Title, Reel, TimeCode, TimeCodeType.\n";

constexpr const char* kCommand = "meta";

enum class Source { kEffective, kSystem, kUser };

// A record with nothing in it: null texts, unset numerics, so that a read-modify-write of the
// store writes back exactly what was there plus the change.
struct Record {
  KLXINFOREC rec;
  Record() {
    memset(&rec, 0, sizeof rec);
    for (uint32_t& value : rec.numeric) value = KLXINFO_NOT_SET;
  }
  ~Record() {
    for (char* text : rec.text) ZRFree(text);
  }
  Record(const Record&) = delete;
  Record& operator=(const Record&) = delete;
};

// Description identifier of a slot, or -1 for the slots that have none.
long descriptionId(int item) {
  if (item & KLXINFO_NUMERIC_FLAG) {
    int slot = item & 0xFF;
    return slot >= 1 && KLXINFO_DESC_NUMERIC_BASE + slot <= KLXINFO_DESC_NUMERIC_LAST ? KLXINFO_DESC_NUMERIC_BASE + slot : -1;
  }
  if (item == kxtDoNotUse || item > kxtProxyFile) return -1;
  return item < kxtDoNotUse ? item : item - 1;
}

const KlxInfoItem& itemInfo(int item) {
  return item & KLXINFO_NUMERIC_FLAG ? klxInfoNumericItems[item & 0xFF] : klxInfoTextItems[item];
}

bool isSet(const KLXINFOREC& rec, int item) {
  return item & KLXINFO_NUMERIC_FLAG ? rec.numeric[item & 0xFF] != KLXINFO_NOT_SET : rec.text[item] != nullptr;
}

std::string valueText(const KLXINFOREC& rec, int item) {
  if (item & KLXINFO_NUMERIC_FLAG) return std::to_string(rec.numeric[item & 0xFF]);
  return rec.text[item] ? rec.text[item] : "";
}

// Reads the record from the chosen source; false (with the message printed) when impossible.
bool readRecord(Source source, Record& r, int* exitCode) {
  bool haveUser = zrOSFileExists(KLXINFO_USER_FILE);
  if (source == Source::kUser && !haveUser) {
    *exitCode = cli::failWith(cli::kFailed, kCommand, "no %s in the current directory", KLXINFO_USER_FILE);
    return false;
  }
  if (source != Source::kUser) klxInfoReadRegSet(ZR_CFG_SYSTEM, &r.rec);
  if (source != Source::kSystem && haveUser) {
    ZRCFGHANDLE user = zrCFGOpen(KLXINFO_USER_FILE);
    if (user == ZR_CFG_INVALID) {
      *exitCode = cli::failWith(cli::kFailed, kCommand, "cannot open %s", KLXINFO_USER_FILE);
      return false;
    }
    klxInfoReadRegSet(user, &r.rec);
    zrCFGClose(user, 0);
  }
  return true;
}

// Finds an item by name; prints the error and returns -1 when there is none.
int lookUp(const std::string& name, int* exitCode) {
  int item = klxInfoFindItem(name.c_str());
  if (item < 0) *exitCode = cli::fail(kCommand, "unknown item '%s'", name.c_str());
  return item;
}

int list(Source source, bool all, bool json) {
  Record r;
  int code = cli::kOk;
  if (!readRecord(source, r, &code)) return code;
  cli::Json out;
  out.beginObject().str("source", source == Source::kUser ? "user" : source == Source::kSystem ? "system" : "system+user");
  out.beginArray("items");
  if (!json) std::printf("%6s  %-28s %s\n", "id", "item", "value");
  auto show = [&](int item) {
    const KlxInfoItem& info = itemInfo(item);
    bool shown = isSet(r.rec, item) || (all && info.stored);
    if (!info.name || !shown) return;
    long id = descriptionId(item);
    bool numeric = item & KLXINFO_NUMERIC_FLAG;
    if (json) {
      out.beginObject().str("name", info.name);
      if (id >= 0) out.num("id", int64_t(id)); else out.null("id");
      out.str("kind", numeric ? "numeric" : "text");
      if (!isSet(r.rec, item)) out.null("value");
      else if (numeric) out.num("value", int64_t(r.rec.numeric[item & 0xFF]));
      else out.str("value", valueText(r.rec, item));
      out.endObject();
    } else {
      std::printf("%6s  %-28s %s\n", id >= 0 ? std::to_string(id).c_str() : "-", info.name,
                  isSet(r.rec, item) ? valueText(r.rec, item).c_str() : "(not set)");
    }
  };
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot) show(slot);
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) show(KLXINFO_NUMERIC_FLAG + slot);
  if (json) std::printf("%s\n", out.endArray().endObject().text().c_str());
  return cli::kOk;
}

int get(Source source, const std::string& name, bool json) {
  int code = cli::kOk;
  int item = lookUp(name, &code);
  if (item < 0) return code;
  Record r;
  if (!readRecord(source, r, &code)) return code;
  const char* canonical = itemInfo(item).name;
  if (!isSet(r.rec, item)) return cli::failWith(cli::kFailed, kCommand, "%s is not set", canonical);
  if (json) {
    cli::Json out;
    out.beginObject().str("name", canonical);
    if (item & KLXINFO_NUMERIC_FLAG) out.num("value", int64_t(r.rec.numeric[item & 0xFF]));
    else out.str("value", valueText(r.rec, item));
    std::printf("%s\n", out.endObject().text().c_str());
  } else {
    std::printf("%s\n", valueText(r.rec, item).c_str());
  }
  return cli::kOk;
}

bool isTimecodeTypeItem(int item) {
  int slot = item & 0xFF;
  return (item & KLXINFO_NUMERIC_FLAG) && (slot == kxnTimeCodeType || slot == kxnLTCTimeCodeType || slot == kxnVITCTimeCodeType);
}

// A numeric value: a number, or for the timecode-type items a type name.
std::optional<uint32_t> numericValue(int item, const std::string& text) {
  if (auto number = cli::parseU32(text)) return number;
  if (!isTimecodeTypeItem(item)) return std::nullopt;
  std::string attribute = "TcType=\"" + text + "\"";
  uint32_t type = sklxInfoFindTcType(attribute.c_str());
  if (type == 0 && strcasecmp(text.c_str(), "frames") != 0) return std::nullopt;
  return type;
}

// Writes or deletes one item in the system store or the user file. Only that key is touched,
// so changes other processes make meanwhile to other items are kept.
int change(bool user, const std::string& name, const std::string* value) {
  int code = cli::kOk;
  int item = lookUp(name, &code);
  if (item < 0) return code;
  const KlxInfoItem& info = itemInfo(item);
  if (!info.stored) return cli::fail(kCommand, "%s is not kept in the store", info.name);
  if (user && !value && !zrOSFileExists(KLXINFO_USER_FILE))
    return cli::failWith(cli::kFailed, kCommand, "no %s in the current directory", KLXINFO_USER_FILE);

  Record r;  // nothing set: a null text or unset number deletes the key
  int slot = item & 0xFF;
  if ((item & KLXINFO_NUMERIC_FLAG) && value) {
    std::optional<uint32_t> number = numericValue(item, *value);
    if (!number)
      return cli::fail(kCommand, "bad value '%s' for %s (a number%s)", value->c_str(), info.name,
                       isTimecodeTypeItem(item) ? " or a timecode type name" : "");
    r.rec.numeric[slot] = *number;
  } else if (value) {
    r.rec.text[slot] = static_cast<char*>(ZRAlloc(value->size() + 4));
    if (!r.rec.text[slot]) return cli::failWith(cli::kFailed, kCommand, "out of memory");
    memcpy(r.rec.text[slot], value->c_str(), value->size() + 1);
  }

  ZRCFGHANDLE store = user ? zrCFGOpen(KLXINFO_USER_FILE) : ZR_CFG_SYSTEM;
  if (store == ZR_CFG_INVALID) return cli::failWith(cli::kFailed, kCommand, "cannot open %s", KLXINFO_USER_FILE);
  int result = klxInfoWriteRegItem(store, &r.rec, item);
  int closed = zrCFGClose(store, 1);
  if (result != 0 || closed != 0)
    return cli::failWith(cli::kFailed, kCommand, "cannot write %s (store error %d)",
                         user ? KLXINFO_USER_FILE : "the configuration store", result ? result : closed);
  return cli::kOk;
}

int describe(const std::vector<std::string>& ids, bool json) {
  cli::Json out;
  out.beginArray();
  for (const std::string& text : ids) {
    auto id = cli::parseU32(text);
    if (!id) return cli::fail(kCommand, "bad identifier '%s'", text.c_str());
    char name[KLXINFO_DESC_TEXT_SIZE];
    int result = klxInfoGetDescription(*id, name);
    if (json) {
      out.beginObject().num("id", int64_t(*id));
      if (result == 0) out.str("name", name); else out.null("name");
      out.endObject();
    } else {
      std::printf("%u\t%s\n", *id, result == 0 ? name : "(unknown)");
    }
  }
  if (json) std::printf("%s\n", out.endArray().text().c_str());
  return cli::kOk;
}

}  // namespace

int cmdMeta(int argc, char** argv) {
  cli::Args args;
  if (!args.parse(argc, argv, {}, {"json", "user", "system", "all"})) return cli::fail(kCommand, "%s", args.error().c_str());
  if (args.has("help")) {
    std::fputs(kUsage, stdout);
    return cli::kOk;
  }
  const auto& pos = args.positional();
  if (pos.empty()) return cli::fail(kCommand, "missing action (list, get, set, delete, describe, tctype); see --help");
  if (args.has("user") && args.has("system")) return cli::fail(kCommand, "--user and --system exclude each other");
  Source source = args.has("user") ? Source::kUser : args.has("system") ? Source::kSystem : Source::kEffective;
  const std::string& action = pos[0];
  const size_t operands = pos.size() - 1;
  bool json = args.has("json");
  try {
    if (action == "list" && operands == 0) return list(source, args.has("all"), json);
    if (action == "get" && operands == 1) return get(source, pos[1], json);
    if (action == "set" && operands == 2) return change(args.has("user"), pos[1], &pos[2]);
    if (action == "delete" && operands == 1) return change(args.has("user"), pos[1], nullptr);
    if (action == "describe" && operands >= 1) return describe({pos.begin() + 1, pos.end()}, json);
    if (action == "tctype" && operands == 1) {
      std::printf("%u\n", sklxInfoFindTcType(pos[1].c_str()));
      return cli::kOk;
    }
  } catch (const std::exception& e) {
    return cli::failWith(cli::kFailed, kCommand, "%s", e.what());
  }
  return cli::fail(kCommand, "bad arguments for '%s'; see --help", action.c_str());
}
