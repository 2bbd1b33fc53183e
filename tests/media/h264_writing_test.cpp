// H.264 sets read and written back: the same bytes, or what an independent reader makes of them.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "media/h264_streams.h"

namespace qln::test {
namespace {

// Rewrites by ffmpeg's own writer.
const char* const kRewrites[] = {
    "sample_aspect_ratio=4/3",
    "overscan_appropriate_flag=1",
    "video_format=2:video_full_range_flag=1",
    "colour_primaries=9:transfer_characteristics=16:matrix_coefficients=9",
    "chroma_sample_loc_type=3",
    "tick_rate=60000/1001",
    "crop_left=2:crop_right=4:crop_top=4:crop_bottom=4",
    "level=5.1",
};

void ExpectSetsToSurvive(const std::string& file) {
  for (const Bytes& unit : Units(file, {7})) {
    const H264SpsRecord sps = Read<H264SpsRecord>(qlnutilRead_SPS, unit).record;
    if (sps.seq_scaling_matrix_present_flag == 0) {
      EXPECT_EQ(test::ToHex(Write(qlnutilWrite_SPS, sps)), test::ToHex(unit));
      continue;
    }
    // Only the lists change, and they do.
    const H264SpsRecord again = Read<H264SpsRecord>(qlnutilRead_SPS, Write(qlnutilWrite_SPS, sps)).record;
    H264SpsRecord restored = again;
    std::memcpy(restored.ScalingList4x4, sps.ScalingList4x4, sizeof sps.ScalingList4x4);
    std::memcpy(restored.ScalingList8x8, sps.ScalingList8x8, sizeof sps.ScalingList8x8);
    EXPECT_EQ(std::memcmp(&restored, &sps, sizeof sps), 0);
    EXPECT_NE(std::memcmp(&again, &sps, sizeof sps), 0);
  }
  for (const Bytes& unit : Units(file, {8})) {
    const H264PpsRecord pps = Read<H264PpsRecord>(qlnutilRead_PPS, unit).record;
    // A matrix whose lists all fall back has no entries that could change.
    const bool hasLists =
        pps.pic_scaling_matrix_present_flag != 0 &&
        std::any_of(std::begin(pps.pic_scaling_list_present_flag),
                    std::end(pps.pic_scaling_list_present_flag), [](uint32_t flag) { return flag != 0; });
    if (!hasLists) {
      EXPECT_EQ(test::ToHex(Write(qlnutilWrite_PPS, pps)), test::ToHex(unit));
      continue;
    }
    const H264PpsRecord again = Read<H264PpsRecord>(qlnutilRead_PPS, Write(qlnutilWrite_PPS, pps)).record;
    H264PpsRecord restored = again;
    std::memcpy(restored.ScalingList4x4, pps.ScalingList4x4, sizeof pps.ScalingList4x4);
    std::memcpy(restored.ScalingList8x8, pps.ScalingList8x8, sizeof pps.ScalingList8x8);
    EXPECT_EQ(std::memcmp(&restored, &pps, sizeof pps), 0);
    EXPECT_NE(std::memcmp(&again, &pps, sizeof pps), 0);
  }
}

TEST(H264Streams, ParameterSetsSurviveAReadAndAWrite) {
  size_t streams = 0;
  size_t index = 0;
  for (const Encode& encode : kEncodes) {
    SCOPED_TRACE(encode.name);
    const std::string file = File(encode);
    ExpectSetsToSurvive(file);
    ++streams;
    const std::string rewrite = kRewrites[index++ % std::size(kRewrites)];
    SCOPED_TRACE(rewrite);
    ExpectSetsToSurvive(MediaFile(std::string("h264_") + encode.name + "_rewritten.264",
                                  "ffmpeg -hide_banner -v error -nostdin -i '" + file +
                                      "' -c copy -bsf:v h264_metadata=" + rewrite + " -f h264 {out}"));
    ++streams;
  }
  EXPECT_GE(streams, 60u);
}

// Entries of scaling lists are written as they stand: an independent reader finds them in the place of the
// differences, and every other element as it was.
TEST(H264Streams, RewrittenScalingListsHoldTheirEntriesAsDifferences) {
  size_t entries = 0;
  for (const Encode& encode : kEncodes) {
    if (!StartsWith(encode.name, "scaling") || std::string(encode.name) == "scaling_444") continue;
    SCOPED_TRACE(encode.name);
    const std::string file = File(encode);
    Bytes stream;
    std::vector<H264PpsRecord> sets;
    for (const Bytes& unit : SplitByteStream(test::ReadFile(file))) {
      const bool isPps = unit[0] % 32u == 8;
      if (isPps) sets.push_back(Read<H264PpsRecord>(qlnutilRead_PPS, unit).record);
      stream = test::Join({stream, test::WithStartCode(isPps ? Write(qlnutilWrite_PPS, sets.back()) : unit)});
    }
    const std::string rewritten = test::MediaPath(std::string("h264_") + encode.name + "_lists.264");
    test::WriteFile(rewritten, stream);
    const auto before = Traced(TraceHeaders(file), "Picture Parameter Set", sets.size());
    const auto after = Traced(TraceHeaders(rewritten), "Picture Parameter Set", sets.size());
    ASSERT_EQ(before.size(), sets.size());
    ASSERT_EQ(after.size(), sets.size());
    for (size_t i = 0; i < sets.size(); ++i) {
      const int32_t* entry = nullptr;
      std::vector<std::pair<std::string, int64_t>> kept;
      for (const TracedElement& element : after[i].elements) {
        if (StartsWith(element.name, "delta_scale")) {
          ASSERT_NE(entry, nullptr);
          EXPECT_EQ(element.value, *entry++);
          ++entries;
          continue;
        }
        kept.emplace_back(element.name, element.value);
        if (!StartsWith(element.name, "pic_scaling_list_present_flag[")) continue;
        const size_t list = std::stoul(element.name.substr(element.name.find('[') + 1));
        entry = list < 6 ? sets[i].ScalingList4x4[list] : sets[i].ScalingList8x8[list - 6];
      }
      std::vector<std::pair<std::string, int64_t>> expected;
      for (const TracedElement& element : before[i].elements) {
        if (!StartsWith(element.name, "delta_scale")) expected.emplace_back(element.name, element.value);
      }
      // The padding behind the longer lists may differ.
      const auto unpadded = [](auto& list) {
        while (!list.empty() && list.back().first == "rbsp_alignment_zero_bit") list.pop_back();
      };
      unpadded(kept);
      unpadded(expected);
      EXPECT_EQ(kept, expected);
    }
  }
  EXPECT_GT(entries, 100u);
}

}  // namespace
}  // namespace qln::test
