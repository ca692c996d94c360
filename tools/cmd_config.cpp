// quorvane config: read, write, delete and list values of the configuration store.
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "platform/zrcfg.h"

namespace {

constexpr const char* kAbout =
    "usage: quorvane config get    [--file STORE.xml] [--json] KEYPATH NAME\n"
    "       quorvane config set    [--file STORE.xml] [--dword] KEYPATH NAME VALUE\n"
    "       quorvane config delete [--file STORE.xml] KEYPATH NAME\n"
    "       quorvane config list   [--file STORE.xml] [--recursive] [--json] [KEYPATH]\n"
    "       quorvane config path   [--file STORE.xml] [--json]\n\n"
    "Works on the system store ($QUORVANE_CONFIG, else $XDG_CONFIG_HOME/quorvane/config.xml)\n"
    "or, with --file, on any other store file such as UserMetadata.xml. KEYPATH separates keys\n"
    "with backslashes (quote it for the shell): 'Quorvane\\MetaData\\Default'; \"\" is the root.\n"
    "Key and value names match without regard to case. A file that is not a store (other XML,\n"
    "text) is refused and left as it is; only set creates a missing --file.\n"
    "  get        prints the value: text as it is, a DWORD in decimal\n"
    "  set        stores VALUE as text, or with --dword as a DWORD (decimal or 0x hex)\n"
    "  delete     removes the value\n"
    "  list       prints the values and sub-keys of KEYPATH (all levels with --recursive)\n"
    "  path       prints the file behind the store";
constexpr const char* kFooter =
    "--json shapes:\n"
    "  get:  {\"store\", \"key\", \"name\", \"type\": \"string\"|\"dword\"|\"unknown\", \"value\"}\n"
    "  list: {\"store\", \"key\", \"values\": [{\"name\", \"type\", \"value\"}],\n"
    "         \"keys\": [{\"name\", \"values\", \"keys\"}]} (sub-keys' contents with --recursive)\n"
    "  path: {\"store\"}; set, delete: {\"store\", \"key\", \"name\", \"written\"|\"deleted\": true}\n"
    "Example: quorvane config set --dword 'Quorvane\\Advanced' ForceVideoRangeMatrix 1\n";

constexpr const char* kCommand = "config";

struct Value {
  std::string name;
  bool isDword = false;
  uint32_t dword = 0;
  std::string text;
  bool known = true;  // a type this build can read
};

struct Key {
  std::string name;
  std::vector<Value> values;
  std::vector<Key> keys;
};

std::string joinPath(const std::string& parent, const std::string& child) {
  return parent.empty() ? child : parent + "\\" + child;
}

// Reads one value, whichever type it has. nullopt with the store's result in *rc otherwise.
std::optional<Value> readValue(ZRCFGHANDLE store, const std::string& key, const std::string& name, int* rc) {
  Value v;
  v.name = name;
  uint32_t size = 0;
  *rc = zrCFGValueString(store, key.c_str(), name.c_str(), nullptr, &size, 0);
  if (*rc == ZR_CFG_OK) {
    std::string buffer(size + 1, '\0');
    size = static_cast<uint32_t>(buffer.size());
    *rc = zrCFGValueString(store, key.c_str(), name.c_str(), buffer.data(), &size, 0);
    if (*rc != ZR_CFG_OK) return std::nullopt;
    v.text = buffer.c_str();
    return v;
  }
  if (*rc == ZR_CFG_NOT_FOUND) return std::nullopt;
  *rc = zrCFGValueDword(store, key.c_str(), name.c_str(), &v.dword, 0);
  if (*rc != ZR_CFG_OK) return std::nullopt;
  v.isDword = true;
  return v;
}

// Loads a key's values and (when depth allows) its sub-keys. False when the key does not exist.
bool loadKey(ZRCFGHANDLE store, const std::string& path, int depth, Key* key) {
  int rc = ZR_CFG_OK;
  for (uint32_t i = 0;; ++i) {
    uint32_t type = ZR_CFG_TYPE_NONE;
    uint32_t size = 0;
    rc = zrCFGEnumValue(store, path.c_str(), i, nullptr, &size, &type);
    if (rc != ZR_CFG_OK) break;
    std::string name(size + 1, '\0');
    size = static_cast<uint32_t>(name.size());
    if (zrCFGEnumValue(store, path.c_str(), i, name.data(), &size, &type) != ZR_CFG_OK) break;
    name.resize(name.find('\0'));
    int readRc = 0;
    auto v = readValue(store, path, name, &readRc);
    if (!v) {
      v = Value{};
      v->name = name;
      v->known = false;
    }
    key->values.push_back(*v);
  }
  if (rc == ZR_CFG_NOT_FOUND) return false;
  for (uint32_t i = 0;; ++i) {
    uint32_t size = 0;
    if (zrCFGEnumKey(store, path.c_str(), i, nullptr, &size) != ZR_CFG_OK) break;
    std::string name(size + 1, '\0');
    size = static_cast<uint32_t>(name.size());
    if (zrCFGEnumKey(store, path.c_str(), i, name.data(), &size) != ZR_CFG_OK) break;
    Key child;
    child.name = name.c_str();
    if (depth > 1) loadKey(store, joinPath(path, child.name), depth - 1, &child);
    key->keys.push_back(std::move(child));
  }
  return true;
}

const char* typeName(const Value& v) { return !v.known ? "unknown" : v.isDword ? "dword" : "string"; }

cli::JsonValue valueJson(const Value& v) {
  cli::JsonValue value;
  if (v.known) value = v.isDword ? cli::JsonValue(v.dword) : cli::JsonValue(v.text);
  return {{"name", v.name}, {"type", typeName(v)}, {"value", value}};
}

void addKeyJson(cli::JsonValue& out, const Key& key, bool withContents) {
  out["values"] = cli::JsonValue::array();
  for (const auto& v : key.values) out["values"].push_back(valueJson(v));
  out["keys"] = cli::JsonValue::array();
  for (const auto& k : key.keys) {
    cli::JsonValue child{{"name", k.name}};
    if (withContents) addKeyJson(child, k, true);
    out["keys"].push_back(std::move(child));
  }
}

// What the library said about the last failure, in its own words, or a fallback.
std::string why(const std::string& before, const char* fallback) {
  const std::string& said = cli::lastLibraryMessage();
  return said.empty() || said == before ? fallback : said;
}

// Text listing in the manner of a .reg file: "[key]" then "name"=value lines.
void printKey(const Key& key, const std::string& path, bool recursive) {
  std::printf("[%s]\n", path.empty() ? "\\" : path.c_str());
  for (const auto& v : key.values) {
    std::printf("\"%s\"=", cli::jsonEscape(v.name).c_str());
    if (!v.known)
      std::printf("(unknown type)\n");
    else if (v.isDword)
      std::printf("dword:%u\n", v.dword);
    else
      std::printf("\"%s\"\n", cli::jsonEscape(v.text).c_str());
  }
  if (!recursive) {
    for (const auto& k : key.keys) std::printf("%s\\\n", k.name.c_str());
    return;
  }
  for (const auto& k : key.keys) {
    std::printf("\n");
    printKey(k, joinPath(path, k.name), true);
  }
}

std::string storePath(ZRCFGHANDLE store) {
  uint32_t size = 0;
  if (zrCFGGetPath(store, nullptr, &size) != ZR_CFG_OK) return {};
  std::string path(size + 1, '\0');
  size = static_cast<uint32_t>(path.size());
  if (zrCFGGetPath(store, path.data(), &size) != ZR_CFG_OK) return {};
  return path.c_str();
}

struct Action {
  const char* name;
  size_t minArgs, maxArgs;  // positional arguments after the action
};
constexpr Action kActions[] = {{"get", 2, 2}, {"set", 3, 3}, {"delete", 2, 2}, {"list", 0, 1}, {"path", 0, 0}};

int run(const std::string& action, ZRCFGHANDLE store, const std::vector<std::string>& a, const cli::Command& args) {
  const std::string where = storePath(store);
  if (action == "path") {
    if (args.has("json")) cli::printJson({{"store", where}});
    else std::printf("%s\n", where.c_str());
    return cli::kOk;
  }
  const std::string before = cli::lastLibraryMessage();
  if (action == "get") {
    int rc = 0;
    const auto v = readValue(store, a[0], a[1], &rc);
    if (!v && rc == ZR_CFG_NOT_FOUND)
      return cli::failWith(cli::kFailed, kCommand, "no value '%s' under '%s' in %s", a[1].c_str(), a[0].c_str(), where.c_str());
    if (!v) return cli::failWith(cli::kFailed, kCommand, "cannot read '%s' under '%s' in %s", a[1].c_str(), a[0].c_str(), where.c_str());
    if (args.has("json")) {
      cli::JsonValue out{{"store", where}, {"key", a[0]}};
      out.update(valueJson(*v));
      cli::printJson(out);
    } else if (v->isDword) {
      std::printf("%u\n", v->dword);
    } else {
      std::printf("%s\n", v->text.c_str());
    }
    return cli::kOk;
  }
  if (action == "set") {
    int rc;
    if (args.has("dword")) {
      auto value = cli::parseU32(a[2]);
      if (!value) return cli::fail(kCommand, "'%s' is not a 32-bit number", a[2].c_str());
      rc = zrCFGValueDword(store, a[0].c_str(), a[1].c_str(), &*value, 1);
    } else {
      uint32_t size = static_cast<uint32_t>(a[2].size() + 1);
      rc = zrCFGValueString(store, a[0].c_str(), a[1].c_str(), const_cast<char*>(a[2].c_str()), &size, 1);
    }
    if (rc != ZR_CFG_OK)
      return cli::failWith(cli::kFailed, kCommand, "cannot write %s: %s", where.c_str(), why(before, "store error").c_str());
    if (args.has("json")) cli::printJson({{"store", where}, {"key", a[0]}, {"name", a[1]}, {"written", true}});
    return cli::kOk;
  }
  if (action == "delete") {
    const int rc = zrCFGDeleteValue(store, a[0].c_str(), a[1].c_str());
    if (rc == ZR_CFG_NOT_FOUND)
      return cli::failWith(cli::kFailed, kCommand, "no value '%s' under '%s' in %s", a[1].c_str(), a[0].c_str(), where.c_str());
    if (rc != ZR_CFG_OK)
      return cli::failWith(cli::kFailed, kCommand, "cannot write %s: %s", where.c_str(), why(before, "store error").c_str());
    if (args.has("json")) cli::printJson({{"store", where}, {"key", a[0]}, {"name", a[1]}, {"deleted", true}});
    return cli::kOk;
  }
  // list
  const std::string keyPath = a.empty() ? std::string() : a[0];
  const bool recursive = args.has("recursive");
  Key key;
  if (!loadKey(store, keyPath, recursive ? 1000 : 1, &key))
    return cli::failWith(cli::kFailed, kCommand, "no key '%s' in %s", keyPath.c_str(), where.c_str());
  if (args.has("json")) {
    cli::JsonValue out{{"store", where}, {"key", keyPath}};
    addKeyJson(out, key, recursive);
    cli::printJson(out);
  } else {
    printKey(key, keyPath, recursive);
  }
  return cli::kOk;
}

}  // namespace

