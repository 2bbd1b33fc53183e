// Files that were cut off in their last cluster, or behind it, are carried as far as they go.

#include <gtest/gtest.h>

#include <algorithm>

#include "container/mkv/carrier.h"
#include "container/mkv/kept_elements.h"
#include "container/mp4/memory_sink.h"
#include "container/mp4/source.h"
#include "mkv/build_elements.h"

namespace qln::test {
namespace {

using namespace mkv;
using qlnmedia::mp4::MemorySink;
using qlnmedia::mp4::MemorySource;

// Makes every frame longer by so many bytes.
class Grow final : public qlnmedia::mp4::SampleEditor {
 public:
  explicit Grow(size_t by) : by_(by) {}
  void Take(const qlnmedia::mp4::Sample& sample, qlnmedia::mp4::ByteSpan bytes,
            qlnmedia::mp4::SampleReturns& returns) override {
    Bytes longer(bytes.begin(), bytes.end());
    longer.insert(longer.begin(), by_, 9);
    returns.Replace(sample.number, longer);
  }

 private:
  size_t by_;
};

struct Shape {
  bool openSegment = false;
  bool openCluster = false;
  bool behind = false;  // tags behind the clusters
};

// A cluster, and one of as many blocks as asked for, of which so many in all have frames that are longer.
Bytes File(const Shape& shape, size_t blocks, size_t grown, size_t by) {
  const auto block = [&](size_t number) {
    Bytes frame(150, static_cast<uint8_t>(number));
    if (number < grown) frame.insert(frame.begin(), by, 9);
    Part part = Leaf(0xA3, BlockBytes(1, static_cast<int16_t>(number), 0, {frame}));
    part.sizeBytes = 2;
    return part;
  };
  Part first = Master(0x1F43B675, {Number(0xE7, 0), block(0)});
  Part last = Master(0x1F43B675, {Number(0xE7, 10)});
  for (size_t i = 1; i <= blocks; ++i) last.parts.push_back(block(i));
  last.open = shape.openCluster;
  Part segment = Master(0x18538067, {Info(), Master(0x1654AE6B, {Track(1)}), first, last});
  if (shape.behind) segment.parts.push_back(Master(0x1254C367, {Leaf(0x7373, Bytes(90, 3))}));
  segment.open = shape.openSegment;
  for (Part* const part : {&segment.parts[2], &segment.parts[3], &segment}) part->sizeBytes = 8;
  return Build({Head(), segment});
}

struct Outcome {
  Bytes bytes;
  std::optional<uint64_t> cutAt;
};

Outcome Grown(const Bytes& file, size_t by) {
  const MemorySource source(file, "in.mkv");
  Grow editor(by);
  qlnmedia::mkv::Carrier carrier(source);
  qlnmedia::mp4::Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor});
  carrier.Prepare(change);
  MemorySink sink;
  carrier.Write(sink);
  const MemorySource written(sink.bytes(), "out.mkv");
  const auto kept = [](uint64_t, const auto&, auto, auto) { return true; };
  EXPECT_NO_THROW(qlnmedia::mkv::RequireElementsKept(source, written, {1}, "out.mkv", kept));
  return {sink.bytes(), carrier.layout().cutAt};
}

TEST(MkvCutFiles, AreCarriedAsFarAsTheyGo) {
  constexpr size_t kBy = 40, kBlock = 3 + 4 + 150;
  for (const Shape& shape : {Shape{}, Shape{true, false, false}, Shape{true, true, false}}) {
    const Bytes file = File(shape, 3, 0, kBy);
    for (size_t missing = 1; missing <= kBlock; missing += missing < 4 || missing > kBlock - 6 ? 1 : 29) {
      SCOPED_TRACE(missing);
      const Bytes cut(file.begin(), file.end() - static_cast<long>(missing));
      const Outcome outcome = Grown(cut, kBy);
      // What is there is that of a file in which the last block stays; what it says of sizes as well.
      Bytes expected = File(shape, 3, 3, kBy);
      expected.resize(expected.size() - missing);
      EXPECT_EQ(outcome.bytes, expected);
      const bool within = missing < kBlock;
      ASSERT_EQ(outcome.cutAt.has_value(), within);
      if (within) {
        EXPECT_EQ(*outcome.cutAt, file.size() - kBlock);
      }
    }
  }
}

// Nothing of pictures is lost where what stands behind them is cut off.
TEST(MkvCutFiles, MayEndBehindTheirClusters) {
  const Shape shape{.behind = true};
  const Bytes file = File(shape, 2, 0, 40);
  for (const size_t missing : {1u, 50u, 94u, 97u}) {
    const Outcome outcome = Grown(Bytes(file.begin(), file.end() - static_cast<long>(missing)), 40);
    Bytes expected = File(shape, 2, 3, 40);
    expected.resize(expected.size() - missing);
    EXPECT_EQ(outcome.bytes, expected) << missing;
    EXPECT_TRUE(outcome.cutAt.has_value());
  }
}

// The check of what was written sees a size that no longer counts what is missing.
TEST(MkvCutFiles, SizesGoOnCountingWhatIsMissing) {
  Bytes file = File({}, 3, 0, 0);
  file.resize(file.size() - 10);
  Bytes other = file;
  const std::vector<uint8_t> id{0x1F, 0x43, 0xB6, 0x75};
  const auto last = std::find_end(other.begin(), other.end(), id.begin(), id.end());
  ++*(last + 11);
  const MemorySource was(file, "in.mkv"), is(other, "out.mkv");
  EXPECT_NO_THROW(qlnmedia::mkv::RequireElementsKept(was, was, {1}, "out.mkv", {}));
  EXPECT_THROW(qlnmedia::mkv::RequireElementsKept(was, is, {1}, "out.mkv", {}), qlnmedia::Error);
}

}  // namespace
}  // namespace qln::test
