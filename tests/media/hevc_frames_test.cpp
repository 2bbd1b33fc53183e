// Frames of real HEVC streams through the frame scan: end-of-sequence units and trailing zeros spliced in,
// length form converted first; held against the walk done naively.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>

#include "hevc/unit_builders.h"
#include "media/hevc_streams.h"
#include "qlnutil/qlnh264.h"

namespace qln::test {
namespace {

struct Scanned {
  uint32_t count = 0;
  HevcVpsRecord vps{};
  std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
  HevcPpsRecord pps{};
  Bytes vpsSps;
  Bytes ppsBytes;
  std::vector<std::string> messages;
};

Scanned ScanFrame(const Bytes& bytes) {
  ExactCopy copy(bytes);
  DFrame frame{};
  frame.frameData = copy.data();
  frame.frameSize = static_cast<uint32_t>(bytes.size());
  Scanned scanned;
  Bytes first(QLN_HEVC_UNIT_SIZE), second(QLN_HEVC_UNIT_SIZE);
  uint32_t firstSize = 0;
  uint32_t secondSize = 0;
  MessageCapture capture;
  scanned.count = qlnutilFindNalUnitsHevc(&frame, &scanned.vps, scanned.sps.get(), &scanned.pps, 0, 0,
                                          first.data(), second.data(), 0, &firstSize, &secondSize);
  scanned.messages = capture.textsWithoutLines();
  scanned.vpsSps = Head(first, firstSize);
  scanned.ppsBytes = Head(second, secondSize);
  return scanned;
}

// The walk with plain indices: counts the units and keeps the copies that it would hand out.
struct NaiveWalk {
  explicit NaiveWalk(const Bytes& frame) : data(frame) {}

  const Bytes data;
  uint32_t count = 0;
  Bytes vpsSps;
  Bytes ppsBytes;

  // A byte behind the frame is none that a search would match.
  int At(size_t i) const { return i < data.size() ? data[i] : -1; }
  bool Code(size_t i, int third) const { return At(i) == 0 && At(i + 1) == 0 && At(i + 2) == third; }

  void Run() {
    size_t cursor = 0;
    size_t left = data.size();
    while (left != 0) {
      size_t start = 0;
      size_t end = 0;
      if (left >= 4) {
        while (start + 3 <= left && !Code(cursor + start, 1)) ++start;
        if (start + 3 > left) return;
        start += 3;
        end = start;
        while (end < left && !(end + 3 <= left && (Code(cursor + end, 0) || Code(cursor + end, 1)))) ++end;
        if (end == start) return;
      }
      const size_t prefix = Code(cursor, 1) ? 3 : 4;
      const size_t size = end - start;
      const int type = size == 0 || At(cursor + prefix) < 0 ? 0 : At(cursor + prefix) >> 1 & 63;
      if (type >= 32 && type <= 34) {
        Bytes unit;  // stays empty for a larger one, whose count is 0
        for (size_t i = 0; i < size && size <= QLN_HEVC_UNIT_SIZE; ++i) {
          unit.push_back(static_cast<uint8_t>(std::max(At(cursor + 4 + i), 0)));
        }
        (type == 34 ? ppsBytes : vpsSps) = unit;
      }
      if (type == 36 || type == 37 || type == 38 || type == 40) {
        while (At(cursor) == 0) ++cursor;
        ++cursor;
      }
      cursor += size + prefix;
      left -= end;
      if (size == 0) {
        --left;
        ++cursor;
      }
      ++count;
    }
  }
};

void ExpectAsNaively(const Bytes& frame, const std::string& what) {
  NaiveWalk walk(frame);
  walk.Run();
  const Scanned scanned = ScanFrame(frame);
  EXPECT_EQ(scanned.count, walk.count) << what;
  EXPECT_EQ(scanned.vpsSps, walk.vpsSps) << what;
  EXPECT_EQ(scanned.ppsBytes, walk.ppsBytes) << what;
}

class HevcFrames : public testing::TestWithParam<HevcRecipe> {
 protected:
  // Up to the first slice, suffix SEI units left out: they would hide what stands behind them.
  HevcFrames() {
    for (const Bytes& unit : SplitByteStream(ReadFile(HevcStream(GetParam())))) {
      const uint32_t type = unit[0] >> 1 & 63u;
      if (type == 40) continue;
      units_.push_back(unit);
      if (type < 32) break;
    }
  }

  static Bytes Frame(const std::vector<Bytes>& units, int codeBytes = 4) {
    Bytes bytes;
    for (const Bytes& unit : units) bytes = Join({bytes, WithStartCode(unit, codeBytes)});
    return bytes;
  }

  void ExpectAllSets(const Scanned& scanned) const {
    EXPECT_EQ(Words(scanned.vps), Words(ReadVps(FirstUnit(units_, 32)).record()));
    EXPECT_EQ(Words(*scanned.sps), Words(ReadSps(FirstUnit(units_, 33)).record()));
    EXPECT_EQ(Words(scanned.pps), Words(ReadPps(FirstUnit(units_, 34)).record()));
    EXPECT_EQ(scanned.vpsSps, FirstUnit(units_, 33));
    EXPECT_EQ(scanned.ppsBytes, FirstUnit(units_, 34));
  }

