// The walk over the arrays of a configuration record that a refused unit sends back, against a model that
// runs every round.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>

#include "hevc/unit_builders.h"
#include "kxutil/kxutil.h"
#include "support/cpu_time.h"
#include "support/sanitizers.h"

namespace qln::test {
namespace {

using testing::IsSubsetOf;

constexpr size_t kHead = 31;  // box header and head
constexpr const char* kPath = "support/qlnutil/qlnvidutil";

struct Walked {
  uint32_t result = 0;
  uint32_t bitPos = 0;
  HevcConfigRecord config{};
  std::unique_ptr<HevcVpsRecord> vps = std::make_unique<HevcVpsRecord>();
  std::unique_ptr<HevcSpsRecord> sps = std::make_unique<HevcSpsRecord>();
  std::unique_ptr<HevcPpsRecord> pps = std::make_unique<HevcPpsRecord>();
  std::vector<std::string> messages;
};

// The messages without the lines that they come from.
std::vector<std::string> WithoutLines(const MessageCapture& capture) {
  std::vector<std::string> texts = capture.texts();
  for (std::string& text : texts) {
    const size_t path = text.find(kPath);
    if (path != std::string::npos) text.resize(path);
  }
  return texts;
}

Walked Read(const Bytes& box) {
  Walked walked;
  ExactCopy copy(box);
  QLNBitState state{copy.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8), 0};
  MessageCapture capture;
  walked.result =
      qlnutilRead_HEVC_CR(&state, &walked.config, walked.vps.get(), walked.sps.get(), walked.pps.get());
  walked.bitPos = state.bitPos;
  walked.messages = WithoutLines(capture);
  return walked;
}

// Runs each round of each array by the readers of single units. The head of the box is a sound one.
class Model {
 public:
  explicit Model(const Bytes& box) : box_(box) {}

  Walked Run() {
    // The head alone, with no array, gives the configuration record that the readers fold into.
    Bytes head(box_.begin(), box_.begin() + kHead);
    head[kHead - 1] = 0;
    walked_ = Read(head);
    walked_.config.numOfArrays = box_[kHead - 1];
    position_ = kHead * 8;
    MessageCapture capture;
    bool refused = false;
    for (uint32_t i = 0; i < walked_.config.numOfArrays && !refused; ++i) {
      Bits(1);
      if (Bits(1) != 0) {
        ErrOut("Hevc Reserved bits incorrect %s %d", kPath, 1);
        break;
      }
      const uint32_t type = Bits(6);
      const uint32_t count = Bits(16);
      for (uint32_t round = 0; round < count && !refused; ++round) refused = !Round(type);
    }
    walked_.bitPos = position_;
    walked_.result = refused ? QLN_HEVC_REFUSED : static_cast<uint32_t>(end_ / 8);
    walked_.messages = WithoutLines(capture);
    return std::move(walked_);
  }

 private:
  const Bytes& box_;
  Walked walked_;
  uint32_t position_ = 0;
  uint64_t end_ = 0;
  bool seen_[3] = {};

  // The bit at the limit, behind the last byte, is a 0; any bit behind it makes all of them ones.
  uint32_t Bits(uint32_t count) {
    uint64_t value = 0;
    bool past = false;
    for (; count > 0; --count, ++position_) {
      const size_t index = position_ / 8;
      past = past || position_ > box_.size() * 8;
      value = value << 1 | (index < box_.size() ? box_[index] >> (7 - position_ % 8) & 1u : 0u);
    }
    return past ? 0xFFFFFFFFu : static_cast<uint32_t>(value);
  }

  template <class Record>
  void Unit(Record* record, Reader<Record> reader, bool empty, uint32_t bits, uint64_t unitEnd) {
    if (!empty) {
      position_ += bits;
      return;
    }
    ExactCopy copy(box_);
    QLNBitState state{copy.data(), static_cast<int32_t>(box_.size()), static_cast<uint32_t>(box_.size() * 8),
                      position_};
    reader(&state, record, &walked_.config, bits);
    position_ = state.bitPos;
    end_ = unitEnd;
  }

