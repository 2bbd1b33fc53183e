// Metadata put into real streams by the library and read back by an independent reader, and the other way
// round.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "inband/caption_packets.h"
#include "inband/test_frame.h"
#include "media/inband_streams.h"
#include "qlnutil/qlnh264.h"
#include "qlnutil/qlnhevc.h"
#include "qlnutil/qlninband.h"
#include "support/media.h"

namespace qln {
namespace {

using test::AvcStream;
using test::Bytes;
using test::CaptionPacket;
using test::Count;
using test::Edit;
using test::FrameHashes;
using test::HevcStream;
using test::InForm;
using test::Join;
using test::kAvc;
using test::kHevc;
using test::kTinySource;
using test::MediaFile;
using test::MediaPath;
using test::Pictures;
using test::Probe;
using test::ReadFile;
using test::SplitByteStream;
using test::TestFrame;
using test::Triplets;
using test::WriteFile;
using testing::HasSubstr;

// ---- Timecode ----

TEST(InbandMedia, AvcTimecodeIsReadBack) {
  const std::string source = AvcStream();
  const std::string path = Edit(source, false, false, "timecode.264", [](DFrame* frame, uint32_t index) {
    frame->timeCodeA = (3600 * 10 + 60 * 2 + 59) * 25 + 23 + index;
    EXPECT_GT(qlnutilAddAVCTimeCode(frame, 8), 0u);
    EXPECT_EQ(qlnutilAddAVCTimeCode(frame, 8), 0u);  // it has one now
  });
  const std::string frames = Probe(path, "-show_frames");
  for (const char* text : {"10:02:59:23", "10:02:59:24", "10:03:00:00", "10:03:00:01"}) {
    EXPECT_EQ(Count(frames, std::string("timecode=") + text), 1u) << text;
  }
  EXPECT_EQ(FrameHashes(path), FrameHashes(source));
}

TEST(InbandMedia, HevcTimecodeIsReadBack) {
  const std::string source = HevcStream("inband.265", "yuv420p", "hrd=0");
  const std::string path = Edit(source, true, false, "timecode.265", [](DFrame* frame, uint32_t index) {
    frame->timeCodeB = (3600 * 23 + 60 * 59 + 59) * 25 + 24 + index;
    frame->timeCodeA = QLN_NO_TIMECODE;
    EXPECT_EQ(qlnutilAddHEVCTimeCode(frame, 8), 0u);
    const uint32_t size = frame->frameSize;
    EXPECT_EQ(qlnutilAddHEVCTimeCode(frame, 8), 0u);
    EXPECT_EQ(frame->frameSize, size);
  });
  const std::string frames = Probe(path, "-show_frames");
  for (const char* text : {"23:59:59:24", "00:00:00:00", "00:00:00:01", "00:00:00:02"}) {
    EXPECT_EQ(Count(frames, std::string("timecode=") + text), 1u) << text;
  }
  EXPECT_EQ(FrameHashes(path), FrameHashes(source));
}

// ---- Captions ----

TEST(InbandMedia, CaptionsAreFound) {
  const Bytes packet = CaptionPacket(Triplets(20));
  const std::string avc = AvcStream();
  for (const bool lengths : {false, true}) {
    const std::string path = Edit(avc, false, lengths, "captions.264", [&](DFrame* frame, uint32_t) {
      EXPECT_EQ(qlnutilAddAVCCaptions(frame, packet.data(), static_cast<uint32_t>(packet.size()), lengths),
                0);
    });
    EXPECT_EQ(Count(Probe(path, "-show_frames"), "Closed Captions"), 4u);
    EXPECT_EQ(FrameHashes(path), FrameHashes(avc));
    // And by the library's own reader: ten triplets from offset 16.
    for (const Bytes& unit : SplitByteStream(ReadFile(path))) {
      if (unit[0] != 6) continue;
      DFrame frame = {};
      qlnUtilReadH264CaptionsSEI(unit.data(), static_cast<uint32_t>(unit.size()), 29, 0,
                                 DFrameCaption(&frame));
      EXPECT_EQ(frame.captionSize, 49u);
      EXPECT_EQ(Bytes(frame.captionData + 16, frame.captionData + 46), Triplets(10));
    }
  }
  const std::string hevc = HevcStream("inband.265", "yuv420p", "hrd=0");
  const std::string path = Edit(hevc, true, false, "captions.265", [&](DFrame* frame, uint32_t) {
    std::memcpy(frame->captionData, packet.data(), packet.size());
    frame->captionSize = static_cast<uint32_t>(packet.size());
    const uint32_t length = qlnUtilAddHevcCaptions(frame, 0);
    EXPECT_GT(length, 70u);
    frame->frameSize += length;
  });
  EXPECT_EQ(Count(Probe(path, "-show_frames"), "Closed Captions"), 4u);
  EXPECT_EQ(FrameHashes(path), FrameHashes(hevc));
}

TEST(InbandMedia, Mpeg2StillDecodes) {
  const std::string source =
      MediaFile("inband.m2v", kTinySource + "yuv420p -c:v mpeg2video -g 1 -threads 1 -f mpeg2video {out}");
  const Bytes bytes = ReadFile(source);
  TestFrame frame(bytes, bytes.size() + 1000);
  const Bytes packet = CaptionPacket(Triplets(20));
  frame.SetCaption(packet);
  EXPECT_EQ(qlnutilAddMPEG2Captions(frame.get()), 0);
  const std::string path = MediaPath("captions.m2v");
  WriteFile(path, frame.bytes());
  EXPECT_EQ(FrameHashes(path), FrameHashes(source));
}

// ---- HDR and colour ----

TEST(InbandMedia, HdrMetadataIsReadBack) {
  const auto set = [](DFrame* frame, uint32_t fourcc) {
    const double primaries[8] = {0.68, 0.32, 0.265, 0.69, 0.15, 0.06, 0.3125, 0.33};
    std::copy(std::begin(primaries), std::end(primaries), frame->displayPrimaries);
    frame->maxDisplayLuminance = 1000.0;
    frame->minDisplayLuminance = 0.0005;
    frame->maxContentLightLevel = 1203;
    frame->maxFrameAverageLightLevel = 410;
    frame->colorFlags = 0x3DE0;
    EXPECT_GE(qlnutilWrite_HDR_WCG_SEI_Packet(frame, fourcc), 39u);
    // What went in is what the search finds.
    ContentLightRecord light;
    MasteringDisplayRecord display;
    EXPECT_EQ(qlnutilFindColorSEI(frame, &light, &display), 2u);
    EXPECT_EQ(light.max_content_light_level, 1203u);
    EXPECT_EQ(display.maxLuminance, 10000000u);
  };
  const std::string hevc = HevcStream("inband10.265", "yuv420p10le", "hrd=0");
  const std::string avc = AvcStream();
  for (const bool lengths : {false, true}) {
    const std::string path =
        Edit(hevc, true, lengths, "hdr.265", [&](DFrame* frame, uint32_t) { set(frame, kHevc); });
    const std::string frames = Probe(path, "-show_frames");
    EXPECT_EQ(Count(frames, "Mastering display metadata"), 4u);
    for (const char* text :
         {"red_x=34000/50000", "green_y=34500/50000", "blue_x=7500/50000", "white_point_y=16500/50000",
          "min_luminance=5/10000", "max_luminance=10000000/10000", "max_content=1203", "max_average=410"}) {
      EXPECT_EQ(Count(frames, text), 4u) << text;
    }
    EXPECT_EQ(FrameHashes(path), FrameHashes(hevc));
    const std::string avcPath =
        Edit(avc, false, lengths, "hdr.264", [&](DFrame* frame, uint32_t) { set(frame, kAvc); });
    size_t found = 0;
    for (const test::TracedUnit& unit : test::TraceHeaders(avcPath)) {
      // Each message is a unit of the trace.
      if (unit.has("max_content_light_level")) {
        ++found;
        EXPECT_EQ(unit.value("max_content_light_level"), 1203);
        EXPECT_EQ(unit.value("max_pic_average_light_level"), 410);
      }
      if (unit.has("max_display_mastering_luminance")) {
        ++found;
        EXPECT_EQ(unit.value("max_display_mastering_luminance"), 10000000);
        EXPECT_EQ(unit.value("display_primaries_x[0]"), 13250);
        EXPECT_EQ(unit.value("display_primaries_y[2]"), 16000);
      }
    }
    EXPECT_GE(found, 8u);
    EXPECT_EQ(FrameHashes(avcPath), FrameHashes(avc));
  }
}

TEST(InbandMedia, EncodersHdrMetadataIsFound) {
  const std::string path = HevcStream("own-hdr.265", "yuv420p10le",
                                      "hdr10=1:max-cll=999,333:master-display=G(13250,34500)B(7500,3000)R("
                                      "34000,16000)WP(15635,16450)L(10000000,50)");
  for (const std::vector<Bytes>& units : Pictures(path, true)) {
    for (const bool lengths : {false, true}) {
      const Bytes bytes = InForm(units, lengths);
      TestFrame frame(bytes, bytes.size());
      ContentLightRecord light;
      MasteringDisplayRecord display;
      EXPECT_EQ(qlnutilFindColorSEI(frame.get(), &light, &display), 2u);
      EXPECT_EQ(light.max_content_light_level, 999u);
      EXPECT_EQ(light.max_pic_average_light_level, 333u);
      EXPECT_EQ(display.redX, 34000u);
      EXPECT_EQ(display.greenY, 34500u);
      EXPECT_EQ(display.blueY, 3000u);
      EXPECT_EQ(display.whitePointX, 15635u);
      EXPECT_EQ(display.minLuminance, 50u);
      EXPECT_EQ(display.maxLuminance, 10000000u);
    }
  }
}

TEST(InbandMedia, ColourIsRewrittenAndPicturesStay) {
  struct Stream {
    std::string path;
    bool hevc;
  };
  const Stream streams[] = {
      {AvcStream(), false},
      {HevcStream("inband.265", "yuv420p", "hrd=0"), true},
      {HevcStream("inband10.265", "yuv420p10le", "hrd=0"), true},
      {HevcStream("colour.265", "yuv420p", "colorprim=1:transfer=1:colormatrix=1"), true}};
  for (const Stream& stream : streams) {
    for (const bool lengths : {false, true}) {
      const std::string path =
          Edit(stream.path, stream.hevc, lengths, "colour.out", [&](DFrame* frame, uint32_t) {
            frame->colorFlags = QLN_COLOR_PRIMARIES | QLN_COLOR_TRANSFER | QLN_COLOR_MATRIX;
            frame->colourPrimaries = 9;
            frame->transferCharacteristics = 18;
            frame->matrixCoefficients = 9;
            EXPECT_EQ(qlnutilWriteColorimetryToSPS(frame, stream.hevc ? kHevc : kAvc), 1u);
          });
      const std::string format = stream.hevc ? "-f hevc " : "-f h264 ";
      const std::string shown = Probe(path, format + "-show_streams");
      EXPECT_THAT(shown, HasSubstr("color_primaries=bt2020"));
      EXPECT_THAT(shown, HasSubstr("color_transfer=arib-std-b67"));
      EXPECT_THAT(shown, HasSubstr("color_space=bt2020nc"));
      EXPECT_THAT(shown, HasSubstr("color_range=tv"));
      const auto hashes = [&](const std::string& file) {
        return test::Run("ffmpeg -v error " + format + "-i '" + file + "' -f framemd5 - | grep -v '^#'")
            .output;
      };
      EXPECT_EQ(hashes(path), hashes(stream.path));
    }
  }
}

// ---- Interlace ----

TEST(InbandMedia, ProgressivePicturesBecomeFields) {
  const std::string source = HevcStream("fields.265", "yuv420p", "hrd=0:no-open-gop=1");
  const std::vector<std::vector<Bytes>> pictures = Pictures(source, true);
  Bytes out;
  for (size_t i = 0; i + 1 < pictures.size(); i += 2) {
    const Bytes first = InForm(pictures[i], false);
    const Bytes bytes = Join({first, InForm(pictures[i + 1], false)});
    TestFrame frame(bytes, bytes.size());
    frame->fieldFlags = QLN_TWO_FIELDS;
    frame->secondFieldOffset = static_cast<uint32_t>(first.size());
    TestFrame destination({}, bytes.size() + 1000);
    destination->timeCodeA = static_cast<uint32_t>(i);
    HevcSpsRecord host = {};
    host.frame_field_info_present_flag = 1;
    host.vui_time_scale = 25;
    host.vui_num_units_in_tick = 1;
    EXPECT_EQ(qlnutilSetFrameInterlaced(frame.get(), destination.get(), &host, 0),
              pictures[i].size() + pictures[i + 1].size());
    out = Join({out, destination.bytes()});
  }
  const std::string path = MediaPath("fields.out");
  WriteFile(path, out);
  size_t sets = 0;
  for (const test::TracedUnit& unit : test::TraceHeaders(path, "-f hevc")) {
    if (!unit.has("sps_max_sub_layers_minus1")) continue;
    ++sets;
    EXPECT_EQ(unit.value("general_progressive_source_flag"), 0);
    EXPECT_EQ(unit.value("general_interlaced_source_flag"), 1);
    EXPECT_EQ(unit.value("field_seq_flag"), 1);
    EXPECT_EQ(unit.value("frame_field_info_present_flag"), 1);
    EXPECT_EQ(unit.value("aspect_ratio_idc"), 255);
    EXPECT_EQ(unit.value("sar_height"), 2);
    EXPECT_EQ(unit.value("colour_primaries"), 6);
  }
  EXPECT_GE(sets, 4u);
  const test::CommandResult decoded = test::Run("ffmpeg -v error -f hevc -i '" + path + "' -f null -");
  EXPECT_EQ(decoded.exitCode, 0);
  EXPECT_EQ(decoded.output, "");
  EXPECT_EQ(Count(Probe(path, "-f hevc -show_frames"), "interlaced_frame=1"), 4u);
}

TEST(InbandMedia, InterlacedStreamsKeepTheirFlags) {
  const std::string source = HevcStream("interlaced.265", "yuv420p", "interlace=tff:hrd=0");
  const std::vector<std::vector<Bytes>> pictures = Pictures(source, true);
  const Bytes first = InForm(pictures[0], false);
  const Bytes bytes = Join({first, InForm(pictures[1], false)});
  TestFrame frame(bytes, bytes.size());
  frame->fieldFlags = QLN_TWO_FIELDS;
  frame->secondFieldOffset = static_cast<uint32_t>(first.size());
  TestFrame destination({}, bytes.size() + 1000);
  HevcSpsRecord host = {};
  host.frame_field_info_present_flag = 1;
  EXPECT_GT(qlnutilSetFrameInterlaced(frame.get(), destination.get(), &host, 0), 6u);
  const auto flagsOf = [](const std::string& path) {
    std::vector<int64_t> flags;
    for (const test::TracedUnit& unit : test::TraceHeaders(path, "-f hevc")) {
      if (!unit.has("sps_max_sub_layers_minus1") || !flags.empty()) continue;
      for (const char* name : {"general_progressive_source_flag", "general_interlaced_source_flag",
                               "general_frame_only_constraint_flag", "field_seq_flag",
                               "frame_field_info_present_flag", "aspect_ratio_info_present_flag"}) {
        flags.push_back(unit.value(name));
      }
    }
    return flags;
  };
  const std::string path = MediaPath("interlaced.out");
  WriteFile(path, destination.bytes());
  EXPECT_EQ(flagsOf(path), flagsOf(source));
  EXPECT_EQ(flagsOf(source).size(), 6u);
  EXPECT_EQ(flagsOf(source)[0], 0);
  // The source's own prefix SEI are gone; the rewrite's stand in their place.
  for (const Bytes& unit : SplitByteStream(destination.bytes())) {
    if (unit[0] == 0x4E) {
      EXPECT_TRUE(unit[2] == 1 || unit[2] == 136) << int{unit[2]};
    }
  }
  const test::CommandResult decoded = test::Run("ffmpeg -v error -f hevc -i '" + path + "' -f null -");
  EXPECT_EQ(decoded.output, "");
}

}  // namespace
}  // namespace qln
