// A stream that cannot be carried over is named, with its kind and codec.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "container/media_file.h"
#include "container/same_streams.h"
#include "qlnmedia/program.h"
#include "support/program_tables.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

std::string Clip(const std::string& name, const std::string& more) {
  return MediaFile(name,
                   "printf '1\n00:00:00,100 --> 00:00:00,300\nword\n' > {out}.srt && "
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=96x80:r=25:d=0.4 -f lavfi -i sine=d=0.4 "
                   "-i {out}.srt -c:v libx264 -preset ultrafast " +
                       more + " {out}; rm -f {out}.srt");
}

size_t PlaceOf(const Bytes& file, const std::string& text) {
  const auto at = std::search(file.begin(), file.end(), text.begin(), text.end());
  EXPECT_NE(at, file.end()) << text;
  return static_cast<size_t>(at - file.begin());
}

// What a patch of these bytes says; nothing may be left behind.
std::string Refusal(const Bytes& bytes, const std::string& ending) {
  const std::string in = MediaPath("refused_in." + ending);
  const std::string out = MediaPath("refused_out." + ending);
  std::filesystem::remove(out);
  WriteFile(in, bytes);
  const CommandResult result = Qlnmedia("patch '" + in + "' '" + out + "' --colour bt709");
  EXPECT_EQ(result.exitCode, 1) << result.output;
  EXPECT_FALSE(std::filesystem::exists(out));
  EXPECT_THAT(result.output, testing::Not(HasSubstr("Invalid argument")));
  // A dry run says the same.
  const CommandResult dry = Qlnmedia("patch --dry-run '" + in + "' --colour bt709");
  EXPECT_EQ(dry.exitCode, 1);
  EXPECT_EQ(dry.output, result.output);
  return result.output;
}

// The kind of its track is what a container still says of an unknown codec.
TEST(RefusedStreams, OfUnknownCodecsInMkv) {
  const Bytes file = ReadFile(Clip("refused.mkv", "-map 0 -map 1 -map 2 -c:a libvorbis -c:s srt"));
  const struct {
    const char* codec;
    const char* other;
    const char* says;
  } kCases[] = {
      {"A_VORBIS", "A_XORBIS", "stream 1 (audio, unknown codec) cannot be carried over unchanged"},
      {"S_TEXT/UTF8", "S_TEXT/XTF8", "stream 2 (subtitle, unknown codec) cannot be carried over unchanged"}};
  for (const auto& unknown : kCases) {
    Bytes bytes = file;
    const std::string other = unknown.other;
    std::copy(other.begin(), other.end(),
              bytes.begin() + static_cast<std::ptrdiff_t>(PlaceOf(bytes, unknown.codec)));
    EXPECT_THAT(Refusal(bytes, "mkv"), HasSubstr(unknown.says));
  }
}

// Vorbis without its headers: an EBML Void element takes the place of CodecPrivate.
TEST(RefusedStreams, ThoseThatTheMuxerDoesNotTake) {
  Bytes bytes = ReadFile(Clip("refused.mkv", "-map 0 -map 1 -map 2 -c:a libvorbis -c:s srt"));
  const size_t codec = PlaceOf(bytes, "A_VORBIS");
  const auto from = bytes.begin() + static_cast<std::ptrdiff_t>(codec);
  const uint8_t kPrivate[] = {0x63, 0xA2};
  const auto at = std::search(from, bytes.end(), std::begin(kPrivate), std::end(kPrivate));
  ASSERT_NE(at, bytes.end());
  ASSERT_EQ(at[2] & 0xC0, 0x40);  // a size of two bytes
  const size_t size = (at[2] & 0x3FU) << 8 | at[3];
  at[0] = 0xEC;
  at[1] = static_cast<uint8_t>(0x40 | (size + 1) >> 8);
  at[2] = static_cast<uint8_t>(size + 1);
  EXPECT_THAT(Refusal(bytes, "mkv"),
              HasSubstr("stream 1 (audio, vorbis) is not taken by the container's muxer"));
}

// A program map that is not as the encoder left it: `streams`, with the identifiers of its muxer.
Bytes WithMap(const Bytes& file, const std::vector<MappedStream>& streams) {
  constexpr int kMap = 0x1000;
  Bytes out;
  for (size_t at = 0; at + 188 <= file.size(); at += 188) {
    Bytes packet(file.begin() + static_cast<std::ptrdiff_t>(at),
                 file.begin() + static_cast<std::ptrdiff_t>(at + 188));
    if (((packet[1] & 0x1F) << 8 | packet[2]) == kMap) {
      const uint8_t counter = packet[3];
      packet = TablePackets(kMap, MapTable(streams));
      packet[3] = counter;
    }
    AppendBytes(out, packet);
  }
  return out;
}

