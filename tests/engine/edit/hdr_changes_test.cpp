// HDR messages that are replaced: which go, which stay, and where the new ones come in.

#include "edit/hdr_changes.h"

#include <gtest/gtest.h>

#include "engine/small_streams.h"
#include "hdr/stream_hdr.h"

namespace qlnmedia {
namespace {

using qln::test::Hex;
using test::TypesOf;

constexpr Codec kHevc = Codec::kHevc;

StreamChanges NewLight() {
  StreamChanges changes;
  changes.lightLevel = LightLevel{1000, 400};
  return changes;
}

// content_light_level_info (ITU-T H.265 clause D.2.35) of 200 and 100, mastering display of zeros, and a user
// message, all in one unit.
Bytes OldMessages() {
  return MakeSeiUnit(Hex("4E01"), {{144, Hex("00C8 0064")}, {137, Bytes(24)}, {5, Bytes(16, 7)}});
}

std::vector<int> MessageTypes(const std::vector<Unit>& units) {
  std::vector<int> types;
  for (const Unit& unit : units) {
    if (!IsSei(kHevc, UnitType(kHevc, unit.bytes))) continue;
    for (const SeiMessage& message : ReadSeiMessages(kHevc, unit.bytes)) types.push_back(message.type);
  }
  return types;
}

TEST(HdrChanges, TakesTheKindThatIsSetAndPutsItWhereDecodingStarts) {
  EditCounts counts;
  HdrChanges changes(kHevc, NewLight(), counts);
  std::vector<Unit> units = test::UnitList({test::HevcSps(), OldMessages(), test::HevcSlice(19, 0)});
  EXPECT_TRUE(changes.Change(units, true));
  EXPECT_EQ(TypesOf(kHevc, units), "33 39 39 19");
  EXPECT_EQ(MessageTypes(units), (std::vector<int>{137, 5, 144}));
  EXPECT_EQ(HdrOf(kHevc, units).lightLevel, (LightLevel{1000, 400}));
  EXPECT_EQ(counts.hdrMessagesRemoved, 1);
  EXPECT_EQ(counts.hdrUnits, 1);
  // The same once more: as it was.
  const std::vector<Unit> once = units;
  EXPECT_TRUE(changes.Change(units, true));
  ASSERT_EQ(units.size(), once.size());
  for (size_t i = 0; i < units.size(); ++i) EXPECT_EQ(units[i].bytes, once[i].bytes);
}

TEST(HdrChanges, ElsewhereTheOldOnesGoAndNothingComes) {
  EditCounts counts;
  HdrChanges changes(kHevc, NewLight(), counts);
  std::vector<Unit> units = test::UnitList({OldMessages(), test::HevcSlice(1, 4)});
  EXPECT_TRUE(changes.Change(units, false));
  EXPECT_EQ(MessageTypes(units), (std::vector<int>{137, 5}));
  EXPECT_FALSE(changes.Change(units, false));
  // An entry without a picture, as a packet of sets alone, has no place for them.
  units = test::UnitList({test::HevcSps()});
  EXPECT_FALSE(changes.Change(units, true));
  EXPECT_EQ(counts.hdrUnits, 0);
}

TEST(HdrChanges, NothingIsDoneWhereNothingIsSet) {
  EditCounts counts;
  HdrChanges changes(kHevc, {}, counts);
  std::vector<Unit> units = test::UnitList({OldMessages(), test::HevcSlice(19, 0)});
  EXPECT_FALSE(changes.Change(units, true));
  EXPECT_EQ(MessageTypes(units), (std::vector<int>{144, 137, 5}));
}

TEST(HdrChanges, PrivateDataLosesThem) {
  EditCounts counts;
  HdrChanges changes(kHevc, NewLight(), counts);
  ConfigRecord record;
  record.codec = kHevc;
  record.box = true;
  record.lists = {{0xA1, {test::HevcSps()}},
                  {0xA7, {MakeSeiUnit(Hex("4E01"), {{144, Hex("00C8 0064")}}), OldMessages()}}};
  changes.ChangePrivateData(record);
  ASSERT_EQ(record.lists[1].units.size(), 1u);  // an emptied unit goes
  EXPECT_EQ(MessageTypes(test::UnitList(record.lists[1].units)), (std::vector<int>{137, 5}));
  EXPECT_EQ(record.lists[0].units, std::vector<Bytes>{test::HevcSps()});
  EXPECT_EQ(counts.hdrMessagesRemoved, 2);
  // With start codes they are the stream's, and are counted there.
  ConfigRecord codes;
  codes.codec = kHevc;
  codes.startCodeUnits.units = test::UnitList({test::HevcSps(), OldMessages()});
  changes.ChangePrivateData(codes);
  EXPECT_EQ(MessageTypes(codes.startCodeUnits.units), (std::vector<int>{137, 5}));
  EXPECT_EQ(counts.hdrMessagesRemoved, 2);
}

}  // namespace
}  // namespace qlnmedia