  bool Round(uint32_t type) {
    const uint64_t bits = uint64_t{Bits(16)} * 8;
    const uint64_t unitEnd = position_ + bits;
    if (unitEnd > box_.size() * 8) {
      ErrOut("Hevc read is past end of bitstream %s %d", kPath, 1);
      return false;
    }
    const auto length = static_cast<uint32_t>(bits);
    if (type >= 32 && type <= 34) {
      if (length != 0) {
        seen_[type - 32] = true;
        const uint32_t vpsLevel = walked_.vps->profile_tier_level.general_level_idc;
        const uint32_t spsLevel = walked_.sps->profile_tier_level.general_level_idc;
        const uint32_t columns = walked_.pps->num_tile_columns_minus1;
        if (type == 32) Unit(walked_.vps.get(), qlnutilRead_HEVC_VPS, vpsLevel == 0, length, unitEnd);
        if (type == 33) Unit(walked_.sps.get(), qlnutilRead_HEVC_SPS, spsLevel == 0, length, unitEnd);
        if (type == 34) Unit(walked_.pps.get(), qlnutilRead_HEVC_PPS, columns == 0, length, unitEnd);
      }
    } else if (!(seen_[0] && seen_[1] && seen_[2])) {
      end_ = unitEnd;
      position_ += length;
    }
    if (position_ != unitEnd) {
      ErrOut("Hevc read is not the same length as entry size (%d <> %d) %s %d", position_,
             static_cast<uint32_t>(unitEnd), kPath, 1);
    }
    return true;
  }
};

void ExpectSameOutcome(const Walked& walked, const Walked& model) {
  EXPECT_EQ(walked.result, model.result);
  EXPECT_EQ(walked.bitPos, model.bitPos);
  EXPECT_EQ(std::memcmp(&walked.config, &model.config, sizeof model.config), 0);
  EXPECT_EQ(Words(*walked.vps), Words(*model.vps));
  EXPECT_EQ(Words(*walked.sps), Words(*model.sps));
  EXPECT_EQ(Words(*walked.pps), Words(*model.pps));
}

// A box of one array of `count` units of `type`. Its first unit is refused, at bit 7 of the box. From there
// the walk goes on inside the header, where it finds a unit of `units.front()` bytes at byte 2, and behind it
// the others. All stand at odd bits: a unit's first seven bits are the low bits of its length. The last one
// is of another type and refused again, so that the rounds repeat themselves in periods of units.size().
struct Ring {
  uint32_t type = 34;
  std::vector<uint32_t> lengths = {34};  // type + 128 k each; the last is that of the refused unit, type + 1
  uint32_t count = 10;
  uint8_t arrays = 1;
  uint8_t filling = 0xFF;

  // Of a VPS, from the ordering values on; what fills the box are then CPBs of three bits.
  static BitBuilder HrdBits() {
    BitBuilder b;
    b.u(1, 1).ue(0).ue(0).ue(0).u(6, 0).ue(0).u(1, 1).u(32, 1).u(32, 1).u(1, 0).ue(1).ue(0);
    b.u(1, 1).u(1, 0).u(1, 0).u(8, 0).u(15, 0).u(1, 0).u(1, 0).u(1, 0).ue(30000).u(5, 31);
    return b;
  }

