// MEDIACMD <-> XML through TinyXML. The element vocabulary lives in mediacmd_textform.cpp; this
// file only maps it onto TinyXML nodes.
#include "mediacmd/mediacmd_xml.h"

#include <cctype>
#include <cstring>
#include <memory>
#include <string>

#include "mediacmd/mediacmd_textform.h"
#include "platform/zrlog.h"
#include "platform/zrmemory.h"
#include "platform/zrxmlguard.h"

namespace {

using mediacmd::NodeView;

constexpr const char* kWarning = "WARNING(XMLmCmd): %s\n\r";

// TinyXML condenses white space in plain text when it reads (leading and trailing blanks go,
// runs collapse, and a text that is only white space once its character references are
// decoded is dropped); CDATA is kept verbatim. A CDATA section cannot hold "]]>", so such a
// text is split into several sections, which the reader joins again.
bool condensable(std::string_view text) {
  bool blank = true;
  for (char c : text) blank = blank && std::isspace(static_cast<unsigned char>(c));
  return blank || text.front() == ' ' || text.back() == ' ' || text.find("  ") != std::string_view::npos;
}

void addText(TiXmlElement* element, std::string_view text) {
  if (text.empty()) return;
  if (!condensable(text)) {
    element->LinkEndChild(new TiXmlText(std::string(text)));
    return;
  }
  while (!text.empty()) {
    size_t cut = text.find("]]>");
    size_t take = cut == std::string_view::npos ? text.size() : cut + 2;
    auto* section = new TiXmlText(std::string(text.substr(0, take)));
    section->SetCDATA(true);
    element->LinkEndChild(section);
    text.remove_prefix(take);
  }
}

class XmlEmitter final : public mediacmd::Emitter {
 public:
  explicit XmlEmitter(TiXmlElement* root) : root_(root) {}
  void number(const char* xmlName, const char*, int32_t value, bool) override {
    auto element = std::make_unique<TiXmlElement>(xmlName);
    element->SetAttribute("Value", value);
    root_->LinkEndChild(element.release());
  }
  void text(const char* name, std::string_view text) override {
    auto element = std::make_unique<TiXmlElement>(name);
    addText(element.get(), text);
    root_->LinkEndChild(element.release());
  }
  void begin(const char* name) override {
    current_ = std::make_unique<TiXmlElement>(name);
    content_.clear();
  }
  void member(const char* name, int32_t value) override { current_->SetAttribute(name, value); }
  void member(const char* name, std::string_view value) override { current_->SetAttribute(name, std::string(value)); }
  void content(const char*, std::string_view text) override { content_ = text; }
  void end() override {
    addText(current_.get(), content_);
    root_->LinkEndChild(current_.release());
  }

 private:
  TiXmlElement* root_;
  std::unique_ptr<TiXmlElement> current_;  // owned until complete, so an exception leaks nothing
  std::string content_;
};

class XmlNode final : public NodeView {
 public:
  explicit XmlNode(const TiXmlElement* element) : element_(element) {}
  Got number(int64_t* out) const override { return namedNumber("Value", out); }
  Got namedNumber(const char* name, int64_t* out) const override {
    const char* value = element_->Attribute(name);
    if (!value) return Got::kAbsent;
    return mediacmd::parseInteger(value, out) ? Got::kOk : Got::kBad;
  }
  Got namedText(const char* name, std::string* out) const override {
    const char* value = element_->Attribute(name);
    if (!value) return Got::kAbsent;
    *out = value;
    return Got::kOk;
  }
  Got text(std::string* out) const override {
    out->clear();
    bool any = false;
    for (const TiXmlNode* child = element_->FirstChild(); child; child = child->NextSibling()) {
      if (const TiXmlText* piece = child->ToText()) {
        *out += piece->Value();
        any = true;
      }
    }
    return any ? Got::kOk : Got::kAbsent;
  }

 private:
  const TiXmlElement* element_;
};

int readFailed(const std::string& message, int code) {
  ErrOut("%s\n", message.c_str());
  return code;
}

}  // namespace