const Bytes& Transport() {
  static const Bytes file = ReadFile(Clip("refused.ts", "-map 0 -map 1 -c:a mp2"));
  return file;
}

// The packets of a transport stream but those of its pictures.
Bytes OtherPackets(const Bytes& file) {
  Bytes out;
  for (size_t at = 0; at + 188 <= file.size(); at += 188) {
    if (((file[at + 1] & 0x1F) << 8 | file[at + 2]) != 0x100)
      out.insert(out.end(), file.begin() + static_cast<std::ptrdiff_t>(at),
                 file.begin() + static_cast<std::ptrdiff_t>(at + 188));
  }
  return out;
}

// No muxer stands in the way of a transport stream: splice information, data and types that nobody knows go
// through.
TEST(RefusedStreams, NoneOfTransportStreams) {
  const Bytes cue = Descriptor(5, {'C', 'U', 'E', 'I'});
  const std::string in = MediaPath("types_in.ts"), out = MediaPath("types_out.ts");
  for (const MappedStream& other : {MappedStream{0x86, 0x101, cue}, MappedStream{0x0D, 0x101, {}},
                                    MappedStream{0x05, 0x101, {}}, MappedStream{0xC7, 0x101, {}}}) {
    const Bytes file = WithMap(Transport(), {{0x1B, 0x100, {}}, other});
    WriteFile(in, file);
    const CommandResult result = Qlnmedia("patch --verify '" + in + "' '" + out + "' --colour bt709");
    ASSERT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(OtherPackets(ReadFile(out)), OtherPackets(file));
    EXPECT_NE(ReadFile(out), file);
  }
}

// What a muxer writes is held against the input: chapters by their times and titles.
TEST(RefusedStreams, ChaptersThatComeOutOtherwise) {
  const auto clip = [](const std::string& name, const std::string& start, const std::string& title) {
    return MediaFile(name, "printf ';FFMETADATA1\n[CHAPTER]\nTIMEBASE=1/1000\nSTART=" + start +
                               "\nEND=300\ntitle=" + title +
                               "\n' > {out}.txt && ffmpeg -v error -y -f lavfi -i " +
                               "testsrc2=s=96x80:r=25:d=0.4 -i {out}.txt -map 0 -map_metadata 1 -c:v libx264 "
                               "-preset ultrafast {out}; rm -f {out}.txt");
  };
  const std::string file = clip("chapters_in.mkv", "100", "one");
  const qlnmedia::MediaFile in(file);
  const auto says = [&in](const std::string& written) -> std::string {
    try {
      qlnmedia::RequireSameStreams(in, *in.context(), written);
    } catch (const qlnmedia::Error& error) {
      return error.what();
    }
    return "";
  };
  EXPECT_EQ(says(file), "");
  EXPECT_THAT(says(clip("chapters_title.mkv", "100", "two")),
              HasSubstr("chapter 0: its title cannot be carried over"));
  EXPECT_THAT(says(clip("chapters_time.mkv", "150", "one")), HasSubstr("chapter 0 cannot be carried over"));
}

// ATSC A/65 clause 6.9.2, beside the pictures.
TEST(CaptionServices, AreShownWithTheirLanguages) {
  const Bytes services =
      Descriptor(0x86, {0xE2, 'e', 'n', 'g', 0xC1, 0x3F, 0xFF, 's', 'p', 'a', 0xC2, 0xBF, 0xFF});
  const std::string path = MediaPath("announced.ts");
  WriteFile(path, WithMap(Transport(), {{0x1B, 0x100, services}, {0x03, 0x101}}));
  const CommandResult result = Qlnmedia("inspect --json --frames 1 '" + path + "'");
  ASSERT_EQ(result.exitCode, 0) << result.output;
  const auto report = nlohmann::json::parse(result.output);
  const auto& announced = report["streams"][0]["caption_services"];
  ASSERT_EQ(announced.size(), 2u);
  EXPECT_EQ(announced[0],
            nlohmann::json::parse(
                R"({"name":"service 1","language":"eng","easy_reader":false,"wide_aspect_ratio":false})"));
  EXPECT_EQ(announced[1]["language"], "spa");
  EXPECT_EQ(announced[1]["easy_reader"], true);
  EXPECT_FALSE(report["streams"][1].contains("caption_services"));
}

}  // namespace
}  // namespace qln::test