  Bytes box() const {
    size_t size = 100;
    for (const uint32_t length : lengths) size += length + 2;
    Bytes box(size, filling);
    const Bytes head = Hex("01 01 60 00 00 00 90 00 00 00 00 00 F0 F0 00 FC FD F8 F8 00 00 0F");
    std::copy(head.begin(), head.end(), box.begin() + 8);
    box[kHead - 1] = arrays;
    const Bytes array = Hex("A0 00 00 00 02 4E 01");
    std::copy(array.begin(), array.end(), box.begin() + kHead);
    box[kHead] = static_cast<uint8_t>(0x80 | type);
    box[kHead + 1] = static_cast<uint8_t>(count >> 8);
    box[kHead + 2] = static_cast<uint8_t>(count);
    // A VPS of one sub-layer and level 0, one HRD structure with more CPBs than there is room for; a PPS
    // without tiles; an SPS of level 0.
    const Bytes vps = Join({Hex("0C 00 FF FF 00 00 00 00 00 00 00 00 00 00 00 00"), HrdBits().bytes()});
    const Bytes start = type == 32 ? vps : type == 33 ? Bytes(14, 0) : Hex("FF FF FC");
    size_t at = 2;
    for (const uint32_t length : lengths) {
      box[at - 2] = static_cast<uint8_t>((at == 2 ? 0u : box[at - 2] & 0xFEu) | length >> 15);
      box[at - 1] = static_cast<uint8_t>(length >> 7);
      box[at] = static_cast<uint8_t>(length << 1);  // the low seven bits: the type, too
      box[at + 1] = 0;
      const size_t room = at == 2 ? 6 : start.size();  // the head goes on in the first unit
      std::copy_n(start.begin(), std::min(start.size(), room), box.begin() + static_cast<long>(at) + 2);
      box[at + 2 + std::min(start.size(), room)] ^= static_cast<uint8_t>(at == 2 ? 0 : at);  // each its own
      at += length + 2;
    }
    return box;
  }
};

TEST(HevcConfigWalk, PeriodsOfEveryLengthAndTheirRemainders) {
  const std::vector<std::vector<uint32_t>> rings = {
      {163}, {34 + 128, 35}, {162, 290, 35}, {290, 162, 162, 35}, {162, 162, 162, 162, 162, 162, 35}};
  for (const auto& lengths : rings) {
    for (const uint32_t count :
         {2u,   3u,   5u,   63u,  64u,  65u,  66u,   67u,   68u,   69u,   70u,   71u,   127u,
          128u, 129u, 130u, 131u, 132u, 200u, 1000u, 1001u, 1002u, 1003u, 1004u, 1005u, 1006u}) {
      const Bytes box = Ring{.lengths = lengths, .count = count}.box();
      const Walked model = Model(box).Run();
      const Walked walked = Read(box);
      SCOPED_TRACE(std::to_string(lengths.size()) + " units, " + std::to_string(count) + " rounds");
      ExpectSameOutcome(walked, model);
      // The places tell the rounds of a period apart.
      uint32_t place = 7;
      for (uint32_t i = 0; i < (count - 1) % lengths.size(); ++i) place += 16 + lengths[i] * 8;
      EXPECT_EQ(model.bitPos, place);
      // Those of the first 64 rounds are all there, in their order.
      const std::vector<std::string> first(
          model.messages.begin(),
          model.messages.begin() + static_cast<long>(std::min<size_t>(model.messages.size(), 64)));
      EXPECT_THAT(first, IsSubsetOf(walked.messages));
      EXPECT_TRUE(std::equal(first.begin(), first.end(), walked.messages.begin()));
      if (count <= 64) {
        EXPECT_EQ(walked.messages, model.messages);
      }
    }
  }
}

TEST(HevcConfigWalk, RoundsThatAreLeftOutSayNothing) {
  const Bytes box = Ring{.lengths = {162, 290, 35}, .count = 65535}.box();
  const Walked walked = Read(box);
  const Walked shorter = Read(Ring{.lengths = {162, 290, 35}, .count = 64}.box());
  EXPECT_LT(walked.messages.size(), shorter.messages.size() + 20);
  EXPECT_EQ(walked.bitPos, 7u + 16 + 162 * 8 + 16 + 290 * 8)
      << "65534 rounds behind the first: 2 over 3 x 21844";
}

TEST(HevcConfigWalk, RandomRingsOfEveryKind) {
  Random random(92);
  for (int i = 0; i < 400; ++i) {
    Ring ring;
    ring.type = 32 + static_cast<uint32_t>(random.below(3));
    ring.count = static_cast<uint32_t>(random.below(4) == 0 ? random.below(600) : random.below(65));
    ring.arrays = static_cast<uint8_t>(1 + random.below(6));
    ring.filling = random.below(2) == 0 ? 0xFF : 0x5A;
    ring.lengths.clear();
    for (uint64_t units = random.below(4); units > 0; --units) {
      ring.lengths.push_back(ring.type + 128 * static_cast<uint32_t>(1 + random.below(4)));
    }
    ring.lengths.push_back(random.below(3) == 0 ? 163 : 32 + static_cast<uint32_t>(random.below(3)));
    Bytes box = ring.box();
    for (uint64_t changes = random.below(40); changes > 0; --changes) {
      const size_t at = random.below(2) == 0 ? kHead + random.below(box.size() - kHead) : random.below(8);
      box[at] = static_cast<uint8_t>(random.below(3) == 0 ? random.next() : box[at] ^ 1u << random.below(8));
    }
    const Walked model = Model(box).Run();
    const Walked walked = Read(box);
    SCOPED_TRACE(ToHex(box));
    ExpectSameOutcome(walked, model);
    // No array of these has so many rounds that any may be left out, but for where the walk reads the head
    // of one from elsewhere.
    if (walked.messages.size() == model.messages.size()) {
      EXPECT_EQ(walked.messages, model.messages);
    } else {
      EXPECT_GT(model.messages.size(), 64u);
    }
    if (HasFailure()) return;
  }
}

// What a walk costs, against reading each of the ring's units once, passing as many lengths as the box has
// room for, and saying as many messages.
struct WalkCost {
  double walk = 0;
  double units = 0;
  double lengths = 0;
  double messages = 0;
  int said = 0;
};

WalkCost CostOf(const Ring& ring, size_t emptyUnits = 0) {
  Bytes box = ring.box();
  box.insert(box.begin() + ring.lengths[0] + 3, 2 * emptyUnits, 0);  // behind the first unit
  ExactCopy copy(box, 1);  // single reads may take the bit behind the limit
  WalkCost cost;
  kxSetDiagnosticSink([](uint32_t, const char*, void* count) { ++*static_cast<int*>(count); }, &cost.said);
  const auto stateAt = [&](uint32_t bitPos) {
    return QLNBitState{copy.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8),
                       bitPos};
  };
  const auto records = std::make_unique<Walked>();
  cost.walk = LeastCpuSeconds(3, [&] {
    cost.said = 0;
    *records = {};
    QLNBitState state = stateAt(0);
    qlnutilRead_HEVC_CR(&state, &records->config, records->vps.get(), records->sps.get(), records->pps.get());
  });
  const int said = cost.said;
  cost.units = LeastCpuSeconds(3, [&] {
    uint32_t place = 7;
    for (const uint32_t length : ring.lengths) {
      QLNBitState state = stateAt(place + 16);
      if (ring.type == 32) qlnutilRead_HEVC_VPS(&state, records->vps.get(), &records->config, length * 8);
      if (ring.type == 33) qlnutilRead_HEVC_SPS(&state, records->sps.get(), &records->config, length * 8);
      if (ring.type == 34) qlnutilRead_HEVC_PPS(&state, records->pps.get(), &records->config, length * 8);
      place += 16 + length * 8;
    }
  });
  cost.lengths = LeastCpuSeconds(3, [&] {
    QLNBitState state = stateAt(0);
    while (state.bitPos < state.bitLength - 16) ReadBits(&state, 16);
  });
  cost.messages = LeastCpuSeconds(3, [&] {
    for (int i = 0; i < said; ++i) {
      ErrOut("Hevc read is not the same length as entry size (%d <> %d) %s %d", 7, i, kPath, 1);
    }
  });
  cost.said = said;
  kxSetDiagnosticSink(nullptr, nullptr);
  return cost;
}

