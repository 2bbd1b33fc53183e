// Pictures told by the PES packets of a transport stream, which pass through their editors in one reading of
// the file.

#include "patch/pes_pictures.h"

#include <gtest/gtest.h>

#include "container/mp4/memory_sink.h"
#include "container/ts/kept_packets.h"
#include "patch/cut_picture.h"
#include "qlnmedia/error.h"
#include "ts/transport.h"

namespace qln::test {
namespace {

using namespace qlnmedia;

constexpr uint16_t kVideo = 0x100, kOther = 0x101;

// A file of one or two streams of pictures, of which nobody has to read anything.
class Described final : public PatchInput {
 public:
  explicit Described(VideoCodec codec) : codec_(codec) {
    for (const uint16_t identifier : {kVideo, kOther}) {
      MediaStream stream;
      stream.index = static_cast<unsigned>(streams_.size());
      stream.id = identifier;
      stream.movingPictures = true;
      stream.coded.codec = codec;
      streams_.push_back(stream);
    }
  }
  const std::vector<MediaStream>& streams() const override { return streams_; }
  bool describesPictures() const override { return false; }
  const std::string& path() const override { return path_; }
  StreamDescription Describe(unsigned) const override {
    StreamDescription stream;
    stream.codec = codec_;
    return stream;
  }
  void Read(const std::set<unsigned>&, const ProgressCallback&, const Take&) const override { FAIL(); }
  bool carried() const override { return true; }

