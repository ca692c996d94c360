// CEA-608 caption decoder (CTA-608-E 6, 7, Annex B character sets).
#include "streamutil/cea608.h"

#include <cstring>
#include <utility>

namespace {

enum Mode : uint32_t { kNone = 0, kPopOn = 1, kRollUp = 2, kPaintOn = 3, kText = 4 };
enum CharSet : uint16_t { kSetBasic = 0, kSetSpecial = 1, kSetExtendedA = 2, kSetExtendedB = 3 };
constexpr uint32_t kDisplayed = 0, kHidden = 1;

// Basic characters that differ from ASCII (CTA-608-E Table 50).
const char* basicCharacter(uint8_t c, char (&ascii)[2]) {
  switch (c) {
    case 0x2A: return "\u00E1";
    case 0x5C: return "\u00E9";
    case 0x5E: return "\u00ED";
    case 0x5F: return "\u00F3";
    case 0x60: return "\u00FA";
    case 0x7B: return "\u00E7";
    case 0x7C: return "\u00F7";
    case 0x7D: return "\u00D1";
    case 0x7E: return "\u00F1";
    case 0x7F: return "\u2588";
    default: ascii[0] = char(c), ascii[1] = 0; return ascii;
  }
}

// Special characters 0x30..0x3F (Table 49); 0x39 is the transparent space.
constexpr const char* kSpecial[16] = {"\u00AE", "\u00B0", "\u00BD", "\u00BF", "\u2122", "\u00A2", "\u00A3", "\u266A",
                                      "\u00E0", " ",      "\u00E8", "\u00E2", "\u00EA", "\u00EE", "\u00F4", "\u00FB"};
// Extended characters 0x20..0x3F (Tables 5 and 6): Spanish, French, misc; Portuguese, German, Danish.
constexpr const char* kExtendedA[32] = {
    "\u00C1", "\u00C9", "\u00D3", "\u00DA", "\u00DC", "\u00FC", "\u2018", "\u00A1", "*",      "'",      "\u2014",
    "\u00A9", "\u2120", "\u2022", "\u201C", "\u201D", "\u00C0", "\u00C2", "\u00C7", "\u00C8", "\u00CA", "\u00CB",
    "\u00EB", "\u00CE", "\u00CF", "\u00EF", "\u00D4", "\u00D9", "\u00F9", "\u00DB", "\u00AB", "\u00BB"};
constexpr const char* kExtendedB[32] = {
    "\u00C3", "\u00E3", "\u00CD", "\u00CC", "\u00EC", "\u00D2", "\u00F2", "\u00D5", "\u00F5", "{",      "}",
    "\\",     "^",      "_",      "|",      "~",      "\u00C4", "\u00E4", "\u00D6", "\u00F6", "\u00DF", "\u00A5",
    "\u00A4", "\u00A6", "\u00C5", "\u00E5", "\u00D8", "\u00F8", "\u250C", "\u2510", "\u2514", "\u2518"};

// Row of a preamble address code (Table 53), 0-based; -1 when none.
int pacRow(uint8_t b1, uint8_t b2) {
  static constexpr int kRows[8] = {10, 0, 2, 11, 13, 4, 6, 8};  // by b1 & 7: first row of the pair
  const int base = kRows[b1 & 7];
  if ((b1 & 7) == 0) return (b2 & 0x20) ? -1 : 10;  // 0x10: row 11 only
  return base + ((b2 & 0x20) ? 1 : 0);
}

bool oddParity(uint8_t b) { return __builtin_popcount(b) & 1; }

class Decoder {
 public:
  explicit Decoder(CEA608_DECODER& d) : d_(d) {}

  uint16_t (*target())[CEA608_COLUMNS] { return d_.memory[d_.mode == kPopOn ? kHidden : kDisplayed]; }

  void put(uint16_t cell) {
    if (d_.mode == kNone || d_.mode == kText) return;
    if (d_.column >= CEA608_COLUMNS) d_.column = CEA608_COLUMNS - 1;  // the last column is overwritten
    target()[d_.row][d_.column++] = cell;
  }
  void backspace() {
    if (d_.column > 0) target()[d_.row][--d_.column] = 0;
  }
  void clear(uint32_t which) { std::memset(d_.memory[which], 0, sizeof d_.memory[which]); }
  bool empty(uint32_t which) const {
    for (const auto& row : d_.memory[which])
      for (uint16_t c : row)
        if (c && c != ' ') return false;
    return true;
  }
  void rollUp() {
    const uint32_t rows = d_.rollRows ? d_.rollRows : 2;
    const uint32_t top = d_.row + 1 >= rows ? d_.row + 1 - rows : 0;
    auto* m = d_.memory[kDisplayed];
    for (uint32_t r = 0; r < CEA608_ROWS; ++r)
      if (r < top || r > d_.row) std::memset(m[r], 0, sizeof m[r]);
    for (uint32_t r = top; r < d_.row; ++r) std::memcpy(m[r], m[r + 1], sizeof m[r]);
    std::memset(m[d_.row], 0, sizeof m[d_.row]);
  }

