// The display names of signal formats: 102 fixed ones, and those built from the parts of the word.

#include <algorithm>
#include <array>
#include <charconv>
#include <cstring>
#include <span>
#include <string_view>

#include "qlnutil/format/rates.h"
#include "qlnutil/format/signal_format.h"
#include "qlnutil/format/sorted_search.h"
#include "qlnutil/qlnformat.h"

namespace {

constexpr size_t kNameSize = 21;

// A text as callers get it: blanks, the text with its terminator over them, a terminator at the end.
using NameBuffer = std::array<char, kNameSize>;

constexpr NameBuffer PaddedName(std::string_view text) {
  NameBuffer buffer;
  buffer.fill(' ');
  buffer.back() = '\0';
  std::copy(text.begin(), text.end(), buffer.begin());
  buffer[text.size()] = '\0';
  return buffer;
}

struct FixedName {
  consteval FixedName(QLNSignalFormat formatWord, std::string_view text)
      : word(formatWord), name(PaddedName(text)) {}
  QLNSignalFormat word;
  NameBuffer name;
};

// Sorted by word. Some names do not follow their word (0x26410017 is 4096 wide), and three have "sf" where
// their neighbours have "psf", which would not fit 20 characters; hosts compare these texts.
constexpr FixedName kFixedNames[] = {
    {0x1100401D, "NTSC"},
    {0x11204217, "NTSC-23.98"},
    {0x1120421D, "NTSC-CCIR601"},
    {0x11A04019, "PAL"},
    {0x11A04219, "PAL-CCIR601"},
    {0x1310B21D, "1920x1035i@29.97"},
    {0x1310B21E, "1920x1035i@30"},
    {0x1380B217, "1920x1080i@23.98"},
    {0x1380B218, "1920x1080i@24"},
    {0x1380B219, "1920x1080i@25"},
    {0x1380B21D, "1920x1080i@29.97"},
    {0x1380B21E, "1920x1080i@30"},
    {0x1380B232, "1920x1080p@50B"},
    {0x1380B23B, "1920x1080p@59.94B"},
    {0x1380B23C, "1920x1080p@60B"},
    {0x2110421D, "NTSC-P483"},
    {0x2120421E, "NTSC-P30"},
    {0x21A04219, "PAL-P25"},
    {0x22109019, "1280x720P@25"},
    {0x2210901D, "1280x720P@29.97"},
    {0x2210901E, "1280x720P@30"},
    {0x22109032, "1280x720P@50"},
    {0x2210903B, "1280x720P@59.94"},
    {0x2210903C, "1280x720P@60"},
    {0x2380B217, "1920x1080P@23.98"},
    {0x2380B218, "1920x1080P@24"},
    {0x2380B219, "1920x1080P@25"},
    {0x2380B21D, "1920x1080P@29.97"},
    {0x2380B21E, "1920x1080P@30"},
    {0x2380B22F, "1920x1080p@47.95"},
    {0x2380B230, "1920x1080p@48"},
    {0x2380B232, "1920x1080p@50"},
    {0x2380B23B, "1920x1080p@59.94"},
    {0x2380B23C, "1920x1080p@60"},
    {0x2380C017, "2048x1080@23.98"},
    {0x2380C018, "2048x1080@24"},
    {0x2380C019, "2048x1080@25"},
    {0x2380D03C, "2560x1080P 60fps"},
    {0x2380D0C8, "2560x1080P 200fps"},
    {0x2500C00E, "2048x1536@14.98"},
    {0x2500C00F, "2048x1536@15"},
    {0x2500C017, "2048x1536@23.98"},
    {0x2500C018, "2048x1536@24"},
    {0x2510C00E, "2048x1556@14.98"},
    {0x2510C00F, "2048x1556@15"},
    {0x2510C017, "2048x1556@23.98"},
    {0x2510C018, "2048x1556@24"},
    {0x25710017, "4096x1714@23.98"},
    {0x25710018, "4096x1714@24"},
    {0x2640F017, "3840x2160P 23.98fps"},
    {0x2640F018, "3840x2160P 24fps"},
    {0x2640F019, "3840x2160P 25fps"},
    {0x2640F01D, "3840x2160P 29.97fps"},
    {0x2640F01E, "3840x2160P 30fps"},
    {0x2640F03B, "3840x2160P 59.94fps"},
    {0x2640F03C, "3840x2160P 60fps"},
    {0x26410017, "3840x2160P 23.98fps"},
    {0x26410018, "4096x2160P 24fps"},
    {0x26410019, "4096x2160P 25fps"},
    {0x2641001D, "4096x2160P 29.97fps"},
    {0x2641001E, "4096x2160P 30fps"},
    {0x26410030, "4096x2160P 48fps"},
    {0x26410032, "4096x2160P 50fps"},
    {0x2641003B, "4096x2160P 59.94fps"},
    {0x2641003C, "4096x2160P 60fps"},
    {0x2650B617, "7680x4320 23.98fps"},
    {0x2650B618, "7680x4320 24fps"},
    {0x2650B619, "7680x4320 25fps"},
    {0x2650B61D, "7680x4320 29.97fps"},
    {0x2650B61E, "7680x4320 30fps"},
    {0x2650B632, "7680x4320 50fps"},
    {0x2650B63B, "7680x4320 59.94fps"},
    {0x2650B63C, "7680x4320 60fps"},
    {0x2650B817, "8192x4320 23.98fps"},
    {0x2650B818, "8192x4320 24fps"},
    {0x2650B819, "8192x4320 25fps"},
    {0x2650B81D, "8192x4320 29.97fps"},
    {0x2650B81E, "8192x4320 30fps"},
    {0x2650B832, "8192x4320 50fps"},
    {0x2650B83B, "8192x4320 59.94fps"},
    {0x2650B83C, "8192x4320 60fps"},
    {0x26B10017, "4096x3112@23.98"},
    {0x26B10018, "4096x3112@24"},
    {0x4380B217, "1920x1080psf@23.98"},
    {0x4380B218, "1920x1080psf@24"},
    {0x4380B219, "1920x1080psf@25"},
    {0x4380B21D, "1920x1080psf@29.97"},
    {0x4380B21E, "1920x1080psf@30"},
    {0x4380C017, "2048x1080psf@23.98"},
    {0x4380C018, "2048x1080psf@24"},
    {0x4380C019, "2048x1080psf@25"},
    {0x4500C018, "2048x1536psf@24"},
    {0x4510C018, "2048x1556psf@24"},
    {0x4640F017, "3840x2160sf 23.98fps"},
    {0x4640F018, "3840x2160psf 24fps"},
    {0x4640F019, "3840x2160psf 25fps"},
    {0x46410017, "4096x2160sf 23.98fps"},
    {0x46410018, "4096x2160psf 24fps"},
    {0x46410019, "4096x2160psf 25fps"},
    {0x4641001D, "4096x2160sf 29.97fps"},
    {0x4641001E, "4096x2160psf 30fps"},
    {0x46B10005, "4096x3112@5"},
};
static_assert(std::size(kFixedNames) == 102);
static_assert(std::is_sorted(std::begin(kFixedNames), std::end(kFixedNames),
                             [](const FixedName& a, const FixedName& b) { return a.word < b.word; }));

const FixedName* FindFixedName(QLNSignalFormat format) {
  const size_t index =
      qln::CountBefore(std::span(kFixedNames), [format](const FixedName& row) { return row.word < format; });
  return index < std::size(kFixedNames) && kFixedNames[index].word == format ? &kFixedNames[index] : nullptr;
}

std::string_view RateText(uint32_t rateField) {
  switch (rateField) {
    case 14:
      return "14.98";
    case 15:
      return "15";
    case 23:
      return "23.98";
    case 24:
      return "24";
    case 25:
      return "25";
    case 29:
      return "29.97";
    case 30:
      return "30";
    case 47:
      return "47.95";
    case 48:
      return "48";
    case 50:
      return "50";
    case 59:
      return "59.94";
    case 60:
      return "60";
    case 71:
      return "71.93";
    case 72:
      return "72";
    case 100:
      return "100";
    case 119:
      return "119.88";
    default:
      return "Custom";
  }
}

// By the top 4 bits of the word, so that a word with bit 31 set has no letter.
char ScanLetter(QLNSignalFormat format) {
  switch (format >> 28) {
    case QLN_SCAN_CLASS_INTERLACED:
      return 'i';
    case QLN_SCAN_CLASS_PROGRESSIVE:
      return 'P';
    case QLN_SCAN_CLASS_SEGMENTED:
      return 's';
    default:
      return ' ';
  }
}

// At most 17 characters: two sizes of four digits, 'x', the letter, '@' and "119.88".
NameBuffer BuiltName(QLNSignalFormat format) {
  NameBuffer buffer = PaddedName({});
  char* at = buffer.data();
  char* const end = at + buffer.size() - 1;
  const auto number = [&](uint32_t size) {
    at = std::to_chars(at, end, static_cast<int32_t>(size)).ptr;  // the unknown size shows as -1
  };
  number(vidGetSizeFromToken(qln::WidthToken(format)));
  *at++ = 'x';
  number(vidGetSizeFromToken(qln::HeightToken(format)));
  *at++ = ScanLetter(format);
  *at++ = '@';
  const std::string_view rate = RateText(format & qln::kRateFieldMask);
  at = std::copy(rate.begin(), rate.end(), at);
  *at = '\0';
  return buffer;
}

}  // namespace

int32_t vidSignalFormatToStr20(QLNSignalFormat format, char* text) {
  if (text == nullptr) return 0;
  const FixedName* fixed = FindFixedName(format);
  const NameBuffer name = fixed != nullptr ? fixed->name : BuiltName(format);
  std::memcpy(text, name.data(), name.size());
  return 0;
}
