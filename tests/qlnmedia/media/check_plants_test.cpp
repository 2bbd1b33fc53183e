// check: each disagreement and each illegal order planted in a real stream, and named.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/media/remake.h"
#include "qlnmedia/program.h"

extern "C" {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#include <libavutil/mastering_display_metadata.h>
#pragma GCC diagnostic pop
}

namespace qln::test {
namespace {

using testing::HasSubstr;

using Units = std::vector<Bytes>;

const char* const kPictures =
    "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -pix_fmt yuv420p -color_primaries 1 "
    "-color_trc 1 "
    "-colorspace 1 -color_range tv ";

// Encoded as a byte stream, so that parameter sets stand in the packets too.
std::string AvcClip() {
  const std::string raw = MediaFile(
      "plants.h264",
      std::string(kPictures) + "-c:v libx264 -threads 1 -g 5 -x264-params aud=1:slices=2:nal-hrd=none {out}");
  return MediaFile("plants_avc.mp4", "ffmpeg -v error -y -i '" + raw + "' -c copy {out}");
}

std::string HevcClip() {
  const std::string raw = MediaFile(
      "plants.hevc", std::string(kPictures) +
                         "-c:v libx265 -x265-params "
                         "keyint=5:aud=1:repeat-headers=1:hash=1:pools=1:frame-threads=1:log-level=none "
                         "{out}");
  return MediaFile("plants_hevc.mp4", "ffmpeg -v error -y -i '" + raw + "' -c copy {out}");
}

bool IsHevc(const std::string& clip) { return clip.find("hevc") != std::string::npos; }

int TypeOf(const std::string& clip, const Bytes& unit) {
  return IsHevc(clip) ? unit[0] >> 1 & 63 : unit[0] & 31;
}

// The place of the first unit of a type.
Units::iterator First(const std::string& clip, Units& units, int type) {
  return std::find_if(units.begin(), units.end(),
                      [&](const Bytes& unit) { return TypeOf(clip, unit) == type; });
}

void ExpectFound(const std::string& file, const std::string& text) {
  const CommandResult result = Qlnmedia("check '" + file + "'");
  EXPECT_EQ(result.exitCode, 3) << text;
  EXPECT_THAT(result.output, HasSubstr(text));
}

std::string Planted(const std::string& clip, const std::string& ending, const Remake& remake) {
  const std::string file = MediaPath("planted." + ending);
  RemakeFile(clip, file, remake);
  return file;
}

TEST(CheckPlants, NothingIsFoundBeforehand) {
  for (const std::string& clip : {AvcClip(), HevcClip()}) {
    for (const char* ending : {"mp4", "mov", "mkv"}) {
      const CommandResult result = Qlnmedia("check '" + Planted(clip, ending, {}) + "'");
      EXPECT_EQ(result.exitCode, 0);
      EXPECT_EQ(result.output, "nothing found\n");
    }
  }
}

struct OrderPlant {
  const char* name;
  bool hevc;
  int packet;  // the coded picture that is changed
  std::function<void(const std::string& clip, Units& units)> change;
  const char* finding;
};

void Append(const std::string& clip, Units& units, int type) {
  const Bytes unit = *First(clip, units, type);
  units.push_back(unit);
}

const OrderPlant kOrderPlants[] = {
    {"delimiter_second", false, 3, [](const auto&, Units& units) { std::swap(units[0], units[1]); },
     "an access unit delimiter is not the first unit of its frame"},
    {"delimiter_behind_sei", false, 0, [](const auto&, Units& units) { std::swap(units[0], units[1]); },
     "frame 0: order: an access unit delimiter is not the first unit of its frame"},
    {"two_delimiters", false, 3, [](const auto&, Units& units) { units.insert(units.begin(), units[0]); },
     "frame 3: order: a frame has two access unit delimiters"},
    {"sps_behind", false, 0, [](const auto& clip, Units& units) { Append(clip, units, 7); },
     "frame 0: order: an SPS stands behind a slice of its frame"},
    {"pps_behind", false, 0, [](const auto& clip, Units& units) { Append(clip, units, 8); },
     "frame 0: order: a PPS stands behind a slice of its frame"},
    {"sei_behind", false, 0, [](const auto& clip, Units& units) { Append(clip, units, 6); },
     "frame 0: order: an SEI stands behind a slice of its frame"},
    {"sei_between_slices", false, 2,
     [](const auto&, Units& units) { units.insert(units.end() - 1, Hex("06 05 01 AA 80")); },
     "frame 2: order: an SEI stands behind a slice of its frame"},
    {"no_slice", false, 4, [](const auto&, Units& units) { units.resize(1); },
     "frame 4: order: a frame has no slice"},
    {"first_slice_lost", false, 4, [](const auto&, Units& units) { units.erase(units.begin() + 1); },
     "frame 4: order: a frame does not begin with its picture's first slice"},
    {"hevc_delimiter_second", true, 3, [](const auto&, Units& units) { std::swap(units[0], units[1]); },
     "frame 3: order: an access unit delimiter is not the first unit of its frame"},
    {"hevc_two_delimiters", true, 3, [](const auto&, Units& units) { units.insert(units.begin(), units[0]); },
     "frame 3: order: a frame has two access unit delimiters"},
    {"vps_behind", true, 0, [](const auto& clip, Units& units) { Append(clip, units, 32); },
     "frame 0: order: a VPS stands behind a slice of its frame"},
    {"hevc_sps_behind", true, 0, [](const auto& clip, Units& units) { Append(clip, units, 33); },
     "frame 0: order: an SPS stands behind a slice of its frame"},
    {"hevc_pps_behind", true, 0, [](const auto& clip, Units& units) { Append(clip, units, 34); },
     "frame 0: order: a PPS stands behind a slice of its frame"},
    {"prefix_sei_behind", true, 0,
     [](const auto&, Units& units) { units.push_back(Hex("4E01 05 01 AA 80")); },
     "frame 0: order: a prefix SEI stands behind a slice of its frame"},
    {"suffix_sei_in_front", true, 3,
     [](const auto& clip, Units& units) {
       const auto suffix = First(clip, units, 40);
       std::rotate(units.begin() + 1, suffix, suffix + 1);
     },
     "frame 3: order: a suffix SEI stands in front of the slices of its frame"},
    {"hevc_no_slice", true, 4, [](const auto&, Units& units) { units.resize(1); },
     "frame 4: order: a frame has no slice"},
};

class Order : public testing::TestWithParam<OrderPlant> {};

TEST_P(Order, IsNamed) {
  const OrderPlant& plant = GetParam();
  const std::string clip = plant.hevc ? HevcClip() : AvcClip();
  Remake remake;
  remake.units = [&](Units& units, int packet) {
    if (packet == plant.packet) plant.change(clip, units);
  };
  ExpectFound(Planted(clip, "mp4", remake), plant.finding);
}

INSTANTIATE_TEST_SUITE_P(All, Order, testing::ValuesIn(kOrderPlants),
                         [](const auto& test) { return std::string(test.param.name); });

// Changes every unit of a type in the packets, not in the private data.
Remake InBand(const std::string& clip, int type, const std::function<void(Bytes&)>& change) {
  Remake remake;
  remake.units = [=](Units& units, int) {
    for (Bytes& unit : units) {
      if (TypeOf(clip, unit) == type) change(unit);
    }
  };
  return remake;
}

TEST(CheckPlants, SetsInTheStreamThatAreNotThoseOfTheRecord) {
  const auto level = [](Bytes& unit) { unit[3] = 52; };
  ExpectFound(Planted(AvcClip(), "mp4", InBand(AvcClip(), 7, level)),
              "frame 0: sets: SPS 0 of the stream differs from the one in the avcC");
  // The last element but the stop bit.
  const auto lastBits = [](Bytes& unit) { unit.back() = static_cast<uint8_t>(unit.back() ^ 0x80); };
  ExpectFound(Planted(AvcClip(), "mkv", InBand(AvcClip(), 8, lastBits)),
              "frame 0: sets: PPS 0 of the stream differs from the one in the avcC");
  ExpectFound(Planted(HevcClip(), "mp4", InBand(HevcClip(), 34, lastBits)),
              "sets: PPS 0 of the stream differs from the one in the hvcC");
  ExpectFound(Planted(HevcClip(), "mov", InBand(HevcClip(), 32, lastBits)),
              "sets: VPS 0 of the stream differs from the one in the hvcC");
}

TEST(CheckPlants, RecordsWhoseHeadIsNotThatOfTheirSets) {
  Remake remake;
  remake.privateData = [](Bytes& data) { data[1] = 77; };
  ExpectFound(Planted(AvcClip(), "mp4", remake), "sets: the avcC says profile 77, its SPS 100");
  remake.privateData = [](Bytes& data) { data[3] = 51; };
  ExpectFound(Planted(AvcClip(), "mkv", remake), "sets: the avcC says level_idc 51, its SPS ");
  remake.privateData = [](Bytes& data) { data[1] = 2; };
  ExpectFound(Planted(HevcClip(), "mp4", remake), "sets: the hvcC says profile 2, its SPS 1");
  remake.privateData = [](Bytes& data) { data[12] = 10; };
  ExpectFound(Planted(HevcClip(), "mkv", remake), "sets: the hvcC says level_idc 10, its SPS ");
}

TEST(CheckPlants, DamagedSetsAndRecords) {
  ExpectFound(Planted(AvcClip(), "mp4", InBand(AvcClip(), 7, [](Bytes& unit) { unit.resize(6); })),
              "damage: SPS breaks off");
  Remake remake;
  remake.privateData = [](Bytes& data) { data.erase(data.end() - 9, data.end()); };
  ExpectFound(Planted(HevcClip(), "mkv", remake), "damage: the configuration record breaks off");
}

TEST(CheckPlants, ColourRangeAndSize) {
  struct Plant {
    const char* ending;
    std::function<void(AVCodecParameters&)> change;
    const char* finding;
  };
  const auto primaries = [](AVCodecParameters& p) { p.color_primaries = AVCOL_PRI_BT2020; };
  const auto transfer = [](AVCodecParameters& p) { p.color_trc = AVCOL_TRC_ARIB_STD_B67; };
  const auto matrix = [](AVCodecParameters& p) { p.color_space = AVCOL_SPC_BT2020_NCL; };
  const auto range = [](AVCodecParameters& p) { p.color_range = AVCOL_RANGE_JPEG; };
  const auto size = [](AVCodecParameters& p) { p.width = 96; };
  for (const std::string& clip : {AvcClip(), HevcClip()}) {
    const std::string where = IsHevc(clip) ? "the hvcC " : "the avcC ";
    for (const Plant& plant : {Plant{"mp4", primaries, "colour: primaries: the container says BT.2020, "},
                               Plant{"mov", transfer, "colour: transfer: the container says HLG"},
                               Plant{"mkv", matrix, "colour: matrix: the container says BT.2020"},
                               Plant{"mp4", range, "range: the container says full range, "},
                               Plant{"mkv", range, "range: the container says full range, "},
                               Plant{"mkv", size, "size: the container says 96 x 96, "},
                               Plant{"mp4", size, "size: the container says 96 x 96, "}}) {
      Remake remake;
      remake.description = [&plant](AVStream& stream) { plant.change(*stream.codecpar); };
      ExpectFound(Planted(clip, plant.ending, remake), plant.finding);
      ExpectFound(Planted(clip, plant.ending, remake), where);
    }
  }
}

TEST(CheckPlants, Interlace) {
  Remake remake;
  remake.description = [](AVStream& stream) { stream.codecpar->field_order = AV_FIELD_TT; };
  ExpectFound(Planted(AvcClip(), "mkv", remake),
              "interlace: the container says fields, the avcC progressive frames");
  ExpectFound(Planted(HevcClip(), "mkv", remake),
              "interlace: the container says fields, the hvcC progressive frames");
  const std::string fields =
      MediaFile("plants_fields.hevc",
                "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=50:d=0.2 -pix_fmt yuv420p -c:v libx265 "
                "-x265-params interlace=tff:pools=1:frame-threads=1:log-level=none {out}");
  // The remuxer takes each field for a progressive picture.
  const std::string file =
      MediaFile("plants_fields.mp4", "ffmpeg -v error -y -i '" + fields + "' -c copy {out}");
  ExpectFound(file, "interlace: the container says progressive, the hvcC fields");
}

// In H.264 the timing of an SPS is a rate only where it says that the rate is fixed.
std::string FixedRateClip() {
  return MediaFile("plants_fixed_rate.mp4",
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=1 -pix_fmt yuv420p -c:v libx264 "
                   "-x264-params force-cfr=1 {out}");
}

TEST(CheckPlants, Rate) {
  for (const std::string& clip : {FixedRateClip(), HevcClip()}) {
    const std::string says = IsHevc(clip) ? "the hvcC says 25" : "the avcC says 25";
    const std::string file = MediaFile(std::string("plants_rate_") + (IsHevc(clip) ? "hevc.mp4" : "avc.mp4"),
                                       "ffmpeg -v error -y -itsscale 0.5 -i '" + clip + "' -c copy {out}");
    ExpectFound(file, "rate: the container runs at ");
    ExpectFound(file, says);
    Remake remake;
    remake.description = [](AVStream& stream) { stream.avg_frame_rate = {50, 1}; };
    ExpectFound(Planted(clip, "mkv", remake), "rate: the container runs at 50 frames a second, " + says);
  }
}

void AddMastering(AVStream& stream, int maxLuminance) {
  auto* const data = reinterpret_cast<AVMasteringDisplayMetadata*>(av_stream_new_side_data(
      &stream, AV_PKT_DATA_MASTERING_DISPLAY_METADATA, sizeof(AVMasteringDisplayMetadata)));
  *data = {};
  const int points[3][2] = {{34000, 16000}, {13250, 34500}, {7500, 3000}};
  for (int i = 0; i < 3; ++i) {
    data->display_primaries[i][0] = {points[i][0], 50000};
    data->display_primaries[i][1] = {points[i][1], 50000};
  }
  data->white_point[0] = {15635, 50000};
  data->white_point[1] = {16450, 50000};
  data->max_luminance = {maxLuminance, 10000};
  data->min_luminance = {1, 10000};
  data->has_primaries = data->has_luminance = 1;
}

std::string HdrClip(int luminance) {
  const std::string nits = std::to_string(luminance);
  return MediaFile(
      "plants_hdr_" + nits + ".hevc",
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.2 -pix_fmt yuv420p10le -c:v libx265 "
      "-x265-params \"hdr10=1:repeat-headers=1:max-cll=" +
          nits + ",300:master-display=G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(" + nits +
          "0000,1):pools=1:frame-threads=1:log-level=none\" {out}");
}

TEST(CheckPlants, Hdr) {
  Remake remake;
  remake.description = [](AVStream& stream) { AddMastering(stream, 40000000); };
  ExpectFound(Planted(HevcClip(), "mp4", remake),
              "hdr: the container has a mastering display, the stream has none");
  const std::string clip =
      MediaFile("plants_hdr_hevc.mp4", "ffmpeg -v error -y -i '" + HdrClip(1000) + "' -c copy {out}");
  ExpectFound(
      Planted(clip, "mkv", remake),
      "hdr: mastering display: the container says G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)"
      "L(40000000,1), the stream G(13250,34500)B(7500,3000)R(34000,16000)WP(15635,16450)L(10000000,1)");
  remake.description = [](AVStream& stream) {
    auto* const data = reinterpret_cast<AVContentLightMetadata*>(
        av_stream_new_side_data(&stream, AV_PKT_DATA_CONTENT_LIGHT_LEVEL, sizeof(AVContentLightMetadata)));
    data->MaxCLL = 700;
    data->MaxFALL = 300;
  };
  ExpectFound(Planted(HevcClip(), "mov", remake),
              "hdr: the container has a content light level, the stream has none");
  ExpectFound(Planted(clip, "mp4", remake),
              "hdr: content light level: the container says 700,300, the stream 1000,300");
  Bytes both = ReadFile(HdrClip(1000));
  const Bytes second = ReadFile(HdrClip(4000));
  both.insert(both.end(), second.begin(), second.end());
  const std::string changing = MediaPath("planted_changing.hevc");
  WriteFile(changing, both);
  ExpectFound(changing, "hdr: the mastering display changes within the stream");
}

TEST(CheckPlants, DamagedFiles) {
  const Bytes clip = ReadFile(AvcClip());
  const int64_t at =
      std::stoll(Text("ffprobe -v error -select_streams v -show_entries packet=pos -of csv=p=0 '" +
                      AvcClip() + "' | sed -n 3p"));
  Bytes longer = clip;
  longer[static_cast<size_t>(at) + 1] = 0x10;  // the length of the third packet's first unit
  const std::string file = MediaPath("planted_length.mp4");
  WriteFile(file, longer);
  ExpectFound(file, "damage: a frame holds no NAL units: its first length leads past its end");
  const std::string index = MediaFile(
      "plants_front.mp4", "ffmpeg -v error -y -i '" + AvcClip() + "' -c copy -movflags faststart {out}");
  const Bytes whole = ReadFile(index);
  const std::string cut = MediaPath("planted_cut.mp4");
  WriteFile(cut, Bytes(whole.begin(), whole.end() - 500));
  ExpectFound(cut, "damage: the file ends early");
}

TEST(CheckPlants, ExitStatuses) {
  EXPECT_EQ(Qlnmedia("check '" + AvcClip() + "'").exitCode, 0);
  EXPECT_EQ(Qlnmedia("check --json '" + AvcClip() + "'").exitCode, 0);
  Remake remake;
  remake.privateData = [](Bytes& data) { data[1] = 77; };
  const std::string file = Planted(AvcClip(), "mp4", remake);
  EXPECT_EQ(Qlnmedia("check '" + file + "'").exitCode, 3);
  const CommandResult json = Qlnmedia("check --json '" + file + "'");
  EXPECT_EQ(json.exitCode, 3);
  EXPECT_THAT(json.output, HasSubstr("\"what\": \"sets\""));
  EXPECT_EQ(Qlnmedia("check /no/such/file").exitCode, 1);
  EXPECT_EQ(Qlnmedia("check").exitCode, 2);
  EXPECT_EQ(Qlnmedia("check --none '" + file + "'").exitCode, 2);
}

}  // namespace
}  // namespace qln::test
