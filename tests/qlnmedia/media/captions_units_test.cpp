// Captions between what else stands in a picture: other messages, other user data, fields, short length
// fields.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "container/libav_handles.h"
#include "qlnmedia/media/caption_media.h"
#include "units/units.h"

namespace qln::test {
namespace {

using testing::HasSubstr;

size_t CountOf(const Bytes& data, const Bytes& piece) {
  size_t count = 0;
  for (auto at = data.begin(); (at = std::search(at, data.end(), piece.begin(), piece.end())) != data.end();
       ++at)
    ++count;
  return count;
}

Bytes Joined(const std::vector<Bytes>& pieces) {
  Bytes all;
  for (const Bytes& piece : pieces) all.insert(all.end(), piece.begin(), piece.end());
  return all;
}

const Bytes kGa94 = {'G', 'A', '9', '4', 0x03};

// ---- Several messages in one unit ----

const Bytes kUnregistered =
    Hex("05 16 08 6F 36 93 B7 B3 4F 2C 96 53 21 49 2F EE E5 B8 00 00 03 01 68 69 21");  // 00 00 01 escaped
const Bytes kOneCaption = Hex("04 0E B5 00 31 47 41 39 34 03 41 FF FC 94 20 FF");
const Bytes kActiveFormat = Hex("04 09 B5 00 31 44 54 47 31 41 F8");
const Bytes kStop = {0x80};

struct MessageCase {
  const char* name;
  const char* raw;
  const char* coder;
  Bytes header;
  Bytes suffix;  // header of a unit behind the slice; empty for none
  uint8_t captionHead;
};

const MessageCase kMessageCases[] = {
    {"avc",
     "h264",
     "-c:v libx264 -preset ultrafast -threads 1 -pix_fmt yuv420p -bf 2 -g 12",
     {0x06},
     {},
     0x06},
    {"hevc",
     "hevc",
     "-c:v libx265 -preset ultrafast -pix_fmt yuv420p -x265-params "
     "bframes=2:keyint=12:pools=1:frame-threads=1:log-level=none",
     {0x4E, 0x01},
     {0x50, 0x01},
     0x4E},
};

bool IsSlice(const MessageCase& kind, const Bytes& unit) {
  const auto codec = kind.raw == std::string("h264") ? qlnmedia::Codec::kH264 : qlnmedia::Codec::kHevc;
  return qlnmedia::IsSlice(codec, qlnmedia::UnitType(codec, unit));
}

TEST(CaptionMessages, OthersOfTheSameUnitStay) {
  const std::string scc = Write("captions_messages.scc", kScc);
  for (const MessageCase& kind : kMessageCases) {
    SCOPED_TRACE(kind.name);
    const std::string source = MediaFile(
        std::string("captions_messages_") + kind.name + "." + kind.raw,
        std::string("ffmpeg -v error -y -f lavfi -i testsrc2=s=64x48:d=1:r=30 ") + kind.coder + " {out}");
    // In front of each slice three units: messages on both sides of captions, captions alone, others alone.
    const Bytes mixed = Joined({kind.header, kUnregistered, kOneCaption, kActiveFormat, kStop});
    const Bytes alone = Joined({kind.header, kOneCaption, kStop});
    const Bytes others = Joined({kind.header, kActiveFormat, kUnregistered, kStop});
    Bytes stream;
    size_t slices = 0;
    const auto add = [&stream](const Bytes& unit) {
      const Bytes coded = WithStartCode(unit);
      stream.insert(stream.end(), coded.begin(), coded.end());
    };
    for (const Bytes& unit : SplitByteStream(ReadFile(source))) {
      const bool slice = IsSlice(kind, unit);
      if (slice) {
        ++slices;
        for (const Bytes& sei : {mixed, alone, others}) add(sei);
      }
      add(unit);
      if (slice && !kind.suffix.empty()) add(Joined({kind.suffix, kOneCaption, kStop}));
    }
    const std::string in = MediaPath(std::string("captions_mixed.") + kind.raw);
    const std::string out = MediaPath(std::string("captions_mixed_out.") + kind.raw);
    WriteFile(in, stream);
    const CommandResult refused = Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + scc + "'");
    EXPECT_EQ(refused.exitCode, 1);
    EXPECT_THAT(refused.output, HasSubstr("has captions on 30 pictures"));
    const CommandResult patched =
        Qlnmedia("patch '" + in + "' '" + out + "' --verify --replace-captions --captions '" + scc + "'");
    ASSERT_EQ(patched.exitCode, 0) << patched.output;
    EXPECT_EQ(Decoded(out), Decoded(in));
    EXPECT_EQ(Counted(out), (std::pair{30, 30}));

    const Bytes kept = Joined({kind.header, kUnregistered, kActiveFormat, kStop});
    size_t keptUnits = 0, otherUnits = 0, captionUnits = 0;
    for (const Bytes& unit : SplitByteStream(ReadFile(out))) {
      if (unit == kept) ++keptUnits;
      if (unit == others) ++otherUnits;
      if (CountOf(unit, kGa94) == 0) continue;
      ++captionUnits;
      EXPECT_EQ(unit[0], kind.captionHead);
      EXPECT_EQ(unit[kind.header.size() + 10], 0xC0 + 20);  // cc_count
    }
    EXPECT_EQ(slices, 30u);
    EXPECT_EQ(keptUnits, slices);
    EXPECT_EQ(otherUnits, slices);
    EXPECT_EQ(captionUnits, slices);
    EXPECT_THAT(Qlnmedia("captions '" + out + "'").output, HasSubstr("GOOD MORNING"));
  }
}

// ---- MPEG-2 user data, and pictures of one field each ----

class BitWriter {
 public:
  void Put(int bits, unsigned value) {
    for (int i = bits - 1; i >= 0; --i) {
      if (used_++ % 8 == 0) bytes_.push_back(0);
      bytes_.back() = static_cast<uint8_t>(bytes_.back() | (value >> i & 1) << (7 - (used_ - 1) % 8));
    }
  }
  void StartCode(uint8_t code) {
    used_ = 0;  // zero bits up to the next byte
    bytes_.insert(bytes_.end(), {0, 0, 1, code});
  }
  const Bytes& bytes() const { return bytes_; }

