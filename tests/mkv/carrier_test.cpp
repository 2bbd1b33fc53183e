// What the carrier of Matroska files changes and what it leaves, on files put together by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "mkv/carry.h"

namespace qln::test::mkv {
namespace {

using testing::HasSubstr;

TEST(MkvCarrier, FilesOfEveryShapeKeepAllButTheFrames) {
  for (uint32_t seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    const Bytes file = RandomFile(seed).bytes;
    const Listing was = List(file, {1});
    ASSERT_EQ(was.error, "");
    ExpectCarried(file, [](const Sample&, const Bytes&) { return std::nullopt; });
    FunctionEditor same([](const Sample&, const Bytes& bytes) { return bytes; });
    ASSERT_EQ(CarryFrames(file, same), file);
    std::mt19937 random(seed);
    // Few, all, or long frames change, and come back late.
    const size_t most = seed % 3 == 0 ? 20000 : 60;
    ExpectCarried(
        file,
        [&](const Sample&, const Bytes& bytes) -> std::optional<Bytes> {
          if (seed % 4 != 0 && random() % 3 == 0) return std::nullopt;
          Bytes fresh = bytes;
          fresh.resize(std::max<size_t>(5, random() % most), static_cast<uint8_t>(random()));
          return fresh;
        },
        seed % 5);
    if (testing::Test::HasFailure()) return;
  }
}

TEST(MkvCarrier, PlacesGrowAndMoveWhatStandsBehindThem) {
  // The cluster stands at place 200 of the segment, and no more within what one byte can say.
  std::vector<Part> points;
  for (int i = 0; i < 40; ++i)
    points.push_back(Master(0xBB, {Number(0xB3, 1), Master(0xB7, {Number(0xF7, 1), Place(0xF1, 50 + i)})}));
  std::vector<Part> segment{Master(0x1C53BB6B, points)};
  for (int i = 0; i < 40; ++i) {
    Part cluster = Master(0x1F43B675, {Number(0xE7, 0), Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(3, 1)}))});
    cluster.label = 50 + i;
    segment.push_back(cluster);
  }
  const Bytes file = Simple(segment);
  for (const size_t size : {100u, 125u, 126u, 127u, 16379u, 16400u})
    ExpectCarried(file, [&](const Sample&, const Bytes&) { return Bytes(size, 1); });
}

TEST(MkvCarrier, ACodedChecksumThatIsWrongStaysWrong) {
  Part cluster = Master(0x1F43B675, {Number(0xE7, 0), Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)}))});
  cluster.checksum = true;
  Bytes file = Simple({cluster});
  const auto grow = [](const Sample&, const Bytes& bytes) { return Bytes(bytes.size() + 3, 4); };
  ExpectCarried(file, grow);
  const Bytes head{0xBF, 0x84};
  const auto at = std::search(file.begin(), file.end(), head.begin(), head.end());
  ASSERT_NE(at, file.end());
  *(at + 2) ^= 1;
  ExpectCarried(file, grow);
}

TEST(MkvCarrier, FixedLacingBecomesToldWhereSizesDiffer) {
  const std::vector<Bytes> frames{Noise(10, 1), Noise(10, 2), Noise(10, 3)};
  const Bytes file =
      Simple({Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0x80, frames, Lacing::kFixed))})});
  FunctionEditor one([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number != 1) return std::nullopt;
    return Bytes(bytes.size() + 300, 9);
  });
  const Bytes told = CarryFrames(file, one);
  EXPECT_EQ(List(told, {1}).frames.at(1), one.result);
  // The flags of the only block, behind its track and time.
  const Bytes head{0x81, 0, 0, 0x86, 2};
  EXPECT_NE(std::search(told.begin(), told.end(), head.begin(), head.end()), told.end());
  FunctionEditor all([](const Sample&, const Bytes&) { return Bytes(12, 9); });
  const Bytes fixed = CarryFrames(file, all);
  const Bytes still{0x81, 0, 0, 0x84, 2};
  EXPECT_NE(std::search(fixed.begin(), fixed.end(), still.begin(), still.end()), fixed.end());
}

TEST(MkvCarrier, ZlibIsUndoneAndDoneAgain) {
  const Bytes first(500, 3);
  const Bytes second = Noise(80, 4);
  const Bytes file = WithTrack(Track(1, {Encoded(0)}),
                               {Leaf(0xA3, BlockBytes(1, 0, 0x80, {Zlib(first)})),
                                Leaf(0xA3, BlockBytes(1, 1, 0, {Zlib(second), Zlib(first)}, Lacing::kXiph))});
  ExpectCarried(file, [](const Sample&, const Bytes& bytes) {
    Bytes fresh = bytes;
    fresh.insert(fresh.begin() + 20, 50, 0xAB);
    return fresh;
  });
  FunctionEditor last([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number != 2) return std::nullopt;
    return Bytes(bytes.begin(), bytes.end() - 1);
  });
  const Bytes out = CarryFrames(file, last);
  EXPECT_EQ(last.seen.size(), 3u);
  EXPECT_EQ(List(out, {1}).frames.at(1), last.result);
}

