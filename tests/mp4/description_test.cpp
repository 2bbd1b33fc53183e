// Sample descriptions: records and container facts written over what is there, or added.
#include "container/mp4/description_edit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/carry.h"
#include "mp4/list_file.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;

TrackSpec TrackWith(const Bytes& entryBoxes, uint32_t descriptions = 1) {
  TrackSpec track;
  track.samples = {Noise(10, 1), Noise(20, 2)};
  track.entryBoxes = entryBoxes;
  track.descriptions = descriptions;
  return track;
}

Bytes FileWith(const Bytes& entryBoxes, const std::string& brand = "isom", uint32_t descriptions = 1) {
  return BuildMovie({.brand = brand, .tracks = {TrackWith(entryBoxes, descriptions)}});
}

Change FactsChange(const ContainerFacts& facts) {
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = nullptr, .privateData = {}, .facts = facts});
  return change;
}

Colour SomeColour(std::optional<bool> range = std::nullopt) { return {9, 16, 9, range}; }

Bytes Nclx(uint16_t primaries, uint16_t transfer, uint16_t matrix, uint8_t range) {
  return Box("colr",
             {Text("nclx"), Number(primaries, 2), Number(transfer, 2), Number(matrix, 2), Number(range, 1)});
}
Bytes Nclc(uint16_t primaries, uint16_t transfer, uint16_t matrix) {
  return Box("colr", {Text("nclc"), Number(primaries, 2), Number(transfer, 2), Number(matrix, 2)});
}

// The change gives the very file that would have been built with the other boxes.
void ExpectBecomes(const Bytes& before, const Bytes& after, const ContainerFacts& facts,
                   const std::string& brand = "isom") {
  const Change change = FactsChange(facts);
  const Bytes output = CarryBytes(FileWith(before, brand), change).output;
  EXPECT_EQ(output, FileWith(after, brand));
  EXPECT_EQ(CarryBytes(output, change).output, output);
}

const Bytes kRecord = Box("avcC", Noise(30, 7));

TEST(Descriptions, ColourIsAddedWhereThereIsNone) {
  ContainerFacts facts;
  facts.colour = SomeColour();
  ExpectBecomes(kRecord, Joined({kRecord, Nclx(9, 16, 9, 0)}), facts);
  ExpectBecomes({}, Nclx(9, 16, 9, 0), facts);
  ExpectBecomes(kRecord, Joined({kRecord, Nclc(9, 16, 9)}), facts, "qt  ");
  facts.colour = SomeColour(true);
  ExpectBecomes(kRecord, Joined({kRecord, Nclx(9, 16, 9, 0x80)}), facts);
  // QuickTime ends its list with four zero bytes, which stay where they are: at the end.
  ExpectBecomes(Joined({kRecord, Bytes(4)}), Joined({kRecord, Nclc(9, 16, 9), Bytes(4)}), facts, "qt  ");
  // Without all three codes there is nothing to add.
  facts.colour = Colour{9, std::nullopt, 9, true};
  ExpectBecomes(kRecord, kRecord, facts);
}

TEST(Descriptions, ColourOfEveryKindIsChangedInPlace) {
  const Bytes profile = Box("colr", {Text("prof"), Noise(50, 1)});
  const Bytes other = Box("colr", {Text("rICC"), Noise(50, 1)});
  ContainerFacts facts;
  facts.colour = SomeColour();
  ExpectBecomes(Joined({Nclx(1, 1, 1, 0x80), kRecord}), Joined({Nclx(9, 16, 9, 0x80), kRecord}), facts);
  ExpectBecomes(Joined({Nclc(1, 1, 1), profile, Nclx(1, 1, 1, 0), kRecord}),
                Joined({Nclc(9, 16, 9), profile, Nclx(9, 16, 9, 0), kRecord}), facts);
  ExpectBecomes(Joined({other, kRecord}), Joined({other, kRecord, Nclx(9, 16, 9, 0)}), facts);
  facts.colour = Colour{std::nullopt, 18, std::nullopt, false};
  ExpectBecomes(Nclx(1, 1, 1, 0xFF), Nclx(1, 18, 1, 0x7F), facts);
}

