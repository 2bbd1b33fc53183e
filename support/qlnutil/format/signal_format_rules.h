// The rules from a raster to a signal format word, for each block of rates, and the classes of sizes that
// they name.
#ifndef QLNUTIL_FORMAT_SIGNAL_FORMAT_RULES_H
#define QLNUTIL_FORMAT_SIGNAL_FORMAT_RULES_H

#include <cstddef>
#include <cstdint>

#include "qlnutil/qlnformat.h"

namespace qln {

// ---- Classes of width and height: a rule names a union of each, and a raster belongs to several. ----

enum Widths : uint32_t {
  kW320 = 1u << 0,
  kW352 = 1u << 1,
  kW360 = 1u << 2,
  kW640 = 1u << 3,
  kW704 = 1u << 4,
  kW720 = 1u << 5,
  kW768 = 1u << 6,
  kW960 = 1u << 7,
  kW1024 = 1u << 8,
  kW1048 = 1u << 9,
  kW1280 = 1u << 10,
  kW1440 = 1u << 11,
  kW1920 = 1u << 12,
  kW2048 = 1u << 13,
  kW3840 = 1u << 14,
  kW7680 = 1u << 15,
  kWUpTo720 = 1u << 16,
  kAnyWidth = 1u << 17,
};
inline constexpr uint32_t kWHd = kW1920 | kW1440 | kW1280;

enum Heights : uint32_t {
  kHUpTo625 = 1u << 0,
  kH480To512 = 1u << 1,
  kH540 = 1u << 2,
  kH576 = 1u << 3,
  kH720To740 = 1u << 4,
  kH1034To1125 = 1u << 5,
  kH1035Or1036 = 1u << 6,
  kH1037To1124 = 1u << 7,
  kH1080 = 1u << 8,
  kH1080To1125 = 1u << 9,
  kHHd = 1u << 10,  // the line counts that coded 1080-line pictures come with
  kHBelow1126 = 1u << 11,
  kH1536 = 1u << 12,
  kHFrom1556 = 1u << 13,
  kH1556Or1588 = 1u << 14,
  kHFrom2160 = 1u << 15,
  kHFrom4320 = 1u << 16,
  kAnyHeight = 1u << 17,
};

struct SizeRange {
  uint32_t classes;
  uint32_t first;
  uint32_t last;
};

inline constexpr uint32_t kNoEnd = 0xFFFFFFFF;

inline constexpr SizeRange kWidthRanges[] = {
    {kW320, 320, 320},    {kW352, 352, 352},      {kW360, 360, 360},    {kW640, 640, 640},
    {kW704, 704, 704},    {kW720, 720, 720},      {kW768, 768, 768},    {kW960, 960, 960},
    {kW1024, 1024, 1024}, {kW1048, 1048, 1048},   {kW1280, 1280, 1280}, {kW1440, 1440, 1440},
    {kW1920, 1920, 1920}, {kW2048, 2048, 2048},   {kW3840, 3840, 3840}, {kW7680, 7680, 7680},
    {kWUpTo720, 0, 720},  {kAnyWidth, 0, kNoEnd},
};

inline constexpr SizeRange kHeightRanges[] = {
    {kHUpTo625, 0, 625},         {kH480To512, 480, 512},     {kH540, 540, 540},
    {kH576, 576, 576},           {kH720To740, 720, 740},     {kH1034To1125, 1034, 1125},
    {kH1035Or1036, 1035, 1036},  {kH1037To1124, 1037, 1124}, {kH1080To1125, 1080, 1125},
    {kH1080 | kHHd, 1080, 1080}, {kHHd, 1088, 1088},         {kHHd, 1092, 1092},
    {kHHd, 1112, 1112},          {kHHd, 1114, 1114},         {kHBelow1126, 0, 1125},
    {kH1536, 1536, 1536},        {kHFrom1556, 1556, kNoEnd}, {kH1556Or1588, 1556, 1556},
    {kH1556Or1588, 1588, 1588},  {kHFrom2160, 2160, kNoEnd}, {kHFrom4320, 4320, kNoEnd},
    {kAnyHeight, 0, kNoEnd},
};

// ---- The rules: within a block of rates they run from the top; the first that matches gives the word. ----

struct Rule {
  consteval Rule(uint32_t h, uint32_t w, QLNSignalFormat always)
      : heights(h), widths(w), progressive(always), otherwise(always) {}
  consteval Rule(uint32_t h, uint32_t w, QLNSignalFormat ifProgressive, QLNSignalFormat ifNot)
      : heights(h), widths(w), progressive(ifProgressive), otherwise(ifNot) {}

