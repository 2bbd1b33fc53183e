// Matroska files in memory: whatever their elements say, a change of nothing is the input, and what was
// changed comes out of blocks at their places while all other elements are those of the input.

#include <optional>
#include <vector>

#include "container/mkv/carrier.h"
#include "container/mkv/kept_elements.h"
#include "container/mp4/memory_sink.h"
#include "fuzz_input.h"
#include "mutators/formats.h"

namespace {

using namespace qlnmedia::mkv;
using qlnmedia::mp4::MemorySink;
using qlnmedia::mp4::MemorySource;
using qlnmedia::mp4::Sample;
using qlnmedia::mp4::SampleReturns;

constexpr uint32_t kTrack = 1;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

// Gives frames back as they are, longer, shorter, or not at all, some of them late.
class Editor final : public qlnmedia::mp4::SampleEditor {
 public:
  explicit Editor(uint32_t seed, bool changes) : seed_(seed), changes_(changes) {}

  void Take(const Sample& sample, ByteSpan bytes, SampleReturns& returns) override {
    Bytes fresh(bytes.begin(), bytes.end());
    seed_ = seed_ * 1664525 + 1013904223;
    if (changes_ && !fresh.empty() && (seed_ >> 30) != 0) {
      // What a track may strip off all frames stays.
      const size_t at = fresh.size() < 8 ? fresh.size() : 8 + (seed_ >> 8) % (fresh.size() - 7);
      if ((seed_ >> 30) == 1) fresh.resize(std::max<size_t>(at, 1));
      if ((seed_ >> 30) > 1)
        fresh.insert(fresh.begin() + static_cast<std::ptrdiff_t>(at), (seed_ >> 12) % 300, 0x55);
    }
    frames.push_back(fresh);
    if (held_) returns.Replace(held_->first, held_->second);
    held_.reset();
    if ((seed_ & 1) != 0) {
      held_ = {sample.number, std::move(fresh)};
    } else {
      returns.Replace(sample.number, fresh);
    }
  }
  void End(SampleReturns& returns) override {
    if (held_) returns.Replace(held_->first, held_->second);
  }

  std::vector<Bytes> frames;

 private:
  uint32_t seed_;
  bool changes_;
  std::optional<std::pair<uint64_t, Bytes>> held_;
};

Bytes Carried(const Bytes& bytes, Editor& editor, bool facts) {
  const MemorySource source(bytes);
  Carrier carrier(source);
  if (carrier.layout().tracks.count(kTrack) == 0) throw qlnmedia::Error("", "no track");
  qlnmedia::mp4::Change change;
  change.tracks.push_back({.trackId = kTrack, .samples = &editor});
  if (facts) {
    qlnmedia::mp4::ContainerFacts& asked = change.tracks[0].facts;
    asked.colour = qlnmedia::mp4::Colour{9, 16, 9, true};
    asked.pixelShape = {4, 3};
    asked.fields = {2, 6};
    asked.mastering.emplace().fill(0x21);
    asked.lightLevel = {1000, 400};
    change.tracks[0].pictures.push_back({1, 1920, 1088, 1920, 1080, 0, 0});
    change.tracks[0].privateData.push_back({0, 1, Bytes(40, 3)});
  }
  carrier.Prepare(change);
  MemorySink sink;
  carrier.Write(sink);
  size_t next = 0;
  const auto kept = [&](uint64_t, const Sample&, ByteSpan, ByteSpan is) {
    const bool same =
        next < editor.frames.size() &&
        std::equal(is.begin(), is.end(), editor.frames[next].begin(), editor.frames[next].end());
    ++next;
    return same;
  };
  try {
    RequireElementsKept(source, MemorySource(sink.bytes()), {kTrack}, "out", kept);
  } catch (const qlnmedia::Error&) {
    Expect(false);
  }
  return sink.bytes();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  const uint32_t seed = input.Number(4);
  if (size < 4) return 0;
  const Bytes bytes(data + 4, data + size);
  try {
    Editor same(seed, false);
    Expect(Carried(bytes, same, false) == bytes);
    Editor other(seed, true);
    Carried(bytes, other, (seed & 2) != 0);
  } catch (const qlnmedia::Error&) {
    // refused
  }
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Elements(), 4)