TEST(Descriptions, FactsOfEveryKind) {
  ContainerFacts facts;
  facts.pixelShape = {4, 3};
  facts.cleanAperture = {1, 2, 3, 4, 0xFFFFFFFF, 6, 7, 8};
  facts.fields = {2, 14};
  std::array<uint8_t, 24> mastering{};
  for (size_t i = 0; i < mastering.size(); ++i) mastering[i] = static_cast<uint8_t>(i);
  facts.mastering = mastering;
  facts.lightLevel = {1000, 400};
  const Bytes pasp = Box("pasp", {Number(4, 4), Number(3, 4)});
  const Bytes clap = Box("clap", {Number(1, 4), Number(2, 4), Number(3, 4), Number(4, 4),
                                  Number(0xFFFFFFFF, 4), Number(6, 4), Number(7, 4), Number(8, 4)});
  const Bytes fiel = Box("fiel", Bytes{2, 14});
  const Bytes mdcv = Box("mdcv", Bytes(mastering.begin(), mastering.end()));
  const Bytes clli = Box("clli", {Number(1000, 2), Number(400, 2)});
  ExpectBecomes(kRecord, Joined({kRecord, pasp, clap, fiel, mdcv, clli}), facts);
  const Bytes unknown = Box("abcd", Noise(9, 1));
  ExpectBecomes(Joined({Box("clli", Bytes(4)), unknown, Box("pasp", Bytes(8)), kRecord}),
                Joined({clli, unknown, pasp, kRecord, clap, fiel, mdcv}), facts);
}

TEST(Descriptions, RecordsOfOneOrAllDescriptions) {
  const Bytes file = FileWith(kRecord, "isom", 3);
  Change change;
  change.tracks.push_back(
      {.trackId = 1, .samples = nullptr, .privateData = {{2, FourCc("avcC"), Noise(44, 3)}}, .facts = {}});
  const Carried one = CarryBytes(file, change);
  EXPECT_EQ(one.counts.descriptions, 1u);
  EXPECT_EQ(one.output.size(), file.size() + 14);
  EXPECT_EQ(Compare(file, one.output, 1, {}), "the bytes of moov/trak/mdia/minf/stbl/stsd/2:avc1/avcC");
  change.tracks[0].privateData[0].description = 0;
  EXPECT_EQ(CarryBytes(file, change).output, FileWith(Box("avcC", Noise(44, 3)), "isom", 3));
  change.tracks[0].privateData[0] = {2, FourCc("hvcC"), Bytes(3)};
  EXPECT_THAT(Refusal([&] { CarryBytes(file, change); }),
              HasSubstr("sample description 2 of track 1 holds no 'hvcC'"));
  // A head of 64 bits stays one.
  change.tracks[0].privateData[0] = {1, FourCc("avcC"), Noise(12, 1)};
  EXPECT_EQ(CarryBytes(FileWith(Box("avcC", Noise(30, 7), true)), change).output,
            FileWith(Box("avcC", Noise(12, 1), true)));
}

TEST(Descriptions, SoundTracksHaveNoPictureFacts) {
  TrackSpec sound = TrackWith({});
  sound.handler = "soun";
  sound.format = "mp4a";
  ContainerFacts facts;
  facts.pixelShape = {1, 1};
  EXPECT_THAT(Refusal([&] { CarryBytes(BuildMovie({.tracks = {sound}}), FactsChange(facts)); }),
              HasSubstr("track 1 is no video track"));
}

// Two samples of 100 ms at 10 and 20 bytes: 30 bytes in 0.2 s are 1200 bits a second; the second holds 240
// bits.
TEST(Descriptions, BitRatesThatWereTrueAreMadeTrueAgain) {
  const auto rates = [](uint32_t buffer, uint32_t most, uint32_t average) {
    return Box("btrt", {Number(buffer, 4), Number(most, 4), Number(average, 4)});
  };
  const auto grown = [&](const Bytes& btrt) {
    TrackSpec track = TrackWith(btrt);
    const Bytes file = BuildMovie({.tracks = {track}});
    FunctionEditor editor([](const Sample&, const Bytes& bytes) { return Joined({bytes, Noise(10, 5)}); });
    const Bytes output = CarrySamples(file, 1, editor).output;
    EXPECT_EQ(Compare(file, output, 1, editor.result), "");
    for (const Node& node : ListFile(output).boxes) {
      if (node.type == "btrt")
        return Bytes(output.begin() + static_cast<std::ptrdiff_t>(node.at),
                     output.begin() + static_cast<std::ptrdiff_t>(node.at + node.size));
    }
    return Bytes{};
  };
  EXPECT_EQ(grown(rates(20, 240, 1200)), rates(30, 400, 2000));
  EXPECT_EQ(grown(rates(100, 240, 1200)), rates(100, 400, 2000));
  EXPECT_EQ(grown(rates(0, 100, 0)), rates(0, 100, 0));
  EXPECT_EQ(grown(rates(20, 5000, 5000)), rates(30, 5000, 5000));
}

}  // namespace
}  // namespace qln::test::mp4
