// Matroska files that are refused, carried as they are, or found wrong when they are read back.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>

#include "mkv/carry.h"

namespace qln::test::mkv {
namespace {

using testing::HasSubstr;

// Files that lie or break off: each is refused with its place.
TEST(MkvCarrier, WhatIsNoMatroskaIsRefusedWithItsPlace) {
  const auto with = [](const Bytes& body) { return Simple({Leaf(0x1F43B675, body)}); };
  const auto says = [&](const Bytes& body, const std::string& text) {
    EXPECT_THAT(Refusal(with(body)), HasSubstr(text));
    EXPECT_THAT(Refusal(with(body)), HasSubstr("at byte "));
  };
  says({0xA3, 0x90}, "the element 0xA3 is longer than what holds it");
  says({0xA3, 0x01, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFE}, "is longer than what holds it");
  says({0xA3, 0x81, 0x81}, "a block is too short for its head");
  says({0x00, 0x00, 0x00}, "there is no EBML element");
  says({0x08, 0x80, 0x80, 0x80, 0x80, 0x80}, "there is no EBML element");
  says({0xA3}, "there is no EBML element");
  says({0xA3, 0xFF}, "the element 0xA3 does not say its size");
  says({0xE7, 0x89, 1, 2, 3, 4, 5, 6, 7, 8, 9}, "the element 0xE7 is no number");
  says({0xA3, 0x84, 0x81, 0, 0, 0x02}, "not as its lacing says");
  says({0xA3, 0x87, 0x81, 0, 0, 0x02, 1, 0xFF, 0xFF}, "not as its lacing says");
  says({0xA3, 0x87, 0x81, 0, 0, 0x02, 1, 9, 0}, "not as its lacing says");
  says({0xA3, 0x87, 0x81, 0, 0, 0x04, 2, 1, 2}, "not as its lacing says");
  says({0xA3, 0x88, 0x81, 0, 0, 0x06, 2, 0x82, 0x81, 9}, "not as its lacing says");
  // A cluster that would hold another one.
  const Part cluster = Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(20, 1)}))});
  Bytes whole = Simple({cluster, cluster});
  const Bytes name{0x1F, 0x43, 0xB6, 0x75};
  *(std::search(whole.begin(), whole.end(), name.begin(), name.end()) + 4) = 0xFE;
  whole.pop_back();
  EXPECT_THAT(Refusal(whole), HasSubstr("the element 0x1F43B675 is longer than what holds it (at byte "));
  EXPECT_THAT(Refusal({}), HasSubstr("there is no segment"));
  EXPECT_THAT(Refusal(Noise(100, 1)), HasSubstr("at byte 0"));
  EXPECT_THAT(Refusal(Build({Head(9)})), HasSubstr("identifiers or sizes of 9 bytes"));
  Part open = Master(0x1654AE6B, {Track(1)});
  open.open = true;
  EXPECT_THAT(Refusal(Build({Head(), Master(0x18538067, {open})})), HasSubstr("does not say its size"));
}

// Masters in masters of their own kind, as deep as a file is long, and an index that cannot be read.
TEST(MkvCarrier, WhatStandsInTheWrongPlaceIsLeftAlone) {
  const auto nested = [](const Bytes& id, size_t levels) {
    Bytes all;
    for (size_t left = levels; left-- > 0;) {
      all.insert(all.end(), id.begin(), id.end());
      const size_t size = left * (id.size() + 4);
      for (const size_t byte : {0x10 | size >> 24, size >> 16 & 0xFF, size >> 8 & 0xFF, size & 0xFF})
        all.push_back(static_cast<uint8_t>(byte));
    }
    return all;
  };
  constexpr size_t kLevels = 200000;
  const Part cluster = Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(70, 1)}))});
  const Bytes wrong{0x4D, 0xBB, 0x85, 1};
  for (const Bytes& inside : {nested({0xB7}, kLevels), nested({0xDB}, kLevels), nested({0xBB}, kLevels)}) {
    const Bytes file = Simple({Leaf(0x1C53BB6B, inside), cluster});
    FunctionEditor longer([](const Sample&, const Bytes& bytes) { return Bytes(bytes.size() + 9, 7); });
    CarryFrames(file, longer);
  }
  const Bytes deep = WithTrack(Track(1, {Leaf(0xE0, nested({0xE0}, kLevels))}),
                               {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)}))});
  Change change;
  change.tracks.push_back({.trackId = 1});
  change.tracks[0].facts.fields = {1, 0};
  Carry(deep, change);
  // Nothing moves: carried. Something moves: refused.
  const Bytes file = Simple({Leaf(0x114D9B74, wrong), cluster});
  FunctionEditor other([](const Sample&, const Bytes& bytes) { return Bytes(bytes.size(), 7); });
  EXPECT_EQ(CarryFrames(file, other).size(), file.size());
  EXPECT_THAT(Refusal(file), HasSubstr("the element 0x4DBB is longer than what holds it"));
}

