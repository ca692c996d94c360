// Project XML file: see zrprojecttoxml.h.
#include "metadata/zrprojecttoxml.h"

#include <tinyxml.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>

#include "platform/zrfile.h"
#include "platform/zrlog.h"
#include "platform/zrmemory.h"
#include "platform/zrtext.h"
#include "platform/zrxmlguard.h"

namespace {

constexpr const char* kClipListElement = "ClipList";
constexpr const char* kClipNameAttribute = "FileName";
constexpr const char* kEdlListElement = "EdlList";
constexpr const char* kEdlNameAttribute = "EdlName";
constexpr const char* kSettingsElement = "Settings";
constexpr const char* kDataAttribute = "Data";

// Copies text into a ZR_PROJECT_PATH_SIZE buffer, cleared first, cut to fit.
void setPath(char* buffer, const char* text) {
  memset(buffer, 0, ZR_PROJECT_PATH_SIZE);
  if (text) strncpy(buffer, text, ZR_PROJECT_PATH_SIZE - 1);
}

int copyOut(const char* value, char* out, size_t outSize) {
  if (!out) return -1;
  size_t needed = strlen(value) + 1;
  if (needed > outSize) return -1;
  memcpy(out, value, needed);
  return 0;
}

// XML 1.0 names, restricted to the ASCII letters the project file needs.
bool isXmlName(const char* name) {
  if (!name || !*name) return false;
  auto isStart = [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_' || c == ':'; };
  if (!isStart(name[0])) return false;
  for (const char* p = name + 1; *p; ++p)
    if (!isStart(*p) && !(*p >= '0' && *p <= '9') && *p != '-' && *p != '.') return false;
  return true;
}

// The project file declares ISO-8859-1 and is always read as such: every byte but NUL is a
// character, so the embedded texts come back byte for byte whatever their own encoding.
constexpr const char* kEncoding = "ISO-8859-1";

// The whole text of a file, in a ZRAlloc block the caller frees; null when the file cannot be
// read or is empty (or too large to embed). *hasNul tells that it was refused for a NUL byte,
// which an XML attribute cannot carry.
char* readWholeFile(const char* path, bool* hasNul) {
  *hasNul = false;
  ZRHANDLE file = zrOSCreateFile(path, ZR_GENERIC_READ, ZR_FILE_SHARE_READ, ZR_OPEN_EXISTING, 0);
  if (file == ZR_INVALID_HANDLE) return nullptr;
  char* text = nullptr;
  uint32_t high = 0;
  uint32_t size = zrOSGetFileSize(file, &high);
  if (size != 0 && size != 0xFFFFFFFFu && high == 0 && (text = static_cast<char*>(ZRAlloc(size_t(size) + 1)))) {
    uint32_t got = 0;
    if (!zrOSReadFile(file, text, size, &got) || got == 0) {
      ZRFree(text);
      text = nullptr;
    } else if (memchr(text, '\0', got)) {
      *hasNul = true;
      ZRFree(text);
      text = nullptr;
    } else {
      text[got] = '\0';
    }
  }
  zrOSCloseFile(file);
  return text;
}

// Writes text into a new file; an existing file is left alone (create-new).
void createFileWithText(const char* path, const char* text) {
  ZRHANDLE file = zrOSCreateFile(path, ZR_GENERIC_WRITE, ZR_FILE_SHARE_READ, ZR_CREATE_NEW, 0);
  if (file == ZR_INVALID_HANDLE) return;
  uint32_t written = 0;
  zrOSWriteFile(file, text, static_cast<uint32_t>(strlen(text)), &written);
  zrOSCloseFile(file);
}

// The text a project file holds for document: our declaration, then every other node.
std::string projectText(const TiXmlDocument& document) {
  TiXmlDocument copy;
  copy.LinkEndChild(new TiXmlDeclaration("1.0", kEncoding, ""));
  for (const TiXmlNode* node = document.FirstChild(); node; node = node->NextSibling()) {
    if (node->ToDeclaration()) continue;
    copy.LinkEndChild(node->Clone());
  }
  TiXmlPrinter printer;
  printer.SetIndent("");
  printer.SetLineBreak("\n");
  copy.Accept(&printer);
  return printer.Str();
}

// Null when text parses as a project file would be read and would be written back as it reads;
// otherwise why not.
const char* parseProject(const std::string& text, TiXmlDocument* document) {
  if (const char* problem = zrxml::parse(text, zrxml::Charset::kLatin1, document)) return problem;
  const std::string printed = projectText(*document);
  TiXmlDocument again;
  if (zrxml::parse(printed, zrxml::Charset::kLatin1, &again) != nullptr || projectText(again) != printed)
    return "it would not read back as written";
  return nullptr;
}

bool readFileBytes(const char* path, std::string* bytes) {
  FILE* file = std::fopen(path, "rb");
  if (!file) return false;
  char chunk[16384];
  size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) bytes->append(chunk, n);
  const bool ok = !std::ferror(file);
  std::fclose(file);
  return ok;
}

TiXmlElement* firstElement(TiXmlDocument* document, const char* name) {
  if (!document) return nullptr;
  TiXmlNode* node = document->FirstChild(name);
  return node ? node->ToElement() : nullptr;
}

}  // namespace