int MediaCmdToXML(TiXmlDocument* doc, MEDIACMD* cmd, unsigned tcType) {
  if (!doc || !cmd) return -1;
  TiXmlElement* root = nullptr;
  try {
    doc->LinkEndChild(new TiXmlDeclaration("1.0", "iso-8859-1", ""));
    root = new TiXmlElement("MediaCmd");
    doc->LinkEndChild(root);
    root->LinkEndChild(new TiXmlComment(" Brontal MEDIACMD xml structure version 1,0 "));
    XmlEmitter out(root);
    mediacmd::describeFields(*cmd, tcType, out);
  } catch (...) {
    ErrFmtOut(0x80000000, 0, 0, kWarning, "Exception: MediaCmdToXML() ");
    return 0;
  }
  try {
    XmlEmitter out(root);
    mediacmd::describePayload(*cmd, out);
  } catch (...) {
    ErrFmtOut(0x80000000, 0, 0, kWarning, "Exception:  MediaCmdToXML(ClipID) ");
  }
  return 0;
}

int MediaCmdToXMLString(char** text, MEDIACMD* cmd, unsigned tcType) {
  if (!text || !cmd) return -1;
  try {
    TiXmlDocument doc;
    int result = MediaCmdToXML(&doc, cmd, tcType);
    if (result != 0) return result;
    TiXmlPrinter printer;
    printer.SetStreamPrinting();
    doc.Accept(&printer);
    size_t size = printer.Size();
    if (size == 0) return result;
    auto* copy = static_cast<char*>(ZRAlloc(size + 1));
    if (!copy) return -1;
    std::memcpy(copy, printer.CStr(), size + 1);
    *text = copy;
    return result;
  } catch (...) {
    ErrFmtOut(0x80000000, 0, 0, kWarning, "Exception: MediaCmdToXML() ");
    return -1;
  }
}

int MediaCmdFreeXMLString(char** text) {
  if (!text) return 0;
  if (*text) ZRFree(*text);
  *text = nullptr;
  return 0;
}

int MediaCmdFromXML(MEDIACMD* cmd, unsigned* tcType, TiXmlDocument doc) {
  if (!cmd) return -1;
  try {
    const TiXmlElement* root = doc.RootElement();
    if (!root) return readFailed("Element expected", 1);
    const std::string rootName = root->ValueStr();
    if (rootName != "MediaCmd" && rootName != "ClipInfo") return readFailed("Unexpected root element: " + rootName, -2);
    mediacmd::ReaderState state(false, tcType ? *tcType : 4u);
    for (const TiXmlElement* e = root->FirstChildElement(); e; e = e->NextSiblingElement()) {
      std::string name = e->ValueStr();
      // After the IP addresses, Start, End and AudioChannels are the settings' plain values.
      if (state.afterIpAddresses) {
        if (name == "Start") name = "start";
        else if (name == "End") name = "end";
        else if (name == "AudioChannels") name = "audiochannels";
      }
      if (!mediacmd::applyNode(*cmd, name, XmlNode(e), state)) return readFailed(state.error, -2);
    }
    if (!mediacmd::finishRead(*cmd, state)) return readFailed(state.error, -2);
    return 0;
  } catch (...) {
    return readFailed("Failed to read XML: out of memory", -1);
  }
}

int MediaCmdFromXMLString(MEDIACMD* cmd, unsigned* tcType, const char* text) {
  if (!cmd) return -1;
  initMediaCmd(cmd, 0);
  if (!text) return readFailed("Failed to parse XML: no text", -1);
  try {
    TiXmlDocument doc;
    if (const char* problem = zrxml::parse(text, zrxml::declaredCharset(text), &doc))
      return readFailed(std::string("Failed to parse XML: ") + problem, -1);
    return MediaCmdFromXML(cmd, tcType, doc);
  } catch (...) {
    return readFailed("Failed to parse XML: out of memory", -1);
  }
}
