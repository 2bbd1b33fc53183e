// Display names of codecs: a table of codes, and the fourcc classes behind it.

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>
#include <string_view>

#include "kxutil/kxutil.h"
#include "qlnutil/format/sorted_search.h"
#include "qlnutil/qlnformat.h"

namespace {

// A name and its codes, separated by blanks: four characters from the top byte down, '_' standing for a
// blank; one digit for a bitmap compression number; or the value in hexadecimal. A code that hosts hold in
// both byte orders stands in both.
struct CodecRow {
  const char* name;
  std::string_view codes;
};

constexpr CodecRow kCodecRows[] = {
    {"ADV202 JPEG-2000", "2VDA"},
    {"Apple Intermediate", "icod"},
    {"AVCi 4K", "avc4"},
    {"AVCi Ultra LGOP", "avcU"},
    {"AVCi Varicam 444", "avcV"},
    {"AVCi Varicam LT", "avLT"},
    {"AVCi-100", "AVin"},
    {"AVCi-100 1080i50", "ai15"},
    {"AVCi-100 1080i60", "ai16"},
    {"AVCi-100 1080p24/30", "ai13"},
    {"AVCi-100 1080p25", "ai12"},
    {"AVCi-100 720p50", "ai1q"},
    {"AVCi-100 720p60", "ai1p"},
    {"AVCi-200 1080i50", "ai25"},
    {"AVCi-200 1080i60", "ai26"},
    {"AVCi-200 1080p25", "ai22"},
    {"AVCi-200 1080p30", "ai23"},
    {"AVCi-200 720p50", "ai2q"},
    {"AVCi-200 720p60", "ai2p"},
    {"AVCi-50 1080i50", "ai55"},
    {"AVCi-50 1080i60", "ai56"},
    {"AVCi-50 1080p24/30", "ai53"},
    {"AVCi-50 1080p25", "ai52"},
    {"AVCi-50 720p50", "ai5q"},
    {"AVCi-50 720p60", "ai5p"},
    {"Avid 1:1", "AV1x"},
    {"Avid AVCi-50", "AVx5"},
    {"Avid DNxHD", "AVdn NDVA dnxh"},
    {"Avid JPED", "AVDJ"},
    {"Avid JPEG AVR", "vAJA"},
    {"Avid JPEG JFIF", "fJJA"},
    {"Avid JPEG MC", "AVRn nRVA nrva"},
    {"Avid JPEG YUV", "UYJA"},
    {"Avid MC Mac", "_rva"},
    {"Avid XAVC", "AVxa"},
    {"BI Bit Fields", "3"},
    {"BI RGB", "0"},
    {"Canon 4:4:4 264", "avca"},
    {"CineForm", "CFHD DHFC"},
    {"CineForm LC", "dhfc"},
    {"CineForm3D", "CF3D"},
    {"CLJR 4:1:1 YUV", "RJLC"},
    {"CLPL 4:2:0 YCbCr Planar", "LPLC"},
    {"Component", "yuvs"},
    {"Component S", "yuvu"},
    {"cyuv 4:2:2 YCbCr", "vuyc"},
    {"DCP 2K JPEG-2000", "K22J"},
    {"DCP 4K JPEG-2000", "K42J"},
    {"DNxHD 1080 100 8 i", "dn1i"},
    {"DNxHD 1080 100 8 p", "dn1p"},
    {"DNxHD 1080 145 8 p", "AVd9"},
    {"DNxHD 1080 36 8 p", "AVd0"},
    {"DNxHD 1080 440 4:4:4", "dnx4"},
    {"DNxHD 145 1080 8 i", "AVd5"},
    {"DNxHD 145/120/115 1080 8bit", "AVd2"},
    {"DNxHD 220 1080 10 i", "AVd4"},
    {"DNxHD 220 1080 8 i", "AVd6"},
    {"DNxHD 220 720 10 p", "AVd7"},
    {"DNxHD 220 720 8 p", "AVd8"},
    {"DNxHD 220/185/175 1080 8bit", "AVd3"},
    {"DNxHD 220x/180x/175x 1080 10bit", "AV10"},
    {"DNxHD 720 100 i", "dn7p"},
    {"DNxHR Hi Quality", "dnrh"},
    {"DNxHR Hi Quality 10 bit", "dnrq"},
    {"DNxHR Low Quality", "dnrl"},
    {"DNxHR Standard Quality", "dnrs"},
    {"DPX YCbCr 10", "Y10g"},
    {"h.260", "062H"},
    {"h.261", "162H"},
    {"h.262", "262H"},
    {"h.263", "362H"},
    {"h.264", "462H 462X 462h 462x"},
    {"h.264 10 Bit", "a264"},
    {"h.264 AVC1", "1cva AVC1 avc1"},
    {"h.264 Intra Only", "462i I264"},
    {"h.264 WebRTC", "wrtc"},
    {"h.265", "562H hvcr"},
    {"h.266", "662H"},
    {"h.267", "762H"},
    {"h.268", "862H"},
    {"h.269", "962H"},
    {"HDCam SR", "HDSR"},
    {"HDCam SR 4:4:4", "HDS4"},
    {"HEVC Dolby", "dvhe"},
    {"HEVC h.265", "hvc1"},
    {"I420 4:2:0 YCbCr Planar", "024I VUYI"},
    {"IF09 YCbCr Planar", "90FI"},
    {"IMX MPEG-2 I Frame", "SEMM semm"},
    {"IYU1 4:2:0 YCbCr", "1UYI"},
    {"IYU2 4:2:0 YCbCr", "2UYI"},
    {"JPEG DIB", "GEPJ"},
    {"JPEG-2000 RGB", "mjp2"},
    {"JPEG-2000 YCbCr", "VG2J"},
    {"JPEG-2000 YCbCr 10", "_G2J"},
    {"Lead JPEG-2000", "K2JL"},
    {"Matrox JPEG-2000", "C2JM"},
    {"MJPEG", "GPJm"},
    {"MJPG DIB", "GPJM"},
    {"MPEG HDV 1080i50", "hdv3"},
    {"MPEG HDV 1080i60", "hdv2"},
    {"MPEG HDV 1080p24", "hdv6"},
    {"MPEG HDV 1080p25", "hdv7"},
    {"MPEG HDV 1080p30", "hdv8"},
    {"MPEG HDV 720p24", "hdv4"},
    {"MPEG HDV 720p25", "hdv5"},
    {"MPEG HDV 720p30", "hdv1"},
    {"MPEG HDV 720p50", "hdva"},
    {"MPEG HDV 720p60", "hdv9"},
    {"MPEG XDCam 35 1080i50 (1440)", "xdv3"},
    {"MPEG XDCam 35 1080i60 (1440)", "xdv2"},
    {"MPEG XDCam 35 1080p24 VBR", "xdv6"},
    {"MPEG XDCam 35 1080p25 VBR", "xdv7"},
    {"MPEG XDCam 35 1080p30 VBR", "xdv8"},
    {"MPEG XDCam 35 720p24 VBR", "xdv4"},
    {"MPEG XDCam 35 720p25 VBR", "xdv5"},
    {"MPEG XDCam 35 720p30 VBR", "xdv1"},
    {"MPEG XDCam EX 35 1080i50 VBR", "xdvc"},
    {"MPEG XDCam EX 35 1080i60 VBR", "xdvb"},
    {"MPEG XDCam EX 35 1080p24 VBR", "xdvd"},
    {"MPEG XDCam EX 35 1080p25 VBR", "xdve"},
    {"MPEG XDCam EX 35 1080p30 VBR", "xdvf"},
    {"MPEG XDCam EX 35 1080p50 VBR", "xdvO"},
    {"MPEG XDCam EX 35 1080p60 VBR", "xdv0"},
    {"MPEG XDCam EX 35 720p50 VBR", "xdva"},
    {"MPEG XDCam EX 35 720p60 VBR", "xdv9"},
    {"MPEG XDCAM HD 540p", "xdhd"},
    {"MPEG XDCam HD422 50 1080i50 CBR", "xd5c"},
    {"MPEG XDCam HD422 50 1080i60 CBR", "xd5b"},
    {"MPEG XDCam HD422 50 1080p24 CBR", "xd5d"},
    {"MPEG XDCam HD422 50 1080p25 CBR", "xd5e"},
    {"MPEG XDCam HD422 50 1080p30 CBR", "xd5f"},
    {"MPEG XDCam HD422 50 1080p50 CBR", "xd5O"},
    {"MPEG XDCam HD422 50 1080p60 CBR", "xd60"},
    {"MPEG XDCam HD422 50 720p50 CBR", "xd5a"},
    {"MPEG XDCam HD422 50 720p60 CBR", "xd59"},
    {"MPEG XDCAM HD422 540p", "xdh2"},
    {"MPEG-2", "107M 1GPM 1gpm 2GPM 2gpm gepm mpg2 vgpm"},
    {"MPEG-2 (Apple Camcorder)", "m2v1"},
    {"MPEG-2 (Apple FCP5)", "mp2v"},
    {"MPEG-4 V", "mp4v"},
    {"NVidia 4:2:0 YCbCr Planar", "12VN 21VN"},
    {"Pinnacle JPEG", "apjm"},
    {"ProRes 4:2:2", "apcn"},
    {"ProRes 4:4:4:4", "ap4h"},
    {"ProRes 4:4:4:4 XQ", "ap4x"},
    {"ProRes HQ", "apch"},
    {"ProRes LT", "apcs"},
    {"ProRes Proxy", "apco"},
    {"ProRes RAW", "aprh"},
    {"RAW RGB", "_WAR"},
    {"RGB DIB", "_BID"},
    {"RGBA", "ABGR"},
    {"RLE 4 Bit", "2"},
    {"RLE 8 Bit", "1 8ELR"},
    {"SGI JFIF", "0x6770EA6D"},
    {"Sony Linear Raw", "XOCN"},
    {"Sony Linear Raw XT", "TOCN"},
    {"Sony Raw F55", "SF55"},
    {"Sony Raw F65", "SF65"},
    {"Sony Raw HFR", "SF6H"},
    {"Sony XAVC", "xavc"},
    {"Sony XAVC 4K", "xav4"},
    {"Targa 1K", "dvr1"},
    {"UYVY 4:2:2 YCbCr", "VNYU YVYU"},
    {"Velocity JFIF", "0x6770EAED"},
    {"VP8", "vp08"},
    {"WebP", "webp"},
    {"XDCam 4:2:0", "20gm"},
    {"XDCam 4:2:0 17", "1vgm 2vgm 71cm 71vm"},
    {"XDCam 4:2:0 25", "1cgm 2cgm 52cm 52vm 53cm 53vm"},
    {"XDCam 4:2:2", "10gm"},
    {"XDCam IMX", "01Dm 03Dm 04Dm"},
    {"Y21P 4:1:1 YUV", "P14Y T14Y"},
    {"Y21P 4:2:0 YUV", "112Y"},
    {"Y42T 4:2:2 YCbCr 1A", "T24Y"},
    {"YCbCr 4:2:0 16 bit BiPlanar", "16VN 61VN"},
    {"YCbCr 4:2:0 16 bit Planar", "024F 02VF F420 FV20"},
    {"YCbCr 4:2:2 16 bit Planar", "224E 224F 22VE 22VF E422 EV22 F422 FV22"},
    {"YCbCr 4:2:2 UYVY 16 bit", "61YU UY16"},
    {"YCbCr 4:2:2 YUY2 16 bit", "61UY YU16"},
    {"YCbCr 4:4:4 16 bit Planar", "444E 44VE E444 EV44"},
    {"YUY2 4:2:2 YCbCr", "2YUY VNUY"},
    {"YV12 4:2:0 YCbCr Planar", "21VY yv12"},
    {"YV12 4:2:2 YCbCr Planar", "42VY 61VY"},
    {"YVU9 4:1:1 Planar", "9UVY"},
    {"YVYU 4:2:2 YCbCr", "UYVY"},
};

constexpr size_t kCodecCount = 240;

struct Codec {
  uint32_t code;
  const char* name;
};

consteval uint32_t HexDigit(char digit) {
  return static_cast<uint32_t>(digit <= '9' ? digit - '0' : digit - 'A' + 10);
}

consteval uint32_t CodeOf(std::string_view text) {
  uint32_t code = 0;
  if (text.starts_with("0x")) {
    for (const char digit : text.substr(2)) code = code << 4 | HexDigit(digit);
    return code;
  }
  if (text.size() == 1) return HexDigit(text[0]);
  for (const char c : text) code = code << 8 | static_cast<uint8_t>(c == '_' ? ' ' : c);
  return code;
}

// All codes with their names, sorted by code. A count that differs from kCodecCount does not compile.
consteval std::array<Codec, kCodecCount> SortedCodecs() {
  std::array<Codec, kCodecCount> codecs{};
  size_t count = 0;
  for (const CodecRow& row : kCodecRows) {
    for (size_t begin = 0; begin < row.codes.size();) {
      const size_t end = std::min(row.codes.find(' ', begin), row.codes.size());
      codecs.at(count++) = {CodeOf(row.codes.substr(begin, end - begin)), row.name};
      begin = end + 1;
    }
  }
  if (count != kCodecCount) throw "a code is missing";
  std::sort(codecs.begin(), codecs.end(), [](const Codec& a, const Codec& b) { return a.code < b.code; });
  return codecs;
}

constexpr std::array<Codec, kCodecCount> kCodecs = SortedCodecs();
static_assert(std::adjacent_find(kCodecs.begin(), kCodecs.end(), [](const Codec& a, const Codec& b) {
                return a.code == b.code;
              }) == kCodecs.end());

// The utility layer's classes in the order of asking; the sets overlap, and the first that says yes decides.
const char* NameOfClass(uint32_t fourcc) {
  if (fccIsAvidJpeg(fourcc)) return "Avid JPEG";
  if (fccIsAvidJfif(fourcc)) return "Avid JFIF";
  if (fccIsJpeg(fourcc)) return "JPEG";
  if (fccIsDv25(fourcc)) return "DV25";
  if (fccIsDv50(fourcc)) return "DV50";
  if (fccIsDv100(fourcc)) return "DVHD";
  if (fccIs8BitD1YUV(fourcc) || fccIsYCbCr8(fourcc)) return "8 Bit YCbCr";
  if (fccIsYCbCr10(fourcc)) return "10 Bit YCbCr";
  if (fccIsRawRGB(fourcc)) return "RGB";
  if (fccIsDPX(fourcc)) return "10 Bit RGB";
  if (fccIsBayer(fourcc)) return "Bayer Pattern";
  if (fccIsHDCamSR(fourcc)) return "HDCamSR";
  return "";
}

}  // namespace

const char* qlnutilCodecTypeString(uint32_t fourcc) {
  const size_t index =
      qln::CountBefore(std::span(kCodecs), [fourcc](const Codec& row) { return row.code < fourcc; });
  return index < kCodecCount && kCodecs[index].code == fourcc ? kCodecs[index].name : NameOfClass(fourcc);
}
