// The walk over the arrays of a configuration record that a refused unit sends back, against a model that
// runs every round.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>

#include "hevc/unit_builders.h"
#include "kxutil/kxutil.h"

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
      box[at - 2] = static_cast<uint8_t>(at == 2 ? 0 : box[at - 2] & 0xFE);
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

TEST(HevcConfigWalk, LongSetsThatComeBackInEveryArrayTakeLittleTime) {
  // Sets of level 0 full of HRD rounds, each of which would be read some 64 times in each of 255 arrays.
  Ring ring;
  ring.type = 32;
  ring.lengths = {0x2020, 0x2020, 0x2020, 0x2020, 0x21};
  ring.count = 0x2000;
  ring.arrays = 255;
  const Bytes box = ring.box();
  Walked walked;
  Bytes bytes = box;
  QLNBitState state{bytes.data(), static_cast<int32_t>(box.size()), static_cast<uint32_t>(box.size() * 8), 0};
  int messages = 0;
  kxSetDiagnosticSink([](uint32_t, const char*, void* count) { ++*static_cast<int*>(count); }, &messages);
  const auto before = std::chrono::steady_clock::now();
  qlnutilRead_HEVC_CR(&state, &walked.config, walked.vps.get(), walked.sps.get(), walked.pps.get());
  const auto time = std::chrono::steady_clock::now() - before;
  kxSetDiagnosticSink(nullptr, nullptr);
  EXPECT_LT(time, std::chrono::seconds(2));
  EXPECT_GT(messages, 255 * 64) << "each array has its first rounds in full";
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