int cmdConfig(int argc, char** argv) {
  cli::Command args(kCommand, kAbout, kFooter);
  args.option("--file", "a store file other than the system store")
      .flag("--dword", "set: store VALUE as a DWORD")
      .flag("--recursive", "list: every level below KEYPATH")
      .flag("--json", "print JSON (shapes below)")
      .positionals("ARGS", "the action and its operands");
  if (auto exit = args.parse(argc, argv)) return *exit;
  const auto& positional = args.positional();
  if (positional.empty()) return cli::fail(kCommand, "give an action: get, set, delete, list or path (see --help)");
  const Action* action = nullptr;
  for (const auto& a : kActions)
    if (positional[0] == a.name) action = &a;
  if (action == nullptr) return cli::fail(kCommand, "unknown action '%s' (get, set, delete, list, path)", positional[0].c_str());
  const std::vector<std::string> rest(positional.begin() + 1, positional.end());
  if (rest.size() < action->minArgs || rest.size() > action->maxArgs)
    return cli::fail(kCommand, "%s takes %s (see --help)", action->name,
                     action->minArgs == 3 ? "KEYPATH NAME VALUE" : action->minArgs == 2 ? "KEYPATH NAME" : action->maxArgs ? "at most a KEYPATH" : "no arguments");
  if (args.has("dword") && positional[0] != "set") return cli::fail(kCommand, "--dword goes with set");

  // Only set may create the file; no action takes a file that is not a store.
  const uint32_t openFlags = ZR_CFG_OPEN_STORE_ONLY | (positional[0] == "set" ? 0u : ZR_CFG_OPEN_EXISTING);
  auto open = [&](const std::string& path) -> std::optional<ZRCFGHANDLE> {
    std::error_code ec;
    if ((openFlags & ZR_CFG_OPEN_EXISTING) && !std::filesystem::exists(path, ec)) {
      cli::failWith(cli::kFailed, kCommand, "no store file '%s'", path.c_str());
      return std::nullopt;
    }
    if ((openFlags & ZR_CFG_OPEN_EXISTING) && std::filesystem::is_regular_file(path, ec) &&
        std::filesystem::file_size(path, ec) == 0) {
      cli::failWith(cli::kFailed, kCommand, "cannot use '%s': it is empty", path.c_str());
      return std::nullopt;
    }
    const std::string before = cli::lastLibraryMessage();
    const ZRCFGHANDLE handle = zrCFGOpenEx(path.c_str(), openFlags);
    if (handle == ZR_CFG_INVALID) {
      cli::failWith(cli::kFailed, kCommand, "cannot use '%s': %s", path.c_str(),
                    why(before, "not a file in an existing directory").c_str());
      return std::nullopt;
    }
    return handle;
  };
  ZRCFGHANDLE store = ZR_CFG_SYSTEM;
  const auto file = args.get("file");
  if (file) {
    auto handle = open(*file);
    if (!handle) return cli::kFailed;
    store = *handle;
  } else if (const std::string system = storePath(store); system.empty()) {
    return cli::failWith(cli::kFailed, kCommand, "no system store: set QUORVANE_CONFIG or HOME");
  } else if (positional[0] != "path" && std::filesystem::exists(system)) {
    // The system store is used through its own handle; this only checks that it is a store.
    auto handle = open(system);
    if (!handle) return cli::kFailed;
    zrCFGClose(*handle, 0);
  }
  const int result = run(positional[0], store, rest, args);
  if (file) zrCFGClose(store, 1);
  return result;
}
