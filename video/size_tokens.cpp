// The size-token table and the bucketing of measured sizes onto tokens.
#include <array>
#include <cstdint>

#include "video/vidformat.h"

namespace {

struct TokenSize {
  uint8_t token;
  int16_t pixels;
};

// Tokens 1..128; every token not listed has no size. The values are not in size order
// (37 = 988 lies between 36 = 864 and 38 = 857) and must stay exactly as they are.
constexpr TokenSize kTokenSizes[] = {
    {1, 240},    {2, 243},    {3, 288},    {8, 320},    {9, 352},    {10, 360},   {16, 480},
    {17, 483},   {18, 486},   {20, 496},   {22, 504},   {23, 512},   {26, 576},   {27, 600},
    {28, 608},   {32, 640},   {33, 720},   {34, 768},   {35, 800},   {36, 864},   {37, 988},
    {38, 857},   {40, 960},   {41, 968},   {42, 778},   {43, 872},   {48, 1024},  {49, 1035},
    {50, 1044},  {51, 1052},  {52, 1050},  {56, 1080},  {57, 1088},  {58, 1096},  {62, 1102},
    {64, 1152},  {65, 1200},  {67, 1234},  {72, 1280},  {73, 1332},  {75, 1400},  {76, 1440},
    {80, 1536},  {81, 1556},  {82, 1588},  {86, 1828},  {87, 1714},  {88, 1600},  {89, 1920},
    {90, 1782},  {91, 7680},  {92, 8192},  {96, 2048},  {100, 2160}, {101, 4096}, {104, 2650},
    {106, 2880}, {107, 3112}, {120, 3840}, {128, 4096},
};

constexpr int kTokenCount = 128;

// Dense form, indexed by token - 1; -1 = no size.
constexpr std::array<int16_t, kTokenCount> makeDenseTable() {
  std::array<int16_t, kTokenCount> table{};
  for (auto& entry : table) entry = -1;
  for (const auto& entry : kTokenSizes) table[entry.token - 1] = entry.pixels;
  return table;
}
constexpr auto kSizeOfToken = makeDenseTable();

// Buckets in evaluation order: a size below `limit` (and not below an earlier limit) gets
// `token`. Each bucket starts at the size of its token, except two kept irregularities:
// 241 and 242 already map to 243 (token 2), and 1035 still maps to 1024 (token 48). The UHD
// sizes 2160, 3840 and 7680 have no bucket: those words come from explicit rules only.
struct Bucket {
  int limit;  // exclusive
  int16_t token;
};
constexpr Bucket kBuckets[] = {
    {240, -1},  {241, 1},   {288, 2},   {320, 3},   {352, 8},   {360, 9},   {480, 10},
    {483, 16},  {486, 17},  {496, 18},  {504, 20},  {512, 22},  {576, 23},  {600, 26},
    {608, 27},  {640, 28},  {720, 32},  {768, 33},  {778, 34},  {800, 42},  {857, 35},
    {864, 38},  {872, 36},  {960, 43},  {968, 40},  {988, 41},  {1024, 37}, {1036, 48},
    {1044, 49}, {1050, 50}, {1052, 52}, {1080, 51}, {1088, 56}, {1096, 57}, {1102, 58},
    {1152, 62}, {1200, 64}, {1234, 65}, {1280, 67}, {1332, 72}, {1400, 73}, {1440, 75},
    {1536, 76}, {1556, 80}, {1588, 81}, {1600, 82}, {1714, 88}, {1828, 87}, {1920, 86},
    {2048, 89}, {2650, 96}, {3112, 104}, {4096, 107}, {8193, 128},
};

}  // namespace

extern "C" int vidGetSizeFromToken(int token) {
  if (token < 1 || token > kTokenCount) return -1;
  return kSizeOfToken[token - 1];
}

extern "C" int vidGetTokenFromSize(int pixels) {
  for (const auto& bucket : kBuckets)
    if (pixels < bucket.limit) return bucket.token;
  return -1;
}
