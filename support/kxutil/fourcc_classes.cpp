// The fourcc classes: which codec codes of the public registries belong together.
//
// Sources: the registered sample entries of the MP4 family (mp4ra.org) and ISO/IEC 14496-15, the video sample
// descriptions of the QuickTime file format, and the compressor codes of AVI files.

#include <string_view>

#include "kxutil/kxutil.h"

namespace {

// Each class is a text of codes as their bytes lie in a file: four characters a code, one blank between two
// (so a code that itself ends in a blank is followed by two).
constexpr std::string_view kDv25 =
    "dvc  dvcp dvcs DVCS dvpn dvpp dvsd DVSD dvis dv25 DV25 cdvc CDVC pdvc PDVC IPDV SLDV AVdv";
constexpr std::string_view kDv50 = "dv5n dv5p dv50 DV50 CDV5";
// dvh1 is not among them: it is the sample entry of a Dolby Vision stream.
constexpr std::string_view kDv100 =
    "dv1n dv1p dvhp dvhq dvh2 dvh3 dvh4 dvh5 dvh6 dvhd DVHD dv10 DV10 CDVH AVd1";

constexpr std::string_view kJpeg =
    "jpeg JPEG jpg  JPG  mjpg MJPG mJPG mjpa mjpb ljpg LJPG JPGL dmb1 DMB1 dmb2 dvr1 tvmj TVMJ CJPG IJPG "
    "AVI1 "
    "AVI2 QIVG SLMJ VIXL m\xEApg \xED\xEApg";
constexpr std::string_view kAvidJpeg = "AVDJ ADJV AVRn AVRN avrn AJAv AJYU avr ";
constexpr std::string_view kAvidJfif = "AJJf";

constexpr std::string_view kXavc = "xavc xav4 aivx AVxa";
// Intra-only recording formats of H.264; avc4 has its camera meaning here.
constexpr std::string_view kAvci =
    "ai12 ai13 ai15 ai16 ai1p ai1q ai22 ai23 ai25 ai26 ai2p ai2q ai52 ai53 ai55 ai56 ai5p ai5q AVin AVx5 "
    "avc4 "
    "avcU avcV avLT";
// The HEVC-based kind; dva1 and dvav are H.264.
constexpr std::string_view kDolbyVision = "dvh1 dvhe";
constexpr std::string_view kHevc = "hvc1 hev1 hvc2 hev2 hvt1 HEVC hevc H265 h265 X265 x265 HM10 hvcr";
constexpr std::string_view kH264 =
    "avc1 AVC1 avc2 avc3 dva1 dvav H264 h264 X264 x264 a264 i264 I264 avca wrtc DAVC davc VSSH vssh Q264 "
    "V264 "
    "GAVC UMSV tshd INMC SMV2";

constexpr std::string_view kHdcamSr = "HDSR HDS4 hdsr hds4";
constexpr std::string_view kBayer =
    "BYR1 BYR2 BYR3 BYR4 BA81 BGGR GBRG GRBG RGGB BG10 GB10 BA10 RG10 BG12 GB12 BA12 RG12";
constexpr std::string_view kDpx = "dpx  DPX  r210 R210 r10k R10k R10g AVrp";
constexpr std::string_view kRawRgb =
    "raw  RAW  rgb  RGB  RGBA ABGR BGRA ARGB DIB  RGB2 RGB4 RGB8 RGBO RGBP RGBQ RGBR RGBT BGR  24BG b48r "
    "b64a "
    "24RG AR24 XR24 BA24 XB24";
constexpr std::string_view kYCbCr10 = "v210 V210 v410 V410 Y10g P010 P210 Y210 Y410 AVup";
constexpr std::string_view kYCbCr8 =
    "yuvs yuvu UYVY uyvy YUY2 yuy2 YUYV YVYU VYUY UYNV YUNV V422 HDYC Y422 v308 v408 AYUV VUYA vuyc cyuv "
    "I420 "
    "IYUV YV12 yv12 YV16 YV24 YVU9 YUV9 NV12 NV21 NV16 NV24 I422 I444 Y41P Y41T Y42T Y42B Y41B IYU1 IYU2 "
    "Y800";
constexpr std::string_view k8BitD1Yuv = "2vuy 2Vuy AVUI AV1x d1u8 DVOO";

constexpr size_t kStride = 5;
constexpr size_t kCodeLength = 4;

constexpr uint32_t Byte(char c) { return static_cast<uint8_t>(c); }

// Whether the class has the code, in either byte order.
int32_t Contains(std::string_view codes, uint32_t fourcc) {
  for (size_t i = 0; i + kCodeLength <= codes.size(); i += kStride) {
    const uint32_t a = Byte(codes[i]), b = Byte(codes[i + 1]), c = Byte(codes[i + 2]), d = Byte(codes[i + 3]);
    if (fourcc == (a << 24 | b << 16 | c << 8 | d) || fourcc == (d << 24 | c << 16 | b << 8 | a)) return 1;
  }
  return 0;
}

constexpr bool WellFormed(std::string_view codes) {
  if (codes.size() % kStride != kCodeLength) return false;
  for (size_t i = kCodeLength; i < codes.size(); i += kStride) {
    if (codes[i] != ' ' || codes[i + 1] == ' ') return false;
  }
  return true;
}

constexpr std::string_view kAll[] = {kDv25,  kDv50, kDv100,       kJpeg,    kAvidJpeg, kAvidJfif,
                                     kXavc,  kAvci, kDolbyVision, kHevc,    kH264,     kHdcamSr,
                                     kBayer, kDpx,  kRawRgb,      kYCbCr10, kYCbCr8,   k8BitD1Yuv};

constexpr bool AllWellFormed() {
  for (const std::string_view codes : kAll) {
    if (!WellFormed(codes)) return false;
  }
  return true;
}
static_assert(AllWellFormed(), "every code has four characters");

constexpr size_t CountCodes() {
  size_t count = 0;
  for (const std::string_view codes : kAll) count += (codes.size() + 1) / kStride;
  return count;
}

// Plain loops over plain words: a compiler gives up on long constant evaluations.
constexpr bool AllApart() {
  uint32_t seen[CountCodes()] = {};
  size_t count = 0;
  for (const std::string_view codes : kAll) {
    const size_t ofOtherClasses = count;
    for (size_t i = 0; i < codes.size(); i += kStride) {
      const uint32_t a = Byte(codes[i]), b = Byte(codes[i + 1]), c = Byte(codes[i + 2]),
                     d = Byte(codes[i + 3]);
      const uint32_t code = a << 24 | b << 16 | c << 8 | d;
      const uint32_t swapped = d << 24 | c << 16 | b << 8 | a;
      const uint32_t either = code < swapped ? code : swapped;
      for (size_t k = 0; k < ofOtherClasses; ++k) {
        if (seen[k] == either) return false;
      }
      seen[count++] = either;
    }
  }
  return true;
}
static_assert(AllApart(), "every code is in one class, in either byte order");

}  // namespace

