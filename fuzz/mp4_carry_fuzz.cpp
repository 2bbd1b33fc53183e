// Whole patches of MP4 and MOV in memory: whatever the boxes say, what comes out has the samples that were
// asked for, at the times they had, and a change of nothing is the input.

#include <algorithm>
#include <optional>

#include "container/mp4/carrier.h"
#include "container/mp4/layout_check.h"
#include "container/mp4/memory_sink.h"
#include "fuzz_input.h"
#include "mutators/formats.h"

namespace {

using namespace qlnmedia::mp4;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

constexpr size_t kMostSamples = 4096;

struct Listed {
  Sample sample;
  Bytes bytes;
};

// Changes samples by what the input's first bytes say, and keeps what has to come out.
class Editor final : public SampleEditor {
 public:
  explicit Editor(uint32_t seed) : seed_(seed) {}

  void Take(const Sample& sample, ByteSpan bytes, SampleReturns& returns) override {
    if (expected.size() == kMostSamples) throw qlnmedia::Error("", "enough");
    Bytes fresh(bytes.begin(), bytes.end());
    seed_ = seed_ * 1664525 + 1013904223;
    if (!fresh.empty() && (seed_ >> 6 & 3) == 3) {
      fresh = GiveParts(sample.number, bytes, returns);
    } else if (!fresh.empty()) {
      const size_t at = (seed_ >> 8) % fresh.size();
      switch (seed_ >> 28 & 3) {
        case 0:
          break;
        case 1:
          fresh.insert(fresh.begin() + static_cast<ptrdiff_t>(at), 1 + (seed_ >> 20 & 15), 0x55);
          break;
        case 2:
          fresh.resize(at + 1);
          break;
        default:
          fresh[at] ^= 0x10;
          break;
      }
      if (fresh.size() != bytes.size() || !std::equal(fresh.begin(), fresh.end(), bytes.begin())) {
        returns.Replace(sample.number, fresh);
      }
    }
    expected.push_back({sample, std::move(fresh)});
  }

  std::vector<Listed> expected;

 private:
  // More bytes at one place, and fewer from another one on.
  Bytes GiveParts(uint64_t number, ByteSpan bytes, SampleReturns& returns) const {
    const size_t first = (seed_ >> 8) % bytes.size();
    const size_t second = first + 1 + (seed_ >> 16) % (bytes.size() - first);
    Bytes fresh(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(first) + 1);
    fresh.insert(fresh.end(), seed_ >> 20 & 15, 0x55);
    std::vector<SamplePart> parts = {
        {first, {bytes[first]}, Bytes(fresh.begin() + static_cast<ptrdiff_t>(first), fresh.end())}};
    const ByteSpan rest = bytes.subspan(first + 1);
    const size_t kept = second - first - 1;
    fresh.insert(fresh.end(), rest.begin(), rest.begin() + static_cast<ptrdiff_t>(kept));
    if (kept < rest.size()) {
      const ByteSpan goes = rest.subspan(kept);
      parts.push_back({second, Bytes(goes.begin(), goes.end()), {0x77}});
      fresh.push_back(0x77);
    }
    returns.ReplaceParts(number, parts);
    return fresh;
  }

  uint32_t seed_;
};

std::optional<Bytes> Carry(const Source& source, const Change& change) {
  try {
    Carrier carrier(source);
    carrier.Prepare(change);
    MemorySink sink;
    carrier.Write(sink);
    Expect(sink.bytes().size() == carrier.outputSize());
    // What was carried is found to be in order.
    try {
      CheckLayout(carrier, MemorySource(sink.bytes()), "output");
    } catch (const qlnmedia::Error&) {
      Expect(false);
    }
    return sink.bytes();
  } catch (const qlnmedia::Error&) {
    return std::nullopt;
  }
}

std::vector<Listed> List(const Source& source, uint32_t track) {
  const Layout layout = ReadLayout(source);
  TrackSamples samples(source, layout, track);
  std::vector<Listed> out;
  for (Listed one; samples.Next(one.sample) && out.size() < kMostSamples; out.push_back(one)) {
    Expect(one.sample.offset <= source.size() && one.sample.size <= source.size() - one.sample.offset);
    one.bytes.resize(one.sample.size);
    source.Read(one.sample.offset, one.bytes);
  }
  return out;
}

void ExpectSamples(const std::vector<Listed>& found, const std::vector<Listed>& expected) {
  Expect(found.size() == expected.size());
  for (size_t i = 0; i < found.size(); ++i) {
    const Sample& a = found[i].sample;
    const Sample& b = expected[i].sample;
    Expect(found[i].bytes == expected[i].bytes);
    Expect(a.decodeTime == b.decodeTime && a.compositionTime == b.compositionTime &&
           a.duration == b.duration);
    Expect(a.sync == b.sync && a.description == b.description);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Input input(data, size);
  const auto seed = static_cast<uint32_t>(input.Number(4));
  const auto track = static_cast<uint32_t>(input.Number(1) % 4 + 1);
  const auto wishes = static_cast<uint32_t>(input.Number(1));
  qln::fuzz::Block block(input.data(), input.left(), input.left());
  const MemorySource source(ByteSpan(block.data(), block.size));

  // Nothing is wished for, or no sample is another.
  const auto same = Carry(source, {});
  Expect(!same || std::equal(same->begin(), same->end(), block.data(), block.data() + block.size));

  Editor editor(seed);
  Change change;
  change.tracks.push_back({.trackId = track, .samples = (wishes & 1) != 0 ? nullptr : &editor});
  if ((wishes & 2) != 0) change.tracks[0].facts.colour = Colour{9, 16, 9, true};
  if ((wishes & 4) != 0) change.tracks[0].facts.pixelShape = {4, 3};
  if ((wishes & 8) != 0) change.tracks[0].privateData.push_back({0, FourCc("avcC"), Bytes(40, 1)});
  const auto output = Carry(source, change);
  if (!output) return 0;
  const MemorySource carried(*output);
  if (change.tracks[0].samples != nullptr) ExpectSamples(List(carried, track), editor.expected);
  // The same facts once more are there already.
  change.tracks[0].samples = nullptr;
  const auto again = Carry(carried, change);
  Expect(again && *again == *output);
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Boxes(), 6)
