// quorvane meta: the metadata info record in the configuration store and in the per-user file
// "UserMetadata.xml" of the current directory.
#include <filesystem>
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
#include "platform/tcxlat.h"
#include "platform/zrmemory.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane meta list [--user|--system] [--all] [--json]\n"
    "       quorvane meta get [--user|--system] [--json] ITEM\n"
    "       quorvane meta set [--user] [--tc-type NAME] ITEM VALUE\n"
    "       quorvane meta delete [--user] ITEM\n"
    "       quorvane meta describe [--json] ID...\n"
    "       quorvane meta tctype [--json] NAME|TEXT\n\n"
    "Shows and edits the clip metadata items kept under \"Quorvane\\MetaData\\Default\".\n"
    "The system store is $QUORVANE_CONFIG (else ~/.config/quorvane/config.xml); --user works\n"
    "on UserMetadata.xml in the current directory instead (set creates it).\n"
    "  list      the items that are set (--all: every item kept in the store), with their\n"
    "            description identifiers; by default the system store overridden by the\n"
    "            user file, as the library reads them\n"
    "  get       one item's value (exit 1 when it is not set)\n"
    "  set       a text item takes VALUE as it is; a numeric item takes a number (decimal or\n"
    "            0x hex); the timecode items (TimeCode, VITCTimeCode) also take HH:MM:SS:FF,\n"
    "            counted in --tc-type, else in the item's stored type, else 29.97df; the\n"
    "            timecode-type items take a type name\n"
    "  delete    removes the item from the store\n"
    "  describe  the item name of description identifiers (0..78, 4097..4129,\n"
    "            0x10000..0x10022)\n"
    "  tctype    a timecode type: a name, or the TcType=\"...\" attribute in TEXT, printed\n"
    "            back as its canonical name and value\n"
    "ITEM is an item name (case does not matter), e.g. Title, Reel, TimeCode, TimeCodeType.";
