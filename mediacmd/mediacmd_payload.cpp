// Payload layouts of the text forms (see mediacmd_payload.h for the layouts themselves).
#include "mediacmd/mediacmd_payload.h"

#include <cstring>

#include "mediacmd/mediacmd_tables.h"
#include "platform/zrtext.h"

namespace mediacmd {
namespace {

constexpr size_t kPayloadRoom = MEDIACMD_PAYLOAD_SIZE;
constexpr uint32_t kArbitraryMax = MEDIACMD_PAYLOAD_COPY_MAX;  // what fits behind the count word
constexpr uint32_t kHexMax = 32;  // longer arbitrary data is written as base64

bool carriesGetSetCode(uint32_t cmd) { return cmd == ctGetValue || cmd == ctSetValue || cmd == ctValueSupported; }

// Which payload text each element name fills: its layout and its slot in that layout.
struct TextSlot {
  const char* name;
  PayloadLayout layout;
  int slot;
};
const TextSlot kTextSlots[] = {
    {"channelalias", PayloadLayout::kChannelAliases, 0},
    {"channel1alias", PayloadLayout::kChannelAliases, 1},
    {"channel2alias", PayloadLayout::kChannelAliases, 2},
    {"channel3alias", PayloadLayout::kChannelAliases, 3},
    {"channel4alias", PayloadLayout::kChannelAliases, 4},
    {"channel5alias", PayloadLayout::kChannelAliases, 5},
    {"channel6alias", PayloadLayout::kChannelAliases, 6},
    {"channel7alias", PayloadLayout::kChannelAliases, 7},
    {"chanName", PayloadLayout::kChannelName, 0},
    {"destinationipaddress", PayloadLayout::kIpVideoSettings, 0},
    {"sourceipaddress", PayloadLayout::kIpVideoSettings, 1},
    {"interfaceipaddress", PayloadLayout::kIpVideoSettings, 2},
    {"clockipaddress", PayloadLayout::kIpVideoClock, 0},
    // A file name, with or without a unique identifier in front of it.
    {"FileName", PayloadLayout::kClipAndFile, 0},
    {"UniqueID", PayloadLayout::kClipAndFile, 1},
    {"MetaTag", PayloadLayout::kMetabaseTag, 0},
    {"MetaData", PayloadLayout::kMetabaseTag, 1},
    {"PageRequest", PayloadLayout::kMetabaseTag, 2},
};
const char* const kIpAddressNames[] = {"destinationipaddress", "sourceipaddress", "interfaceipaddress"};
const char* const kMetaTagNames[] = {"MetaTag", "MetaData", "PageRequest"};

const TextSlot* slotOf(std::string_view name) {
  for (const TextSlot& s : kTextSlots)
    if (name == s.name) return &s;
  return nullptr;
}

// The index-th NUL-terminated text of the payload (empty when the payload ends before it).
std::string_view nthText(const MEDIACMD& cmd, int index) {
  size_t pos = 0;
  for (int i = 0; i < index; ++i) {
    pos += strnlen(cmd.Payload + pos, kPayloadRoom - pos) + 1;
    if (pos >= kPayloadRoom) return {};
  }
  return {cmd.Payload + pos, strnlen(cmd.Payload + pos, kPayloadRoom - pos)};
}

uint32_t arbitraryLength(const MEDIACMD& cmd) {
  const auto* p = reinterpret_cast<const uint8_t*>(cmd.Payload);
  uint32_t n = p[0] | p[1] << 8 | p[2] << 16 | static_cast<uint32_t>(p[3]) << 24;
  return n > kArbitraryMax ? kArbitraryMax : n;
}

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

PayloadLayout payloadLayoutOf(const MEDIACMD& cmd) {
  if (carriesGetSetCode(cmd.Cmd)) {
    switch (cmd.CmdAlt) {
      case gsChannelName: return PayloadLayout::kChannelAliases;
      case gsKlxType: return PayloadLayout::kChannelName;
      case gsIpVideoSettings: return PayloadLayout::kIpVideoSettings;
      case gsIpVideoClock: return PayloadLayout::kIpVideoClock;
      case gsFrameData:
      case gsPreviewFrame: return PayloadLayout::kArbitraryData;
      default: break;
    }
  }
  if (cmd.CmdAlt == gsMetabaseFileName) return PayloadLayout::kMetabaseFileName;
  if (cmd.CmdAlt == gsMetabaseGetTag) return PayloadLayout::kMetabaseTag;
  return PayloadLayout::kClipAndFile;
}

PayloadView::PayloadView(const MEDIACMD& cmd) {
  const std::string_view clipId(cmd.ClipID, strnlen(cmd.ClipID, MEDIACMD_CLIPID_SIZE - 1));
  switch (payloadLayoutOf(cmd)) {
    case PayloadLayout::kChannelAliases: {
      static const char* const kAliasNames[] = {"channelalias",  "channel1alias", "channel2alias", "channel3alias",
                                                "channel4alias", "channel5alias", "channel6alias", "channel7alias"};
      addText(kAliasNames[0], nthText(cmd, 0));
      for (int i = 1; i < 8 && !nthText(cmd, i).empty(); ++i) addText(kAliasNames[i], nthText(cmd, i));
      break;
    }
    case PayloadLayout::kChannelName: addText("chanName", nthText(cmd, 0)); break;
    case PayloadLayout::kIpVideoSettings:
      for (int i = 0; i < 3; ++i) addText(kIpAddressNames[i], nthText(cmd, i));
      add({PayloadItem::Kind::kNumber, "Start", "start", {}, cmd.Start});
      add({PayloadItem::Kind::kNumber, "End", "end", {}, cmd.End});
      add({PayloadItem::Kind::kNumber, "AudioChannels", "audiochannels", {}, static_cast<int32_t>(cmd.AudioChannels)});
      break;
    case PayloadLayout::kIpVideoClock: addText("clockipaddress", nthText(cmd, 0)); break;
    case PayloadLayout::kArbitraryData: {
      const uint32_t n = arbitraryLength(cmd);
      const auto* data = reinterpret_cast<const uint8_t*>(cmd.Payload) + 4;
      const char* type = n <= kHexMax ? "hex" : "base64";
      if (n <= kHexMax) {
        static const char kDigits[] = "0123456789ABCDEF";
        encoded_.resize(2 * n);
        for (uint32_t i = 0; i < n; ++i) {
          encoded_[2 * i] = kDigits[data[i] >> 4];
          encoded_[2 * i + 1] = kDigits[data[i] & 15];
        }
      } else {
        encoded_.resize(base64_encoded_length(n) + 1);
        encoded_.resize(base64_encode(data, n, encoded_.data(), encoded_.size()));
      }
      add({PayloadItem::Kind::kArbitrary, "arbID", "arbID", encoded_, 0, type, n});
      break;
    }
    case PayloadLayout::kMetabaseFileName: {
      addText("ClipID", clipId);
      std::string_view text = nthText(cmd, 0);
      size_t dollar = text.find('$');
      if (dollar != std::string_view::npos) {
        addText("UniqueID", text.substr(0, dollar));
        text.remove_prefix(dollar + 1);
      }
      addText("FileName", text);
      break;
    }
    case PayloadLayout::kMetabaseTag:
      for (int i = 0; i < 3; ++i) addText(kMetaTagNames[i], nthText(cmd, i));
      break;
    case PayloadLayout::kClipAndFile: {
      if (!clipId.empty()) addText("ClipID", clipId);
      bool metadata = carriesGetSetCode(cmd.Cmd) && cmd.CmdAlt == gsMetadata;
      std::string_view file = nthText(cmd, 0);
      if (!metadata && !file.empty()) addText("FileName", file);
      break;
    }
  }
}

bool PayloadBuilder::isPayloadText(std::string_view name) { return slotOf(name) != nullptr; }

std::string PayloadBuilder::claim(PayloadLayout layout, std::string_view name) {
  if (any_ && layout != layout_) return "Conflicting payload elements: " + firstName_ + " and " + std::string(name);
  if (!any_) firstName_ = name;
  any_ = true;
  layout_ = layout;
  return {};
}

std::string PayloadBuilder::addText(std::string_view name, std::string_view text) {
  const TextSlot* slot = slotOf(name);
  if (!slot) return "Unknown payload element: " + std::string(name);
  if (std::string error = claim(slot->layout, name); !error.empty()) return error;
  // Anything longer than the payload could never be written back; refuse it early so a hostile
  // text costs no more than one payload's worth of memory.
  if (text.size() >= kPayloadRoom) return "Text too long for the payload: " + std::string(name);
  texts_[slot->slot] = text;
  present_[slot->slot] = true;
  return {};
}

std::string PayloadBuilder::addArbitrary(std::string_view type, int64_t length, std::string_view text) {
  if (std::string error = claim(PayloadLayout::kArbitraryData, "arbID"); !error.empty()) return error;
  bytes_.clear();
  if (type == "hex") {
    if (text.size() % 2 || text.size() / 2 > kArbitraryMax) return "Bad arbID data";
    for (size_t i = 0; i < text.size(); i += 2) {
      int hi = hexDigit(text[i]), lo = hexDigit(text[i + 1]);
      if (hi < 0 || lo < 0) return "Bad arbID data";
      bytes_.push_back(static_cast<char>(hi << 4 | lo));
    }
  } else if (type == "base64") {
    size_t decoded = 0;
    bytes_.resize(kArbitraryMax);
    if (base64_decode(text.data(), text.size(), bytes_.data(), bytes_.size(), &decoded) != 0) return "Bad arbID data";
    bytes_.resize(decoded);
  } else {
    return "Bad arbID type: " + std::string(type);
  }
  if (length >= 0 && static_cast<uint64_t>(length) != bytes_.size()) return "arbID length does not match its data";
  return {};
}

std::string PayloadBuilder::finish(MEDIACMD& cmd) const {
  if (!any_) return {};
  std::string packed;
  switch (layout_) {
    case PayloadLayout::kArbitraryData: {
      const uint32_t n = static_cast<uint32_t>(bytes_.size());
      packed = {static_cast<char>(n), static_cast<char>(n >> 8), static_cast<char>(n >> 16), static_cast<char>(n >> 24)};
      packed += bytes_;
      break;
    }
    case PayloadLayout::kClipAndFile:
    case PayloadLayout::kMetabaseFileName:
      if (present_[1]) packed = texts_[1] + "$";
      packed += texts_[0];
      packed += '\0';
      break;
    case PayloadLayout::kChannelAliases:
      for (size_t i = 0; i < texts_.size(); ++i)
        if (present_[i]) (packed += texts_[i]) += '\0';
      break;
    default: {
      // Fixed lists of texts; a missing one is empty.
      int slots = layout_ == PayloadLayout::kIpVideoSettings ? 3 : layout_ == PayloadLayout::kMetabaseTag ? 3 : 1;
      for (int i = 0; i < slots; ++i) (packed += texts_[i]) += '\0';
      break;
    }
  }
  if (packed.size() > kPayloadRoom) return "Texts too long for the payload";
  std::memset(cmd.Payload, 0, kPayloadRoom);
  std::memcpy(cmd.Payload, packed.data(), packed.size());
  return {};
}

}  // namespace mediacmd
