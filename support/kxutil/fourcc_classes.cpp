// The fourcc classes: which codec codes of the public registries belong together.
//
// Sources: the registered sample entries of the MP4 family (mp4ra.org) and ISO/IEC 14496-15, the video sample
// descriptions of the QuickTime file format, and the compressor codes of AVI files.

#include <algorithm>
#include <array>
#include <string_view>

#include "kxutil/kxutil.h"

namespace {

enum class FourccClass : uint32_t {
  kNone,
  kDv25,
  kDv50,
  kDv100,
  kJpeg,
  kAvidJpeg,
  kAvidJfif,
  kXavc,
  kAvci,
  kDolbyVision,
  kHevc,
  kH264,
  kHdcamSr,
  kBayer,
  kDpx,
  kRawRgb,
  kYCbCr10,
  kYCbCr8,
  k8BitD1Yuv,
};

// The codes of a class as their bytes lie in a file: four characters a code, one blank between two (so a code
// that itself ends in a blank is followed by two).
struct ClassCodes {
  FourccClass fourccClass;
  std::string_view codes;
};

constexpr ClassCodes kClasses[] = {
    {FourccClass::kDv25,
     "dvc  dvcp dvcs DVCS dvpn dvpp dvsd DVSD dvis dv25 DV25 cdvc CDVC pdvc PDVC IPDV SLDV AVdv"},
    {FourccClass::kDv50, "dv5n dv5p dv50 DV50 CDV5"},
    // dvh1 is not among them: it is the sample entry of a Dolby Vision stream.
    {FourccClass::kDv100, "dv1n dv1p dvhp dvhq dvh2 dvh3 dvh4 dvh5 dvh6 dvhd DVHD dv10 DV10 CDVH AVd1"},
    {FourccClass::kJpeg,
     "jpeg JPEG jpg  JPG  mjpg MJPG mJPG mjpa mjpb ljpg LJPG JPGL dmb1 DMB1 dmb2 dvr1 tvmj TVMJ CJPG IJPG "
     "AVI1 AVI2 QIVG SLMJ VIXL m\xEApg \xED\xEApg"},
    {FourccClass::kAvidJpeg, "AVDJ ADJV AVRn AVRN avrn AJAv AJYU avr "},
    {FourccClass::kAvidJfif, "AJJf"},
    {FourccClass::kXavc, "xavc xav4 aivx AVxa"},
    // Intra-only recording formats of H.264; avc4 has its camera meaning here.
    {FourccClass::kAvci,
     "ai12 ai13 ai15 ai16 ai1p ai1q ai22 ai23 ai25 ai26 ai2p ai2q ai52 ai53 ai55 ai56 ai5p ai5q AVin AVx5 "
     "avc4 avcU avcV avLT"},
    // The HEVC-based kind; dva1 and dvav are H.264.
    {FourccClass::kDolbyVision, "dvh1 dvhe"},
    {FourccClass::kHevc, "hvc1 hev1 hvc2 hev2 hvt1 HEVC hevc H265 h265 X265 x265 HM10 hvcr"},
    {FourccClass::kH264,
     "avc1 AVC1 avc2 avc3 dva1 dvav H264 h264 X264 x264 a264 i264 I264 avca wrtc DAVC davc VSSH vssh Q264 "
     "V264 GAVC UMSV tshd INMC SMV2"},
    {FourccClass::kHdcamSr, "HDSR HDS4 hdsr hds4"},
    {FourccClass::kBayer,
     "BYR1 BYR2 BYR3 BYR4 BA81 BGGR GBRG GRBG RGGB BG10 GB10 BA10 RG10 BG12 GB12 BA12 RG12"},
    {FourccClass::kDpx, "dpx  DPX  r210 R210 r10k R10k R10g AVrp"},
    {FourccClass::kRawRgb,
     "raw  RAW  rgb  RGB  RGBA ABGR BGRA ARGB DIB  RGB2 RGB4 RGB8 RGBO RGBP RGBQ RGBR RGBT BGR  24BG b48r "
     "b64a 24RG AR24 XR24 BA24 XB24"},
    {FourccClass::kYCbCr10, "v210 V210 v410 V410 Y10g P010 P210 Y210 Y410 AVup"},
    {FourccClass::kYCbCr8,
     "yuvs yuvu UYVY uyvy YUY2 yuy2 YUYV YVYU VYUY UYNV YUNV V422 HDYC Y422 v308 v408 AYUV VUYA vuyc cyuv "
     "I420 IYUV YV12 yv12 YV16 YV24 YVU9 YUV9 NV12 NV21 NV16 NV24 I422 I444 Y41P Y41T Y42T Y42B Y41B IYU1 "
     "IYU2 Y800"},
    {FourccClass::k8BitD1Yuv, "2vuy 2Vuy AVUI AV1x d1u8 DVOO"},
};

constexpr size_t kStride = 5;
constexpr size_t kCodeLength = 4;

consteval bool WellFormed() {
  for (const ClassCodes& row : kClasses) {
    if (row.codes.size() % kStride != kCodeLength) return false;
    for (size_t i = kCodeLength; i < row.codes.size(); i += kStride) {
      if (row.codes[i] != ' ' || row.codes[i + 1] == ' ') return false;
    }
  }
  return true;
}
static_assert(WellFormed(), "every code has four characters");

constexpr uint32_t Swapped(uint32_t code) {
  return code << 24 | (code & 0xFF00u) << 8 | (code >> 8 & 0xFF00u) | code >> 24;
}

// One key for both byte orders of a code, and none for two codes. The product spreads codes, which are alike
// in most of their bits, over the whole range.
constexpr uint32_t KeyOf(uint32_t fourcc) {
  const uint32_t swapped = Swapped(fourcc);
  return (fourcc < swapped ? fourcc : swapped) * 0x9E3779B1u;
}

struct ClassRow {
  uint32_t key;
  FourccClass fourccClass;
};

consteval size_t CountCodes() {
  size_t count = 0;
  for (const ClassCodes& row : kClasses) count += (row.codes.size() + 1) / kStride;
  return count;
}
constexpr size_t kCodeCount = CountCodes();

// All codes with their classes, sorted by key, and behind them one that no key is above.
consteval std::array<ClassRow, kCodeCount + 1> SortedRows() {
  std::array<ClassRow, kCodeCount + 1> rows{};
  size_t count = 0;
  for (const ClassCodes& row : kClasses) {
    for (size_t i = 0; i < row.codes.size(); i += kStride) {
      uint32_t code = 0;
      for (const char c : row.codes.substr(i, kCodeLength)) code = code << 8 | static_cast<uint8_t>(c);
      rows[count++] = {KeyOf(code), row.fourccClass};
    }
  }
  rows[count] = {0xFFFFFFFFu, FourccClass::kNone};
  std::sort(rows.begin(), rows.end(), [](const ClassRow& a, const ClassRow& b) { return a.key < b.key; });
  return rows;
}
constexpr std::array<ClassRow, kCodeCount + 1> kRows = SortedRows();
static_assert(std::adjacent_find(kRows.begin(), kRows.end(),
                                 [](const ClassRow& a, const ClassRow& b) {
                                   return a.key == b.key && a.fourccClass != b.fourccClass;
                                 }) == kRows.end(),
              "every code is in one class, in either byte order");

// Where the keys with the same leading bits begin: few have them in common, so that a search is over at once.
constexpr uint32_t kLeadingBits = 11;
constexpr uint32_t kLeadShift = 32 - kLeadingBits;
consteval std::array<uint16_t, size_t{1} << kLeadingBits> FirstRows() {
  std::array<uint16_t, size_t{1} << kLeadingBits> first{};
  size_t row = 0;
  for (size_t lead = 0; lead < first.size(); ++lead) {
    while (kRows[row].key >> kLeadShift < lead) ++row;
    first[lead] = static_cast<uint16_t>(row);
  }
  return first;
}
constexpr std::array<uint16_t, size_t{1} << kLeadingBits> kFirstRows = FirstRows();

int32_t IsIn(FourccClass fourccClass, uint32_t fourcc) {
  const uint32_t key = KeyOf(fourcc);
  size_t row = kFirstRows[key >> kLeadShift];
  while (kRows[row].key < key) ++row;
  return kRows[row].key == key && kRows[row].fourccClass == fourccClass ? 1 : 0;
}

}  // namespace