 private:
  VideoCodec codec_;
  std::string path_ = "in.ts";
  std::vector<MediaStream> streams_;
};

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A slice of H.264: the first of its picture or another one.
Bytes Slice(bool first, uint8_t fill, size_t size = 300) {
  Bytes slice{0, 0, 1, 0x41, static_cast<uint8_t>(first ? 0x9A : 0x4A)};
  slice.insert(slice.end(), size, fill);
  return slice;
}

const Bytes kDelimiter{0, 0, 0, 1, 9, 0xF0};
const Bytes kFiller{0, 0, 1, 12, 0xFF, 0xFF, 0xFF, 0x80};

struct Outcome {
  bool told = false;
  Bytes bytes;
};

// Takes filler out of all pictures.
Outcome WithoutFiller(const Bytes& file, VideoCodec codec = VideoCodec::kH264) {
  const Described in(codec);
  EditOptions options;
  options.remove.filler = true;
  EditedStreams streams(in, options);
  EXPECT_TRUE(PesPictures::Knows(in, streams));
  const mp4::MemorySource source(file, "in.ts");
  mp4::MemorySink sink;
  ts::Carrier carrier(source, &sink, {kVideo, kOther});
  PesPictures pictures(in, streams, carrier);
  Outcome outcome;
  outcome.told = pictures.Carry([](uint64_t) {});
  outcome.bytes = sink.bytes();
  return outcome;
}

std::vector<Bytes> StreamsOf(const Bytes& file, uint16_t identifier) {
  std::vector<Bytes> streams;
  const TransportRead read = ReadTransport(file, {kVideo, kOther});
  for (const PesRead& pes : read.streams.at(identifier).packets) streams.push_back(pes.stream);
  return streams;
}

// A PES packet without time stamps.
void Untimed(TransportBuilder& builder, const Bytes& stream, uint8_t streamId = 0xE0) {
  Bytes rest = Join({{0, 0, 1, streamId, 0, 0, 0x80, 0, 0}, stream});
  for (bool first = true; !rest.empty(); first = false) {
    const auto end = rest.begin() + static_cast<long>(std::min<size_t>(rest.size(), 184));
    builder.Packet(kVideo, first, Bytes(rest.begin(), end));
    rest.erase(rest.begin(), end);
  }
}

TEST(PesPictures, PassThroughTheirEditors) {
  TransportBuilder builder;
  const Bytes one = Slice(true, 1), two = Slice(true, 2, 5000), three = Slice(true, 3);
  builder.Pes(kVideo, Join({kDelimiter, one, kFiller}), 0);
  builder.Pes(kOther, Join({kDelimiter, two, kFiller}), 0);
  builder.Pes(kVideo, Join({kDelimiter, two}), 3600);
  builder.Pes(kVideo, Join({kDelimiter, kFiller, three}), 7200);
  builder.Packet(0x30, true, Bytes(184, 9));
  const Outcome outcome = WithoutFiller(builder.bytes());
  ASSERT_TRUE(outcome.told);
  EXPECT_EQ(
      StreamsOf(outcome.bytes, kVideo),
      (std::vector<Bytes>{Join({kDelimiter, one}), Join({kDelimiter, two}), Join({kDelimiter, three})}));
  EXPECT_EQ(StreamsOf(outcome.bytes, kOther), (std::vector<Bytes>{Join({kDelimiter, two})}));
  EXPECT_EQ(outcome.bytes.size(), builder.bytes().size());
}

// What comes behind the PES packet that a picture begins, and has no time, belongs to it. Two fields may
// share one.
TEST(PesPictures, GoOnInPacketsWithoutTimes) {
  const Bytes first = Slice(true, 1, 700), second = Slice(false, 2, 700), next = Slice(true, 3);
  TransportBuilder builder;
  builder.Pes(kVideo, Join({kDelimiter, first}), 0);
  const Bytes rest = Join({second, kFiller});
  Untimed(builder, Bytes(rest.begin(), rest.begin() + 300));
  Untimed(builder, Bytes(rest.begin() + 300, rest.end()));
  builder.Pes(kVideo, Join({kDelimiter, next, kDelimiter, next, kFiller}), 3600);
  const Outcome outcome = WithoutFiller(builder.bytes());
  ASSERT_TRUE(outcome.told);
  const std::vector<Bytes> streams = StreamsOf(outcome.bytes, kVideo);
  ASSERT_EQ(streams.size(), 4u);
  EXPECT_EQ(Join({streams[0], streams[1], streams[2]}), Join({kDelimiter, first, second}));
  EXPECT_EQ(streams[1].size(), 300u) << "what stands behind the first one keeps its size";
  EXPECT_EQ(streams[2].size(), rest.size() - 300);
  EXPECT_EQ(streams[3], Join({kDelimiter, next, kDelimiter, next}));
}

TEST(PesPictures, AreLeftToOthersWhereTheyDoNotBeginPackets) {
  const Bytes picture = Join({kDelimiter, Slice(true, 1)});
  const auto told = [&picture](const auto& add) {
    TransportBuilder builder;
    builder.Pes(kVideo, picture, 0);
    add(builder);
    builder.Pes(kVideo, picture, 9000);
    return WithoutFiller(builder.bytes()).told;
  };
  const Bytes behind(picture.begin() + 10, picture.end());
  EXPECT_TRUE(told([&](TransportBuilder& b) { b.Pes(kVideo, picture, 1); }));
  EXPECT_FALSE(told([&](TransportBuilder& b) { b.Pes(kVideo, behind, 1); })) << "with a time of its own";
  EXPECT_FALSE(told([&](TransportBuilder& b) { Untimed(b, picture); })) << "a picture without a time";
  EXPECT_FALSE(told([&](TransportBuilder& b) { b.Pes(kVideo, kDelimiter, 1); })) << "no picture";
  EXPECT_FALSE(told([&](TransportBuilder& b) { b.Pes(kVideo, Join({picture, picture, picture}), 1); }));
  EXPECT_FALSE(told([&](TransportBuilder& b) { Untimed(b, behind, 0xBD); })) << "private data";
  TransportBuilder late;
  late.Pes(kVideo, behind, 0);
  EXPECT_FALSE(WithoutFiller(late.bytes()).told) << "begins within a picture";
  // A slice of HEVC: TRAIL_R, first_slice_segment_in_pic_flag.
  const Bytes trail = Join({{0, 0, 0, 1, 2, 1, 0x80}, Bytes(100, 7)});
  TransportBuilder single, pair;
  single.Pes(kVideo, trail, 0);
  EXPECT_TRUE(WithoutFiller(single.bytes(), VideoCodec::kHevc).told);
  pair.Pes(kVideo, Join({trail, trail}), 0);
  EXPECT_FALSE(WithoutFiller(pair.bytes(), VideoCodec::kHevc).told);
}

// Long slices are given with their heads, and come back whole behind whatever changed in front of them.
TEST(CutPicture, PutsTheRestOfSlicesBack) {
  // The second one has zeros where it would be cut.
  Bytes second = Slice(false, 2, 9000);
  std::fill_n(second.begin() + 3 + 4090, 10, uint8_t{0});
  const Bytes whole =
      Join({{0}, kDelimiter, Slice(true, 1, 20000), {0, 0}, second, Slice(false, 3), kFiller});
  const CutPicture cut(Codec::kH264, whole);
  EXPECT_EQ(cut.size(), whole.size());
  EXPECT_LT(cut.given().size(), 10000u);
  const auto put = [&](const Bytes& edited) {
    Bytes out;
    size_t at = 0;
    for (const CutPicture::Part& part : cut.PartsOf(edited, "in.ts")) {
      EXPECT_EQ(part.at, at);
      EXPECT_TRUE(std::equal(part.was.begin(), part.was.end(), whole.begin() + static_cast<long>(at)));
      out.insert(out.end(), part.is.begin(), part.is.end());
      const auto rest = whole.begin() + static_cast<long>(at + part.was.size());
      out.insert(out.end(), rest, rest + static_cast<long>(part.rest));
      at += part.was.size() + part.rest;
      if (part.rest != 0) {
        EXPECT_EQ(part.last, whole[at - 1]);
      }
    }
    EXPECT_EQ(at, whole.size());
    return out;
  };
  EXPECT_EQ(put(cut.given()), whole);
  Bytes edited = cut.given();
  edited.erase(edited.end() - static_cast<long>(kFiller.size()), edited.end());
  edited.insert(edited.begin() + 1, kFiller.begin(), kFiller.end());
  Bytes expected(whole.begin(), whole.end() - static_cast<long>(kFiller.size()));
  expected.insert(expected.begin() + 1, kFiller.begin(), kFiller.end());
  EXPECT_EQ(put(edited), expected);
  // A slice that is another or is missing.
  Bytes other = cut.given();
  other[1 + kDelimiter.size() + 100] ^= 1;
  EXPECT_THROW(cut.PartsOf(other, "in.ts"), Error);
  EXPECT_THROW(cut.PartsOf(kDelimiter, "in.ts"), Error);
  // What is short is given whole.
  EXPECT_EQ(CutPicture(Codec::kH264, Slice(true, 1)).given(), Slice(true, 1));
}

TEST(PesPictures, KeepTheRestOfLongSlices) {
  TransportBuilder builder;
  const Bytes one = Slice(true, 1, 30000), two = Slice(true, 2, 30000);
  builder.Pes(kVideo, Join({kDelimiter, kFiller, one}), 0);
  const Bytes picture = Join({kDelimiter, two, kFiller});
  builder.Pes(kVideo, Bytes(picture.begin(), picture.begin() + 20000), 3600);
  Untimed(builder, Bytes(picture.begin() + 20000, picture.end()));
  const Outcome outcome = WithoutFiller(builder.bytes());
  ASSERT_TRUE(outcome.told);
  const std::vector<Bytes> streams = StreamsOf(outcome.bytes, kVideo);
  ASSERT_EQ(streams.size(), 3u);
  EXPECT_EQ(streams[0], Join({kDelimiter, one}));
  EXPECT_EQ(Join({streams[1], streams[2]}), Join({kDelimiter, two}));
}

}  // namespace
}  // namespace qln::test