constexpr const char* kFooter =
    "Timecode types: frames, 23.98, 24, 25, 29.97, 29.97df, 30, 50, 59.94, 59.94df, 60 (also\n"
    "film, pal, drop-frame, non-drop-frame, film-drop and rate forms such as 30000/1001).\n"
    "--json shapes:\n"
    "  list:     {\"source\": \"system\"|\"user\"|\"system+user\", \"items\": [{\"name\", \"id\": N|null,\n"
    "            \"kind\": \"text\"|\"numeric\", \"value\": TEXT|N|null}]}\n"
    "  get:      {\"name\", \"value\": TEXT|N}\n"
    "  describe: [{\"id\", \"name\": TEXT|null}]\n"
    "  tctype:   {\"name\", \"tcType\"}\n"
    "  set, delete: {\"item\", \"written\"|\"deleted\": true}\n";

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
// The layering is klxInfoReadReg's (system store, then the user file over it), but that call
// seeds the system store on first use and reads a user file that is not a store as empty: a
// command that only reads must not write, and must say what is wrong with the user's file.
bool readRecord(Source source, Record& r, int* exitCode) {
  bool haveUser = zrOSFileExists(KLXINFO_USER_FILE);
  if (source == Source::kUser && !haveUser) {
    *exitCode = cli::failWith(cli::kFailed, kCommand, "no %s in the current directory", KLXINFO_USER_FILE);
    return false;
  }
  if (source != Source::kUser) klxInfoReadRegSet(ZR_CFG_SYSTEM, &r.rec);
  if (source != Source::kSystem && haveUser) {
    // A user file that is empty or not a store is reported, never read as an empty record.
    std::error_code ec;
    const bool empty = std::filesystem::is_regular_file(KLXINFO_USER_FILE, ec) && std::filesystem::file_size(KLXINFO_USER_FILE, ec) == 0;
    ZRCFGHANDLE user = empty ? ZR_CFG_INVALID : zrCFGOpenEx(KLXINFO_USER_FILE, ZR_CFG_OPEN_STORE_ONLY | ZR_CFG_OPEN_EXISTING);
    if (user == ZR_CFG_INVALID) {
      *exitCode = cli::failWith(cli::kFailed, kCommand, "cannot open %s: %s", KLXINFO_USER_FILE,
                                empty ? "it is empty" : "it is not a readable configuration store");
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
  cli::JsonValue items = cli::JsonValue::array();
  if (!json) std::printf("%6s  %-28s %s\n", "id", "item", "value");
  auto show = [&](int item) {
    const KlxInfoItem& info = itemInfo(item);
    bool shown = isSet(r.rec, item) || (all && info.stored);
    if (!info.name || !shown) return;
    long id = descriptionId(item);
    bool numeric = item & KLXINFO_NUMERIC_FLAG;
    if (json) {
      cli::JsonValue value;
      if (isSet(r.rec, item)) value = numeric ? cli::JsonValue(r.rec.numeric[item & 0xFF]) : cli::JsonValue(valueText(r.rec, item));
      items.push_back({{"name", info.name},
                       {"id", id >= 0 ? cli::JsonValue(id) : cli::JsonValue()},
                       {"kind", numeric ? "numeric" : "text"},
                       {"value", value}});
    } else {
      std::printf("%6s  %-28s %s\n", id >= 0 ? std::to_string(id).c_str() : "-", info.name,
                  isSet(r.rec, item) ? valueText(r.rec, item).c_str() : "(not set)");
    }
  };
  for (int slot = 0; slot < KLXINFO_TEXT_ITEMS; ++slot) show(slot);
  for (int slot = 0; slot < KLXINFO_NUMERIC_ITEMS; ++slot) show(KLXINFO_NUMERIC_FLAG + slot);
  if (json)
    cli::printJson({{"source", source == Source::kUser ? "user" : source == Source::kSystem ? "system" : "system+user"},
                    {"items", std::move(items)}});
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
    cli::printJson({{"name", canonical},
                    {"value", item & KLXINFO_NUMERIC_FLAG ? cli::JsonValue(r.rec.numeric[item & 0xFF])
                                                          : cli::JsonValue(valueText(r.rec, item))}});
  } else {
    std::printf("%s\n", valueText(r.rec, item).c_str());
  }
  return cli::kOk;
}

bool isTimecodeTypeItem(int item) {
  int slot = item & 0xFF;
  return (item & KLXINFO_NUMERIC_FLAG) && (slot == kxnTimeCodeType || slot == kxnLTCTimeCodeType || slot == kxnVITCTimeCodeType);
}

// The type item that says how a timecode item counts; -1 for items that are no timecode.
int typeItemOf(int item) {
  if (!(item & KLXINFO_NUMERIC_FLAG)) return -1;
  if ((item & 0xFF) == kxnTimeCode) return KLXINFO_NUMERIC_FLAG + kxnTimeCodeType;
  if ((item & 0xFF) == kxnVITCTimeCode) return KLXINFO_NUMERIC_FLAG + kxnVITCTimeCodeType;
  return -1;
}

// The type a timecode item's text counts in: --tc-type, else the stored type item, else 29.97
// drop-frame.
uint32_t timecodeTypeFor(int item, const std::optional<VIDTCTYPEINFO>& given, bool user) {
  if (given) return given->tctype;
  Record r;
  int ignored = 0;
  if (readRecord(user ? Source::kUser : Source::kEffective, r, &ignored)) {
    const uint32_t stored = r.rec.numeric[typeItemOf(item) & 0xFF];
    VIDTCTYPEINFO info{};
    if (stored != KLXINFO_NOT_SET && vidTCTypeFromValue(stored, &info) == 0) return info.tctype;
  }
  return TC_DF2997;
}

// A numeric value: a number; for the timecode-type items a type name; for the timecode items
// HH:MM:SS:FF text.
std::optional<uint32_t> numericValue(int item, const std::string& text, const std::optional<VIDTCTYPEINFO>& tcType,
                                     bool user, std::string* why) {
  if (auto number = cli::parseU32(text)) return number;
  if (isTimecodeTypeItem(item)) {
    if (auto type = cli::tcType(text)) return type->tctype;
    *why = "a number or a timecode type: " + cli::tcTypeNames();
    return std::nullopt;
  }
  if (typeItemOf(item) >= 0) return cli::parseTimecode(text, timecodeTypeFor(item, tcType, user), why);
  *why = "a number";
  return std::nullopt;
}

// Writes or deletes one item in the system store or the user file. Only that key is touched,
// so changes other processes make meanwhile to other items are kept.
int change(bool user, const std::string& name, const std::string* value, const std::optional<VIDTCTYPEINFO>& tcType) {
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
    std::string why;
    std::optional<uint32_t> number = numericValue(item, *value, tcType, user, &why);
    if (!number) return cli::fail(kCommand, "bad value '%s' for %s: %s", value->c_str(), info.name, why.c_str());
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
  cli::JsonValue out = cli::JsonValue::array();
  for (const std::string& text : ids) {
    auto id = cli::parseU32(text);
    if (!id) return cli::fail(kCommand, "bad identifier '%s'", text.c_str());
    char name[KLXINFO_DESC_TEXT_SIZE];
    int result = klxInfoGetDescription(*id, name);
    if (json) {
      out.push_back({{"id", *id}, {"name", result == 0 ? cli::JsonValue(name) : cli::JsonValue()}});
    } else {
      std::printf("%u\t%s\n", *id, result == 0 ? name : "(unknown)");
    }
  }
  if (json) cli::printJson(out);
  return cli::kOk;
}

// A type name, or the TcType="..." attribute of the text forms.
int tctype(const std::string& text, bool json) {
  std::optional<VIDTCTYPEINFO> info = cli::tcType(text);
  if (!info && text.find("TcType=") != std::string::npos) {
    VIDTCTYPEINFO found{};
    if (vidTCTypeFromValue(sklxInfoFindTcType(text.c_str()), &found) == 0) info = found;
  }
  if (!info)
    return cli::failWith(cli::kFailed, kCommand, "'%s' names no timecode type (%s)", text.c_str(), cli::tcTypeNames().c_str());
  if (json)
    cli::printJson({{"name", info->name}, {"tcType", info->tctype}});
  else
    std::printf("%s (%u)\n", info->name, info->tctype);
  return cli::kOk;
}

}  // namespace