TEST(MkvCarrier, WhatCannotBeUndoneIsRefusedByName) {
  const auto file = [](const Part& encoding, const Bytes& frame) {
    return WithTrack(Track(1, {encoding}), {Leaf(0xA3, BlockBytes(1, 0, 0x80, {frame}))});
  };
  EXPECT_THAT(Refusal(file(Encoded(1), Noise(9, 1))), HasSubstr("(bzlib), which is not undone here"));
  EXPECT_THAT(Refusal(file(Encoded(2), Noise(9, 1))), HasSubstr("(lzo1x), which is not undone here"));
  EXPECT_THAT(Refusal(file(Encoded(9), Noise(9, 1))), HasSubstr("(of an unknown kind)"));
  EXPECT_THAT(Refusal(file(Encoded(0), Noise(9, 1))), HasSubstr("no whole zlib stream"));
  Bytes cut = Zlib(Noise(300, 1));
  cut.resize(cut.size() - 5);
  EXPECT_THAT(Refusal(file(Encoded(0), cut)), HasSubstr("no whole zlib stream (at byte "));
  // The editor's frames begin with other bytes than the track takes off.
  EXPECT_THAT(Refusal(file(Encoded(3, {1, 2}), Noise(9, 1))),
              HasSubstr("would no longer begin with the bytes that its track strips"));
  // A bomb: some kilobytes that would become 70 megabytes.
  Bytes bomb;
  z_stream stream = {};
  deflateInit(&stream, 1);
  const Bytes zeros(1 << 20);
  bomb.resize(4 << 20);
  stream.next_out = bomb.data();
  stream.avail_out = static_cast<uInt>(bomb.size());
  for (int i = 0; i < 70; ++i) {
    stream.next_in = const_cast<Bytef*>(zeros.data());
    stream.avail_in = static_cast<uInt>(zeros.size());
    deflate(&stream, i == 69 ? Z_FINISH : Z_NO_FLUSH);
  }
  bomb.resize(bomb.size() - stream.avail_out);
  deflateEnd(&stream);
  EXPECT_THAT(Refusal(file(Encoded(0), bomb)), HasSubstr("no whole zlib stream"));
}

TEST(MkvCarrier, EncryptedFramesAreNotGiven) {
  const Bytes file =
      WithTrack(Track(1, {Master(0x6D80, {Master(0x6240, {Number(0x5033, 1), Master(0x5035, {})})})}),
                {Leaf(0xA3, BlockBytes(1, 0, 0x80, {Noise(30, 1)}))});
  FunctionEditor editor([](const Sample&, const Bytes&) { return Bytes(3, 3); });
  EXPECT_EQ(CarryFrames(file, editor), file);
  EXPECT_TRUE(editor.seen.empty());
}

TEST(MkvCarrier, PartsOfFramesChange) {
  class Parts final : public qlnmedia::mp4::SampleEditor {
   public:
    void Take(const Sample& sample, qlnmedia::mp4::ByteSpan bytes,
              qlnmedia::mp4::SampleReturns& returns) override {
      if (sample.number % 2 == 0) return returns.Keep(sample.number);
      std::vector<qlnmedia::mp4::SamplePart> parts(2);
      parts[0] = {1, {bytes[1]}, Bytes(7, 1)};
      parts[1] = {4, {bytes[4], bytes[5]}, {2}};
      returns.ReplaceParts(sample.number, parts);
      Bytes fresh(bytes.begin(), bytes.end());
      fresh.erase(fresh.begin() + 4, fresh.begin() + 6);
      fresh.insert(fresh.begin() + 4, 2);
      fresh.erase(fresh.begin() + 1);
      fresh.insert(fresh.begin() + 1, 7, 1);
      result.push_back(fresh);
    }
    std::vector<Bytes> result;
  };
  const std::vector<Bytes> frames{Noise(20, 1), Noise(30, 2), Noise(40, 3)};
  const Bytes file = Simple({Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0, frames, Lacing::kEbml)),
                                                 Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(15, 4)}))})});
  Parts editor;
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor});
  const Bytes out = Carry(file, change);
  const std::vector<Bytes> is = List(out, {1}).frames.at(1);
  EXPECT_EQ(Difference(List(file, {1}), List(out, {1})), "");
  EXPECT_EQ(is[0], frames[0]);
  EXPECT_EQ(is[2], frames[2]);
  EXPECT_EQ((std::vector<Bytes>{is[1], is[3]}), editor.result);
}

TEST(MkvCarrier, DocumentsOfShortSizesAreNotBroken) {
  const Part cluster = Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(70, 1)}))});
  const Bytes file = Simple({cluster}, 2);
  EXPECT_EQ(Refusal(file), "taken");
  Part large = Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(16120, 1)})),
                                   Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(120, 1)}))});
  EXPECT_EQ(Refusal(Simple({large}, 3)), "taken");
  EXPECT_THAT(Refusal(Simple({large}, 2)), HasSubstr("would need 3 bytes, and this document allows 2"));
}

}  // namespace
}  // namespace qln::test::mkv
