// Streams of ancillary data that patch puts into transport streams, as ffprobe and our own reader see them.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "qlnmedia/media/caption_media.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

const Kind kNtsc = {"avc_b", "h264", "30000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 3 -g 12"};
const Kind kKinds[] = {
    kNtsc,
    {"mpeg2_i", "m2v", "30", "-c:v mpeg2video -bf 2 -g 9 -flags +ilme+ildct"},
    {"avc_fast", "h264", "60000/1001", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 2 -g 12"}};

std::string PacketTimes(const std::string& file, const std::string& stream) {
  return Text("ffprobe -v error -select_streams " + stream + " -show_entries packet=pts_time -of csv=p=0 '" +
              file + "' | sed 's/,.*//' | grep . | sort -n");
}

std::string Put(const std::string& in, const std::string& out, const std::string& options) {
  std::filesystem::remove(out);
  const CommandResult put = Qlnmedia("patch --verify '" + in + "' '" + out + "' --caption-stream " + options);
  EXPECT_EQ(put.exitCode, 0) << put.output;
  return put.output;
}

TEST(PutCaptionStream, IsWhatOthersRead) {
  const std::string scc = Write("caption_stream.scc", kScc);
  for (const Kind& kind : kKinds) {
    SCOPED_TRACE(kind.name);
    const std::string in = Source(kind, "ts");
    const std::string out = PatchedName(kind, "stream.ts");
    EXPECT_THAT(Put(in, out, "--captions '" + scc + "'"),
                HasSubstr("stream 0: ancillary data stream put in, packet identifier 0x102: captions of "));
    EXPECT_EQ(Decoded(out), Decoded(in));
    EXPECT_EQ(Times(out).substr(0, Times(in).size()), Times(in));
    EXPECT_THAT(
        Text("ffprobe -v error -select_streams d -show_entries stream=codec_tag_string,id -of csv=p=0 '" +
             out + "'"),
        HasSubstr("VANC,0x102"));
    // Of each picture, in the order in which they are shown.
    EXPECT_EQ(PacketTimes(out, "d"), PacketTimes(out, "v"));
    const std::string back = Qlnmedia("captions '" + out + "' -o -").output;
    const std::string pictures = PatchedName(kind, "stream_pictures.ts");
    ASSERT_EQ(Qlnmedia("patch --force '" + in + "' '" + pictures + "' --captions '" + scc + "'").exitCode, 0);
    EXPECT_EQ(back, Qlnmedia("captions '" + pictures + "' -o -").output);
    EXPECT_THAT(back, HasSubstr("\nGOOD MORNING\n"));
    EXPECT_EQ(Text("ffprobe -v warning '" + out + "' 2>&1 | grep -iE 'corrupt|error|invalid' | wc -l"),
              "0\n");
  }
}

// All that SMPTE ST 2038 asks for: in the program map private data (06h) with a registration of "VANC" and an
// anc_data_descriptor (C4h); of each picture a PES packet of private_stream_1, whose length is told, whose
// data is aligned and that has a PTS and no DTS.
TEST(PutCaptionStream, IsAnnouncedAndFramedByItsStandard) {
  const std::string scc = Write("caption_stream_map.scc", kScc);
  const std::string in = Source(kNtsc, "ts");
  const std::string out = PatchedName(kNtsc, "stream_map.ts");
  Put(in, out, "--captions '" + scc + "'");
  const std::string bytes = FileText(out);
  const std::string entry("\x06\xE1\x02\xF0\x08\x05\x04VANC\xC4\x00", 13);
  size_t maps = 0, units = 0;
  for (size_t at = 0; at + 188 <= bytes.size(); at += 188) {
    const std::string packet = bytes.substr(at, 188);
    const int identifier = (packet[1] & 0x1F) << 8 | static_cast<uint8_t>(packet[2]);
    const bool starts = (packet[1] & 0x40) != 0;
    if (packet.find(entry) != std::string::npos) ++maps;
    if (identifier != 0x102 || !starts) continue;
    ++units;
    const size_t field = (packet[3] & 0x20) != 0 ? 5 + static_cast<uint8_t>(packet[4]) : 4;
    EXPECT_EQ(packet.substr(field, 4), std::string("\0\0\1\xBD", 4));
    EXPECT_NE(packet.substr(field + 4, 2), std::string(2, '\0'));
    EXPECT_EQ(packet.substr(field + 6, 3), std::string("\x84\x80\x05", 3));
    EXPECT_EQ(packet[field + 9] & 0xF1, 0x21);
    // The first packet begins there: 000000, luma, line 9, DID 61h.
    EXPECT_EQ(packet.substr(field + 14, 2), std::string("\0\2", 2));
    EXPECT_EQ(static_cast<uint8_t>(packet[field + 16]) >> 6, 9 & 3);
  }
  EXPECT_GT(maps, 0u);
  const std::string pictures = PacketTimes(out, "v");
  EXPECT_EQ(units, static_cast<size_t>(std::count(pictures.begin(), pictures.end(), '\n')));
}

TEST(PutCaptionStream, TakesNullPacketsOfAConstantRate) {
  const std::string scc = Write("caption_stream_rate.scc", kScc);
  const std::string in = MediaFile("caption_stream_rate.ts", "ffmpeg -v error -y -i '" + Source(kNtsc, "ts") +
                                                                 "' -c copy -muxrate 2M {out}");
  const std::string out = MediaPath("caption_stream_rate_out.ts");
  Put(in, out, "--captions '" + scc + "' --keep-rate");
  EXPECT_EQ(std::filesystem::file_size(out), std::filesystem::file_size(in));
  EXPECT_EQ(PacketTimes(out, "d"), PacketTimes(out, "v"));
}

TEST(PutCaptionStream, IsRefusedByName) {
  const std::string scc = Write("caption_stream_refused.scc", kScc);
  const std::string in = Source(kNtsc, "ts");
  const std::string once = PatchedName(kNtsc, "stream_once.ts");
  const std::string out = MediaPath("caption_stream_refused.ts");
  const std::string asked = " --caption-stream --captions '" + scc + "'";
  Put(in, once, "--captions '" + scc + "'");
  const auto refusal = [](const std::string& arguments, int status = 1) {
    const CommandResult result = Qlnmedia("patch " + arguments);
    EXPECT_EQ(result.exitCode, status) << result.output;
    return result.output;
  };
  EXPECT_THAT(refusal("'" + once + "' '" + out + "'" + asked + " --replace-captions"),
              HasSubstr("has ancillary data in stream 2"));
  EXPECT_THAT(refusal("'" + in + "' '" + out + "'" + asked + " --colour bt709"),
              HasSubstr("no other change"));
  EXPECT_THAT(refusal("'" + Source(kNtsc, "mp4") + "' '" + out + ".mp4'" + asked),
              HasSubstr("is no transport stream"));
  EXPECT_THAT(refusal("'" + in + "' '" + out + "'" + asked + " --keep-rate"),
              HasSubstr("null packets too few"));
  EXPECT_THAT(refusal("'" + in + "' '" + out + "'" + asked + " --caption-track", 2),
              HasSubstr("--caption-track"));
  EXPECT_FALSE(std::filesystem::exists(out));
  const CommandResult dry = Qlnmedia("patch --dry-run '" + in + "'" + asked);
  EXPECT_EQ(dry.exitCode, 0);
  EXPECT_THAT(dry.output, HasSubstr("would: stream 0: ancillary data stream put in"));
}

}  // namespace
}  // namespace qln::test
