// Size tokens: the index numbers of pixel and line counts, in two tables that are not each other's inverse.

#include <algorithm>
#include <array>
#include <iterator>
#include <span>

#include "qlnutil/format/sorted_search.h"
#include "qlnutil/qlnformat.h"

namespace {

struct TokenSize {
  uint8_t token;
  uint16_t size;
};

constexpr TokenSize kTokenSizes[] = {
    {1, 240},    {2, 243},    {3, 288},    {8, 320},    {9, 352},   {10, 360},   {16, 480},   {17, 483},
    {18, 486},   {20, 496},   {22, 504},   {23, 512},   {26, 576},  {27, 600},   {28, 608},   {32, 640},
    {33, 720},   {34, 768},   {35, 800},   {36, 864},   {37, 988},  {38, 857},   {40, 960},   {41, 968},
    {42, 778},   {43, 872},   {48, 1024},  {49, 1035},  {50, 1044}, {51, 1052},  {52, 1050},  {56, 1080},
    {57, 1088},  {58, 1096},  {62, 1102},  {64, 1152},  {65, 1200}, {67, 1234},  {72, 1280},  {73, 1332},
    {75, 1400},  {76, 1440},  {80, 1536},  {81, 1556},  {82, 1588}, {86, 1828},  {87, 1714},  {88, 1600},
    {89, 1920},  {90, 1782},  {91, 7680},  {92, 8192},  {96, 2048}, {100, 2160}, {101, 4096}, {104, 2650},
    {106, 2880}, {107, 3112}, {120, 3840}, {128, 4096},
};

constexpr uint32_t kTokenLimit = 129;

// The sizes by token; 0 stands for a token that has none.
constexpr auto kSizeByToken = [] {
  std::array<uint16_t, kTokenLimit> sizes{};
  for (const TokenSize& row : kTokenSizes) sizes[row.token] = row.size;
  return sizes;
}();

struct Threshold {
  uint16_t size;
  uint8_t token;
};

// A size has the token of the last threshold that it reaches. The tokens do not rise with the sizes: the late
// additions took what numbers were free.
constexpr Threshold kThresholds[] = {
    {240, 1},   {241, 2},   {288, 3},    {320, 8},    {352, 9},    {360, 10},  {480, 16},  {483, 17},
    {486, 18},  {496, 20},  {504, 22},   {512, 23},   {576, 26},   {600, 27},  {608, 28},  {640, 32},
    {720, 33},  {768, 34},  {778, 42},   {800, 35},   {857, 38},   {864, 36},  {872, 43},  {960, 40},
    {968, 41},  {988, 37},  {1024, 48},  {1036, 49},  {1044, 50},  {1050, 52}, {1052, 51}, {1080, 56},
    {1088, 57}, {1096, 58}, {1102, 62},  {1152, 64},  {1200, 65},  {1234, 67}, {1280, 72}, {1332, 73},
    {1400, 75}, {1440, 76}, {1536, 80},  {1556, 81},  {1588, 82},  {1600, 88}, {1714, 87}, {1828, 86},
    {1920, 89}, {2048, 96}, {2650, 104}, {3112, 107}, {4096, 128},
};
static_assert(std::is_sorted(std::begin(kThresholds), std::end(kThresholds),
                             [](const Threshold& a, const Threshold& b) { return a.size < b.size; }));

constexpr uint32_t kSmallestSize = 240;
constexpr uint32_t kLargestSize = 8192;

}  // namespace

uint32_t vidGetSizeFromToken(uint32_t token) {
  const uint32_t size = token < kTokenLimit ? kSizeByToken[token] : 0;
  return size != 0 ? size : QLN_SIZE_UNKNOWN;
}

uint32_t vidGetTokenFromSize(uint32_t size) {
  if (size < kSmallestSize || size > kLargestSize) return QLN_SIZE_UNKNOWN;
  const size_t reached =
      qln::CountBefore(std::span(kThresholds), [size](const Threshold& row) { return row.size <= size; });
  return kThresholds[reached - 1].token;
}
