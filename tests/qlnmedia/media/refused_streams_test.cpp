// Streams of kinds that few know are carried over, and shown.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <nlohmann/json.hpp>

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

// Tracks that no reader knows, and Vorbis without its headers, in whose place an EBML Void stands.
TEST(RefusedStreams, TracksThatNobodyKnowsAreCarried) {
  const Bytes file = ReadFile(Clip("refused.mkv", "-map 0 -map 1 -map 2 -c:a libvorbis -c:s srt"));
  const auto renamed = [&file](const std::string& codec, const std::string& other) {
    Bytes bytes = file;
    std::copy(other.begin(), other.end(), bytes.begin() + static_cast<std::ptrdiff_t>(PlaceOf(bytes, codec)));
    return bytes;
  };
  Bytes headless = file;
  const auto from = headless.begin() + static_cast<std::ptrdiff_t>(PlaceOf(headless, "A_VORBIS"));
  const uint8_t kPrivate[] = {0x63, 0xA2};
  const auto at = std::search(from, headless.end(), std::begin(kPrivate), std::end(kPrivate));
  ASSERT_NE(at, headless.end());
  ASSERT_EQ(at[2] & 0xC0, 0x40);  // a size of two bytes
  const size_t size = (at[2] & 0x3FU) << 8 | at[3];
  at[0] = 0xEC;
  at[1] = static_cast<uint8_t>(0x40 | (size + 1) >> 8);
  at[2] = static_cast<uint8_t>(size + 1);
  const std::string in = MediaPath("nobody_knows.mkv");
  const std::string out = MediaPath("nobody_knows_patched.mkv");
  for (const Bytes& bytes :
       {renamed("A_VORBIS", "A_XORBIS"), renamed("S_TEXT/UTF8", "S_TEXT/XTF8"), headless}) {
    WriteFile(in, bytes);
    const CommandResult result = Qlnmedia("patch --verify '" + in + "' '" + out + "' --colour bt709");
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_EQ(ReadFile(out).size() > bytes.size(), true);
  }
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

// Containers that are read and not written.
TEST(RefusedStreams, KindsOfContainersByTheirNames) {
  const std::string clip = MediaFile("refused_kinds.h264",
                                     "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x64:d=0.2 -c:v libx264 "
                                     "-threads 1 -preset ultrafast -pix_fmt yuv420p {out}");
  const std::string out = MediaPath("refused_kinds.mkv");
  for (const auto& [ending, muxer, name] :
       {std::tuple("avi", "avi", "avi"), std::tuple("flv", "flv", "flv"), std::tuple("mpg", "vob", "mpeg")}) {
    const std::string in =
        MediaFile(std::string("refused_kinds.") + ending, "ffmpeg -v error -y -fflags +genpts -r 25 -i '" +
                                                              clip + "' -c copy -f " + muxer + " {out}");
    std::filesystem::remove(out);
    const CommandResult result = Qlnmedia("patch '" + in + "' '" + out + "' --colour bt709");
    EXPECT_EQ(result.exitCode, 1) << result.output;
    EXPECT_THAT(result.output,
                HasSubstr(std::string("containers of the kind ") + name + " cannot be written"));
    EXPECT_FALSE(std::filesystem::exists(out));
  }
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
