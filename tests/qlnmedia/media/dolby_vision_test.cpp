// Dolby Vision in inspect: a real encode with RPU units put in by hand, its configuration written by an
// independent muxer and by the library, and read by independent tools beside inspect.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "container/libav_handles.h"
#include "qlnmedia/program.h"
#include "qlnutil/qlnhevc.h"

extern "C" {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wpedantic"
#include <libavutil/dovi_meta.h>
#pragma GCC diagnostic pop
}

namespace qln::test {
namespace {

using testing::HasSubstr;
using Json = nlohmann::ordered_json;

const char* const kFields[] = {
    "dv_version_major", "dv_version_minor", "dv_profile",      "dv_level",
    "rpu_present_flag", "el_present_flag",  "bl_present_flag", "dv_bl_signal_compatibility_id"};

Json Parsed(const CommandResult& result) {
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return Json::parse(result.output, nullptr, false);
}

Json Stream(const std::string& file) {
  return Parsed(Qlnmedia("inspect --json --units '" + file + "'"))["streams"][0];
}

// The configuration as ffprobe shows it.
Json ProbedConfiguration(const std::string& file) {
  const Json probe = Parsed(Run("ffprobe -v quiet -of json -show_streams '" + file + "'"));
  for (const Json& data : probe["streams"][0]["side_data_list"]) {
    if (data["side_data_type"] == "DOVI configuration record") return data;
  }
  return nullptr;
}

void ExpectProbedConfiguration(const std::string& file) {
  const Json record = Stream(file)["dolby_vision"];
  const Json probed = ProbedConfiguration(file);
  ASSERT_TRUE(record.is_object());
  ASSERT_TRUE(probed.is_object());
  for (const char* field : kFields) EXPECT_EQ(record[field], probed[field]) << field;
}

constexpr size_t kRpuSize = 40;  // of the first frame's unit, header included; each frame has one byte more

// What a frame's RPU unit is made of here: its header and bytes that nobody takes apart.
Bytes RpuUnit(size_t frame) {
  Bytes unit = {62 << 1, 1, 0x19};
  unit.resize(kRpuSize + frame, static_cast<uint8_t>(0x41 + frame));
  unit.back() = 0x80;
  return unit;
}

// A raw stream without reordering, an RPU behind the slice of each frame.
std::string RawStream() {
  const std::string plain =
      MediaFile("dolby-plain.hevc",
                "ffmpeg -v error -y -f lavfi -i testsrc2=s=192x112:r=25:d=0.2 -c:v libx265 -pix_fmt "
                "yuv420p10le -x265-params bframes=0:repeat-headers=1:pools=1:frame-threads=1:log-level=none "
                "{out}");
  Bytes stream;
  size_t frame = 0;
  for (const Bytes& unit : SplitByteStream(ReadFile(plain))) {
    const Bytes code = {0, 0, 1};  // muxers leave the zero of a longer one behind the unit in front of it
    stream.insert(stream.end(), code.begin(), code.end());
    stream.insert(stream.end(), unit.begin(), unit.end());
    if ((unit[0] >> 1 & 63) >= 32) continue;
    stream.insert(stream.end(), code.begin(), code.end());
    const Bytes rpu = RpuUnit(frame++);
    stream.insert(stream.end(), rpu.begin(), rpu.end());
  }
  const std::string path = MediaPath("dolby.hevc");
  WriteFile(path, stream);
  return path;
}

// Copies a raw stream into a container, with a configuration beside it if there is one.
std::string Mux(const std::string& raw, const std::string& name,
                const AVDOVIDecoderConfigurationRecord* record) {
  const std::string path = MediaPath(name);
  AVFormatContext* in = nullptr;
  AVFormatContext* out = nullptr;
  EXPECT_EQ(avformat_open_input(&in, raw.c_str(), nullptr, nullptr), 0);
  EXPECT_GE(avformat_find_stream_info(in, nullptr), 0);
  EXPECT_GE(avformat_alloc_output_context2(&out, nullptr, nullptr, path.c_str()), 0);
  out->strict_std_compliance = FF_COMPLIANCE_UNOFFICIAL;
  AVStream* const stream = avformat_new_stream(out, nullptr);
  EXPECT_GE(avcodec_parameters_copy(stream->codecpar, in->streams[0]->codecpar), 0);
  stream->codecpar->codec_tag = name.ends_with(".mp4") ? MKTAG('h', 'v', 'c', '1') : 0;
  stream->time_base = {1, 25};
  if (record != nullptr) {
    size_t size = 0;
    AVDOVIDecoderConfigurationRecord* const copy = av_dovi_alloc(&size);
    *copy = *record;
    EXPECT_EQ(av_stream_add_side_data(stream, AV_PKT_DATA_DOVI_CONF, reinterpret_cast<uint8_t*>(copy), size),
              0);
  }
  EXPECT_GE(avio_open(&out->pb, path.c_str(), AVIO_FLAG_WRITE), 0);
  EXPECT_GE(avformat_write_header(out, nullptr), 0);
  AVPacket* packet = av_packet_alloc();
  for (int64_t n = 0; av_read_frame(in, packet) >= 0; ++n) {
    packet->pts = packet->dts = av_rescale_q(n, {1, 25}, stream->time_base);
    packet->duration = av_rescale_q(1, {1, 25}, stream->time_base);
    EXPECT_GE(av_interleaved_write_frame(out, packet), 0);
  }
  EXPECT_EQ(av_write_trailer(out), 0);
  av_packet_free(&packet);
  avio_closep(&out->pb);
  avformat_free_context(out);
  avformat_close_input(&in);
  return path;
}

TEST(InspectDolbyVision, ConfigurationAndUnitsOfEveryContainer) {
  const AVDOVIDecoderConfigurationRecord records[] = {{1, 0, 5, 6, 1, 0, 1, 0}, {1, 0, 8, 9, 1, 1, 1, 4}};
  const std::string raw = RawStream();
  for (const AVDOVIDecoderConfigurationRecord& record : records) {
    for (const char* kind : {"mp4", "mkv"}) {
      SCOPED_TRACE(kind);
      const std::string file = Mux(raw, "dolby-" + std::to_string(record.dv_profile) + "." + kind, &record);
      const Json stream = Stream(file);
      EXPECT_EQ(stream["dolby_vision"]["dv_profile"], record.dv_profile);
      EXPECT_EQ(stream["dolby_vision"]["dv_level"], record.dv_level);
      EXPECT_EQ(stream["dolby_vision"]["dv_bl_signal_compatibility_id"],
                record.dv_bl_signal_compatibility_id);
      ExpectProbedConfiguration(file);
    }
  }
  const std::string text = Qlnmedia("inspect --units '" + MediaPath("dolby-5.mp4") + "'").output;
  EXPECT_THAT(text, HasSubstr("Dolby Vision configuration"));
  EXPECT_THAT(text, HasSubstr("Dolby Vision RPU"));
}

TEST(InspectDolbyVision, AnotherIndependentReaderAgrees) {
  const AVDOVIDecoderConfigurationRecord record = {1, 0, 5, 6, 1, 0, 1, 0};
  const std::string file = Mux(RawStream(), "dolby-info.mp4", &record);
  const Json track = Parsed(test::Run("mediainfo --Output=JSON '" + file + "'"))["media"]["track"][1];
  const Json ours = Stream(file)["dolby_vision"];
  EXPECT_THAT(track["HDR_Format"].get<std::string>(), HasSubstr("Dolby Vision"));
  EXPECT_THAT(track["HDR_Format_Version"].get<std::string>(),
              HasSubstr(std::to_string(ours["dv_version_major"].get<int>()) + "." +
                        std::to_string(ours["dv_version_minor"].get<int>())));
  EXPECT_THAT(track["HDR_Format_Profile"].get<std::string>(),
              HasSubstr("0" + std::to_string(ours["dv_profile"].get<int>())));
  EXPECT_THAT(track["HDR_Format_Level"].get<std::string>(),
              HasSubstr("0" + std::to_string(ours["dv_level"].get<int>())));
  EXPECT_EQ(track["HDR_Format_Settings"], "BL+RPU");
}

TEST(InspectDolbyVision, UnitsOfEachFrame) {
  const std::string raw = RawStream();
  for (const std::string& file : {raw, Mux(raw, "dolby-units.mp4", nullptr)}) {
    const Json stream = Stream(file);
    EXPECT_FALSE(stream.contains("dolby_vision"));
    ASSERT_EQ(stream["frames"].size(), 3u);
    for (size_t n = 0; n < 3; ++n) {
      const Json& frame = stream["frames"][n];
      EXPECT_EQ(frame["dolby_vision_rpu_size"], kRpuSize + n - 1) << "behind the first header byte";
      const Json& unit = frame["units"].back();
      EXPECT_EQ(unit["nal_unit_type"], 62);
      EXPECT_EQ(unit["name"], "Dolby Vision RPU");
      EXPECT_EQ(unit["size"], kRpuSize + n);
    }
  }
}

size_t BigEndian32(const Bytes& bytes, size_t at) {
  return size_t{bytes[at]} << 24 | size_t{bytes[at + 1]} << 16 | size_t{bytes[at + 2]} << 8 | bytes[at + 3];
}

// Puts a box behind the hvcC and lets all boxes around it grow.
Bytes WithBoxBehindHvcc(Bytes file, const Bytes& box) {
  const std::string code = "hvcC";
  const auto found = std::search(file.begin(), file.end(), code.begin(), code.end());
  const auto hvcc = static_cast<size_t>(found - file.begin()) - 4;
  for (const char* around : {"moov", "trak", "mdia", "minf", "stbl", "stsd", "hvc1"}) {
    for (size_t at = 4; at < hvcc; ++at) {
      if (std::memcmp(file.data() + at, around, 4) != 0) continue;
      const size_t size = BigEndian32(file, at - 4);
      if (at - 4 + size <= hvcc || at - 4 + size > file.size()) continue;  // does not enclose it
      for (size_t i = 0; i < 4; ++i)
        file[at - 4 + i] = static_cast<uint8_t>((size + box.size()) >> 8 * (3 - i));
      break;
    }
  }
  const size_t behind = hvcc + BigEndian32(file, hvcc);
  file.insert(file.begin() + static_cast<std::ptrdiff_t>(behind), box.begin(), box.end());
  return file;
}

TEST(InspectDolbyVision, ABoxThatTheLibraryWrites) {
  const Bytes plain = ReadFile(Mux(RawStream(), "dolby-none.mp4", nullptr));
  const struct {
    const char* code;
    uint16_t profile, level, flags, compatibility;  // flags: RPU, enhancement layer, base layer from bit 0
  } kBoxes[] = {{"dvcC", 5, 6, 5, 0}, {"dvvC", 8, 9, 5, 1}, {"dvcC", 7, 13, 7, 6}, {"dvvC", 10, 63, 2, 15}};
  for (const auto& expected : kBoxes) {
    SCOPED_TRACE(expected.profile);
    DvvcConfigRecord config{};
    config.dv_version_major = 1;
    config.dv_flags = static_cast<uint16_t>(expected.profile | expected.level << 7 | expected.flags << 13);
    config.dv_compatibility = expected.compatibility;
    Bytes box = {0, 0, 0, 32};
    box.insert(box.end(), expected.code, expected.code + 4);
    box.resize(32);
    QLNBitState state{box.data(), 32, 0, 64};
    ASSERT_EQ(qlnutilWrite_DVVC_CR(&state, &config), 32u);
    const std::string file = MediaPath("dolby-own.mp4");
    WriteFile(file, WithBoxBehindHvcc(plain, box));
    const Json record = Stream(file)["dolby_vision"];
    EXPECT_EQ(record["dv_version_major"], 1);
    EXPECT_EQ(record["dv_version_minor"], 0);
    EXPECT_EQ(record["dv_profile"], expected.profile);
    EXPECT_EQ(record["dv_level"], expected.level);
    EXPECT_EQ(record["rpu_present_flag"], expected.flags & 1);
    EXPECT_EQ(record["el_present_flag"], expected.flags >> 1 & 1);
    EXPECT_EQ(record["bl_present_flag"], expected.flags >> 2 & 1);
    EXPECT_EQ(record["dv_bl_signal_compatibility_id"], expected.compatibility);
    ExpectProbedConfiguration(file);
  }
}

}  // namespace
}  // namespace qln::test