int32_t fccIsDv25(uint32_t fourcc) { return Contains(kDv25, fourcc); }
int32_t fccIsDv50(uint32_t fourcc) { return Contains(kDv50, fourcc); }
int32_t fccIsDv100(uint32_t fourcc) { return Contains(kDv100, fourcc); }
int32_t fccIsJpeg(uint32_t fourcc) { return Contains(kJpeg, fourcc); }
int32_t fccIsAvidJpeg(uint32_t fourcc) { return Contains(kAvidJpeg, fourcc); }
int32_t fccIsAvidJfif(uint32_t fourcc) { return Contains(kAvidJfif, fourcc); }
int32_t fccIsXAVC(uint32_t fourcc) { return Contains(kXavc, fourcc); }
int32_t fccIsAVCi(uint32_t fourcc) { return Contains(kAvci, fourcc); }
int32_t fccIsDolbyVision(uint32_t fourcc) { return Contains(kDolbyVision, fourcc); }
int32_t fccIsHEVC(uint32_t fourcc) { return Contains(kHevc, fourcc); }
int32_t fccIsh264(uint32_t fourcc) { return Contains(kH264, fourcc); }
int32_t fccIsHDCamSR(uint32_t fourcc) { return Contains(kHdcamSr, fourcc); }
int32_t fccIsBayer(uint32_t fourcc) { return Contains(kBayer, fourcc); }
int32_t fccIsDPX(uint32_t fourcc) { return Contains(kDpx, fourcc); }
int32_t fccIsRawRGB(uint32_t fourcc) { return Contains(kRawRgb, fourcc); }
int32_t fccIsYCbCr10(uint32_t fourcc) { return Contains(kYCbCr10, fourcc); }
int32_t fccIsYCbCr8(uint32_t fourcc) { return Contains(kYCbCr8, fourcc); }
int32_t fccIs8BitD1YUV(uint32_t fourcc) { return Contains(k8BitD1Yuv, fourcc); }
