// Files about 4 GiB long, whose places grow from 32 to 64 bits. Most of their bytes are nowhere.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "container/mp4/carrier.h"
#include "mp4/carry.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;

// Zero bytes, but for a front and a back.
class SparseSource final : public Source {
 public:
  SparseSource(Bytes front, uint64_t zeros, Bytes back)
      : front_(std::move(front)), back_(std::move(back)), size_(front_.size() + zeros + back_.size()) {}
  const std::string& name() const override { return name_; }
  uint64_t size() const override { return size_; }
  void Read(uint64_t at, std::span<uint8_t> to) const override {
    if (at > size_ || to.size() > size_ - at) throw Fault(at, "outside");
    for (size_t i = 0; i < to.size(); ++i, ++at) {
      const uint64_t backAt = size_ - back_.size();
      to[i] = at < front_.size() ? front_[at] : at >= backAt ? back_[at - backAt] : 0;
    }
  }

 private:
  std::string name_ = "sparse.mp4";
  Bytes front_, back_;
  uint64_t size_;
};

// Keeps the begin and the end of what it gets.
class EndsSink final : public Sink {
 public:
  void Write(ByteSpan bytes) override {
    size += bytes.size();
    for (const uint8_t byte : bytes) {
      if (front.size() < 4096) front.push_back(byte);
    }
    back.insert(back.end(), bytes.begin(), bytes.end());
    if (back.size() > 8192) back.erase(back.begin(), back.end() - 4096);
  }
  void Copy(const Source& source, uint64_t at, uint64_t bytes) override {
    const uint64_t end = at + bytes;
    while (at < end) {
      // The zeros in the middle need not be seen.
      if (end - at > 16384 && front.size() >= 4096) {
        const uint64_t skip = end - at - 8192;
        size += skip;
        at += skip;
        back.clear();
      }
      Bytes piece(static_cast<size_t>(std::min<uint64_t>(4096, end - at)));
      source.Read(at, piece);
      Write(piece);
      at += piece.size();
    }
  }
  uint64_t size = 0;
  Bytes front, back;
};

struct Long {
  Bytes front;
  uint64_t zeros;
  Bytes back;
};

// A movie with two chunks: one at the begin of the media data and one at its end.
Long LongMovie(uint64_t mdatBytes, bool offsetsBehind = false) {
  TrackSpec track;
  track.samples = {Noise(8, 1), Noise(8, 2)};
  if (offsetsBehind) {
    track.placeBox = [](uint64_t) { return Full("saio", 0, 0, {Number(1, 4), Number(0xFFFFFFF0 - 800, 4)}); };
  }
  Bytes file = BuildMovie({.tracks = {track}});
  // The built media data is taken off: 8 bytes of head and 16 of samples.
  file.resize(file.size() - 24);
  const uint64_t mdatAt = file.size();
  const std::string type = "stco";
  const auto at = std::search(file.begin(), file.end(), type.begin(), type.end()) + 12;
  const Bytes places = Joined({Number(mdatAt + 8, 4), Number(mdatAt + mdatBytes - 8, 4)});
  std::copy(places.begin(), places.end(), at);
  return {Joined({file, Number(mdatBytes, 4), Text("mdat"), track.samples[0]}), mdatBytes - 24,
          track.samples[1]};
}

TEST(WidePlaces, ChunksAndMediaDataGetSixtyFourBits) {
  const Long movie = LongMovie(0xFFFFFFF0 - 800);
  for (const size_t grown : {4u, 2000u}) {
    const SparseSource source(movie.front, movie.zeros, movie.back);
    Carrier carrier(source);
    FunctionEditor editor([&](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
      if (sample.number == 0) return Joined({bytes, Noise(grown, 3)});
      return std::nullopt;
    });
    Change change;
    change.tracks.push_back({.trackId = 1, .samples = &editor, .privateData = {}, .facts = {}});
    carrier.Prepare(change);
    EndsSink sink;
    carrier.Write(sink);
    const bool wide = grown == 2000;
    // Two entries grow by 4 bytes each, and the head of the media data by 8.
    EXPECT_EQ(sink.size, source.size() + grown + (wide ? 16 : 0));
    EXPECT_EQ(sink.size, carrier.outputSize());
    const uint64_t mdatAt = movie.front.size() - 16 + (wide ? 8 : 0);
    const uint64_t size = 0xFFFFFFF0 - 800 + grown + (wide ? 8 : 0);
    const Bytes head = wide ? Joined({Number(1, 4), Text("mdat"), Number(size, 8)})
                            : Joined({Number(size, 4), Text("mdat")});
    EXPECT_EQ(Bytes(sink.front.begin() + static_cast<std::ptrdiff_t>(mdatAt),
                    sink.front.begin() + static_cast<std::ptrdiff_t>(mdatAt + head.size())),
              head);
    const size_t width = wide ? 8 : 4;
    const Bytes table =
        Full(wide ? "co64" : "stco", 0, 0,
             {Number(2, 4), Number(mdatAt + head.size(), width), Number(mdatAt + size - 8, width)});
    EXPECT_NE(std::search(sink.front.begin(), sink.front.end(), table.begin(), table.end()),
              sink.front.end());
    EXPECT_EQ(Bytes(sink.back.end() - 8, sink.back.end()), movie.back);
  }
}

