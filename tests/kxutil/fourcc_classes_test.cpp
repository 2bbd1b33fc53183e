// The fourcc classes: both byte orders, no code in two classes, and the names that codecs are shown under.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "kxutil/kxutil.h"
#include "support/cpu_time.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

using Class = int32_t (*)(uint32_t);

constexpr std::pair<const char*, Class> kClasses[] = {
    {"Dv25", fccIsDv25},       {"Dv50", fccIsDv50},         {"Dv100", fccIsDv100},
    {"Jpeg", fccIsJpeg},       {"AvidJpeg", fccIsAvidJpeg}, {"AvidJfif", fccIsAvidJfif},
    {"XAVC", fccIsXAVC},       {"AVCi", fccIsAVCi},         {"DolbyVision", fccIsDolbyVision},
    {"HEVC", fccIsHEVC},       {"h264", fccIsh264},         {"HDCamSR", fccIsHDCamSR},
    {"Bayer", fccIsBayer},     {"DPX", fccIsDPX},           {"RawRGB", fccIsRawRGB},
    {"YCbCr10", fccIsYCbCr10}, {"YCbCr8", fccIsYCbCr8},     {"8BitD1YUV", fccIs8BitD1YUV}};

uint32_t Code(const std::string& text) {
  uint32_t code = 0;
  for (const char c : text) code = code << 8 | static_cast<uint8_t>(c);
  return code;
}

uint32_t Swapped(uint32_t code) { return __builtin_bswap32(code); }

std::vector<std::string> ClassesOf(uint32_t code) {
  std::vector<std::string> names;
  for (const auto& [name, is] : kClasses) {
    if (is(code) != 0) names.push_back(name);
  }
  return names;
}

struct Row {
  const char* name;
  std::vector<std::string> codes;
};

const Row kRows[] = {
    {"Dv25", {"dvc ", "dvcp", "dvpp", "dvsd", "DVSD", "dv25"}},
    {"Dv50", {"dv5n", "dv5p", "dv50"}},
    {"Dv100", {"dv1n", "dv1p", "dvhp", "dvhq", "dvh5", "dvh6", "dvhd"}},
    {"Jpeg", {"jpeg", "MJPG", "mjpg", "mjpa", "mjpb", "JPEG", "LJPG", "dmb1"}},
    {"AvidJpeg", {"AVDJ", "AVRn", "avrn", "AJAv", "AJYU", "avr "}},
    {"AvidJfif", {"AJJf"}},
    {"XAVC", {"xavc", "xav4", "AVxa"}},
    {"AVCi",
     {"AVin", "ai12", "ai13", "ai15", "ai16", "ai1p", "ai1q", "ai22", "ai23", "ai25", "ai26", "ai2p",
      "ai2q", "ai52", "ai53", "ai55", "ai56", "ai5p", "ai5q", "AVx5", "avc4", "avcU", "avcV", "avLT"}},
    {"DolbyVision", {"dvh1", "dvhe"}},
    {"HEVC", {"hvc1", "hev1", "HEVC", "H265", "hvcr"}},
    {"h264",
     {"avc1", "AVC1", "avc2", "avc3", "H264", "h264", "X264", "x264", "a264", "i264", "I264", "avca", "wrtc",
      "dva1", "dvav"}},
    {"HDCamSR", {"HDSR", "HDS4"}},
    {"Bayer", {"BYR1", "BYR2", "BYR3", "BYR4", "GRBG"}},
    {"DPX", {"r210", "R10k", "R10g"}},
    {"RawRGB", {"raw ", "RGB ", "RGBA", "ABGR", "BGRA", "DIB ", "RAW "}},
    {"YCbCr10", {"v210", "V210", "Y10g", "P010"}},
    {"YCbCr8",
     {"UYVY", "YUY2", "yuvs", "yuvu", "YUYV", "YVYU", "I420", "YV12", "NV12", "HDYC", "UYNV", "YUNV"}},
    {"8BitD1YUV", {"2vuy", "AVUI", "AV1x"}},
};

TEST(FourccClasses, CodesBelongToTheirClassInBothByteOrdersAndToNoOther) {
  for (const Row& row : kRows) {
    for (const std::string& code : row.codes) {
      EXPECT_EQ(ClassesOf(Code(code)), std::vector<std::string>{row.name}) << code;
      EXPECT_EQ(ClassesOf(Swapped(Code(code))), std::vector<std::string>{row.name}) << code;
    }
  }
}

TEST(FourccClasses, EveryClassIsNamed) { EXPECT_EQ(std::size(kRows), std::size(kClasses)); }

TEST(FourccClasses, OtherCodesAreInNone) {
  for (const uint32_t code :
       {0u, 1u, 2u, 3u, 0xFFFFFFFFu, Code("ap4h"), Code("apch"), Code("AVdn"), Code("mp4v"), Code("CFHD"),
        Code("hdv1"), Code("xd5b"), Code("vp08"), Code("svc1"), Code("    ")}) {
    EXPECT_EQ(ClassesOf(code), std::vector<std::string>{}) << code;
  }
}

TEST(FourccClasses, RandomCodesAreHardlyEverInAClass) {
  Random random(18);
  size_t found = 0;
  for (int i = 0; i < 200000; ++i) found += ClassesOf(static_cast<uint32_t>(random.next())).size();
  EXPECT_EQ(found, 0u);
}

TEST(FourccClasses, AQuestionCostsNoMoreThanASearch) {
  // A search by halves in a table of that size is the measure.
  Random random(19);
  std::vector<uint32_t> table(250);
  for (uint32_t& code : table) code = static_cast<uint32_t>(random.next());
  std::sort(table.begin(), table.end());
  std::vector<uint32_t> questions(20000);
  for (size_t i = 0; i < questions.size(); ++i) {
    // The same few over and over, so that nothing is measured of how a processor guesses.
    questions[i] = i < 50 ? static_cast<uint32_t>(random.next()) : questions[i - 50];
  }
  volatile int32_t sink = 0;
  const double search = LeastCpuSeconds(7, [&] {
    for (const uint32_t code : questions) sink = std::binary_search(table.begin(), table.end(), code) ? 1 : 0;
  });
  for (const auto& [name, is] : kClasses) {
    const double asked = LeastCpuSeconds(7, [&, is = is] {
      for (const uint32_t code : questions) sink = is(code);
    });
    EXPECT_LT(asked, search) << name;
  }
}

TEST(FourccClasses, XavcIsNeitherH264NorAvci) {
  for (const char* code : {"xavc", "xav4", "aivx", "AVxa"}) {
    EXPECT_EQ(fccIsh264(Code(code)), 0);
    EXPECT_EQ(fccIsAVCi(Code(code)), 0);
    EXPECT_NE(fccIsXAVC(Code(code)), 0);
  }
}

TEST(FourccClasses, DolbyVisionIsTheHevcBasedKind) {
  EXPECT_NE(fccIsDolbyVision(Code("dvh1")), 0);
  EXPECT_NE(fccIsDolbyVision(Code("dvhe")), 0);
  EXPECT_EQ(fccIsDolbyVision(Code("dva1")), 0);
  EXPECT_EQ(fccIsDolbyVision(Code("dvav")), 0);
  EXPECT_EQ(fccIsDolbyVision(Code("dav1")), 0);
}

}  // namespace
}  // namespace qln::test
