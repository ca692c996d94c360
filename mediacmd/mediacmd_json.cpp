// MEDIACMD <-> JSON. Written as text directly; read with the jsmn tokenizer. The element
// vocabulary lives in mediacmd_textform.cpp.
#include "mediacmd/mediacmd_json.h"

#include <charconv>
#include <cstring>
#include <string>

#include "mediacmd/mediacmd_textform.h"
#include "platform/zrlog.h"
#include "platform/zrmemory.h"

// jsmn is a header-only tokenizer; its functions stay private to this file.
#define JSMN_STATIC
#include <jsmn.h>

namespace {

using mediacmd::NodeView;

constexpr unsigned kMaxTokens = 100;

void appendNumber(std::string& out, int64_t value) {
  char digits[24];
  auto result = std::to_chars(digits, digits + sizeof digits, value);
  out.append(digits, result.ptr);
}

void appendQuoted(std::string& out, std::string_view text) {
  static const char kHex[] = "0123456789abcdef";
  out += '"';
  for (char c : text) {
    auto u = static_cast<unsigned char>(c);
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\b': out += "\\b"; break;
      case '\f': out += "\\f"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (u < 0x20) {
          out += "\\u00";
          out += kHex[u >> 4];
          out += kHex[u & 15];
        } else {
          out += c;
        }
    }
  }
  out += '"';
}

class JsonEmitter final : public mediacmd::Emitter {
 public:
  explicit JsonEmitter(std::string& out) : out_(out) {}
  void number(const char*, const char* jsonName, int32_t value, bool jsonUnsigned) override {
    key(jsonName);
    appendNumber(out_, jsonUnsigned ? static_cast<int64_t>(static_cast<uint32_t>(value)) : value);
    out_ += ',';
  }
  void text(const char* name, std::string_view text) override {
    key(name);
    appendQuoted(out_, text);
    out_ += ',';
  }
  void begin(const char* name) override {
    key(name);
    out_ += " {";
  }
  void member(const char* name, int32_t value) override { number(name, name, value, false); }
  void member(const char* name, std::string_view value) override { text(name, value); }
  void content(const char* jsonName, std::string_view text) override { this->text(jsonName, text); }
  void end() override { out_ += "},"; }

 private:
  void key(const char* name) {
    out_ += '"';
    out_ += name;
    out_ += "\":";
  }
  std::string& out_;
};

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

void appendUtf8(std::string& out, unsigned code) {
  if (code < 0x800) {
    out += static_cast<char>(0xC0 | code >> 6);
  } else {
    out += static_cast<char>(0xE0 | code >> 12);
    out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
  }
  out += static_cast<char>(0x80 | (code & 0x3F));
}

// JSON string escapes to bytes: \u0001..\u00FF give that byte (the form is byte text, as the
// writer's \u00XX escapes are), higher code points their UTF-8. A NUL cannot live in the
// record's texts and is refused.
bool unescape(std::string_view raw, std::string* out) {
  out->clear();
  for (size_t i = 0; i < raw.size(); ++i) {
    char c = raw[i];
    if (c != '\\') {
      *out += c;
      continue;
    }
    if (++i == raw.size()) return false;
    switch (raw[i]) {
      case '"': *out += '"'; break;
      case '\\': *out += '\\'; break;
      case '/': *out += '/'; break;
      case 'b': *out += '\b'; break;
      case 'f': *out += '\f'; break;
      case 'n': *out += '\n'; break;
      case 'r': *out += '\r'; break;
      case 't': *out += '\t'; break;
      case 'u': {
        if (raw.size() - i < 5) return false;
        unsigned code = 0;
        for (size_t k = 1; k <= 4; ++k) {
          int h = hexValue(raw[i + k]);
          if (h < 0) return false;
          code = code << 4 | static_cast<unsigned>(h);
        }
        i += 4;
        if (code == 0) return false;
        if (code <= 0xFF) *out += static_cast<char>(code);
        else appendUtf8(*out, code);
        break;
      }
      default: return false;
    }
  }
  return true;
}

// The token array of one parsed text, walked as a tree.
class Tokens {
 public:
  Tokens(const char* text, const jsmntok_t* tokens, int count) : text_(text), tokens_(tokens), count_(count) {}
  const jsmntok_t& operator[](int i) const { return tokens_[i]; }
  int count() const { return count_; }
  std::string_view raw(int i) const { return {text_ + tokens_[i].start, static_cast<size_t>(tokens_[i].end - tokens_[i].start)}; }
  // Index after the value starting at i, or -1 when the tokens run out.
  int skip(int i) const {
    int pending = 1;
    while (pending > 0) {
      if (i < 0 || i >= count_) return -1;
      pending += tokens_[i].size - 1;
      ++i;
    }
    return i;
  }
  // Calls visit(keyIndex, valueIndex) for each member of the object at i; returns the index
  // after the object, or -1 when it is not a well-formed object of "key": value members.
  template <typename Visit>
  int members(int i, Visit visit) const {
    if (tokens_[i].type != JSMN_OBJECT) return -1;
    int members = tokens_[i].size;
    int k = i + 1;
    for (int m = 0; m < members; ++m) {
      if (k >= count_ || tokens_[k].type != JSMN_STRING || tokens_[k].size != 1) return -1;
      int value = k + 1;
      int next = skip(value);
      if (next < 0) return -1;
      if (!visit(k, value)) return -1;
      k = next;
    }
    return k;
  }
  // Value index of the member `name` of the object at i, or -1.
  int find(int i, std::string_view name) const {
    int found = -1;
    members(i, [&](int key, int value) {
      if (found < 0 && raw(key) == name) found = value;
      return true;
    });
    return found;
  }