TEST(HevcConfigWalk, HostileBoxesTakeTheTimeOfAFewPasses) {
#ifdef QLN_ADDRESS_SANITIZER
  constexpr double kAllowance = 4;
#else
  constexpr double kAllowance = 1;
#endif
  // Sets of level 0 full of HRD rounds, each of which would be read some 64 times in each of 255 arrays.
  Ring hrd{.type = 32, .lengths = {0x2020, 0x2020, 0x2020, 0x2020, 0x21}, .count = 0x2000, .arrays = 255};
  // One as long as a length field tells, alternating with a refused one.
  Ring longest{.type = 32, .lengths = {0x2020, 0x7F20, 0x21}, .count = 65535, .arrays = 255};
  WalkCost cost = CostOf(hrd);
  EXPECT_GT(cost.said, 255 * 64) << "each array has its first rounds in full";
  EXPECT_LT(cost.walk, kAllowance * (20 * cost.units + 5 * cost.messages));
  cost = CostOf(longest);
  EXPECT_LT(cost.walk, kAllowance * (20 * cost.units + 5 * cost.messages));
  // Short sets that change most of a record of 28 KB each time.
  Ring changing{.type = 33, .count = 65535, .arrays = 255, .filling = 0x02};
  changing.lengths.assign(300, 33 + 128);
  changing.lengths.push_back(32);
  cost = CostOf(changing);
  EXPECT_LT(cost.walk, kAllowance * (20 * cost.units + 5 * cost.messages));
  // Rounds of two bytes, in which nothing is read. Three times as many are run as the box has, until they are
  // known to come back.
  cost = CostOf({.type = 34, .lengths = {162, 0x20}, .count = 65535, .filling = 0}, 20000);
  EXPECT_LT(cost.walk, kAllowance * 200 * cost.lengths);
}

TEST(HevcConfigWalk, ManyContentsAreNotKeptForEver) {
  // Rounds whose records differ all the time: more of them than the walk remembers, and the same outcome.
  Ring ring;
  ring.type = 33;
  ring.lengths.assign(300, 33 + 128);
  ring.lengths.push_back(34);
  ring.count = 700;
  const Bytes box = ring.box();
  ExpectSameOutcome(Read(box), Model(box).Run());
}

}  // namespace
}  // namespace qln::test