CZRProjectToXML::CZRProjectToXML()
    : xmlName{}, clipFile{}, edlName{}, document(nullptr), clipList(nullptr), edlList(nullptr), settings(nullptr) {
  try {
    document = new TiXmlDocument();
    document->LinkEndChild(new TiXmlDeclaration("1.0", kEncoding, ""));
    clipList = static_cast<TiXmlElement*>(document->LinkEndChild(new TiXmlElement(kClipListElement)));
    edlList = static_cast<TiXmlElement*>(document->LinkEndChild(new TiXmlElement(kEdlListElement)));
    settings = static_cast<TiXmlElement*>(document->LinkEndChild(new TiXmlElement(kSettingsElement)));
  } catch (const std::bad_alloc&) {
    delete document;
    document = nullptr;
    clipList = edlList = settings = nullptr;
  }
}

CZRProjectToXML::~CZRProjectToXML() { delete document; }

// After a load the elements are the loaded ones; any the file lacks are added so the setters
// keep working (and a later save writes a complete project).
void CZRProjectToXML::resolveElements() {
  TiXmlElement** slots[] = {&clipList, &edlList, &settings};
  const char* names[] = {kClipListElement, kEdlListElement, kSettingsElement};
  for (int i = 0; i < 3; ++i) {
    *slots[i] = firstElement(document, names[i]);
    if (!*slots[i] && document)
      *slots[i] = static_cast<TiXmlElement*>(document->LinkEndChild(new TiXmlElement(names[i])));
  }
}

// The file a list element names: kept as stored when it exists; otherwise looked for under its
// own name and extension next to the project, and made there from the embedded text when it
// is not there either.
void CZRProjectToXML::restoreListFile(const char* elementName, const char* nameAttribute, char* buffer, bool create) {
  TiXmlElement* element = firstElement(document, elementName);
  const char* stored = element ? element->Attribute(nameAttribute) : nullptr;
  setPath(buffer, stored);
  if (!buffer[0] || zrOSFileExists(buffer)) return;

  char drive[ZR_MAX_PATH], dir[ZR_MAX_PATH], name[ZR_MAX_PATH], ext[ZR_MAX_PATH];
  zrOSSplitPath(xmlName, drive, dir, nullptr, nullptr);
  zrOSSplitPath(buffer, nullptr, nullptr, name, ext);
  zrOSMakePath(buffer, drive, dir, name, ext);
  if (zrOSFileExists(buffer) || !create) return;
  const char* data = element->Attribute(kDataAttribute);
  if (data && *data) createFileWithText(buffer, data);
}

bool CZRProjectToXML::LoadXMLFile(const char* path) { return load(path, true); }
bool CZRProjectToXML::ReadXMLFile(const char* path) { return load(path, false); }

bool CZRProjectToXML::IsProject() {
  if (!document) return false;
  bool any = false;
  for (TiXmlNode* node = document->FirstChild(); node; node = node->NextSibling()) {
    const TiXmlElement* element = node->ToElement();
    if (!element) continue;
    const std::string_view name = element->Value();
    if (name != kClipListElement && name != kEdlListElement && name != kSettingsElement) return false;
    any = true;
  }
  return any;
}

