// What the carrier of Matroska files makes of the facts that a track tells, on files put together by hand.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "mkv/carry.h"

namespace qln::test::mkv {
namespace {

using testing::HasSubstr;

// What a reader finds in the only entry, by identifiers one within the other.
std::vector<Bytes> Bodies(const Bytes& file, std::vector<uint32_t> path) {
  std::vector<Bytes> levels{file};
  path.insert(path.begin(), {0x18538067, 0x1654AE6B, 0xAE});
  for (const uint32_t id : path) {
    std::vector<Bytes> found;
    for (const Bytes& level : levels) {
      const MemorySource source(level);
      qlnmedia::mkv::Reader reader(source);
      qlnmedia::mkv::ForEachElement(reader, 0, level.size(), {}, [&](const qlnmedia::mkv::Element& element) {
        if (element.id == id) found.push_back(reader.Run(element.body, element.size()));
      });
    }
    levels = found;
  }
  return levels;
}

Bytes WithFacts(const Bytes& file, const std::function<void(qlnmedia::mp4::TrackChange&)>& ask) {
  Change change;
  change.tracks.push_back({.trackId = 1});
  ask(change.tracks[0]);
  const Bytes out = Carry(file, change);
  EXPECT_EQ(Difference(List(file, {1}, true), List(out, {1}, true)), "");
  // Once more changes nothing.
  if (change.tracks[0].pictures.empty()) {
    EXPECT_EQ(Carry(out, change), out);
  }
  return out;
}

TEST(MkvCarrier, FactsTakeThePlaceOfThoseThatAreThere) {
  // A width of two bytes, one that is too narrow, and an unknown element between them.
  Part colour = Master(0x55B0, {Number(0x55BB, 1, 2), Number(0x55FE, 7), Number(0x55BC, 9)});
  colour.checksum = true;
  Part video = Master(0xE0, {Number(0xB0, 720), Number(0xBA, 576), Number(0x9D, 6), colour});
  video.sizeBytes = 4;
  Part track = Track(1, {video, Leaf(0x63A2, {1, 2, 3})});
  track.checksum = true;
  const Bytes file = WithTrack(track, {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)}))});
  const Bytes out = WithFacts(file, [](auto& change) {
    change.facts.colour = qlnmedia::mp4::Colour{9, 16, 9, true};
    change.facts.lightLevel = {1000, 400};
    change.facts.fields = {1, 0};
    change.facts.pixelShape = {16, 15};
    change.privateData.push_back({1, 1, Noise(200, 3)});
  });
  using Found = std::vector<Bytes>;
  EXPECT_EQ(Bodies(out, {0xE0, 0x55B0, 0x55BB}), (Found{{0, 9}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x55B0, 0x55FE}), (Found{{7}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x55B0, 0x55BC}), (Found{{3, 232}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x55B0, 0x55BD}), (Found{{1, 144}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x55B0, 0x55BA}), (Found{{16}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x55B0, 0x55B1}), (Found{{9}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x55B0, 0x55B9}), (Found{{2}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x9A}), (Found{{2}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x9D}), (Found{{0}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x54B0}), (Found{{3, 0}}));  // 768
  EXPECT_EQ(Bodies(out, {0xE0, 0x54BA}), (Found{{2, 64}}));
  EXPECT_EQ(Bodies(out, {0x63A2}), (Found{Noise(200, 3)}));
  // Every checksum of the entry holds, as the listing of all of it says.
  for (const std::string& line : List(out, {}).lines) {
    if (line.find("BF ") != std::string::npos) {
      EXPECT_THAT(line, HasSubstr("BF holds"));
    }
  }
}

TEST(MkvCarrier, FactsComeInWhereThereAreNone) {
  const Bytes file = WithTrack(Track(1), {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)}))});
  const Bytes out = WithFacts(file, [](auto& change) {
    change.facts.colour = qlnmedia::mp4::Colour{{}, {}, {}, false};
    change.facts.fields = {2, 6};
    auto& body = change.facts.mastering.emplace();
    // Green, blue, red and white as ITU-T H.265 clause D.2.28 has them, and luminances.
    body = {0x21, 0x34, 0x9B, 0xAA, 0x19, 0x96, 0x08, 0xFC, 0x8A, 0x48, 0x39, 0x08,
            0x3D, 0x13, 0x40, 0x42, 0x00, 0x98, 0x96, 0x80, 0x00, 0x00, 0x00, 0x32};
  });
  using Found = std::vector<Bytes>;
  EXPECT_EQ(Bodies(out, {0xE0, 0x55B0, 0x55B9}), (Found{{1}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x9A}), (Found{{1}}));
  EXPECT_EQ(Bodies(out, {0xE0, 0x9D}), (Found{{6}}));
  const auto number = [&out](uint32_t id) {
    const auto found = Bodies(out, {0xE0, 0x55B0, 0x55D0, id});
    uint64_t bits = 0;
    for (const uint8_t byte : found.at(0)) bits = bits << 8 | byte;
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
  };
  EXPECT_EQ(number(0x55D1), 0.708);
  EXPECT_EQ(number(0x55D2), 0.292);
  EXPECT_EQ(number(0x55D3), 0.17);
  EXPECT_EQ(number(0x55D4), 0.797);
  EXPECT_EQ(number(0x55D5), 0.131);
  EXPECT_EQ(number(0x55D6), 0.046);
  EXPECT_EQ(number(0x55D7), 0.3127);
  EXPECT_EQ(number(0x55D8), 0.329);
  EXPECT_EQ(number(0x55D9), 1000);
  EXPECT_EQ(number(0x55DA), 0.005);
}

