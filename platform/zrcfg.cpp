// The configuration store's functions: handles, key paths, and DWORD and string values kept
// as elements of the store file:
//
//   <QuorvaneConfig>
//     <Key name="Quorvane">
//       <Key name="MetaData">
//         <Value name="XMLDisable" type="dword" data="0" />
//
// Values live in attributes, which TinyXML keeps byte for byte (escaping markup and control
// characters), so any text without a NUL round-trips. Elements this build does not know are
// left where they are and written back unchanged.
#include "platform/zrcfg.h"

#include <pwd.h>
#include <strings.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <sys/stat.h>

#include "platform/zrcfgfile.h"
#include "platform/zrlog.h"

namespace {

using zrcfg::StoreFile;

constexpr const char* kKeyTag = "Key";
constexpr const char* kValueTag = "Value";
constexpr const char* kTypeDword = "dword";
constexpr const char* kTypeString = "string";

// ---- handles ----

struct Handles {
  std::mutex mutex;
  std::map<ZRCFGHANDLE, std::shared_ptr<StoreFile>> open;
  ZRCFGHANDLE next = 1;
  std::shared_ptr<StoreFile> system;
};

Handles& handles() {
  static Handles* table = new Handles;  // never destroyed: usable from static destructors
  return *table;
}

std::string homeDirectory() {
  if (const char* home = getenv("HOME"); home && *home) return home;
  if (const passwd* pw = getpwuid(getuid()); pw && pw->pw_dir) return pw->pw_dir;
  return {};
}

std::string systemStorePath() {
  if (const char* path = getenv("QUORVANE_CONFIG"); path && *path) return path;
  if (const char* xdg = getenv("XDG_CONFIG_HOME"); xdg && *xdg == '/') return std::string(xdg) + "/quorvane/config.xml";
  const std::string home = homeDirectory();
  return home.empty() ? std::string() : home + "/.config/quorvane/config.xml";
}

std::shared_ptr<StoreFile> storeOf(ZRCFGHANDLE store) {
  Handles& h = handles();
  std::lock_guard<std::mutex> guard(h.mutex);
  if (store == ZR_CFG_SYSTEM) {
    const std::string path = systemStorePath();
    if (path.empty()) return nullptr;
    if (!h.system || h.system->path() != path) h.system = std::make_shared<StoreFile>(path, true);
    return h.system;
  }
  const auto it = h.open.find(store);
  return it == h.open.end() ? nullptr : it->second;
}

// ---- the tree ----

// The text of an escaped attribute ("" when absent).
std::string attribute(const TiXmlElement* e, const char* name) {
  const char* stored = e->Attribute(name);
  return stored ? zrcfg::unescapeText(stored) : std::string();
}

bool sameName(const TiXmlElement* e, std::string_view name) {
  if (e->Attribute("name") == nullptr) return false;
  const std::string a = attribute(e, "name");
  return a.size() == name.size() && strncasecmp(a.data(), name.data(), name.size()) == 0;
}

template <class Element>
Element* findChild(Element* parent, const char* tag, std::string_view name) {
  for (Element* e = parent->FirstChildElement(tag); e != nullptr; e = e->NextSiblingElement(tag))
    if (sameName(e, name)) return e;
  return nullptr;
}

// Calls step for each non-empty component of a backslash key path; stops when step returns false.
template <class Step>
bool forEachComponent(const char* keyPath, Step step) {
  std::string_view rest = keyPath ? keyPath : "";
  while (!rest.empty()) {
    const size_t cut = rest.find('\\');
    const std::string_view part = rest.substr(0, cut);
    rest = cut == std::string_view::npos ? std::string_view() : rest.substr(cut + 1);
    if (!part.empty() && !step(part)) return false;
  }
  return true;
}

const TiXmlElement* findKey(const TiXmlDocument& doc, const char* keyPath) {
  static const TiXmlElement emptyRoot(zrcfg::kRootElement);  // the root of a store with no file yet
  const TiXmlElement* key = doc.RootElement();
  if (key == nullptr) key = &emptyRoot;
  forEachComponent(keyPath, [&](std::string_view part) { return (key = findChild(key, kKeyTag, part)) != nullptr; });
  return key;
}

TiXmlElement* makeKey(TiXmlDocument& doc, const char* keyPath) {
  TiXmlElement* key = doc.RootElement();
  if (key == nullptr) key = doc.InsertEndChild(TiXmlElement(zrcfg::kRootElement))->ToElement();
  forEachComponent(keyPath, [&](std::string_view part) {
    TiXmlElement* child = findChild(key, kKeyTag, part);
    if (child == nullptr) {
      TiXmlElement fresh(kKeyTag);
      fresh.SetAttribute("name", zrcfg::escapeText(part));
      child = key->InsertEndChild(fresh)->ToElement();
    }
    key = child;
    return true;
  });
  return key;
}

const TiXmlElement* findValue(const TiXmlDocument& doc, const char* keyPath, const char* name) {
  const TiXmlElement* key = findKey(doc, keyPath);
  return key ? findChild(key, kValueTag, name ? name : "") : nullptr;
}

bool typeIs(const TiXmlElement* value, const char* type) {
  const char* t = value->Attribute("type");
  return t != nullptr && std::strcmp(t, type) == 0;
}

// Strict DWORD text: decimal or 0x hexadecimal, the whole text, within 32 bits.
bool parseDword(const char* text, uint32_t* out) {
  if (text == nullptr || *text == '\0' || *text == '-' || *text == '+' || *text == ' ') return false;
  const bool hex = text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  errno = 0;
  char* end = nullptr;
  const unsigned long long v = std::strtoull(hex ? text + 2 : text, &end, hex ? 16 : 10);
  if (errno != 0 || *end != '\0' || end == (hex ? text + 2 : text) || v > 0xFFFFFFFFull) return false;
  *out = static_cast<uint32_t>(v);
  return true;
}

void setValue(TiXmlDocument& doc, const char* keyPath, const char* name, const char* type, const std::string& data) {
  TiXmlElement* key = makeKey(doc, keyPath);
  TiXmlElement* value = findChild(key, kValueTag, name ? name : "");
  if (value == nullptr) {
    TiXmlElement fresh(kValueTag);
    fresh.SetAttribute("name", zrcfg::escapeText(name ? name : ""));
    value = key->InsertEndChild(fresh)->ToElement();
  }
  value->SetAttribute("type", type);
  value->SetAttribute("data", zrcfg::escapeText(data));
}

// The edit that stores one value; it owns copies of its arguments (a batch replays it later).
zrcfg::StoreFile::Edit setter(const char* keyPath, const char* name, const char* type, std::string data) {
  return [key = std::string(keyPath ? keyPath : ""), valueName = std::string(name ? name : ""), type,
          data = std::move(data)](TiXmlDocument& doc) {
    setValue(doc, key.c_str(), valueName.c_str(), type, data);
    return ZR_CFG_OK;
  };
}

// Copies text into a caller's buffer by the sizing rules of the string reads.
int copyOut(const std::string& text, char* buffer, uint32_t* size) {
  if (text.size() >= UINT32_MAX) return ZR_CFG_ERROR;
  const uint32_t needed = text.empty() ? 0 : static_cast<uint32_t>(text.size() + 1);
  if (buffer == nullptr) {
    *size = needed;
    return ZR_CFG_OK;
  }
  if (*size < needed || *size == 0) {
    *size = needed;
    return needed == 0 ? ZR_CFG_OK : ZR_CFG_MORE_DATA;
  }
  std::memcpy(buffer, text.c_str(), text.size() + 1);
  *size = needed;
  return ZR_CFG_OK;
}

std::string absolutePath(const char* path) {
  if (*path == '/') return path;
  char* cwd = getcwd(nullptr, 0);
  if (cwd == nullptr) return {};
  std::string full = std::string(cwd) + "/" + path;
  std::free(cwd);
  return full;
}

// Runs fn, turning any exception into ZR_CFG_ERROR: nothing escapes the C interface.
template <class Fn>
int guarded(Fn fn) {
  try {
    return fn();
  } catch (...) {
    return ZR_CFG_ERROR;
  }
}

}  // namespace