 private:
  Bytes bytes_;
  int used_ = 0;
};

// A frame of ITU-T H.262 in two intra field pictures of 64 x 32, each of one grey that `frame` tells.
void PutFieldPictures(BitWriter& w, unsigned frame) {
  constexpr unsigned kFramesOfAGroup = 10;
  if (frame % kFramesOfAGroup == 0) {
    w.StartCode(0xB3);  // sequence header: 64 x 64, 4:3, 29.97 Hz
    for (const auto& [bits, value] : std::initializer_list<std::pair<int, unsigned>>{
             {12, 64}, {12, 64}, {4, 2}, {4, 4}, {18, 2500}, {1, 1}, {10, 20}, {3, 0}})
      w.Put(bits, value);
    w.StartCode(0xB5);  // its extension: main profile at main level, interlaced, 4:2:0
    for (const auto& [bits, value] : std::initializer_list<std::pair<int, unsigned>>{
             {4, 1}, {8, 0x48}, {1, 0}, {2, 1}, {4, 0}, {12, 0}, {1, 1}, {8, 0}, {1, 0}, {7, 0}})
      w.Put(bits, value);
    w.StartCode(0xB8);  // group of pictures, closed
    for (const auto& [bits, value] :
         std::initializer_list<std::pair<int, unsigned>>{{12, 0}, {1, 1}, {12, frame % 30}, {1, 1}, {1, 0}})
      w.Put(bits, value);
  }
  for (const unsigned structure : {1u, 2u}) {  // top field, bottom field
    w.StartCode(0x00);
    for (const auto& [bits, value] : std::initializer_list<std::pair<int, unsigned>>{
             {10, frame % kFramesOfAGroup}, {3, 1}, {16, 0xFFFF}, {1, 0}})
      w.Put(bits, value);
    w.StartCode(0xB5);
    for (const auto& [bits, value] : std::initializer_list<std::pair<int, unsigned>>{
             {4, 8}, {16, 0xFFFF}, {2, 0}, {2, structure}, {10, 0}})
      w.Put(bits, value);
    for (uint8_t row = 1; row <= 2; ++row) {
      w.StartCode(row);
      w.Put(6, 1 << 1);  // quantiser_scale_code 1, no extra information
      for (int macroblock = 0; macroblock < 4; ++macroblock) {
        w.Put(2, 3);  // the next address, intra
        for (int block = 0; block < 6; ++block) {
          if (block == 0 && macroblock == 0)
            w.Put(6, 5u << 3 | (4 + frame % 4));  // a difference of three bits to the grey of 128
          else
            w.Put(block < 4 ? 3 : 2, block < 4 ? 4 : 0);  // none
          w.Put(2, 2);                                    // end of block
        }
      }
    }
  }
}

TEST(CaptionFields, GoIntoTheFirstFieldPictureOfAnMpeg2Frame) {
  const std::string scc = Write("captions_fields.scc", kScc);
  BitWriter writer;
  constexpr unsigned kFrames = 45;
  for (unsigned frame = 0; frame < kFrames; ++frame) PutFieldPictures(writer, frame);
  const std::string raw = MediaPath("captions_fields.m2v");
  WriteFile(raw, writer.bytes());
  ASSERT_EQ(CountOf(writer.bytes(), {0, 0, 1, 0}), 2 * kFrames);
  for (const std::string extension : {"m2v", "ts", "mp4", "mkv"}) {
    SCOPED_TRACE(extension);
    const std::string in = MediaPath("captions_fields." + extension);
    if (extension != "m2v") Text("ffmpeg -v error -y -fflags +genpts -i '" + raw + "' -c copy '" + in + "'");
    const std::string out = MediaPath("captions_fields_out." + extension);
    const CommandResult patched =
        Qlnmedia("patch '" + in + "' '" + out + "' --verify --captions '" + scc + "'");
    ASSERT_EQ(patched.exitCode, 0) << patched.output;
    EXPECT_THAT(patched.output, HasSubstr("captions put into 45 pictures, 20 triplets each"));
    EXPECT_EQ(Decoded(out), Decoded(in));
    EXPECT_EQ(Counted(out), (std::pair{45, 45}));
    EXPECT_THAT(Qlnmedia("captions '" + out + "'").output, HasSubstr("GOOD MORNING"));
    EXPECT_THAT(Qlnmedia("check '" + out + "'").output, testing::Not(HasSubstr("caption")));
  }
}

TEST(CaptionUserData, OtherUserDataOfMpeg2Stays) {
  const std::string scc = Write("captions_user_data.scc", kScc);
  const std::string source =
      MediaFile("captions_user_data.m2v",
                "ffmpeg -v error -y -f lavfi -i testsrc2=s=64x48:d=1:r=30 -c:v mpeg2video -bf 2 -g 9 {out}");
  const Bytes bars = Hex("00 00 01 B2 47 41 39 34 06 3F FF");  // the same identifier, another type
  const Bytes format = Hex("00 00 01 B2 44 54 47 31 41 F8");
  const Bytes caption = Hex("00 00 01 B2 47 41 39 34 03 41 FF FC 94 20 FF");
  const Bytes firstSlice = {0, 0, 1, 1};
  Bytes stream = ReadFile(source);
  size_t pictures = 0;
  for (size_t at = 0;; ++pictures) {
    const auto found = std::search(stream.begin() + static_cast<std::ptrdiff_t>(at), stream.end(),
                                   firstSlice.begin(), firstSlice.end());
    if (found == stream.end()) break;
    const Bytes more = Joined({bars, caption, format});
    at = static_cast<size_t>(found - stream.begin()) + more.size() + 4;
    stream.insert(found, more.begin(), more.end());
  }
  ASSERT_EQ(pictures, 30u);
  const std::string in = MediaPath("captions_user_data_in.m2v");
  const std::string out = MediaPath("captions_user_data_out.m2v");
  WriteFile(in, stream);
  EXPECT_EQ(Qlnmedia("patch '" + in + "' '" + out + "' --captions '" + scc + "'").exitCode, 1);
  const CommandResult patched =
      Qlnmedia("patch '" + in + "' '" + out + "' --verify --replace-captions --captions '" + scc + "'");
  ASSERT_EQ(patched.exitCode, 0) << patched.output;
  EXPECT_EQ(Decoded(out), Decoded(in));
  const Bytes patchedBytes = ReadFile(out);
  EXPECT_EQ(CountOf(patchedBytes, bars), pictures);
  EXPECT_EQ(CountOf(patchedBytes, format), pictures);
  EXPECT_EQ(CountOf(patchedBytes, caption), 0u);
  EXPECT_EQ(CountOf(patchedBytes, kGa94), pictures);
  EXPECT_EQ(CountOf(patchedBytes, Hex("00 00 01 B2 47 41 39 34 03 D4 FF")), pictures);  // 20 triplets
}

// ---- Length fields of 1 and 2 bytes ----

// Rewrites a file so that its units have length fields of `lengthBytes`; SEI units go, since one may be
// longer than such a field says.
void ShortenLengths(const std::string& inPath, const std::string& outPath, size_t lengthBytes) {
  AVFormatContext* in = nullptr;
  AVFormatContext* out = nullptr;
  ASSERT_EQ(avformat_open_input(&in, inPath.c_str(), nullptr, nullptr), 0);
  ASSERT_EQ(avformat_alloc_output_context2(&out, nullptr, nullptr, outPath.c_str()), 0);
  AVCodecParameters* const from = in->streams[0]->codecpar;
  AVStream* const stream = avformat_new_stream(out, nullptr);
  ASSERT_EQ(avcodec_parameters_copy(stream->codecpar, from), 0);
  stream->time_base = in->streams[0]->time_base;
  stream->avg_frame_rate = in->streams[0]->avg_frame_rate;
  const auto codec = from->codec_id == AV_CODEC_ID_H264 ? qlnmedia::Codec::kH264 : qlnmedia::Codec::kHevc;
  uint8_t& size = stream->codecpar->extradata[codec == qlnmedia::Codec::kH264 ? 4 : 21];
  ASSERT_EQ(size & 3, 3);
  size = static_cast<uint8_t>((size & 0xFC) | (lengthBytes - 1));
  ASSERT_GE(avio_open(&out->pb, outPath.c_str(), AVIO_FLAG_WRITE), 0);
  ASSERT_GE(avformat_write_header(out, nullptr), 0);
  const qlnmedia::PacketHandle packet(av_packet_alloc());
  while (av_read_frame(in, packet.get()) == 0) {
    qlnmedia::UnitRun run =
        qlnmedia::TakeApart({packet->data, static_cast<size_t>(packet->size)}, qlnmedia::Framing{4});
    std::erase_if(run.units, [codec](const qlnmedia::Unit& unit) {
      const int type = qlnmedia::UnitType(codec, unit.bytes);
      return codec == qlnmedia::Codec::kH264 ? type == 6 : type == 39;
    });
    for (const qlnmedia::Unit& unit : run.units) ASSERT_LT(unit.bytes.size(), size_t{1} << 8 * lengthBytes);
    const Bytes bytes = qlnmedia::PutTogether(run, qlnmedia::Framing{static_cast<int>(lengthBytes)});
    const qlnmedia::PacketHandle copy(av_packet_alloc());
    ASSERT_EQ(av_new_packet(copy.get(), static_cast<int>(bytes.size())), 0);
    std::copy(bytes.begin(), bytes.end(), copy->data);
    ASSERT_EQ(av_packet_copy_props(copy.get(), packet.get()), 0);
    copy->stream_index = 0;
    av_packet_rescale_ts(copy.get(), in->streams[0]->time_base, stream->time_base);
    av_packet_unref(packet.get());
    ASSERT_GE(av_interleaved_write_frame(out, copy.get()), 0);
  }
  ASSERT_EQ(av_write_trailer(out), 0);
  avio_closep(&out->pb);
  avformat_free_context(out);
  avformat_close_input(&in);
}

TEST(CaptionLengths, FieldsOfOneAndTwoBytesStay) {
  const std::string scc = Write("captions_lengths.scc", kScc);
  const std::pair<const char*, const char*> coders[] = {
      {"avc", "-c:v libx264 -threads 1 -pix_fmt yuv420p -bf 2 -g 12 -x264-params slice-max-size=200:qp=40"},
      {"hevc",
       "-c:v libx265 -preset ultrafast -pix_fmt yuv420p -x265-params "
       "bframes=2:keyint=12:qp=45:pools=1:frame-threads=1:log-level=none"}};
  for (const auto& [name, options] : coders) {
    for (const size_t lengthBytes : {1u, 2u}) {
      SCOPED_TRACE(std::string(name) + " " + std::to_string(lengthBytes));
      const std::string four = MediaFile(
          std::string("captions_lengths_") + name + ".mp4",
          std::string("ffmpeg -v error -y -f lavfi -i color=gray:s=32x32:d=1.5:r=25 ") + options + " {out}");
      const std::string in = MediaPath("captions_lengths_in.mp4");
      const std::string out = MediaPath("captions_lengths_out.mp4");
      ASSERT_NO_FATAL_FAILURE(ShortenLengths(four, in, lengthBytes));
      const CommandResult patched =
          Qlnmedia("patch '" + in + "' '" + out + "' --verify --captions '" + scc + "'");
      ASSERT_EQ(patched.exitCode, 0) << patched.output;
      EXPECT_EQ(Decoded(out), Decoded(four));
      const auto [pictures, captioned] = Counted(out);
      EXPECT_EQ(pictures, 38);
      EXPECT_EQ(captioned, pictures);
      EXPECT_THAT(Shown(out), HasSubstr("GOOD MORNING"));
      EXPECT_THAT(Qlnmedia("captions '" + out + "'").output, HasSubstr("GOOD MORNING"));
    }
  }
}

}  // namespace
}  // namespace qln::test