TEST(WidePlaces, AuxiliaryOffsetsGetTheirOtherVersion) {
  const Long movie = LongMovie(0xFFFFFFF0 - 800, true);
  const SparseSource source(movie.front, movie.zeros, movie.back);
  Carrier carrier(source);
  FunctionEditor editor([&](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number == 0) return Joined({bytes, Noise(2000, 3)});
    return std::nullopt;
  });
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor, .privateData = {}, .facts = {}});
  carrier.Prepare(change);
  EndsSink sink;
  carrier.Write(sink);
  // 2000 bytes of the sample, 8 of chunk offsets, 4 of this one, 8 of the head of the media data.
  EXPECT_EQ(sink.size, source.size() + 2020);
  const Bytes box = Full("saio", 1, 0, {Number(1, 4), Number(0xFFFFFFF0 - 800 + uint64_t{2020}, 8)});
  EXPECT_NE(std::search(sink.front.begin(), sink.front.end(), box.begin(), box.end()), sink.front.end());
}

TEST(WidePlaces, FragmentIndexesGetTheirOtherVersionAndTheEndItsSize) {
  TrackSpec track;
  track.samples = {Noise(1, 1)};
  const Bytes init = BuildInit({.tracks = {track}});
  TrafSpec traf;
  traf.runs = {{Noise(20, 1)}};
  Bytes front = Joined({init, BuildFragment({traf}, init.size())});
  const uint64_t zeros = 0xFFFFFFF0 - front.size() - 8;
  front = Joined({front, Number(zeros + 8, 4), Text("free")});
  const uint64_t second = front.size() + zeros;
  ASSERT_EQ(second, 0xFFFFFFF0u);
  const auto mfra = [&](bool wide, uint64_t shift) {
    const size_t width = wide ? 8 : 4;
    const Bytes tfra =
        Full("tfra", wide ? 1 : 0, 0,
             {Number(1, 4), Number(0, 4), Number(2, 4), Number(0, width), Number(init.size(), width),
              Text("123"), Number(100, width), Number(second + shift, width), Text("456")});
    return Box("mfra", {tfra, Full("mfro", 0, 0, {Number(8 + tfra.size() + 16, 4)})});
  };
  const Bytes back = Joined({BuildFragment({traf}, second), mfra(false, 0)});
  const SparseSource source(front, zeros, back);
  Carrier carrier(source);
  FunctionEditor editor([&](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number == 0) return Joined({bytes, Noise(100, 3)});
    return std::nullopt;
  });
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor, .privateData = {}, .facts = {}});
  carrier.Prepare(change);
  EndsSink sink;
  carrier.Write(sink);
  const Bytes expected = mfra(true, 100);
  ASSERT_GE(sink.back.size(), expected.size());
  EXPECT_EQ(Bytes(sink.back.end() - static_cast<std::ptrdiff_t>(expected.size()), sink.back.end()), expected);
}

TEST(WidePlaces, WhatHasNoWiderFormIsRefused) {
  TrackSpec track;
  track.samples = {Noise(1, 1)};
  const Bytes init = BuildInit({.tracks = {track}});
  TrafSpec traf;
  traf.runs = {{Noise(20, 1)}};
  const Bytes fragment = BuildFragment({traf}, 0);
  const Bytes sidx = Full("sidx", 0, 0,
                          {Number(1, 4), Number(1000, 4), Number(0, 4), Number(0, 4), Bytes(2), Number(1, 2),
                           Number(0x7FFFFFFF, 4), Number(300, 4), Number(0, 4)});
  const Bytes front = Joined({init, sidx, BuildFragment({traf}, init.size() + sidx.size())});
  const SparseSource source(front, 0x7FFFFFFF - fragment.size(), {});
  Carrier carrier(source);
  FunctionEditor editor([&](const Sample&, const Bytes& bytes) { return Joined({bytes, Noise(100, 3)}); });
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor, .privateData = {}, .facts = {}});
  EXPECT_THAT(Refusal([&] { carrier.Prepare(change); }),
              HasSubstr("referenced_size ('sidx') would not fit its 31 bits"));
}

}  // namespace
}  // namespace qln::test::mp4