extern "C" {

ZRCFGHANDLE zrCFGOpen(const char* path) { return zrCFGOpenEx(path, 0); }

ZRCFGHANDLE zrCFGOpenEx(const char* path, uint32_t flags) {
  try {
    if (path == nullptr || *path == '\0') return ZR_CFG_INVALID;
    if (flags & ~(ZR_CFG_OPEN_EXISTING | ZR_CFG_OPEN_STORE_ONLY)) return ZR_CFG_INVALID;
    const std::string full = absolutePath(path);
    if (full.empty()) return ZR_CFG_INVALID;
    struct stat st;
    const bool exists = stat(full.c_str(), &st) == 0;
    if (exists ? S_ISDIR(st.st_mode) : errno != ENOENT) return ZR_CFG_INVALID;
    if (!exists && (flags & ZR_CFG_OPEN_EXISTING)) return ZR_CFG_INVALID;
    if (exists && (flags & ZR_CFG_OPEN_STORE_ONLY)) {
      if (const char* problem = zrcfg::fileProblem(full)) {
        ErrOut("Configuration store \"%s\" is refused: %s\n", full.c_str(), problem);
        return ZR_CFG_INVALID;
      }
    }
    const std::string parent = full.substr(0, full.rfind('/') + 1);
    if (stat(parent.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) return ZR_CFG_INVALID;
    Handles& h = handles();
    std::lock_guard<std::mutex> guard(h.mutex);
    const ZRCFGHANDLE handle = h.next++;
    h.open[handle] = std::make_shared<StoreFile>(full, false);
    return handle;
  } catch (...) {
    return ZR_CFG_INVALID;
  }
}

int zrCFGClose(ZRCFGHANDLE store, int flush) {
  return guarded([&] {
    const auto file = storeOf(store);
    if (!file) return ZR_CFG_ERROR;
    const int result = file->endAllBatches(flush != 0);
    if (store != ZR_CFG_SYSTEM) {
      Handles& h = handles();
      std::lock_guard<std::mutex> guard(h.mutex);
      h.open.erase(store);
    }
    return result;
  });
}

int zrCFGBeginBatch(ZRCFGHANDLE store) {
  return guarded([&] {
    const auto file = storeOf(store);
    return file ? file->beginBatch() : ZR_CFG_ERROR;
  });
}

int zrCFGEndBatch(ZRCFGHANDLE store, int commit) {
  return guarded([&] {
    const auto file = storeOf(store);
    return file ? file->endBatch(commit != 0) : ZR_CFG_ERROR;
  });
}

int zrCFGValueDword(ZRCFGHANDLE store, const char* keyPath, const char* name, uint32_t* value, int write) {
  return guarded([&] {
    const auto file = storeOf(store);
    if (!file || (write && value == nullptr)) return ZR_CFG_ERROR;
    if (write) return file->update(setter(keyPath, name, kTypeDword, std::to_string(*value)));
    return file->read([&](const TiXmlDocument& doc) {
      const TiXmlElement* v = findValue(doc, keyPath, name);
      if (v == nullptr) return ZR_CFG_NOT_FOUND;
      if (value == nullptr) return ZR_CFG_OK;  // existence test
      uint32_t parsed = 0;
      if (!typeIs(v, kTypeDword) || !parseDword(attribute(v, "data").c_str(), &parsed)) return ZR_CFG_ERROR;
      *value = parsed;
      return ZR_CFG_OK;
    });
  });
}

int zrCFGValueString(ZRCFGHANDLE store, const char* keyPath, const char* name, char* buffer, uint32_t* size, int write) {
  return guarded([&] {
    const auto file = storeOf(store);
    if (!file) return ZR_CFG_ERROR;
    if (write) {
      if (buffer == nullptr) return ZR_CFG_ERROR;
      const size_t limit = size ? *size : SIZE_MAX;
      return file->update(setter(keyPath, name, kTypeString, std::string(buffer, strnlen(buffer, limit))));
    }
    if (size == nullptr) return ZR_CFG_ERROR;
    return file->read([&](const TiXmlDocument& doc) {
      const TiXmlElement* v = findValue(doc, keyPath, name);
      if (v == nullptr) return ZR_CFG_NOT_FOUND;
      if (!typeIs(v, kTypeString)) return ZR_CFG_ERROR;
      return copyOut(attribute(v, "data"), buffer, size);
    });
  });
}

int zrCFGDeleteValue(ZRCFGHANDLE store, const char* keyPath, const char* name) {
  return guarded([&] {
    const auto file = storeOf(store);
    if (!file) return ZR_CFG_ERROR;
    return file->update([key = std::string(keyPath ? keyPath : ""), valueName = std::string(name ? name : "")](TiXmlDocument& doc) {
      const TiXmlElement* v = findValue(doc, key.c_str(), valueName.c_str());
      if (v == nullptr) return ZR_CFG_NOT_FOUND;
      TiXmlElement* found = const_cast<TiXmlElement*>(v);
      found->Parent()->RemoveChild(found);
      return ZR_CFG_OK;
    });
  });
}

// The index-th child element named tag (0 = the first), or null past the last.
static const TiXmlElement* nthChild(const TiXmlElement* parent, const char* tag, uint32_t index) {
  const TiXmlElement* e = parent->FirstChildElement(tag);
  for (uint32_t i = 0; e != nullptr && i < index; ++i) e = e->NextSiblingElement(tag);
  return e;
}

int zrCFGEnumValue(ZRCFGHANDLE store, const char* keyPath, uint32_t index, char* name, uint32_t* nameSize, uint32_t* type) {
  return guarded([&] {
    const auto file = storeOf(store);
    if (!file || nameSize == nullptr) return ZR_CFG_ERROR;
    return file->read([&](const TiXmlDocument& doc) {
      const TiXmlElement* key = findKey(doc, keyPath);
      if (key == nullptr) return ZR_CFG_NOT_FOUND;
      const TiXmlElement* v = nthChild(key, kValueTag, index);
      if (v == nullptr) return ZR_CFG_NO_MORE_ITEMS;
      if (type) *type = typeIs(v, kTypeDword) ? ZR_CFG_TYPE_DWORD : typeIs(v, kTypeString) ? ZR_CFG_TYPE_STRING : ZR_CFG_TYPE_NONE;
      const std::string text = attribute(v, "name");
      // Names report their NUL even when empty (the unnamed value), unlike string data.
      const uint32_t needed = static_cast<uint32_t>(text.size() + 1);
      if (name == nullptr || *nameSize < needed) {
        *nameSize = needed;
        return name == nullptr ? ZR_CFG_OK : ZR_CFG_MORE_DATA;
      }
      std::memcpy(name, text.c_str(), needed);
      *nameSize = needed;
      return ZR_CFG_OK;
    });
  });
}

int zrCFGEnumKey(ZRCFGHANDLE store, const char* keyPath, uint32_t index, char* name, uint32_t* nameSize) {
  return guarded([&] {
    const auto file = storeOf(store);
    if (!file || nameSize == nullptr) return ZR_CFG_ERROR;
    return file->read([&](const TiXmlDocument& doc) {
      const TiXmlElement* key = findKey(doc, keyPath);
      if (key == nullptr) return ZR_CFG_NOT_FOUND;
      const TiXmlElement* k = nthChild(key, kKeyTag, index);
      if (k == nullptr) return ZR_CFG_NO_MORE_ITEMS;
      return copyOut(attribute(k, "name"), name, nameSize);
    });
  });
}

int zrCFGGetPath(ZRCFGHANDLE store, char* path, uint32_t* size) {
  return guarded([&] {
    const auto file = storeOf(store);
    if (!file || size == nullptr) return ZR_CFG_ERROR;
    return copyOut(file->path(), path, size);
  });
}
}
