// check finds nothing where there is nothing: plain encodes in many settings, in every container.

#include <gtest/gtest.h>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

struct Setting {
  const char* name;
  const char* ending;  // of the byte stream
  const char* options;
};

#define QLN_X265 "-c:v libx265 -x265-params pools=1:frame-threads=1:log-level=none:keyint=4"

const Setting kSettings[] = {
    {"baseline", "h264", "-c:v libx264 -profile:v baseline -pix_fmt yuv420p -g 4"},
    {"slices", "h264", "-c:v libx264 -pix_fmt yuv420p -x264-params slices=4:keyint=4"},
    {"mbaff", "h264", "-c:v libx264 -pix_fmt yuv420p -flags +ilme+ildct -x264-params tff=1:keyint=4"},
    {"fake_interlaced", "h264", "-c:v libx264 -pix_fmt yuv420p -x264-params fake-interlaced=1:keyint=4"},
    {"open_gop", "h264", "-c:v libx264 -pix_fmt yuv420p -x264-params open-gop=1:keyint=4:bframes=2"},
    {"intra_refresh", "h264", "-c:v libx264 -pix_fmt yuv420p -x264-params intra-refresh=1:keyint=8"},
    {"hrd", "h264",
     "-c:v libx264 -pix_fmt yuv420p -x264-params nal-hrd=cbr:keyint=4 -b:v 300k -maxrate 300k -bufsize "
     "300k"},
    {"intra_422", "h264", "-c:v libx264 -pix_fmt yuv422p10le -g 1"},
    {"full_444", "h264", "-c:v libx264 -pix_fmt yuv444p -g 4 -color_range pc"},
    {"rgb", "h264", "-c:v libx264rgb -qp 0 -g 4"},
    {"cropped", "h264", "-c:v libx264 -pix_fmt yuv420p -vf scale=130:98 -g 4"},
    {"cropped_fields", "h264", "-c:v libx264 -pix_fmt yuv420p -vf scale=130:100 -flags +ilme+ildct -g 4"},
    {"wide_pixels", "h264", "-c:v libx264 -pix_fmt yuv420p -vf setsar=16/11 -g 4"},
    {"pulldown", "h264", "-c:v libx264 -pix_fmt yuv420p -x264-params pulldown=double:pic-struct=1:keyint=4"},
    {"stereo", "h264", "-c:v libx264 -pix_fmt yuv420p -x264-params frame-packing=3:keyint=4"},
    {"hevc", "hevc", QLN_X265 " -pix_fmt yuv420p"},
    {"hevc_hrd", "hevc",
     QLN_X265
     ":repeat-headers=1:aud=1:hrd=1:vbv-bufsize=400:vbv-maxrate=200:bitrate=150 -pix_fmt yuv420p10le"},
    {"hevc_hash", "hevc", QLN_X265 ":hash=1:open-gop=1 -pix_fmt yuv420p"},
    {"hevc_layers", "hevc", QLN_X265 ":temporal-layers=2 -pix_fmt yuv420p"},
    {"hevc_444", "hevc", QLN_X265 " -pix_fmt yuv444p12le"},
    {"hevc_hdr", "hevc",
     QLN_X265
     ":hdr10=1:max-cll=900,300:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L("
     "10000000,1) -pix_fmt yuv420p10le -color_primaries 9 -color_trc 16 -colorspace 9"},
    {"hevc_cropped", "hevc", QLN_X265 " -pix_fmt yuv420p -vf scale=130:98"},
    {"hevc_slices", "hevc", QLN_X265 ":slices=3 -pix_fmt yuv420p -vf scale=256:256"},
};

class Quiet : public testing::TestWithParam<Setting> {};

TEST_P(Quiet, InEveryContainer) {
  const Setting& setting = GetParam();
  const std::string name = std::string("quiet_") + setting.name + ".";
  std::string options = setting.options;
  for (size_t at = 0; (at = options.find_first_of("()", at)) != std::string::npos; at += 2)
    options.insert(at, "\\");
  // A byte stream has no times, which MKV and TS ask for.
  const std::string first =
      MediaFile(name + "mkv", "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.32 -threads 1 " +
                                  options + " {out}");
  for (const char* ending : {setting.ending, "mp4", "mov", "mkv", "ts"}) {
    const std::string file =
        std::string(ending) == "mkv"
            ? first
            : MediaFile(name + ending, "ffmpeg -v error -y -i '" + first + "' -c copy {out}");
    const CommandResult result = Qlnmedia("check '" + file + "'");
    EXPECT_EQ(result.exitCode, 0) << ending;
    EXPECT_EQ(result.output, "nothing found\n") << ending;
  }
}

INSTANTIATE_TEST_SUITE_P(All, Quiet, testing::ValuesIn(kSettings),
                         [](const auto& test) { return std::string(test.param.name); });

// Pictures left out of a stream whose parameter sets name a fixed rate.
TEST(CheckQuiet, PicturesLeftOut) {
  for (const char* ending : {"mp4", "mkv"}) {
    const std::string file = MediaFile(
        std::string("quiet_left_out.") + ending,
        "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.8 -vf \"select='not(between(n,3,8))'\" "
        "-vsync vfr -c:v libx264 -pix_fmt yuv420p {out}");
    EXPECT_EQ(Qlnmedia("check '" + file + "'").output, "nothing found\n") << ending;
  }
}

}  // namespace
}  // namespace qln::test