bool CZRProjectToXML::load(const char* path, bool recreate) {
  setPath(xmlName, path);
  setPath(clipFile, nullptr);
  setPath(edlName, nullptr);
  if (!document || !path) return false;
  try {
    std::string bytes;
    const char* problem = readFileBytes(xmlName, &bytes) ? nullptr : "it cannot be read";
    if (!problem && bytes.find_first_not_of(" \t\r\n") == std::string::npos) problem = "it is empty";
    if (!problem) problem = parseProject(bytes, document);
    if (problem) {
      document->Clear();
      ErrOut("Project file \"%s\" is refused: %s\n", xmlName, problem);
    }
    const bool loaded = problem == nullptr;
    // The EDL is only looked at in a project that has a clip list.
    if (firstElement(document, kClipListElement)) {
      restoreListFile(kClipListElement, kClipNameAttribute, clipFile, recreate);
      restoreListFile(kEdlListElement, kEdlNameAttribute, edlName, recreate);
    }
    resolveElements();
    return loaded;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

bool CZRProjectToXML::SaveXMLFile() {
  if (!document || !xmlName[0]) return false;
  try {
    const std::string text = projectText(*document);
    FILE* file = std::fopen(xmlName, "wb");
    if (!file) return false;
    const bool written = std::fwrite(text.data(), 1, text.size(), file) == text.size();
    return std::fclose(file) == 0 && written;
  } catch (const std::bad_alloc&) {
    return false;
  }
}

int CZRProjectToXML::SetXMLName(const char* path) {
  setPath(xmlName, path);
  return 0;
}
int CZRProjectToXML::GetXMLName(char* out) { return copyOut(xmlName, out, ZR_PROJECT_PATH_SIZE); }
int CZRProjectToXML::GetXMLName(char* out, size_t outSize) { return copyOut(xmlName, out, outSize); }

// Records a list file and embeds its text. The text of a previously named file is dropped even
// when the new one cannot be read, so the project never pairs a name with another file's text.
int CZRProjectToXML::setListFile(TiXmlElement* list, const char* nameAttribute, char* buffer, const char* path) {
  setPath(buffer, path);
  if (!list || !path) return path ? 0 : -1;
  try {
    list->SetAttribute(nameAttribute, buffer);
    list->RemoveAttribute(kDataAttribute);
    bool hasNul = false;
    if (char* text = readWholeFile(path, &hasNul)) {
      list->SetAttribute(kDataAttribute, text);
      ZRFree(text);
    }
    if (hasNul) {
      ErrOut("\"%s\" holds a NUL byte, which a project file cannot carry\n", path);
      return -1;
    }
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return 0;
}

int CZRProjectToXML::SetClipFile(const char* path) { return setListFile(clipList, kClipNameAttribute, clipFile, path); }
int CZRProjectToXML::GetClipFile(char* out) { return copyOut(clipFile, out, ZR_PROJECT_PATH_SIZE); }
int CZRProjectToXML::GetClipFile(char* out, size_t outSize) { return copyOut(clipFile, out, outSize); }
int CZRProjectToXML::SetEDLName(const char* path) { return setListFile(edlList, kEdlNameAttribute, edlName, path); }
int CZRProjectToXML::GetEDLName(char* out) { return copyOut(edlName, out, ZR_PROJECT_PATH_SIZE); }
int CZRProjectToXML::GetEDLName(char* out, size_t outSize) { return copyOut(edlName, out, outSize); }

int CZRProjectToXML::SetConfigString(const char* name, const char* value) {
  if (!settings || !isXmlName(name) || !value) return -1;
  try {
    settings->SetAttribute(name, value);
  } catch (const std::bad_alloc&) {
    return -1;
  }
  return 0;
}

int CZRProjectToXML::GetConfigString(const char* name, char* out) {
  TiXmlElement* element = firstElement(document, kSettingsElement);
  const char* value = element && name ? element->Attribute(name) : nullptr;
  if (value && out) {
    strncpy(out, value, ZR_PROJECT_PATH_SIZE - 1);
    out[ZR_PROJECT_PATH_SIZE - 1] = '\0';
  }
  return 0;
}

int CZRProjectToXML::GetConfigString(const char* name, char* out, size_t outSize) {
  TiXmlElement* element = firstElement(document, kSettingsElement);
  const char* value = element && name ? element->Attribute(name) : nullptr;
  if (!value) return 0;
  if (!out || strlen(value) >= outSize) return -1;
  memcpy(out, value, strlen(value) + 1);
  return 0;
}

int CZRProjectToXML::SetConfigDWORD(const char* name, unsigned int value) {
  char text[ZR_PROJECT_PATH_SIZE];
  itoa(static_cast<int>(value), text, 10);  // values above 2^31-1 read back through their sign
  return SetConfigString(name, text);
}

unsigned int CZRProjectToXML::GetConfigDWORD(const char* name) {
  TiXmlElement* element = firstElement(document, kSettingsElement);
  const char* value = element && name ? element->Attribute(name) : nullptr;
  return value ? static_cast<unsigned int>(strtol(value, nullptr, 10)) : 0;
}

int CZRProjectToXML::GetConfigCount() {
  TiXmlElement* element = firstElement(document, kSettingsElement);
  int count = 0;
  for (TiXmlAttribute* a = element ? element->FirstAttribute() : nullptr; a; a = a->Next()) ++count;
  return count;
}

int CZRProjectToXML::GetConfigAt(int index, char* name, size_t nameSize, char* value, size_t valueSize) {
  TiXmlElement* element = firstElement(document, kSettingsElement);
  TiXmlAttribute* a = element ? element->FirstAttribute() : nullptr;
  for (int i = 0; a && i < index; ++i) a = a->Next();
  if (!a || index < 0) return -1;
  if (strlen(a->Name()) >= nameSize || strlen(a->Value()) >= valueSize || !name || !value) return -1;
  strcpy(name, a->Name());
  strcpy(value, a->Value());
  return 0;
}

size_t CZRProjectToXML::GetDataLength(bool clip) {
  TiXmlElement* element = firstElement(document, clip ? kClipListElement : kEdlListElement);
  const char* data = element ? element->Attribute(kDataAttribute) : nullptr;
  return data ? strlen(data) : 0;
}