 private:
  CEA608_DECODER& d_;
};

// Writes the displayed memory as text, each row without its leading and trailing blanks.
void captureText(const CEA608_DECODER& d, char* out, size_t cap) {
  size_t n = 0;
  auto append = [&](const char* s) {
    for (; *s && n + 1 < cap; ++s) out[n++] = *s;
  };
  bool firstRow = true;
  for (const auto& row : d.memory[kDisplayed]) {
    uint32_t indent = 0, end = CEA608_COLUMNS;
    while (indent < CEA608_COLUMNS && (!row[indent] || row[indent] == ' ')) ++indent;
    while (end > indent && (!row[end - 1] || row[end - 1] == ' ')) --end;
    if (end <= indent) continue;
    if (!firstRow) append("\n");
    firstRow = false;
    for (uint32_t c = indent; c < end; ++c) {
      const uint16_t cell = row[c];
      const uint8_t code = uint8_t(cell), set = uint8_t(cell >> 8);
      char ascii[2];
      if (!cell) append(" ");
      else if (set == kSetSpecial) append(kSpecial[code & 15]);
      else if (set == kSetExtendedA) append(kExtendedA[code & 31]);
      else if (set == kSetExtendedB) append(kExtendedB[code & 31]);
      else append(basicCharacter(code, ascii));
    }
  }
  out[n] = 0;
}

// Ends the caption being shown at `frame`; 1 when there was one.
int endShown(CEA608_DECODER& d, uint32_t frame, CEA608_CUE* cue) {
  if (!d.shown) return 0;
  d.shown = 0;
  if (frame <= d.shownSince) return 0;
  cue->startFrame = d.shownSince;
  cue->endFrame = frame;
  captureText(d, cue->text, sizeof cue->text);
  return cue->text[0] ? 1 : 0;
}

void startShown(CEA608_DECODER& d, uint32_t frame, bool hasText) {
  d.shown = hasText;
  d.shownSince = frame;
}

int control(CEA608_DECODER& d, Decoder& dec, uint32_t frame, uint8_t b1, uint8_t b2, CEA608_CUE* cue) {
  const uint8_t c1 = b1 & 0x17;  // the channel bit (0x08) taken off
  if ((c1 == 0x14 || c1 == 0x15) && b2 >= 0x20 && b2 <= 0x2F) {
    switch (b2) {
      case 0x20: case 0x29: {  // RCL, RDC: a roll-up caption on screen is erased (CTA-608-E B.9)
        // What the last carriage return left of it is not counted as a caption of its own.
        if (d.mode == kRollUp) dec.clear(kDisplayed), d.shown = 0;
        d.mode = b2 == 0x20 ? kPopOn : kPaintOn;
        return 0;
      }
      case 0x21: dec.backspace(); return 0;  // BS
      case 0x24: {                           // DER
        auto* row = dec.target()[d.row];
        for (uint32_t c = d.column; c < CEA608_COLUMNS; ++c) row[c] = 0;
        return 0;
      }
      case 0x25: case 0x26: case 0x27: {  // RU2..RU4
        const bool was = d.mode == kRollUp;
        d.mode = kRollUp;
        d.rollRows = uint32_t(b2 - 0x25 + 2);
        if (!was) {
          const int r = endShown(d, frame, cue);
          dec.clear(kDisplayed), dec.clear(kHidden);
          d.row = CEA608_ROWS - 1, d.column = 0;
          return r;
        }
        return 0;
      }
      case 0x2A: case 0x2B: d.mode = kText; return 0;  // TR, RTD
      case 0x2C: {  // EDM
        const int r = endShown(d, frame, cue);
        dec.clear(kDisplayed);
        return r;
      }
      case 0x2D:  // CR
        if (d.mode == kRollUp) {
          const int r = endShown(d, frame, cue);
          dec.rollUp();
          d.column = 0;
          startShown(d, frame, !dec.empty(kDisplayed));
          return r;
        }
        if (d.mode != kText && d.row + 1 < CEA608_ROWS) ++d.row, d.column = 0;
        return 0;
      case 0x2E: dec.clear(kHidden); return 0;  // ENM
      case 0x2F: {  // EOC: the loaded caption shows
        const int r = endShown(d, frame, cue);
        std::swap(d.memory[kDisplayed], d.memory[kHidden]);
        d.mode = kPopOn;
        startShown(d, frame, !dec.empty(kDisplayed));
        return r;
      }
      default: return 0;  // AOF, AON, FON
    }
  }
  if (c1 == 0x17 && b2 >= 0x21 && b2 <= 0x23) {  // tab offsets
    d.column += b2 - 0x20;
    if (d.column >= CEA608_COLUMNS) d.column = CEA608_COLUMNS - 1;
    return 0;
  }
  if (b2 >= 0x40) {  // preamble address code
    const int row = pacRow(c1, b2);
    if (row < 0) return 0;
    if (d.mode == kRollUp && uint32_t(row) != d.row) {  // the roll-up window moves with its rows
      auto* m = d.memory[kDisplayed];
      const uint32_t rows = d.rollRows ? d.rollRows : 2;
      uint16_t keep[4][CEA608_COLUMNS] = {};
      for (uint32_t k = 0; k < rows && k <= d.row; ++k) std::memcpy(keep[k], m[d.row - k], sizeof keep[k]);
      dec.clear(kDisplayed);
      for (uint32_t k = 0; k < rows && k <= uint32_t(row); ++k) std::memcpy(m[uint32_t(row) - k], keep[k], sizeof keep[k]);
    }
    d.row = uint32_t(row);
    d.column = (b2 & 0x10) ? ((b2 >> 1) & 7) * 4 : 0;
    return 0;
  }
  if (c1 == 0x11 && b2 >= 0x20 && b2 <= 0x2F) {  // mid-row code: shows as a space
    dec.put(' ');
    return 0;
  }
  if (c1 == 0x11 && b2 >= 0x30 && b2 <= 0x3F) {  // special character
    dec.put(uint16_t(kSetSpecial << 8 | (b2 & 15)));
    return 0;
  }
  if ((c1 == 0x12 || c1 == 0x13) && b2 >= 0x20 && b2 <= 0x3F) {  // extended: replaces the previous character
    dec.backspace();
    dec.put(uint16_t((c1 == 0x12 ? kSetExtendedA : kSetExtendedB) << 8 | (b2 & 31)));
  }
  return 0;
}

}  // namespace

