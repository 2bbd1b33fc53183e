// What a signal format says of a picture: its size, its shape, and a host's video description.

#include "qlnutil/format/signal_format.h"
#include "qlnutil/qlnformat.h"

namespace {

struct Size {
  uint32_t width;
  uint32_t height;
};

// The size of a word by its tokens, but for the words that those would tell wrongly.
Size SizeOf(QLNSignalFormat format) {
  switch (format) {
    case 0x11A04019:  // its width token says 640
      return {720, 576};
    case 0x2380D03C:  // its width token says 2650
    case 0x2380D0C8:
      return {2560, 1080};
    case 0x2650B617:  // from here on the height token says 4096
    case 0x2650B618:
    case 0x2650B619:
    case 0x2650B61D:
    case 0x2650B61E:
    case 0x2650B632:
    case 0x2650B63B:
    case 0x2650B63C:
      return {7680, 4320};
    case 0x2650B817:
    case 0x2650B818:
    case 0x2650B819:
    case 0x2650B81D:
    case 0x2650B81E:
    case 0x2650B832:
    case 0x2650B83B:
    case 0x2650B83C:
      return {8192, 4320};
    default:
      return {vidGetSizeFromToken(qln::WidthToken(format)), vidGetSizeFromToken(qln::HeightToken(format))};
  }
}

// First active line of the common formats.
struct ActiveTop {
  int32_t top;  // -1 for a format that is none of them
  bool interlaced;
};

ActiveTop ActiveTopOf(QLNSignalFormat format) {
  switch (format) {
    case 0x1100401D:
    case 0x1120421D:
      return {34, true};
    case 0x11A04019:
    case 0x11A04219:
      return {45, true};
    case 0x1310B21D:
    case 0x1310B21E:
      return {78, true};
    case 0x1380B217:
    case 0x1380B218:
    case 0x1380B219:
    case 0x1380B21D:
    case 0x1380B21E:
      return {40, true};
    case 0x22109017:
    case 0x22109018:
    case 0x22109019:
    case 0x2210901D:
    case 0x2210901E:
    case 0x22109032:
    case 0x2210903B:
    case 0x2210903C:
    case 0x2380B217:
    case 0x2380B218:
    case 0x2380B219:
    case 0x2380B21D:
    case 0x2380B21E:
      return {41, false};
    default:
      return {-1, false};
  }
}

// Scan flags of a word's class: the other class's flag is kept as it was, and no bit that has no meaning.
uint32_t FinishedScanFlags(QLNSignalFormat format, uint32_t flags) {
  switch (qln::ScanClass(format)) {
    case QLN_SCAN_CLASS_INTERLACED:
      return (flags & QLN_SCAN_SEGMENTED) | QLN_SCAN_INTERLACED;
    case QLN_SCAN_CLASS_SEGMENTED:
      return (flags & QLN_SCAN_INTERLACED) | QLN_SCAN_SEGMENTED;
    default:
      return flags & (QLN_SCAN_INTERLACED | QLN_SCAN_SEGMENTED);
  }
}

// left + width and top + height wrap at 32 bits.
int32_t AddWrapping(int32_t edge, uint32_t extent) {
  return static_cast<int32_t>(static_cast<uint32_t>(edge) + extent);
}

constexpr uint32_t kAspect4To3 = 0x40003;
constexpr uint32_t kAspect16To9 = 0x100009;
constexpr uint32_t kAspect239To100 = 0xEF0064;
constexpr uint32_t kAspect185To100 = 0xB90064;
constexpr uint32_t kAspect256To135 = 0x1000087;

}  // namespace

int32_t vidImageSize(QLNSignalFormat format, uint32_t* width, uint32_t* height, uint32_t field) {
  if (width == nullptr || height == nullptr) return -1;
  const Size size = SizeOf(format);
  *width = size.width;
  *height = size.height;
  if (size.width == QLN_SIZE_UNKNOWN || size.height == QLN_SIZE_UNKNOWN) return -1;
  if (field != 0 && (qln::ScanClass(format) & QLN_SCAN_CLASS_INTERLACED) != 0) *height >>= 1;
  return 0;
}

int32_t vidSignalFormatToQLNVid(QLNSignalFormat format, QLNVid* video) {
  if (video == nullptr) return -1;
  if (vidRateScale(format, &video->rate, &video->scale) != 0) return -1;
  if (vidImageSize(format, &video->width, &video->height, 0) != 0) return -1;

  uint32_t flags = video->scanFlags;
  const ActiveTop active = ActiveTopOf(format);
  if (active.top >= 0) {
    video->activeLeft = 0;
    video->activeTop = active.top;
    flags &= ~(QLN_SCAN_INTERLACED | QLN_SCAN_SEGMENTED);
    if (active.interlaced) flags |= QLN_SCAN_INTERLACED;
  } else {
    // The tokens' own sizes, also for the words that vidImageSize knows better: hosts lay out their buffers
    // by them. A word whose size is known has two known tokens.
    video->width = vidGetSizeFromToken(qln::WidthToken(format));
    video->height = vidGetSizeFromToken(qln::HeightToken(format));
  }
  video->activeRight = AddWrapping(video->activeLeft, video->width);
  video->activeBottom = AddWrapping(video->activeTop, video->height);
  video->scanFlags = FinishedScanFlags(format, flags);
  return 0;
}

uint32_t vidGetAspectRatio(const QLNVid* video) {
  if (video == nullptr) return 0;
  const uint32_t w = video->width;
  const uint32_t h = qln::AbsoluteHeight(static_cast<int32_t>(video->height));
  if (h >= 480 && h <= 525) return kAspect4To3;
  if (h >= 526 && h <= 625) return w >= 640 && w <= 800 ? kAspect4To3 : 0;
  switch (h) {
    case 720:
      return w == 960 || w == 1280 ? kAspect16To9 : 0;
    case 858:
      return w == 2048 ? kAspect239To100 : 0;
    case 1080:
      if (w == 1280 || w == 1440 || w == 1920) return kAspect16To9;
      if (w == 1998) return kAspect185To100;
      return w == 2048 ? kAspect256To135 : 0;
    case 2160:
      if (w == 3840) return kAspect16To9;
      return w == 4096 ? kAspect256To135 : 0;
    default:
      return 0;
  }
}