Bytes WithEntries(size_t count, const std::function<Part(size_t)>& entry) {
  Bytes tracks;
  for (size_t i = 0; i < count; ++i) {
    const Bytes bytes = Build({entry(i)});
    tracks.insert(tracks.end(), bytes.begin(), bytes.end());
  }
  return Build(
      {Head(), Master(0x18538067, {Info(), Leaf(0x1654AE6B, tracks),
                                   Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)}))})})});
}

// Entries that say the same are one description, however often and in whatever order they are repeated; those
// that do not are counted, and there is an end to it.
TEST(MkvCarrier, TracksAreToldAgainAndAgain) {
  const auto told = [](uint8_t sets) {
    return Track(1, {Leaf(0x63A2, Bytes(8, sets)), Text(0x86, "V_MPEG4/ISO/AVC")});
  };
  const Bytes live = WithEntries(5000, [&](size_t i) { return told(i % 3 == 0 ? 7 : 8); });
  const MemorySource source(live, "live.mkv");
  const qlnmedia::mkv::Layout layout = qlnmedia::mkv::ReadLayout(source);
  const auto& entries = layout.tracks.at(1);
  ASSERT_EQ(entries.size(), 5000u);
  for (size_t i = 0; i < entries.size(); ++i) ASSERT_EQ(entries[i].description, i % 3 == 0 ? 1u : 2u) << i;
  // New private data goes into all entries of its description.
  Change change;
  change.tracks.push_back({.trackId = 1});
  change.tracks[0].privateData.push_back({2, 0x63A2, Bytes(8, 9)});
  const Bytes out = Carry(live, change);
  const MemorySource changed(out, "out.mkv");
  const qlnmedia::mkv::Layout after = qlnmedia::mkv::ReadLayout(changed);
  for (size_t i = 0; i < entries.size(); ++i)
    ASSERT_EQ(ReadPrivateData(changed, after.tracks.at(1)[i]), Bytes(8, i % 3 == 0 ? 7 : 9)) << i;
  // How it is packed counts, too.
  const Bytes packed = WithEntries(2, [&](size_t i) {
    return i == 0 ? told(7) : Track(1, {Leaf(0x63A2, Bytes(8, 7)), Encoded(3, {0, 0})});
  });
  EXPECT_EQ(qlnmedia::mkv::ReadLayout(MemorySource(packed)).tracks.at(1)[1].description, 2u);

  const Bytes many = WithEntries(4097, [&](size_t i) {
    return Track(1, {Leaf(0x63A2, Bytes{static_cast<uint8_t>(i), static_cast<uint8_t>(i >> 8)})});
  });
  EXPECT_THAT(Refusal(many), HasSubstr("a track has more descriptions than can be carried (at byte "));
  Bytes shortest;
  for (size_t i = 0; i <= 200000; ++i) shortest.insert(shortest.end(), {0xAE, 0x83, 0xD7, 0x81, 0x01});
  EXPECT_THAT(Refusal(Build({Head(), Master(0x18538067, {Info(), Leaf(0x1654AE6B, shortest)})})),
              HasSubstr("has more descriptions of tracks than can be carried"));
}