extern "C" int klxutilCea608Init(CEA608_DECODER* decoder, uint32_t channel) {
  if (!decoder || channel < 1 || channel > 4) return -1;
  std::memset(decoder, 0, sizeof *decoder);
  decoder->channel = channel;
  decoder->row = CEA608_ROWS - 1;
  return 0;
}

extern "C" int klxutilCea608Feed(CEA608_DECODER* decoder, uint32_t frame, uint8_t byte1, uint8_t byte2, CEA608_CUE* cue) {
  if (!decoder || !cue || decoder->channel < 1 || decoder->channel > 4) return -1;
  CEA608_DECODER& d = *decoder;
  if (!oddParity(byte1) || !oddParity(byte2)) return 0;
  const uint8_t b1 = byte1 & 0x7F, b2 = byte2 & 0x7F;
  if (!b1 && !b2) return 0;  // padding
  const uint32_t wanted = (d.channel - 1) & 1;  // data channel within the field
  if (b1 >= 0x10 && b1 <= 0x1F) {
    const uint8_t pair[2] = {b1, b2};
    const bool repeated = d.lastControlValid && std::memcmp(pair, d.lastControl, 2) == 0;
    std::memcpy(d.lastControl, pair, 2);
    d.lastControlValid = !repeated;  // a third copy counts again
    d.activeChannel = (b1 & 0x08) ? 1 : 0;
    if (repeated || d.activeChannel != wanted) return 0;
    Decoder dec(d);
    return control(d, dec, frame, b1, b2, cue);
  }
  d.lastControlValid = 0;
  if (b1 < 0x10 || d.activeChannel != wanted) return 0;  // XDS, or the other data channel
  Decoder dec(d);
  const bool wasEmpty = d.mode != kPopOn && !d.shown;
  if (b1 >= 0x20) dec.put(b1);
  if (b2 >= 0x20) dec.put(b2);
  if (wasEmpty && (d.mode == kRollUp || d.mode == kPaintOn)) startShown(d, frame, !dec.empty(kDisplayed));
  return 0;
}

extern "C" int klxutilCea608Flush(CEA608_DECODER* decoder, uint32_t frame, CEA608_CUE* cue) {
  if (!decoder || !cue) return -1;
  return endShown(*decoder, frame, cue);
}
