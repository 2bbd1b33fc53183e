// HEVC configuration records of real files: read as a host reads them, held against an independent reader,
// written again, and taken by an independent demuxer.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>

#include "hevc/unit_builders.h"
#include "media/hevc_streams.h"

namespace qln::test {
namespace {

using testing::IsEmpty;

// Where the hvcC box begins (its size field) and its size.
struct BoxPlace {
  size_t offset = 0;
  size_t size = 0;
};

size_t BigEndian32(const Bytes& bytes, size_t at) {
  return size_t{bytes[at]} << 24 | size_t{bytes[at + 1]} << 16 | size_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

// The last place of a four-character code in front of `end`.
size_t FindCode(const Bytes& file, const char* code, size_t end) {
  for (size_t i = end; i-- > 4;) {
    if (i + 4 <= file.size() && std::memcmp(file.data() + i, code, 4) == 0) return i;
  }
  return 0;
}

BoxPlace FindBox(const Bytes& file) {
  const size_t code = FindCode(file, "hvcC", file.size());
  EXPECT_NE(code, 0u);
  if (code == 0) return {};
  return {code - 4, BigEndian32(file, code - 4)};
}

struct FileParameter {
  HevcRecipe recipe;
  const char* tag;
};

std::vector<FileParameter> Files() {
  std::vector<FileParameter> files;
  for (const HevcRecipe& recipe : kHevcRecipes) {
    const std::string name = recipe.name;
    for (const char* chosen : {"main", "main10", "main422_10", "main12", "gray", "colour", "wavefront",
                               "temporal_layers", "high_tier", "hdr10", "cropped"}) {
      if (name == chosen) files.push_back({recipe, "hvc1"});
    }
    if (name == "main" || name == "hdr10") files.push_back({recipe, "hev1"});
  }
  return files;
}

class HevcFiles : public testing::TestWithParam<FileParameter> {
 protected:
  HevcFiles() : path_(HevcFile(GetParam().recipe, GetParam().tag)), file_(ReadFile(path_)) {
    place_ = FindBox(file_);
    box_ = Bytes(file_.begin() + static_cast<std::ptrdiff_t>(place_.offset),
                 file_.begin() + static_cast<std::ptrdiff_t>(place_.offset + place_.size));
  }

  // The units in the box's arrays, walked on its own.
  std::vector<Bytes> BoxUnits() const {
    std::vector<Bytes> units;
    size_t at = 8 + 22;
    size_t arrays = box_[at++];
    while (arrays-- > 0) {
      size_t count = size_t{box_[at + 1]} << 8 | box_[at + 2];
      at += 3;
      while (count-- > 0) {
        const size_t size = size_t{box_[at]} << 8 | box_[at + 1];
        at += 2;
        units.emplace_back(box_.begin() + static_cast<std::ptrdiff_t>(at),
                           box_.begin() + static_cast<std::ptrdiff_t>(at + size));
        at += size;
      }
    }
    EXPECT_EQ(at, box_.size());
    return units;
  }

  struct Reading {
    uint32_t result = 0;
    HevcConfigRecord config{};
    std::unique_ptr<HevcVpsRecord> vps = std::make_unique<HevcVpsRecord>();
    std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
    std::unique_ptr<HevcPpsRecord> pps = std::make_unique<HevcPpsRecord>();
    std::vector<std::string> messages;
  };

  static Reading ReadBox(const Bytes& box, bool withRecords) {
    ExactCopy copy(box);
    QLNBitState state{copy.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8),
                      0};
    Reading reading;
    MessageCapture capture;
    reading.result = qlnutilRead_HEVC_CR(&state, &reading.config, withRecords ? reading.vps.get() : nullptr,
                                         withRecords ? reading.sps.get() : nullptr,
                                         withRecords ? reading.pps.get() : nullptr);
    reading.messages = capture.textsWithoutLines();
    return reading;
  }

  std::string path_;
  Bytes file_;
  BoxPlace place_;
  Bytes box_;
};

TEST_P(HevcFiles, HeadFieldsAreThoseOfTheBox) {
  const Reading reading = ReadBox(box_, false);
  const CommandResult dump = test::Run("mediainfo --Details=1 '" + path_ + "'");
  // Lines like "0E02   general_level_idc:   30 (0x1E)" between the box's name and its arrays.
  std::map<std::string, uint64_t> fields;
  std::istringstream lines(dump.output);
  bool inside = false;
  for (std::string line; std::getline(lines, line);) {
    if (line.find("Name:") != std::string::npos && line.find("hvcC") != std::string::npos) inside = true;
    if (!inside) continue;
    const size_t colon = line.find(':');
    if (colon == std::string::npos) continue;
    const size_t name = line.find_first_not_of(' ', line.find(' '));
    const size_t value = line.find_first_not_of(' ', colon + 1);
    if (value == std::string::npos) continue;
    const std::string text = line.substr(value);
    const uint64_t number = text.starts_with("Yes")  ? 1
                            : text.starts_with("No") ? 0
                                                     : std::strtoull(text.c_str(), nullptr, 10);
    fields.emplace(line.substr(name, colon - name), number);
    if (fields.contains("numOfArrays")) break;
  }
  const HevcConfigRecord& c = reading.config;
  const std::map<std::string, uint64_t> read = {
      {"configurationVersion", c.configurationVersion},
      {"general_profile_space", c.general_profile_space},
      {"general_tier_flag", c.general_tier_flag},
      {"general_profile_idc", c.general_profile_idc},
      {"general_profile_compatibility_flags", c.general_profile_compatibility_flags},
      {"general_constraint_indicator_flags", c.general_constraint_indicator_flags},
      {"general_level_idc", c.general_level_idc},
      {"min_spatial_segmentation_idc", c.min_spatial_segmentation_idc},
      {"parallelismType", c.parallelismType},
      {"chromaFormat", c.chromaFormat},
      {"bitDepthLumaMinus8", c.bitDepthLumaMinus8},
      {"bitDepthChromaMinus8", c.bitDepthChromaMinus8},
      {"avgFrameRate", c.avgFrameRate},
      {"constantFrameRate", c.constantFrameRate},
      {"numTemporalLayers", c.numTemporalLayers},
      {"temporalIdNested", c.temporalIdNested},
      {"lengthSizeMinusOne", c.lengthSizeMinusOne},
      {"numOfArrays", c.numOfArrays}};
  for (const auto& [name, value] : read) {
    ASSERT_TRUE(fields.contains(name)) << name;
    EXPECT_EQ(value, fields[name]) << name;
  }
}

TEST_P(HevcFiles, UnitsFillTheRecordsAndFold) {
  const std::vector<Bytes> units = BoxUnits();
  const Reading reading = ReadBox(box_, true);
  const Bytes vps = FirstUnit(units, 32);
  const Bytes sps = FirstUnit(units, 33);
  const Bytes pps = FirstUnit(units, 34);
  EXPECT_EQ(Words(*reading.vps), Words(ReadVps(vps).record()));
  EXPECT_EQ(Words(*reading.sps), Words(ReadSps(sps).record()));
  EXPECT_EQ(Words(*reading.pps), Words(ReadPps(pps).record()));
  // The box ends in an array of SEI, which there is no way past: the length message is normal.
  if (!FirstUnit(units, 39).empty()) {
    ASSERT_FALSE(reading.messages.empty());
    EXPECT_EQ(reading.messages[0].rfind("Hevc read is not the same length as entry size (", 0), 0u);
  } else {
    EXPECT_THAT(reading.messages, IsEmpty());
    EXPECT_EQ(reading.result, box_.size());
  }
  EXPECT_EQ(reading.config.bitDepthLumaMinus8, reading.sps->bit_depth_luma_minus8);
  EXPECT_EQ(reading.config.chromaFormat, reading.sps->chroma_format_idc);
  EXPECT_EQ(reading.config.general_level_idc, reading.sps->profile_tier_level.general_level_idc);
  EXPECT_EQ(reading.config.parallelismType, reading.pps->entropy_coding_sync_enabled_flag ? 3u : 1u);
}

// A file in which the box holds what the library wrote is read by the demuxer with the same parameter sets.
TEST_P(HevcFiles, WrittenRecordsAreTaken) {
  const std::vector<Bytes> units = BoxUnits();
  const Bytes vps = FirstUnit(units, 32);
  const Bytes sps = FirstUnit(units, 33);
  const Bytes pps = FirstUnit(units, 34);
  Reading reading = ReadBox(box_, false);
  reading.config.numOfArrays = 3;
  Bytes body(box_.size() + 64);
  QLNBitState state{body.data(), static_cast<int32_t>(body.size()), 0, 0};
  body.resize(qlnutilWrite_HEVC_CR(&state, &reading.config, vps.data(), sps.data(), pps.data(),
                                   static_cast<int32_t>(vps.size()), static_cast<int32_t>(sps.size()),
                                   static_cast<int32_t>(pps.size())));
  ASSERT_EQ(body.size(), 23 + 15 + vps.size() + sps.size() + pps.size());

  // The boxes around it shrink by as much; the media data stands in front of them.
  Bytes file = file_;
  const size_t smaller = box_.size() - 8 - body.size();
  for (const char* code : {"moov", "trak", "mdia", "minf", "stbl", "stsd", GetParam().tag, "hvcC"}) {
    const size_t at = FindCode(file, code, place_.offset + 5);
    ASSERT_GT(at, 4u) << code;
    const size_t size = BigEndian32(file, at - 4) - smaller;
    for (size_t i = 0; i < 4; ++i) file[at - 4 + i] = static_cast<uint8_t>(size >> (24 - 8 * i));
  }
  ASSERT_GT(FindCode(file, "moov", place_.offset), FindCode(file, "mdat", place_.offset));
  const auto first = file.begin() + static_cast<std::ptrdiff_t>(place_.offset + 8);
  file.erase(first, first + static_cast<std::ptrdiff_t>(smaller));
  std::copy(body.begin(), body.end(), file.begin() + static_cast<std::ptrdiff_t>(place_.offset + 8));
  const std::string patched =
      MediaPath("rewritten_" + std::string(GetParam().recipe.name) + GetParam().tag + ".mp4");
  WriteFile(patched, file);

  const CommandResult frames = test::Run("ffmpeg -v error -nostdin -xerror -i '" + patched + "' -f null -");
  EXPECT_EQ(frames.exitCode, 0) << frames.output;
  const std::string stream = patched + ".hevc";
  const CommandResult copied = test::Run("ffmpeg -v error -y -nostdin -i '" + patched +
                                         "' -c copy -bsf:v hevc_mp4toannexb -f hevc '" + stream + "'");
  EXPECT_EQ(copied.exitCode, 0) << copied.output;
  const auto back = SplitByteStream(ReadFile(stream));
  EXPECT_EQ(FirstUnit(back, 32), vps);
  EXPECT_EQ(FirstUnit(back, 33), sps);
  EXPECT_EQ(FirstUnit(back, 34), pps);
  // And by the library, with any eight bytes in front.
  const Reading again = ReadBox(Join({Hex("01 02 03 04 05 06 07 08"), body}), true);
  EXPECT_THAT(again.messages, IsEmpty());
  EXPECT_EQ(again.result, 8 + body.size());
  EXPECT_EQ(Words(*again.sps), Words(ReadSps(sps).record()));
}

INSTANTIATE_TEST_SUITE_P(All, HevcFiles, testing::ValuesIn(Files()), [](const auto& instance) {
  return std::string(instance.param.recipe.name) + "_" + instance.param.tag;
});

}  // namespace
}  // namespace qln::test
