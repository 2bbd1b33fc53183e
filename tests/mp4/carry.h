// Runs changes over files in memory, as tests want them.
#ifndef TESTS_MP4_CARRY_H
#define TESTS_MP4_CARRY_H

#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <utility>

#include "container/mp4/carrier.h"
#include "container/mp4/memory_sink.h"
#include "mp4/build_boxes.h"

namespace qln::test::mp4 {

// Gives each sample to a function, which gives back its new bytes, or none for "as it was".
class FunctionEditor final : public qlnmedia::mp4::SampleEditor {
 public:
  using Function = std::function<std::optional<Bytes>(const qlnmedia::mp4::Sample&, const Bytes&)>;
  // `delay`: how many samples later one comes back.
  explicit FunctionEditor(Function function, size_t delay = 0)
      : function_(std::move(function)), delay_(delay) {}

  void Take(const qlnmedia::mp4::Sample& sample, qlnmedia::mp4::ByteSpan bytes,
            qlnmedia::mp4::SampleReturns& returns) override {
    const Bytes own(bytes.begin(), bytes.end());
    seen.push_back(sample);
    const auto fresh = function_(sample, own);
    result.push_back(fresh.value_or(own));
    if (fresh) waiting_.emplace_back(sample.number, *fresh);
    while (!waiting_.empty() && waiting_.front().first + delay_ <= sample.number) GiveOne(returns);
  }
  void End(qlnmedia::mp4::SampleReturns& returns) override {
    while (!waiting_.empty()) GiveOne(returns);
  }

  std::vector<qlnmedia::mp4::Sample> seen;
  std::vector<Bytes> result;

 private:
  void GiveOne(qlnmedia::mp4::SampleReturns& returns) {
    returns.Replace(waiting_.front().first, waiting_.front().second);
    waiting_.pop_front();
  }

  Function function_;
  size_t delay_;
  std::deque<std::pair<uint64_t, Bytes>> waiting_;
};

struct Carried {
  Bytes output;
  qlnmedia::mp4::Carrier::Counts counts;
};

inline Carried CarryBytes(const Bytes& file, const qlnmedia::mp4::Change& change, const Bytes& init = {}) {
  const qlnmedia::mp4::MemorySource source(file, "in.mp4");
  const qlnmedia::mp4::MemorySource initSource(init, "init.mp4");
  qlnmedia::mp4::CarrierOptions options;
  if (!init.empty()) options.initialization = &initSource;
  qlnmedia::mp4::Carrier carrier(source, options);
  Carried out;
  out.counts = carrier.Prepare(change);
  qlnmedia::mp4::MemorySink sink;
  carrier.Write(sink);
  out.output = sink.bytes();
  if (out.output.size() != carrier.outputSize()) throw std::logic_error("another size than was told");
  return out;
}

inline Carried CarrySamples(const Bytes& file, uint32_t trackId, FunctionEditor& editor,
                            const Bytes& init = {}) {
  qlnmedia::mp4::Change change;
  change.tracks.push_back({});
  change.tracks[0].trackId = trackId;
  change.tracks[0].samples = &editor;
  return CarryBytes(file, change, init);
}

// What carrying says when it refuses; empty where it does not.
inline std::string Refusal(const std::function<void()>& work) {
  try {
    work();
  } catch (const qlnmedia::Error& error) {
    return error.what();
  }
  return {};
}

// Grows, shrinks and keeps samples, always the same way for the same seed.
inline FunctionEditor::Function RandomChange(uint32_t seed) {
  return [seed](const qlnmedia::mp4::Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    const uint32_t draw = (static_cast<uint32_t>(sample.number) * 2654435761U + seed * 40503U) >> 7;
    if (bytes.empty()) return std::nullopt;
    switch (draw % 7) {
      case 0:
        return std::nullopt;
      case 1:
        return Joined({Noise(1 + draw % 40, draw), bytes});
      case 2:
        return Joined({bytes, Noise(1 + draw % 3, draw)});
      case 3:
        return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2), bytes.end());
      case 4:
        return Noise(bytes.size(), draw);
      case 5: {
        Bytes out = bytes;
        out.insert(out.begin() + static_cast<std::ptrdiff_t>(bytes.size() / 2), 5, 0x11);
        return out;
      }
      default:
        return Bytes(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>((bytes.size() + 1) / 2));
    }
  };
}

}  // namespace qln::test::mp4

#endif
