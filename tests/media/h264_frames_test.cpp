// What is put in front of real H.264 frames, as independent readers and decoders see it.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>

#include "media/h264_streams.h"

namespace qln::test {
namespace {

uint32_t Number32(const Bytes& bytes, size_t at) {
  return uint32_t{bytes[at]} << 24 | uint32_t{bytes[at + 1]} << 16 | uint32_t{bytes[at + 2]} << 8 |
         bytes[at + 3];
}

// An MP4 file with its avcC box exchanged, and the sizes of all boxes around it.
Bytes WithOtherAvcc(Bytes file, const Bytes& box) {
  // Bytes of each box in front of its children.
  static const std::map<std::string, size_t> kHeads = {{"moov", 8}, {"trak", 8},  {"mdia", 8}, {"minf", 8},
                                                       {"stbl", 8}, {"stsd", 16}, {"avc1", 86}};
  size_t at = 0;
  size_t end = file.size();
  std::vector<size_t> around;
  while (at + 8 <= end) {
    const size_t size = Number32(file, at);
    const std::string type(file.begin() + static_cast<std::ptrdiff_t>(at + 4),
                           file.begin() + static_cast<std::ptrdiff_t>(at + 8));
    if (type == "avcC") {
      around.push_back(at);
      for (const size_t outer : around) {
        const size_t grown = Number32(file, outer) + box.size() - size;
        for (size_t i = 0; i < 4; ++i) file[outer + i] = static_cast<uint8_t>(grown >> (24 - 8 * i));
      }
      const auto begin = file.begin() + static_cast<std::ptrdiff_t>(at);
      file.erase(begin, begin + static_cast<std::ptrdiff_t>(size));
      file.insert(file.begin() + static_cast<std::ptrdiff_t>(at), box.begin(), box.end());
      return file;
    }
    if (kHeads.count(type) != 0) {
      around.push_back(at);
      end = at + size;
      at += kHeads.at(type);
    } else if (size < 8) {
      break;
    } else {
      at += size;
    }
  }
  ADD_FAILURE() << "no avcC";
  return file;
}

// A box built from a frame whose SPS and PPS have one size (zero bytes behind the PPS make up for the
// difference) stands in for the muxer's own.
TEST(H264Streams, ABuiltBoxIsTakenByAnIndependentReader) {
  for (const char* const name :
       {"baseline", "baseline_slices", "zerolatency", "high_intra", "high_422_10_intra"}) {
    SCOPED_TRACE(name);
    const Encode* encode = std::find_if(std::begin(kEncodes), std::end(kEncodes),
                                        [&](const Encode& e) { return std::string(e.name) == name; });
    const std::string stream = File(*encode);
    // No picture is reordered, as a byte stream has no times to restore. The index stands behind the
    // pictures, so that nothing in it moves with its size.
    const std::string file =
        MediaFile(std::string("h264_box_") + name + ".mp4",
                  "ffmpeg -hide_banner -v error -nostdin -i '" + stream + "' -c copy -an -f mp4 {out}");
    const Bytes sps = Units(stream, {7}).at(0);
    Bytes pps = Units(stream, {8}).at(0);
    ASSERT_LE(pps.size(), sps.size());
    pps.resize(sps.size(), 0);
    Bytes content = test::Join(
        {test::WithLength(sps), test::WithLength(pps), test::WithLength(Units(stream, {5}).at(0))});
    DFrame frame{};
    frame.frameData = content.data();
    frame.frameSize = static_cast<uint32_t>(content.size());
    Bytes box(14 + 2 + sps.size() + 3 + sps.size());
    ASSERT_EQ(qlnutilGetAvcc(&frame, box.data()), box.size());

    const std::string patched = test::MediaPath(std::string("h264_box_") + name + "_built.mp4");
    test::WriteFile(patched, WithOtherAvcc(test::ReadFile(file), box));
    const auto pictures = [](const std::string& path) {
      return test::Run("ffmpeg -hide_banner -v warning -nostdin -i '" + path +
                       "' -map 0:v:0 -fps_mode passthrough -f framemd5 - | grep -v '^#' | cut -d, -f6")
          .output;
    };
    const std::string expected = pictures(file);
    EXPECT_EQ(std::count(expected.begin(), expected.end(), '\n'), 8) << expected;
    EXPECT_EQ(pictures(patched), expected);
    const auto profile = test::Run(
        "ffprobe -v error -show_entries stream=profile,level,width,height,extradata_size "
        "-of csv=p=0 '" +
        patched + "'");
    EXPECT_NE(profile.output.find(std::to_string(box.size() - 8)), std::string::npos) << profile.output;
  }
}

// Units in front of real frames: the pictures are the same, nothing is complained about, and the values that
// went in are read back.
TEST(H264Streams, AddedUnitsDecodeQuietlyAndReadBack) {
  const std::string file = MediaFile(
      "h264_for_units.264",
      std::string("ffmpeg -hide_banner -v error -nostdin -f lavfi -i '") + kSmall +
          "' -frames:v 12 -c:v libx264 -threads 1 -x264-params "
          "keyint=4:bframes=0:nal-hrd=vbr:vbv-maxrate=900:vbv-bufsize=950:pic-struct=1 -f h264 {out}");
  const std::vector<Bytes> units = Units(file, {1, 5, 7, 8});
  const Bytes spsUnit = Units(file, {7}).at(0);
  Bytes plain;
  Bytes stream;
  Bytes pending;
  uint32_t pictures = 0;
  uint32_t intra = 0;
  for (const Bytes& unit : units) {
    pending = test::Join({pending, test::WithLength(unit)});
    const uint32_t type = unit[0] % 32u;
    if (type != 1 && type != 5) continue;
    const uint32_t size = static_cast<uint32_t>(pending.size());
    pending.resize(size + 512);
    DFrame frame{};
    frame.frameType = type == 5 ? 0x10000000u : 0x80000000u;
    frame.frameData = pending.data();
    frame.frameSize = size;
    frame.frameCapacity = size + 512;
    const uint8_t sei = pictures != 0;
    qlnutilAddNalUnits(&frame, spsUnit.data(), static_cast<int32_t>(spsUnit.size()), 1, sei, sei, sei, 4321,
                       99, 2 * pictures, 2, 1);
    EXPECT_GT(frame.frameSize, size);
    EXPECT_EQ(qlnUtilh264SizeToMarker(frame.frameData, frame.frameSize), frame.frameSize);
    stream.insert(stream.end(), pending.begin(), pending.begin() + frame.frameSize);
    pending.clear();
    intra += type == 5 && sei != 0;
    ++pictures;
  }
  ASSERT_EQ(pictures, 12u);
  ASSERT_EQ(intra, 2u);
  const std::string added = test::MediaPath("h264_units_added.264");
  test::WriteFile(added, stream);

  const std::string decode =
      "ffmpeg -hide_banner -v warning -nostdin -i '%' -f framemd5 - | grep -v '^#' | cut -d, -f6";
  const auto pixels = [&](const std::string& path) {
    std::string command = decode;
    command.replace(command.find('%'), 1, path);
    return test::Run(command).output;
  };
  EXPECT_EQ(pixels(added), pixels(file));

  const std::vector<TracedUnit> trace = TraceHeaders(added);
  std::map<std::string, std::vector<int64_t>> seen;
  for (const TracedUnit& unit : trace) {
    for (const TracedElement& element : unit.elements) {
      seen[element.name.substr(0, element.name.find('['))].push_back(element.value);
    }
  }
  EXPECT_EQ(seen["initial_cpb_removal_delay"], (std::vector<int64_t>{4321, 4321}));
  EXPECT_EQ(seen["initial_cpb_removal_delay_offset"], (std::vector<int64_t>{99, 99}));
  EXPECT_EQ(seen["recovery_frame_cnt"], (std::vector<int64_t>{0, 0}));
  std::vector<int64_t> delays;
  for (int64_t i = 1; i < 12; ++i) delays.push_back(2 * i);
  EXPECT_EQ(seen["cpb_removal_delay"], delays);
  EXPECT_EQ(seen["dpb_output_delay"], std::vector<int64_t>(11, 2));
  EXPECT_EQ(seen["counting_type"], std::vector<int64_t>(11, 3));
  EXPECT_EQ(seen["primary_pic_type"].size(), 12u);
}

}  // namespace
}  // namespace qln::test