TEST(MkvCarrier, SizesFollowThePictures) {
  const auto sized = [](std::vector<Part> more) {
    more.insert(more.begin(), {Number(0xB0, 1920), Number(0xBA, 1088)});
    return WithTrack(Track(1, {Master(0xE0, more)}), {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)}))});
  };
  const auto cropped = [](const Bytes& file) {
    return WithFacts(file, [](auto& change) {
      change.pictures.push_back({1, 1920, 1088, 1904, 1080, 8, 0});
    });
  };
  using Found = std::vector<Bytes>;
  const Bytes plain = cropped(sized({}));
  EXPECT_EQ(Bodies(plain, {0xE0, 0xB0}), (Found{{7, 112}}));
  EXPECT_EQ(Bodies(plain, {0xE0, 0xBA}), (Found{{4, 56}}));
  EXPECT_EQ(Bodies(plain, {0xE0, 0x54B0}), Found{});
  // A display of square samples goes on being one; the crop names the same part.
  const Bytes square = cropped(sized({Number(0x54B0, 1920), Number(0x54BA, 1080), Number(0x54AA, 8)}));
  EXPECT_EQ(Bodies(square, {0xE0, 0x54B0}), (Found{{7, 112}}));
  EXPECT_EQ(Bodies(square, {0xE0, 0x54BA}), (Found{{4, 56}}));
  EXPECT_EQ(Bodies(square, {0xE0, 0x54AA}), (Found{{0}}));
  const Bytes metres = cropped(sized({Number(0x54B0, 480), Number(0x54BA, 272), Number(0x54B2, 1)}));
  EXPECT_EQ(Bodies(metres, {0xE0, 0x54B0}), (Found{{1, 220}}));
  EXPECT_EQ(Bodies(metres, {0xE0, 0x54BA}), (Found{{1, 14}}));
}

TEST(MkvCarrier, ShapesOfSamplesAreExact) {
  const auto shaped = [](uint32_t horizontal, uint32_t vertical, std::vector<Part> more = {}) {
    more.insert(more.begin(), {Number(0xB0, 720), Number(0xBA, 576)});
    const Bytes file =
        WithTrack(Track(1, {Master(0xE0, more)}), {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)}))});
    const Bytes out = WithFacts(file, [&](auto& change) {
      change.facts.pixelShape = {horizontal, vertical};
    });
    std::string text;
    for (const uint32_t id : {0x54B0u, 0x54BAu, 0x54B2u}) {
      uint64_t value = 0;
      const auto found = Bodies(out, {0xE0, id});
      for (const Bytes& body : found) {
        for (const uint8_t byte : body) value = value << 8 | byte;
      }
      text += found.empty() ? "- " : std::to_string(value) + " ";
    }
    return text;
  };
  EXPECT_EQ(shaped(1, 1), "- - - ");
  EXPECT_EQ(shaped(16, 15), "768 576 - ");
  EXPECT_EQ(shaped(12, 11), "720 528 - ");
  EXPECT_EQ(shaped(1001, 1000), "1001 800 3 ");
  EXPECT_EQ(shaped(64, 45, {Number(0x54B0, 1024), Number(0x54BA, 576)}), "1024 576 - ");
  EXPECT_EQ(shaped(64, 45, {Number(0x54B0, 16), Number(0x54BA, 9), Number(0x54B2, 3)}), "16 9 3 ");
  EXPECT_EQ(shaped(1, 1, {Number(0x54B0, 16), Number(0x54BA, 9), Number(0x54B2, 3)}), "720 576 0 ");
}

// Private data that is compressed, and what stands in front of it in the way of AVI.
TEST(MkvCarrier, PrivateDataIsEncodedAsItWas) {
  const Bytes old = Noise(60, 1);
  const Bytes fresh(90, 5);
  Part zlib = Track(1, {Encoded(0, {}, 2), Leaf(0x63A2, Zlib(old))});
  const auto block = Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)}));
  const auto change = [&](auto& asked) { asked.privateData.push_back({1, 1, fresh}); };
  const Bytes out = WithFacts(WithTrack(zlib, {block}), change);
  EXPECT_EQ(Bodies(out, {0x63A2}).at(0), [&] {
    Bytes packed(200);
    uLongf size = packed.size();
    compress2(packed.data(), &size, fresh.data(), fresh.size(), 9);
    packed.resize(size);
    return packed;
  }());
  Bytes head(40, 7);
  head[0] = 100;
  head[1] = head[2] = head[3] = 0;
  Part avi = Master(0xAE, {Number(0xD7, 1), Number(0x83, 1), Text(0x86, "V_MS/VFW/FOURCC"),
                           Leaf(0x63A2, Join({head, old}))});
  Bytes expected = head;
  expected[0] = 130;
  expected.insert(expected.end(), fresh.begin(), fresh.end());
  EXPECT_EQ(Bodies(WithFacts(WithTrack(avi, {block}), change), {0x63A2}).at(0), expected);
}

}  // namespace
}  // namespace qln::test::mkv