 private:
  const char* text_;
  const jsmntok_t* tokens_;
  int count_;
};

class JsonNode final : public NodeView {
 public:
  JsonNode(const Tokens& tokens, int index) : t_(tokens), i_(index) {}
  Got number(int64_t* out) const override {
    if (t_[i_].type == JSMN_OBJECT) return numberAt(t_.find(i_, "Value"), out);
    return numberAt(i_, out);
  }
  Got namedNumber(const char* name, int64_t* out) const override {
    if (t_[i_].type != JSMN_OBJECT) return Got::kAbsent;
    return numberAt(t_.find(i_, name), out);
  }
  Got namedText(const char* name, std::string* out) const override {
    if (t_[i_].type != JSMN_OBJECT) return Got::kAbsent;
    return textAt(t_.find(i_, name), out);
  }
  Got text(std::string* out) const override {
    if (t_[i_].type != JSMN_OBJECT) return textAt(i_, out);
    int at = t_.find(i_, "TcString");
    return textAt(at >= 0 ? at : t_.find(i_, "String"), out);
  }

 private:
  Got numberAt(int i, int64_t* out) const {
    if (i < 0) return Got::kAbsent;
    if (t_[i].type != JSMN_PRIMITIVE) return Got::kBad;
    return mediacmd::parseInteger(t_.raw(i), out) ? Got::kOk : Got::kBad;
  }
  Got textAt(int i, std::string* out) const {
    if (i < 0) return Got::kAbsent;
    if (t_[i].type != JSMN_STRING) return Got::kBad;
    return unescape(t_.raw(i), out) ? Got::kOk : Got::kBad;
  }
  const Tokens& t_;
  int i_;
};

// Keys of the clip-list form; its content is not a command and is passed over.
bool isClipListKey(std::string_view key) {
  return key == "ClipList" || key == "EdlList" || key == "Settings" || key == "Data" || key == "EdlName";
}

int readFailed(const std::string& message, int code) {
  ErrOut("%s\n", message.c_str());
  return code;
}

int readCommandObject(MEDIACMD& cmd, const Tokens& tokens, int object) {
  mediacmd::ReaderState state(true, 4u);
  int end = tokens.members(object, [&](int key, int value) {
    std::string_view name = tokens.raw(key);
    if (isClipListKey(name)) return true;
    return mediacmd::applyNode(cmd, name, JsonNode(tokens, value), state);
  });
  if (!state.error.empty()) return readFailed(state.error, -2);
  if (end < 0) return readFailed("Unrecognised JSON structure", -2);
  if (!mediacmd::finishRead(cmd, state)) return readFailed(state.error, -2);
  return 0;
}

int readDocument(MEDIACMD& cmd, const char* text) {
  jsmn_parser parser;
  jsmn_init(&parser);
  jsmntok_t tokens[kMaxTokens];
  int count = jsmn_parse(&parser, text, std::strlen(text), tokens, kMaxTokens);
  if (count < 0) {
    ErrOut("Failed to parse JSON: %d\n", count);
    return -1;
  }
  if (count == 0 || tokens[0].type != JSMN_OBJECT) {
    ErrOut("Object expected\n");
    return 1;
  }
  const Tokens t(text, tokens, count);
  if (count > 1 && t[1].type == JSMN_STRING && t.raw(1).size() == 8 && t.raw(1) != "MediaCmd" && t.raw(1) != "ClipInfo")
    return -2;
  int result = 0;
  bool found = false;
  int end = t.members(0, [&](int key, int value) {
    std::string_view name = t.raw(key);
    if ((name != "MediaCmd" && name != "ClipInfo") || t[value].type != JSMN_OBJECT) return true;
    found = true;
    result = readCommandObject(cmd, t, value);
    return result == 0;
  });
  if (result != 0) return result;
  if (end < 0 || end != count) return readFailed("Unrecognised JSON structure", -2);
  if (!found && t[0].size > 0) return readFailed("No MediaCmd object", -2);
  return 0;
}

}  // namespace

int MediaCmdToJSONString(char** text, MEDIACMD* cmd, unsigned tcType) {
  if (!text || !cmd) return -1;
  try {
    std::string out;
    out.reserve(512);
    out += "{\"MediaCmd\" : {";
    JsonEmitter emitter(out);
    mediacmd::describeFields(*cmd, tcType, emitter);
    mediacmd::describePayload(*cmd, emitter);
    out += "}}";
    auto* copy = static_cast<char*>(ZRAlloc(out.size() + 1));
    if (!copy) return -1;
    std::memcpy(copy, out.c_str(), out.size() + 1);
    *text = copy;
    return 0;
  } catch (...) {
    ErrFmtOut(0x80000000, 0, 0, "WARNING(JSONmCmd): %s\n\r", "Exception: MediaCmdToJSON() ");
    return -1;
  }
}

int MediaCmdFreeJSONString(char** text) {
  if (!text) return 0;
  if (*text) ZRFree(*text);
  *text = nullptr;
  return 0;
}

int MediaCmdFromJSONString(MEDIACMD* cmd, unsigned*, const char* text) {
  if (!cmd) return -1;
  initMediaCmd(cmd, 0);
  if (!text) return readFailed("Failed to parse JSON: no text", -1);
  try {
    return readDocument(*cmd, text);
  } catch (...) {
    return readFailed("Failed to read JSON: out of memory", -1);
  }
}