  uint32_t heights;
  uint32_t widths;
  QLNSignalFormat progressive;
  QLNSignalFormat otherwise;
};

inline constexpr Rule kRules14[] = {
    {kH1536, kW2048, 0x2500C00E},
    {kHFrom1556, kW2048, 0x2510C00E},
};

inline constexpr Rule kRules15[] = {
    {kH1536, kW2048, 0x2500C00F},
    {kHFrom1556, kW2048, 0x2510C00F},
};

inline constexpr Rule kRules25[] = {
    {kHUpTo625, kW720 | kW360, 0x11A04219}, {kH720To740, kAnyWidth, 0x22109019},
    {kAnyHeight, kW640, 0x11A04019},        {kH1035Or1036, kWHd, 0x1380B219},
    {kHHd, kWHd, 0x2380B219, 0x1380B219},   {kHHd, kW2048, 0x2380C019},
    {kHFrom4320, kW7680, 0x2650B619},       {kHFrom4320, kAnyWidth, 0x2650B819},
    {kHFrom2160, kW3840, 0x2640F019},       {kHFrom2160, kAnyWidth, 0x26410019},
};

inline constexpr Rule kRules24[] = {
    {kH720To740, kAnyWidth, 0x22109018},
    {kHHd, kWHd, 0x2380B218, 0x1380B218},
    {kHHd, kW2048, 0x2380C018, 0x4380C018},
    {kH1536, kW2048, 0x2500C018, 0x4500C018},
    {kH1556Or1588, kW2048, 0x2510C018, 0x4510C018},
    {kHFrom4320, kW7680, 0x2650B618},
    {kHFrom4320, kAnyWidth, 0x2650B818},
    {kHFrom2160, kW3840, 0x2640F018},
    {kHFrom2160, kAnyWidth, 0x26410018},
    {kHBelow1126, kAnyWidth, 0x2380B218, 0x1380B218},
};

inline constexpr Rule kRules23[] = {
    {kH720To740, kAnyWidth, 0x22109017},  {kHHd, kW2048, 0x2380C017, 0x4380C017},
    {kHHd, kWHd, 0x2380B217, 0x4380B217}, {kHFrom4320, kW7680, 0x2650B617},
    {kHFrom4320, kAnyWidth, 0x2650B817},  {kHFrom2160, kW3840, 0x2640F017},
    {kHFrom2160, kAnyWidth, 0x26410017},  {kH1536, kW2048, 0x2500C017},
    {kH1556Or1588, kW2048, 0x2510C017},
};

// The 2560x1080 words have no rule: their 1080 lines belong to the second one here.
inline constexpr Rule kRules60[] = {
    {kH720To740, kAnyWidth, 0x2210903C}, {kH1034To1125, kAnyWidth, 0x2380B23C, 0x1380B23C},
    {kHFrom4320, kW7680, 0x2650B63C},    {kHFrom4320, kAnyWidth, 0x2650B83C},
    {kHFrom2160, kW3840, 0x2640F03C},    {kHFrom2160, kAnyWidth, 0x2641003C},
};

inline constexpr Rule kRules59[] = {
    {kH1080, kW2048, 0x2380C03B},
    {kH720To740, kAnyWidth, 0x2210903B},
    {kH1034To1125, kAnyWidth, 0x2380B23B, 0x1380B23B},
    {kHFrom4320, kW7680, 0x2650B63B},
    {kHFrom4320, kAnyWidth, 0x2650B83B},
    {kHFrom2160, kW3840, 0x2640F03B},
    {kHFrom2160, kAnyWidth, 0x2641003B},
};

inline constexpr Rule kRules50[] = {
    {kH720To740, kAnyWidth, 0x22109032}, {kH1034To1125, kAnyWidth, 0x2380B232, 0x1380B232},
    {kHFrom4320, kW7680, 0x2650B632},    {kHFrom4320, kAnyWidth, 0x2650B832},
    {kHFrom2160, kW3840, 0x2640F032},    {kHFrom2160, kAnyWidth, 0x26410032},
};

inline constexpr Rule kRules48[] = {
    {kH1034To1125, kAnyWidth, 0x2380B230},
};

inline constexpr Rule kRules47[] = {
    {kH1034To1125, kAnyWidth, 0x2380B22F},
};

inline constexpr Rule kRules29[] = {
    {kH1035Or1036, kW1920, 0x1310B21D},
    {kH1037To1124, kWHd, 0x2380B21D, 0x1380B21D},
    {kH1037To1124, kW2048, 0x2380C01D},
    {kH1080To1125, kW1920 | kW960, 0x2380B21D, 0x1380B21D},
    {kH720To740, kW1280 | kW960, 0x2210901D},
    {kAnyHeight, kW640 | kW320, 0x1100401D},
    {kH480To512, kWUpTo720, 0x1120421D},
    {kHFrom4320, kW7680, 0x2650B61D},
    {kHFrom4320, kAnyWidth, 0x2650B81D},
    {kHFrom2160, kW3840, 0x2640F01D},
    {kHFrom2160, kAnyWidth, 0x2641001D},
    {kH540, kW960, 0x2380B21D, 0x1380B21D},
    {kH540, kW1024, 0x2380C01D},
    {kH576, kW768 | kW1024 | kW1048, 0x2380B21D, 0x1380B21D},
};

// The SD rasters have no word for 30 and take those for 29.97.
inline constexpr Rule kRules30[] = {
    {kH1035Or1036, kWHd, 0x1310B21E},        {kH1037To1124, kWHd, 0x2380B21E, 0x1380B21E},
    {kH1037To1124, kW2048, 0x2380C01E},      {kH720To740, kW1280 | kW960, 0x2210901E},
    {kAnyHeight, kW640 | kW320, 0x1100401D}, {kAnyHeight, kW704 | kW720 | kW352 | kW360, 0x1120421D},
    {kHFrom4320, kW7680, 0x2650B61E},        {kHFrom4320, kAnyWidth, 0x2650B81E},
    {kHFrom2160, kW3840, 0x2640F01E},        {kHFrom2160, kAnyWidth, 0x2641001E},
};

}  // namespace qln

#endif
