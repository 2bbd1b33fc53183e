// Samples of fragments that change, and the indexes that name their places.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/carry_random.h"

namespace qln::test::mp4 {
namespace {

using namespace qlnmedia::mp4;

TEST(FragmentCarrier, FragmentsOfEveryKind) {
  const MovieSpec movie{.tracks = {SampleTrack(1, 1), SampleTrack(1, 2)}};
  const Bytes init = BuildInit(movie, 6);
  for (int kind = 0; kind < 64; ++kind) {
    SCOPED_TRACE(kind);
    TrafSpec one;
    one.runs = {{Noise(6, 1), Noise(6, 2)}, {Noise(6, 3)}};
    one.explicitBase = (kind & 1) != 0;
    one.baseIsMoof = (kind & 2) != 0;
    one.sizes = (kind & 4) != 0;
    one.durations = one.timeOffsets = (kind & 8) != 0;
    one.offsetsInAll = (kind & 16) != 0;
    one.defaultSize = (kind & 32) != 0 ? 6 : 0;
    one.firstFlags = true;
    one.boxes = {Box("sbgp", Noise(9, 1))};
    TrafSpec two = one;
    two.trackId = 2;
    two.runs = {{Noise(4, 4), Noise(5, 5), Noise(6, 6)}};
    two.sizes = true;
    Bytes file = init;
    for (int i = 0; i < 3; ++i) {
      file = Joined({file, Box("emsg", Noise(20, 1)), Box("styp", Text("msdh"))});
      file = Joined({file, BuildFragment({one, two}, file.size(), Text("gap"))});
    }
    ExpectCarried(file, 1);
    ExpectCarried(file, 2);
    if (kind % 2 != 0) continue;
    const Bytes segment = Joined({Box("styp", Text("msdh")), BuildFragment({one, two}, 12)});
    ExpectCarried(segment, 1, init);
    ExpectCarried(segment, 2, init);
  }
}

TEST(FragmentCarrier, AuxiliaryOffsetsOfFragmentsCountFromTheirBase) {
  const Bytes init = BuildInit({.tracks = {SampleTrack(1, 1)}});
  for (const bool explicitBase : {true, false}) {
    TrafSpec traf;
    traf.explicitBase = explicitBase;
    traf.runs = {{Noise(6, 1), Noise(9, 2)}};
    traf.placeBox = [](uint64_t at) { return Full("saio", 0, 0, {Number(1, 4), Number(at + 6, 4)}); };
    Bytes file = init;
    for (int i = 0; i < 2; ++i) file = Joined({file, BuildFragment({traf}, file.size())});
    FunctionEditor editor([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
      if (sample.number % 2 == 0) return Joined({Text("new"), bytes});
      return std::nullopt;
    });
    const Bytes output = CarrySamples(file, 1, editor).output;
    EXPECT_EQ(Compare(file, output, 1, editor.result), "");
    // The second sample of the fragment, three bytes further from the base.
    const auto last = [](const Bytes& bytes) {
      const std::string type = "saio";
      const auto found = std::find_end(bytes.begin(), bytes.end(), type.begin(), type.end());
      return uint32_t{found[14]} << 8 | found[15];
    };
    EXPECT_EQ(last(output), last(file) + 3);
  }
}

TEST(FragmentCarrier, IndexesNameTheSameBoxes) {
  const Bytes init = BuildInit({.tracks = {SampleTrack(1, 1)}});
  TrafSpec traf;
  traf.runs = {{Noise(6, 1), Noise(9, 2), Noise(30, 3)}};
  std::vector<uint64_t> sizes;
  for (int i = 0; i < 4; ++i) sizes.push_back(BuildFragment({traf}, 0).size());
  for (const uint8_t version : {uint8_t{0}, uint8_t{1}}) {
    const size_t wide = version == 0 ? 4 : 8;
    std::vector<Bytes> entries;
    for (const uint64_t size : sizes)
      entries.push_back(Joined({Number(size, 4), Number(300, 4), Number(0x90000000, 4)}));
    const Bytes sidx = Full("sidx", version, 0,
                            {Number(1, 4), Number(1000, 4), Number(0, wide), Number(20, wide), Bytes(2),
                             Number(4, 2), Joined(entries)});
    std::vector<Bytes> levels = {Number(4, 4)};
    for (const uint64_t size : sizes)
      levels.push_back(
          Joined({Number(2, 4), Number(0, 1), Number(size - 10, 3), Number(1, 1), Number(10, 3)}));
    const Bytes ssix = Full("ssix", 0, 0, levels);
    // The index begins 20 bytes behind itself when 'free' is as long; here 'ssix' and 'free' stand in
    // between.
    Bytes head = sidx;
    const Bytes first = Number(ssix.size() + 20, wide);
    std::copy(first.begin(), first.end(), head.begin() + 20 + static_cast<std::ptrdiff_t>(wide));
    Bytes file = Joined({init, head, ssix, Box("free", Bytes(12))});
    std::vector<Bytes> access = {Number(1, 4), Number(0x3F, 4), Number(4, 4)};
    for (int i = 0; i < 4; ++i) {
      access.push_back(Joined({Number(static_cast<uint64_t>(i) * 300, wide), Number(file.size(), wide),
                               Number(1, 4), Number(1, 4), Number(1, 4)}));
      file = Joined({file, BuildFragment({traf}, file.size())});
    }
    const Bytes tfra = Full("tfra", version, 0, access);
    file = Joined({file, Box("mfra", {tfra, Full("mfro", 0, 0, {Number(8 + tfra.size() + 16, 4)})})});
    const Listing in = ListFile(file);
    ASSERT_EQ(in.marks.size(), 10u);
    for (const int64_t mark : in.marks) ASSERT_GE(mark, 0);
    ExpectCarried(file, 1);
    // Ranges of levels go with their bytes: the last ten of a fragment are in its last sample.
    FunctionEditor editor([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
      if (sample.number == 2) return Joined({bytes, Text("12345")});
      return std::nullopt;
    });
    const Bytes output = CarrySamples(file, 1, editor).output;
    const std::string type = "ssix";
    const auto levelsAt = std::search(output.begin(), output.end(), type.begin(), type.end()) + 4;
    EXPECT_EQ(Bytes(levelsAt + 16, levelsAt + 20), Joined({Number(1, 1), Number(15, 3)}));
    EXPECT_EQ(Bytes(levelsAt + 24, levelsAt + 28), Joined({Number(0, 1), Number(sizes[1] - 10, 3)}));
  }
}

}  // namespace
}  // namespace qln::test::mp4