int cmdMeta(int argc, char** argv) {
  cli::Command args(kCommand, kAbout, kFooter);
  args.flag("--user", "work on UserMetadata.xml in the current directory")
      .flag("--system", "read the system store only")
      .flag("--all", "list: every item kept in the store")
      .option("--tc-type", "set: the timecode type of HH:MM:SS:FF text")
      .flag("--json", "print JSON (shapes below)")
      .positionals("ARGS", "the action and its operands");
  if (auto exit = args.parse(argc, argv)) return *exit;
  const auto& pos = args.positional();
  if (pos.empty()) return cli::fail(kCommand, "missing action (list, get, set, delete, describe, tctype); see --help");
  if (args.has("user") && args.has("system")) return cli::fail(kCommand, "--user and --system exclude each other");
  Source source = args.has("user") ? Source::kUser : args.has("system") ? Source::kSystem : Source::kEffective;
  std::optional<VIDTCTYPEINFO> tcType;
  if (auto name = args.get("tc-type")) {
    tcType = cli::tcType(*name);
    if (!tcType) return cli::fail(kCommand, "unknown timecode type '%s' (%s)", name->c_str(), cli::tcTypeNames().c_str());
  }
  const std::string& action = pos[0];
  const size_t operands = pos.size() - 1;
  bool json = args.has("json");
  try {
    if (action == "list" && operands == 0) return list(source, args.has("all"), json);
    if (action == "get" && operands == 1) return get(source, pos[1], json);
    if ((action == "set" && operands == 2) || (action == "delete" && operands == 1)) {
      const bool setting = action == "set";
      const int rc = change(args.has("user"), pos[1], setting ? &pos[2] : nullptr, tcType);
      if (rc == cli::kOk && json) cli::printJson({{"item", pos[1]}, {setting ? "written" : "deleted", true}});
      return rc;
    }
    if (action == "describe" && operands >= 1) return describe({pos.begin() + 1, pos.end()}, json);
    if (action == "tctype" && operands == 1) return tctype(pos[1], json);
  } catch (const std::exception& e) {
    return cli::failWith(cli::kFailed, kCommand, "%s", e.what());
  }
  return cli::fail(kCommand, "bad arguments for '%s'; see --help", action.c_str());
}