int32_t fccIsDv25(uint32_t fourcc) { return IsIn(FourccClass::kDv25, fourcc); }
int32_t fccIsDv50(uint32_t fourcc) { return IsIn(FourccClass::kDv50, fourcc); }
int32_t fccIsDv100(uint32_t fourcc) { return IsIn(FourccClass::kDv100, fourcc); }
int32_t fccIsJpeg(uint32_t fourcc) { return IsIn(FourccClass::kJpeg, fourcc); }
int32_t fccIsAvidJpeg(uint32_t fourcc) { return IsIn(FourccClass::kAvidJpeg, fourcc); }
int32_t fccIsAvidJfif(uint32_t fourcc) { return IsIn(FourccClass::kAvidJfif, fourcc); }
int32_t fccIsXAVC(uint32_t fourcc) { return IsIn(FourccClass::kXavc, fourcc); }
int32_t fccIsAVCi(uint32_t fourcc) { return IsIn(FourccClass::kAvci, fourcc); }
int32_t fccIsDolbyVision(uint32_t fourcc) { return IsIn(FourccClass::kDolbyVision, fourcc); }
int32_t fccIsHEVC(uint32_t fourcc) { return IsIn(FourccClass::kHevc, fourcc); }
int32_t fccIsh264(uint32_t fourcc) { return IsIn(FourccClass::kH264, fourcc); }
int32_t fccIsHDCamSR(uint32_t fourcc) { return IsIn(FourccClass::kHdcamSr, fourcc); }
int32_t fccIsBayer(uint32_t fourcc) { return IsIn(FourccClass::kBayer, fourcc); }
int32_t fccIsDPX(uint32_t fourcc) { return IsIn(FourccClass::kDpx, fourcc); }
int32_t fccIsRawRGB(uint32_t fourcc) { return IsIn(FourccClass::kRawRgb, fourcc); }
int32_t fccIsYCbCr10(uint32_t fourcc) { return IsIn(FourccClass::kYCbCr10, fourcc); }
int32_t fccIsYCbCr8(uint32_t fourcc) { return IsIn(FourccClass::kYCbCr8, fourcc); }
int32_t fccIs8BitD1YUV(uint32_t fourcc) { return IsIn(FourccClass::k8BitD1Yuv, fourcc); }