  std::vector<Bytes> units_;
};

const Bytes kEndOfSequence = {36 << 1, 1};

TEST_P(HevcFrames, AnEndOfSequenceUnitBehindThePictureHidesNothing) {
  std::vector<Bytes> units = units_;
  units.push_back(kEndOfSequence);
  const Scanned scanned = ScanFrame(Frame(units));
  EXPECT_EQ(scanned.count, units.size());
  ExpectAllSets(scanned);
}

TEST_P(HevcFrames, AnEndOfSequenceUnitInFrontHidesTheVps) {
  std::vector<Bytes> units = units_;
  const auto vps = std::find(units.begin(), units.end(), FirstUnit(units_, 32));
  units.insert(vps, kEndOfSequence);
  EXPECT_EQ(Words(ScanFrame(Frame(units)).vps), std::vector<uint32_t>(210));
  ExpectAsNaively(Frame(units), "in front");
}

TEST_P(HevcFrames, SplicedUnitsAnywhereGiveWhatTheNaiveWalkGives) {
  for (const uint32_t type : {35u, 36u, 37u, 38u, 40u, 62u}) {
    for (const size_t payload : {0u, 1u, 9u}) {
      for (size_t place = 0; place <= units_.size(); ++place) {
        for (const int codeBytes : {3, 4}) {
          std::vector<Bytes> units = units_;
          Bytes own = {static_cast<uint8_t>(type << 1), 1};
          own.resize(own.size() + payload, 0x80);
          units.insert(units.begin() + static_cast<std::ptrdiff_t>(place), own);
          ExpectAsNaively(Frame(units, codeBytes), "type " + std::to_string(type) + " at " +
                                                       std::to_string(place) + ", " +
                                                       std::to_string(payload));
        }
      }
    }
  }
}

TEST_P(HevcFrames, TrailingZeros) {
  for (size_t zeros = 0; zeros < 9; ++zeros) {
    const Bytes frame = Join({Frame(units_), Bytes(zeros, 0)});
    const Scanned scanned = ScanFrame(frame);
    // One or two belong to the last unit; exactly three count one by one; more are no unit.
    EXPECT_EQ(scanned.count, units_.size() + (zeros == 3 ? 3 : 0)) << zeros;
    ExpectAllSets(scanned);
    ExpectAsNaively(frame, std::to_string(zeros) + " zeros");
    // Between units as well: a zero in front of a start code belongs to no unit.
    Bytes between;
    for (const Bytes& unit : units_) between = Join({between, WithStartCode(unit), Bytes(zeros, 0)});
    ExpectAsNaively(between, std::to_string(zeros) + " zeros behind each unit");
  }
}

// Behind a start code of three bytes the parse and the copy begin with the second header byte.
TEST_P(HevcFrames, ThreeByteCodesAreTakenOneByteLate) {
  const Scanned scanned = ScanFrame(Frame(units_, 3));
  EXPECT_EQ(scanned.count, units_.size());
  const auto late = [this](uint32_t type) {
    Bytes unit = FirstUnit(units_, type);
    unit.erase(unit.begin());
    unit.push_back(0);  // of the next start code
    return unit;
  };
  EXPECT_EQ(ToHex(scanned.vpsSps), ToHex(late(33)));
  EXPECT_EQ(ToHex(scanned.ppsBytes), ToHex(late(34)));
  // That byte is 1, the header of a type 0.
  ASSERT_EQ(scanned.messages.size(), 3u);
  EXPECT_EQ(scanned.messages[0].substr(0, 13), "Not a vps NAL");
  EXPECT_EQ(scanned.messages[1].substr(0, 13), "Not a sps NAL");
  EXPECT_EQ(scanned.messages[2].substr(0, 17), "Not a pps NAL (0)");
  EXPECT_EQ(scanned.sps->pic_width_in_luma_samples, 0u);
}

// Prefix SEI in front of the sets, between them and behind them: each counts, none hides a set.
TEST_P(HevcFrames, PrefixSeiHidesNothing) {
  const Bytes sei = {39 << 1, 1, 5, 3, 0x11, 0x22, 0x33, 0x80};
  std::vector<Bytes> units;
  for (const Bytes& unit : units_) {
    units.push_back(sei);
    units.push_back(unit);
  }
  const Scanned scanned = ScanFrame(Frame(units));
  EXPECT_EQ(scanned.count, units.size());
  ExpectAllSets(scanned);
}

TEST_P(HevcFrames, LengthFormIsConvertedFirst) {
  Bytes frame;
  for (const Bytes& unit : units_) {
    const auto size = static_cast<uint32_t>(unit.size());
    frame = Join({frame,
                  {static_cast<uint8_t>(size >> 24), static_cast<uint8_t>(size >> 16),
                   static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)},
                  unit});
  }
  const Scanned before = ScanFrame(frame);
  EXPECT_LT(before.count, units_.size());
  EXPECT_EQ(Words(before.vps), std::vector<uint32_t>(210));
  ASSERT_EQ(qlnUtilh264SizeToMarker(frame.data(), static_cast<uint32_t>(frame.size())), frame.size());
  EXPECT_EQ(ToHex(frame), ToHex(Frame(units_)));
  const Scanned scanned = ScanFrame(frame);
  EXPECT_EQ(scanned.count, units_.size());
  ExpectAllSets(scanned);
}

std::vector<HevcRecipe> Chosen() {
  std::vector<HevcRecipe> chosen;
  for (const HevcRecipe& recipe : kHevcRecipes) {
    for (const char* name : {"main", "main10", "hrd", "aud", "hdr10", "temporal_layers", "wavefront"}) {
      if (recipe.name == std::string(name)) chosen.push_back(recipe);
    }
  }
  return chosen;
}

INSTANTIATE_TEST_SUITE_P(Chosen, HevcFrames, testing::ValuesIn(Chosen()),
                         [](const auto& instance) { return std::string(instance.param.name); });

}  // namespace
}  // namespace qln::test