// Whatever one byte becomes, there is an output or an error, and an output is checked as ever.
TEST(MkvCarrier, DamagedFilesAreRefusedOrCarried) {
  for (uint32_t seed = 0; seed < 40; ++seed) {
    Bytes file = RandomFile(seed).bytes;
    std::mt19937 random(seed);
    for (int i = 0; i < 30; ++i) {
      const size_t at = random() % std::min<size_t>(file.size(), 600);
      const uint8_t was = file[at];
      file[at] = static_cast<uint8_t>(random());
      const Bytes cut(file.begin(), file.begin() + static_cast<long>(random() % file.size()));
      Refusal(file);
      Refusal(cut);
      file[at] = was;
    }
  }
}

// The check of what was written finds what is planted.
TEST(MkvCarrier, TheCheckSeesWhatIsWrong) {
  Part first = Master(0x1F43B675, {Number(0xE7, 0), Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)})),
                                   Leaf(0xA3, BlockBytes(2, 0, 0, {Noise(9, 2)}))});
  first.label = 10;
  Part second =
      Master(0x1F43B675, {Number(0xE7, 5), Place(0xA7, 11), Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 3)}))});
  second.parts.insert(second.parts.begin() + 1, Part{});
  second.parts[1].id = 0xAB;
  second.parts[1].sizeOf = 10;
  second.parts[3].label = 12;
  second.label = 11;
  Part relative = Place(0xF0, 12);
  relative.from = Part::From::kCluster;
  relative.cluster = 11;
  Part cues =
      Master(0x1C53BB6B, {Master(0xBB, {Number(0xB3, 0), Master(0xB7, {Place(0xF1, 11), relative})})});
  cues.label = 13;
  Part checked = Master(0x114D9B74, {Leaf(0xEC, Bytes(4))});
  checked.checksum = true;
  const Part seek = Master(0x114D9B74, {Master(0x4DBB, {Number(0x53AB, 0x1C53BB6B), Place(0x53AC, 13)})});
  const Bytes file =
      Simple({seek, first, second, cues, checked, Master(0x1254C367, {Text(0x7373, "a tag")})});
  FunctionEditor editor([](const Sample&, const Bytes& bytes) { return Bytes(bytes.size() + 3, 1); });
  const Bytes out = CarryFrames(file, editor);
  const MemorySource source(file, "in.mkv");
  const auto kept = [](uint64_t, const Sample&, qlnmedia::mkv::ByteSpan, qlnmedia::mkv::ByteSpan) {
    return true;
  };
  const auto says = [&](const Bytes& id, size_t skip, const std::string& text) {
    Bytes wrong = out;
    const auto at = std::search(wrong.begin() + 60, wrong.end(), id.begin(), id.end());
    ASSERT_NE(at, wrong.end());
    *(at + static_cast<long>(skip)) ^= 1;
    try {
      qlnmedia::mkv::RequireElementsKept(source, MemorySource(wrong, "out"), {1}, "out", kept);
      ADD_FAILURE() << text;
    } catch (const qlnmedia::Error& error) {
      EXPECT_THAT(std::string(error.what()), HasSubstr(text));
    }
  };
  says({0x73, 0x73}, 5, "is not as it was");
  says({0x53, 0xAC}, 3, "does not name its element any more");
  says({0xF1}, 2, "does not name its cluster any more");
  says({0xF0, 0x81}, 2, "does not name its block any more");
  says({0xAB, 0x81}, 2, "does not say the size of the cluster in front");
  says({0xA7, 0x81}, 2, "does not name its cluster any more");
  says({0xBF, 0x84}, 3, "does not hold any more");
  says({0xA3, 0x8D, 0x82}, 6, "is not as it was");
  says({0xA3, 0x90, 0x81}, 4, "has another head");
  const auto never = [](uint64_t, const Sample&, qlnmedia::mkv::ByteSpan, qlnmedia::mkv::ByteSpan) {
    return false;
  };
  try {
    qlnmedia::mkv::RequireElementsKept(source, MemorySource(out, "out"), {1}, "out", never);
    ADD_FAILURE();
  } catch (const qlnmedia::Error& error) {
    EXPECT_THAT(std::string(error.what()),
                HasSubstr("frame 1 of track 1: its coded data is not the input's"));
  }
}

}  // namespace
}  // namespace qln::test::mkv
