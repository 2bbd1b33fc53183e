// Headers of real AAC streams, ADTS and MP4, against what ffprobe says of the same files.

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "qlnutil/qlnaac.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

struct Case {
  std::string layout;
  uint32_t channels;
  uint32_t channelConfiguration;
  uint32_t rate;
};

std::vector<Case> Cases() {
  std::vector<Case> cases = {{"mono", 1, 1, 48000},     {"3.0", 3, 3, 48000}, {"4.0", 4, 4, 48000},
                             {"5.0", 5, 5, 48000},      {"5.1", 6, 6, 44100}, {"7.1", 8, 7, 48000},
                             {"octagonal", 8, 0, 48000}};  // the last one's places stand in the payload
  for (const uint32_t rate : {96000u, 88200u, 64000u, 48000u, 44100u, 32000u, 24000u, 22050u, 16000u, 12000u,
                              11025u, 8000u, 7350u}) {
    cases.push_back({"stereo", 2, 2, rate});
  }
  return cases;
}

std::string AdtsFile(const Case& c) {
  return MediaFile(
      "aac-" + c.layout + "-" + std::to_string(c.rate) + ".aac",
      "ffmpeg -v error -y -f lavfi -i 'aevalsrc=sin(2764*t)*random(0):s=" + std::to_string(c.rate) +
          ":d=0.25,aformat=channel_layouts=" + c.layout + "' -threads 1 -c:a aac -f adts {out}");
}

std::string Mp4File(const Case& c) {
  const std::string adts = AdtsFile(c);
  return MediaFile("aac-" + c.layout + "-" + std::to_string(c.rate) + ".mp4",
                   "ffmpeg -v error -y -i '" + adts + "' -c copy -f mp4 {out}");
}

std::vector<std::string> ProbeLines(const std::string& entries, const std::string& file) {
  const CommandResult result =
      Run("ffprobe -v error -of default=nw=1:nk=1 -show_entries " + entries + " '" + file + "'");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  std::vector<std::string> lines;
  std::istringstream text(result.output);
  for (std::string line; std::getline(text, line);) {
    if (!line.empty()) lines.push_back(line);
  }
  return lines;
}

// The AudioSpecificConfig of an MP4 file, out of ffprobe's dump: "00000000: 1190 56e5  ..V.".
Bytes Extradata(const std::string& file) {
  const CommandResult result =
      Run("ffprobe -v error -show_data -show_entries stream=extradata '" + file + "'");
  Bytes bytes;
  std::istringstream text(result.output);
  for (std::string line; std::getline(text, line);) {
    if (line.size() < 10 || line[8] != ':') continue;
    const size_t end = line.find("  ", 10);
    for (const uint8_t byte : Hex(line.substr(10, end - 10))) bytes.push_back(byte);
  }
  return bytes;
}

// The frame lengths of an ADTS file as our reader walks it; each header is checked and written back.
std::vector<std::string> WalkFrames(const Case& c, const Bytes& file, uint32_t rateIndex) {
  std::vector<std::string> lengths;
  for (size_t at = 0; at + 9 <= file.size();) {
    ExactCopy copy(Bytes(file.begin() + static_cast<long>(at), file.begin() + static_cast<long>(at) + 9), 1);
    QLNBitState state{copy.data(), 9, 72, 0};
    QLNAdtsHeader header = {};
    qlnutilReadADTS(&state, &header);
    EXPECT_EQ(state.bitPos, 72u);
    EXPECT_EQ(header.syncword, 0xFFFu);
    EXPECT_EQ(header.ID, 0u);
    EXPECT_EQ(header.layer, 0u);
    EXPECT_EQ(header.protection_absent, 1u);
    EXPECT_EQ(header.profile, 1u);
    EXPECT_EQ(header.sampling_frequency_index, rateIndex);
    EXPECT_EQ(header.channel_configuration, c.channelConfiguration);
    EXPECT_EQ(header.number_of_raw_data_blocks_in_frame, 0u);
    // The stream has no CRC: what is taken for one are the first two bytes of the payload.
    EXPECT_EQ(header.crc_check, static_cast<uint32_t>(file[at + 7] << 8 | file[at + 8]));

    Bytes written(10, 0xEE);
    QLNBitState out{written.data(), 10, 80, 0};
    qlnutilWriteADTS(&out, &header);
    EXPECT_EQ(out.bitPos, 72u);
    EXPECT_EQ(std::memcmp(written.data(), file.data() + at, 9), 0);
    EXPECT_EQ(written[9], 0xEE);

    lengths.push_back(std::to_string(header.aac_frame_length));
    if (header.aac_frame_length < 7) {
      ADD_FAILURE() << "a frame of " << header.aac_frame_length << " bytes";
      break;
    }
    at += header.aac_frame_length;
  }
  return lengths;
}

class RealAac : public testing::TestWithParam<Case> {};

TEST_P(RealAac, HeadersAreWhatFfprobeSays) {
  const Case& c = GetParam();
  const std::string mp4 = Mp4File(c);
  const Bytes config = Extradata(mp4);
  ASSERT_GE(config.size(), 2u);
  ExactCopy copy(config, 1);
  QLNBitState state{copy.data(), static_cast<int32_t>(config.size()),
                    static_cast<uint32_t>(config.size() * 8), 0};
  QLNAacConfig read = {};
  EXPECT_EQ(qlnutilReadAAC(&state, &read), 0);
  EXPECT_EQ(state.bitPos, 16u);
  EXPECT_EQ(read.audioObjectType, 2u);
  EXPECT_EQ(read.channelConfiguration, c.channelConfiguration);
  EXPECT_EQ(read.frameLengthFlag, 0u);
  EXPECT_EQ(read.dependsOnCoreCoder, 0u);
  EXPECT_EQ(read.extensionFlag, 0u);
  EXPECT_EQ(ProbeLines("stream=sample_rate,channels", mp4),
            (std::vector<std::string>{std::to_string(read.samplingFrequency), std::to_string(c.channels)}));
  EXPECT_EQ(read.samplingFrequency, c.rate);

  Bytes written(3, 0xEE);
  QLNBitState out{written.data(), 3, 24, 0};
  qlnutilWriteAAC(&out, &read);
  EXPECT_EQ(ToHex(written), ToHex(config.data(), 2) + " EE");

  const std::string adts = AdtsFile(c);
  EXPECT_EQ(WalkFrames(c, ReadFile(adts), read.samplingFrequencyIndex), ProbeLines("packet=size", adts));
}

INSTANTIATE_TEST_SUITE_P(LayoutsAndRates, RealAac, testing::ValuesIn(Cases()), [](const auto& instance) {
  std::string name = instance.param.layout + "_" + std::to_string(instance.param.rate);
  for (char& c : name) c = c == '.' ? '_' : c;
  return name;
});

}  // namespace
}  // namespace qln::test
