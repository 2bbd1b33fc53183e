// Index table segments that no muxer at hand writes: several slices and elements, tables of positions,
// several segments, and units of one size beside others.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mxf/carry.h"
#include "mxf/made_set.h"
#include "qlnmedia/error.h"

namespace qln::test {
namespace {

using ::testing::HasSubstr;

constexpr size_t kUnits = 7, kSlices = 2, kPositions = 2;
constexpr size_t kSystem = 0, kPicture = 1, kSound = 2, kFirstData = 3, kLastData = 4, kElements = 5;

// Where the elements of each unit begin in the essence container, from the triplets alone.
std::vector<std::vector<uint64_t>> ElementsOf(const Bytes& file) {
  std::vector<std::vector<uint64_t>> units;
  uint64_t stream = 0;  // of what has gone by in front of the partition
  size_t begin = 0, sid = 0;
  for (const ReadTriplet& triplet : ListTriplets(file)) {
    if (triplet.isPartition() || triplet.isRandomIndex()) {
      if (sid == 1 && begin != 0) stream += triplet.at - begin;
      begin = 0;
      sid = triplet.isPartition() ? NumberAt(triplet.value, 60, 4) : 0;
      continue;
    }
    if (sid != 1 || triplet.key.substr(16, 8) != "0d010301") continue;
    if (begin == 0) begin = triplet.at;
    if (triplet.number() == "04010100") units.emplace_back();
    units.back().push_back(stream + triplet.at - begin);
  }
  return units;
}

// The entries of units, and the deltas of their elements: system item and picture in front of the first
// slice, sound and data of any length behind, and more data in a slice of its own.
Bytes Entries(const Bytes& file, size_t first, size_t end) {
  const auto units = ElementsOf(file);
  Bytes array;
  Put(array, end - first, 4);
  Put(array, 11 + 4 * kSlices + 8 * kPositions, 4);
  for (size_t i = first; i < end; ++i) {
    Put(array, i % 3 == 1 ? 2 : 0, 1);
    Put(array, 0, 1);
    Put(array, i % 3 == 0 ? 0x80 : 0x22, 1);
    Put(array, units[i][kSystem], 8);
    Put(array, units[i][kSound] - units[i][kSystem], 4);
    Put(array, units[i][kLastData] - units[i][kSystem], 4);
    for (size_t position = 0; position < kPositions; ++position) Put(array, (i * 7 + position) << 32 | 9, 8);
  }
  return array;
}

Bytes Deltas(const Bytes& file) {
  const auto unit = ElementsOf(file)[0];
  Bytes array;
  Put(array, kElements, 4);
  Put(array, 6, 4);
  const auto element = [&array](uint8_t position, uint8_t slice, uint64_t delta) {
    Put(array, position, 1);
    Put(array, slice, 1);
    Put(array, delta, 4);
  };
  element(0, 0, 0);
  element(0xFF, 0, unit[kPicture] - unit[kSystem]);
  element(1, 1, 0);
  element(2, 1, unit[kFirstData] - unit[kSound]);
  element(0, 2, 0);
  return array;
}

Bytes Segment(uint8_t instance, uint64_t first, uint64_t count, uint32_t unitBytes, uint8_t sid,
              const Bytes& deltas, const Bytes& entries) {
  Bytes value;
  const auto add = [&value](uint16_t tag, const Bytes& bytes) {
    Put(value, tag, 2);
    Put(value, bytes.size(), 2);
    Put(value, bytes);
  };
  const auto number = [&add](uint16_t tag, uint64_t is, size_t bytes) {
    Bytes all;
    Put(all, is, bytes);
    add(tag, all);
  };
  add(0x3C0A, Instance(instance));
  number(0x3F0B, uint64_t{25} << 32 | 1, 8);
  number(0x3F0C, first, 8);
  number(0x3F0D, count, 8);
  number(0x3F05, unitBytes, 4);
  number(0x3F06, sid + 1u, 4);
  number(0x3F07, sid, 4);
  number(0x3F08, entries.empty() ? 0 : kSlices, 1);
  number(0x3F0E, entries.empty() ? 0 : kPositions, 1);
  if (!deltas.empty()) add(0x3F09, deltas);
  if (!entries.empty()) add(0x3F0A, entries);
  return Triplet(kLabel + "025301010d01020101100100", value);
}

// Two segments of units of any size, and one of the other container's, in the footer.
std::vector<Bytes> Segments(const Bytes& file) {
  return {Segment(1, 0, 4, 0, 1, Deltas(file), Entries(file, 0, 4)),
          Segment(2, 0, 5, kOtherElementBytes + 20, 3, {}, {}),
          Segment(3, 4, kUnits - 4, 0, 1, Deltas(file), Entries(file, 4, kUnits))};
}

// Puts triplets behind the pack of the footer, or its first triplets' place.
Bytes WithIndex(const Bytes& file, const std::vector<Bytes>& segments) {
  Bytes all;
  for (const Bytes& segment : segments) Put(all, segment);
  const std::vector<ReadTriplet> triplets = ListTriplets(file);
  const ReadTriplet& last = triplets.back();
  size_t footer = triplets.size() - 1;
  while (!triplets[footer].isPartition()) --footer;
  Bytes out(file.begin(), file.begin() + static_cast<long>(triplets[footer + 1].at));
  Store(out, triplets[footer].at + 20 + 40, all.size(), 8);  // IndexByteCount
  Store(out, triplets[footer].at + 20 + 48, 2, 4);           // IndexSID
  Put(out, all);
  out.insert(out.end(), file.begin() + static_cast<long>(last.at), file.end());
  return out;
}

MadeOptions Made(uint32_t alignment, size_t perPartition) {
  MadeOptions made;
  made.index = Indexed::kNot;
  made.alignment = alignment;
  made.unitsPerPartition = perPartition;
  made.otherContainer = 5;
  made.ancillary = true;
  for (size_t i = 0; i < kUnits; ++i) made.ancillaryElements.emplace_back(31 + 11 * i, uint8_t{0x3C});
  return made;
}

TEST(MxfIndex, FollowsThroughSlicesElementsAndPositions) {
  const std::vector<Bytes> units = Units(kUnits, 31);
  const Edit edit = [](size_t i, Bytes unit) {
    if (i % 3 == 2) unit.resize(unit.size() / 2);
    return i % 3 == 0 ? Longer(unit, 17 + 300 * i) : unit;
  };
  for (const uint32_t alignment : {1u, 256u}) {
    for (const size_t perPartition : {size_t{0}, size_t{3}}) {
      SCOPED_TRACE(alignment);
      const Bytes bare = MakeFile(units, Made(alignment, perPartition));
      const Bytes file = WithIndex(bare, Segments(bare));
      const Bytes out = Carry(file, edit);
      ExpectCarried(file, out, Edited(units, edit));
      // The segments are those of a file that was made of the edited pictures.
      EXPECT_EQ(WithIndex(out, Segments(out)), out);
      EXPECT_EQ(Carry(file, Same), file);
    }
  }
}

// What stands in front of an element within its slice has to grow by the same in all units.
TEST(MxfIndex, DeltasThatNoLongerHoldAreRefused) {
  const std::vector<Bytes> units = Units(kUnits, 32, 400);
  const Bytes bare = MakeFile(units, Made(1, 0));
  // One slice: the sound's distance counts from the unit's begin, which holds as long as pictures are of one
  // size.
  const auto of = ElementsOf(bare);
  Bytes deltas, entries;
  Put(deltas, 2, 4);
  Put(deltas, 6, 4);
  Put(deltas, 0, 6);
  Put(deltas, of[0][kSound] - of[0][kSystem], 6);
  const auto whole = [&](const Bytes& file) {
    Bytes array;
    Put(array, kUnits, 4);
    Put(array, 11 + 4 * kSlices + 8 * kPositions, 4);
    for (const auto& unit : ElementsOf(file)) {
      Put(array, 0x80, 3);
      Put(array, unit[kSystem], 8);
      Put(array, Bytes(4 * kSlices + 8 * kPositions, 0));
    }
    return array;
  };
  const Bytes file = WithIndex(bare, {Segment(1, 0, kUnits, 0, 1, deltas, whole(bare))});
  const Edit all = [](size_t, Bytes unit) { return Longer(unit, 21); };
  const Bytes out = Carry(file, all);
  Store(deltas, 8 + 6 + 2, of[0][kSound] - of[0][kSystem] + 21, 4);
  EXPECT_EQ(WithIndex(out, {Segment(1, 0, kUnits, 0, 1, deltas, whole(out))}), out);
  try {
    Carry(file, [](size_t i, Bytes unit) { return Longer(unit, 21 + i); });
    ADD_FAILURE();
  } catch (const qlnmedia::Error& error) {
    EXPECT_THAT(error.what(), HasSubstr("equally long in all edit units"));
  }
}

// A segment of units of one size beside one of the same container that lists its units: pictures keep theirs.
TEST(MxfIndex, UnitsOfOneSizeStayThat) {
  MadeOptions made = Made(1, 0);
  made.ancillary = false;
  made.ancillaryElements.clear();
  std::vector<Bytes> units = Units(kUnits, 33, 300);
  for (Bytes& unit : units) unit.resize(340);
  const Bytes bare = MakeFile(units, made);
  const auto of = ElementsOf(bare);
  Bytes array;
  Put(array, 2, 4);
  Put(array, 11 + 4 * kSlices + 8 * kPositions, 4);
  for (size_t i = 5; i < kUnits; ++i) {
    Put(array, 0x80, 3);
    Put(array, of[i][kSystem], 8);
    Put(array, of[i][kSound] - of[i][kSystem], 4);
    Put(array, Bytes(4 + 8 * kPositions, 0));
  }
  const auto unitBytes = static_cast<uint32_t>(of[1][kSystem] - of[0][kSystem]);
  const Bytes file =
      WithIndex(bare, {Segment(1, 0, 5, unitBytes, 1, {}, {}), Segment(2, 5, 2, 0, 1, {}, array)});
  const Bytes out = Carry(file, [](size_t, Bytes unit) { return Longer(unit, 33); });
  EXPECT_EQ(out.size(), file.size());
  const Edit kept = [](size_t, Bytes unit) {
    unit.resize(307);
    return Longer(unit, 33);
  };
  ExpectCarried(file, out, Edited(units, kept));
  try {
    Carry(file, [](size_t i, Bytes unit) { return i == 6 ? Longer(unit, 47) : unit; });
    ADD_FAILURE();
  } catch (const qlnmedia::Error& error) {
    EXPECT_THAT(error.what(), HasSubstr("picture 6 has to stay 340 bytes long, and 7 bytes are missing"));
  }
}

}  // namespace
}  // namespace qln::test
