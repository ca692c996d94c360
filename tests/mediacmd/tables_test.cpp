// The get/set and flag vocabularies: shape, exhaustive round trips, first-match rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <set>
#include <string>

#include "mediacmd/mediacmd.h"

namespace {

std::string upper(std::string s) {
  for (char& c : s) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return s;
}

template <size_t N>
const char* firstNameFor(const MCMDXLAT (&table)[N], uint32_t code) {
  auto it = std::find_if(std::begin(table), std::end(table), [&](const MCMDXLAT& r) { return r.code == code; });
  return it == std::end(table) ? nullptr : it->name;
}

// Every row of one table: a unique lower-case name that reads back, in either case but not with a
// letter more, to its code; and its code back to the name that stands first. Returns the
// longest name's length.
template <size_t N>
size_t checkEveryRow(const MCMDXLAT (&table)[N], int (*fromString)(const char*, unsigned*), int (*toString)(int, char*)) {
  size_t longest = 0;
  std::set<std::string> names;
  for (const MCMDXLAT& row : table) {
    const std::string name = row.name;
    longest = std::max(longest, name.size());
    EXPECT_TRUE(names.insert(name).second) << "duplicate name " << name;
    for (char c : name) EXPECT_FALSE(std::isupper(static_cast<unsigned char>(c))) << name;
    for (const std::string& spelling : {name, upper(name)}) {
      unsigned code = 0;
      EXPECT_EQ(fromString(spelling.c_str(), &code), 0) << spelling;
      EXPECT_EQ(code, row.code) << spelling;
    }
    EXPECT_EQ(fromString((name + "x").c_str(), nullptr), -1) << name;
    char back[MCMD_NAME_MAX];
    EXPECT_EQ(toString(static_cast<int>(row.code), back), 0) << name;
    EXPECT_STREQ(back, firstNameFor(table, row.code));
  }
  return longest;
}

// Both tables row by row (the row counts, 460 and 36, are checked on the command's listing in
// cli_test), the kept all-empty twin of the get/set table, and the flag table's 32 single bits.
TEST(MediaCmdTables, EveryRowRoundTripsAndTheShapeHolds) {
  EXPECT_EQ(std::size(mcmdGSStringXlat), std::size(mcmdGSXlat));
  for (const MCMDXLAT& row : mcmdGSStringXlat) EXPECT_TRUE(row.code == 0 && row.name == nullptr);
  const size_t longest = std::max(checkEveryRow(mcmdGSXlat, gsFromString, gsToString),
                                  checkEveryRow(mcmdFLAGXlat, cfFromString, cfToString));
  EXPECT_EQ(longest, MCMD_NAME_MAX - 1u);
  uint32_t all = 0;
  for (const MCMDXLAT& row : mcmdFLAGXlat) {
    EXPECT_EQ(__builtin_popcount(row.code), 1) << row.name;
    all |= row.code;
  }
  EXPECT_EQ(all, 0xFFFFFFFFu);
}

// The table keeps its historical order, not code order: the first-match rules depend on it.
TEST(MediaCmdTables, TableOrderIsKeptAndSharedCodesTakeTheFirstName) {
  auto indexOf = [](const char* name) {
    for (size_t i = 0; i < std::size(mcmdGSXlat); ++i)
      if (!std::strcmp(mcmdGSXlat[i].name, name)) return i;
    return size_t(999);
  };
  EXPECT_LT(indexOf("channelname"), indexOf("vidinputvalid"));            // 0x41E before 0x404
  EXPECT_LT(indexOf("proxyfilesize"), indexOf("proxyfilecompressiontype"));  // 0xC365 before 0xC35F
  EXPECT_GT(indexOf("proxyfiledirectory"), indexOf("proxymultiratestreams"));  // 0xC361 after 0xC363
  // Codes with two names turn into the first (both read back in the exhaustive round trip).
  const struct { bool flags; uint32_t code; const char* first; } kShared[] = {
      {false, 0x4E23, "sysdroppedframes"}, {false, 0xC35F, "proxyfilecompressiontype"},
      {false, 0xC360, "proxyfiledatarate"}, {true, 0x4000, "copy"}, {true, 0x8000, "convert"},
      {true, 0x8000000, "secondfield"}, {true, 0x40000000, "overridedeferred"},
  };
  for (const auto& p : kShared) {
    char name[MCMD_NAME_MAX] = {};
    EXPECT_EQ((p.flags ? cfToString : gsToString)(static_cast<int>(p.code), name), 0) << p.first;
    EXPECT_STREQ(name, p.first);
  }
}

TEST(MediaCmdTables, MissesLeaveTheCallersDataAlone) {
  struct Miss { const char* what; int result; };
  char name[MCMD_NAME_MAX];
  std::strcpy(name, "untouched");
  unsigned code = 77;
  const Miss misses[] = {
      {"gs code 0x24", gsToString(0x24, name)}, {"flag combination 0x3", cfToString(0x3, name)},
      {"prefix t", gsFromString("t", &code)}, {"null name", gsFromString(nullptr, &code)},
      {"flag prefix use", cfFromString("use", &code)},
      {"name with trailing blank", cfFromString("loop ", &code)},
      {"checked form, buffer one short", gsToStringN(0x9, name, 5)},
      {"checked flag form, buffer one short", cfToStringN(0x1, name, 8)},
  };
  for (const Miss& m : misses) EXPECT_EQ(m.result, -1) << m.what;
  EXPECT_STREQ(name, "untouched");
  EXPECT_EQ(code, 77u);

  EXPECT_EQ(gsToStringN(0x9, name, 6), 0);  // exactly room for "start" and its NUL
  EXPECT_STREQ(name, "start");
  EXPECT_EQ(gsToString(0x9, nullptr), 0);  // found, nothing copied
  EXPECT_EQ(gsFromString("videoinputprefferedscantype", &code), 0);  // the odd spelling is the name
  EXPECT_EQ(code, 0x418u);
}

}  // namespace
