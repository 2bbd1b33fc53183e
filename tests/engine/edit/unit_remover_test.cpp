// Units and messages taken out on request: in every framing, in the private data and in the packets.

#include "edit/unit_remover.h"

#include <gtest/gtest.h>

#include "base/error.h"
#include "stream_builder.h"

namespace qlnmedia {
namespace {

using test::Edit;
using test::EditedStream;
using test::MakeStream;
using test::Stream;
using test::UnitsOf;

constexpr Codec kH264 = Codec::kH264;
constexpr Codec kHevc = Codec::kHevc;

Bytes SeiUnit(std::vector<SeiMessage> messages) { return MakeSeiUnit(Bytes{6}, messages); }

// Two pictures with a bit of everything around them.
Stream Cluttered(int lengthBytes) {
  Stream stream = MakeStream({{.place = 0, .idr = true, .fields = false}, {.place = 1, .fields = false}},
                             lengthBytes, {.delimiters = true});
  for (AccessUnit& packet : stream.packets) {
    std::vector<Unit> units = UnitsOf(packet.data, lengthBytes);
    const size_t slice = FirstPictureUnit(kH264, units);
    InsertSei(
        units, slice,
        SeiUnit(
            {{5, Bytes(17, 1)}, {4, {0xB5, 0x00, 0x31, 1}}, {4, {0xB5, 0x00, 0x3C, 2}}, {4, {0x26, 1, 1}}}));
    InsertSei(units, slice, SeiUnit({{3, Bytes(4, 0xFF)}}));
    Unit filler;
    filler.bytes = {12, 0xFF, 0xFF, 0x80};
    units.push_back(filler);
    filler.bytes = {30, 1, 2, 3};
    units.push_back(filler);
    packet.data = test::Framed(units, lengthBytes);
  }
  return stream;
}

// The units of a packet: types, of SEI units with their messages.
std::string Shape(const Stream& stream, size_t packet, int lengthBytes) {
  std::string shape;
  for (const Unit& unit : UnitsOf(stream.packets[packet].data, lengthBytes)) {
    const int type = UnitType(kH264, unit.bytes);
    if (type == 7 || type == 8) continue;
    shape += std::to_string(type);
    if (type == 6) {
      for (const SeiMessage& message : ReadSeiMessages(kH264, unit.bytes))
        shape += (message.type == 4 ? "t" : "m") +
                 std::to_string(message.type == 4 ? message.payload[2] : message.type);
    }
    shape += " ";
  }
  return shape;
}

class Removal : public testing::TestWithParam<int> {};
INSTANTIATE_TEST_SUITE_P(StreamEditor, Removal, testing::Values(0, 1, 2, 4));

TEST_P(Removal, TakesOutWhatIsNamedAndKeepsTheRest) {
  const Stream stream = Cluttered(GetParam());
  ASSERT_EQ(Shape(stream, 0, GetParam()), "9 6m3 6m5t49t60t1 5 12 30 ");
  ASSERT_EQ(Shape(stream, 1, GetParam()), "9 6m3 6m5t49t60t1 1 12 30 ");
  const auto shapeWithout = [&](auto change, int64_t units, int64_t messages) {
    StreamChanges changes;
    change(changes.remove);
    EXPECT_TRUE(changes.beyondCaptions());
    const EditedStream edited = Edit(stream, changes);
    EXPECT_EQ(edited.counts.unitsRemoved, 2 * units);
    EXPECT_EQ(edited.counts.messagesRemoved, 2 * messages);
    EXPECT_TRUE(edited.changed[0] && edited.changed[1]);
    const EditedStream again = Edit(edited, changes);
    EXPECT_EQ(again.counts.unitsRemoved + again.counts.messagesRemoved, 0);
    EXPECT_FALSE(again.changed[0] || again.changed[1]);
    return Shape(edited, 1, GetParam());
  };
  EXPECT_EQ(shapeWithout([](UnitRemoval& r) { r.delimiters = true; }, 1, 0), "6m3 6m5t49t60t1 1 12 30 ");
  EXPECT_EQ(shapeWithout([](UnitRemoval& r) { r.filler = true; }, 1, 1), "9 6m5t49t60t1 1 30 ");
  EXPECT_EQ(shapeWithout([](UnitRemoval& r) { r.unspecified = true; }, 1, 0), "9 6m3 6m5t49t60t1 1 12 ");
  EXPECT_EQ(shapeWithout([](UnitRemoval& r) { r.messages = {5, 99}; }, 0, 1), "9 6m3 6t49t60t1 1 12 30 ");
  EXPECT_EQ(shapeWithout([](UnitRemoval& r) { r.messages = {4}; }, 0, 3), "9 6m3 6m5 1 12 30 ");
  EXPECT_EQ(shapeWithout(
                [](UnitRemoval& r) {
                  r.providers = {{0xB5, 0x003C}};
                },
                0, 1),
            "9 6m3 6m5t49t1 1 12 30 ");
  EXPECT_EQ(shapeWithout([](UnitRemoval& r) { r.providers = {{0xB5, {}}}; }, 0, 2), "9 6m3 6m5t1 1 12 30 ");
  EXPECT_EQ(shapeWithout([](UnitRemoval& r) { r.messages = {3, 4, 5}; }, 0, 5), "9 1 12 30 ");
}

// A zero byte stands in front of the first start code of an access unit (ITU-T H.264 clause B.1.2).
TEST(UnitRemoval, TheFirstUnitThatIsLeftHasAWholeStartCode) {
  Stream stream = MakeStream({{.place = 0, .idr = true, .fields = false}, {.place = 1, .fields = false}}, 0,
                             {.delimiters = true});
  std::vector<Unit> units = UnitsOf(stream.packets[1].data, 0);
  units[1].startCodeBytes = 3;
  stream.packets[1].data = test::Framed(units, 0);
  StreamChanges changes;
  changes.remove.delimiters = true;
  EXPECT_EQ(UnitsOf(Edit(stream, changes).packets[1].data, 0).front().startCodeBytes, 4);
  // What goes can be put in again, as new.
  changes.delimiters = true;
  const EditedStream fresh = Edit(stream, changes);
  EXPECT_EQ(fresh.counts.unitsRemoved, 2);
  EXPECT_EQ(fresh.counts.delimiters, 2);
}

TEST(UnitRemoval, NoPacketIsLeftEmpty) {
  Stream stream = MakeStream({{.place = 0, .idr = true, .fields = false}}, 4);
  stream.packets.push_back(stream.packets[0]);
  stream.packets[1].data = {0, 0, 0, 2, 12, 0x80};
  StreamChanges changes;
  changes.remove.filler = true;
  try {
    Edit(stream, changes);
    ADD_FAILURE();
  } catch (const Error& error) {
    EXPECT_NE(std::string(error.what()).find("a packet that would be left without units"), std::string::npos);
  }
}

TEST(UnitRemoval, GoesThroughThePrivateDataOfHevc) {
  ConfigRecord record;
  record.codec = kHevc;
  record.box = true;
  const Bytes delimiter = {0x46, 1, 0x50};
  const Bytes message = MakeSeiUnit(Bytes{0x4E, 1}, {{5, Bytes(16, 7)}});
  record.lists = {{0xA0, {Bytes{0x40, 1, 0x0C}}}, {0x27, {message, delimiter}}};
  EditCounts counts;
  UnitRemoval unwanted;
  unwanted.delimiters = true;
  unwanted.messages = {5};
  UnitRemover(kHevc, unwanted, counts).ChangePrivateData(record);
  EXPECT_TRUE(record.lists[1].units.empty());
  EXPECT_EQ(record.lists[0].units.size(), 1u);
  EXPECT_EQ(counts.unitsRemoved, 1);
  EXPECT_EQ(counts.messagesRemoved, 1);
  // Unspecified units: 48 to 63 of ITU-T H.265 table 7-1, 0 and 24 to 31 of H.264's.
  for (const int type : {0, 23, 24, 31}) {
    std::vector<Unit> units(1);
    units[0].bytes = {static_cast<uint8_t>(type), 1};
    unwanted = {};
    unwanted.unspecified = true;
    EXPECT_EQ(UnitRemover(kH264, unwanted, counts).Change(units), type != 23) << type;
  }
  for (const int type : {0, 40, 47, 48, 63}) {
    std::vector<Unit> units(1);
    units[0].bytes = {static_cast<uint8_t>(type << 1), 1, 0};
    EXPECT_EQ(UnitRemover(kHevc, unwanted, counts).Change(units), type >= 48) << type;
  }
}

}  // namespace
}  // namespace qlnmedia
