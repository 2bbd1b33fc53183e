// What the carrier of Matroska files changes and what it leaves, on files put together by hand.

#include "container/mkv/carrier.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "container/mkv/kept_elements.h"
#include "mkv/list_elements.h"
#include "mkv/random_file.h"
#include "mp4/carry.h"
#include "qlnmedia/error.h"

namespace qln::test::mkv {
namespace {

using qlnmedia::mp4::Change;
using qlnmedia::mp4::MemorySink;
using qlnmedia::mp4::MemorySource;
using qlnmedia::mp4::Sample;
using test::mp4::FunctionEditor;
using testing::HasSubstr;

Bytes Carry(const Bytes& file, const Change& change) {
  const MemorySource source(file, "in.mkv");
  qlnmedia::mkv::Carrier carrier(source);
  carrier.Prepare(change);
  MemorySink sink;
  carrier.Write(sink);
  const MemorySource written(sink.bytes(), "out.mkv");
  std::set<uint64_t> changed;
  for (const auto& track : change.tracks) changed.insert(track.trackId);
  const auto kept = [](uint64_t, const Sample&, qlnmedia::mkv::ByteSpan, qlnmedia::mkv::ByteSpan) {
    return true;
  };
  EXPECT_NO_THROW(qlnmedia::mkv::RequireElementsKept(source, written, changed, "out.mkv", {}));
  EXPECT_NO_THROW(qlnmedia::mkv::RequireElementsKept(source, written, changed, "out.mkv", kept));
  return sink.bytes();
}

Bytes CarryFrames(const Bytes& file, FunctionEditor& editor, uint32_t track = 1) {
  Change change;
  change.tracks.push_back({.trackId = track, .samples = &editor});
  return Carry(file, change);
}

// All frames of track 1 become others; the listing is the input's.
void ExpectCarried(const Bytes& file, const FunctionEditor::Function& function, size_t delay = 0) {
  FunctionEditor editor(function, delay);
  const Bytes out = CarryFrames(file, editor);
  const Listing was = List(file, {1});
  const Listing is = List(out, {1});
  EXPECT_EQ(Difference(was, is), "");
  const auto frames = is.frames.find(1);
  EXPECT_EQ(frames == is.frames.end() ? std::vector<Bytes>{} : frames->second, editor.result);
}

std::string Refusal(const Bytes& file) {
  FunctionEditor editor([](const Sample&, const Bytes& bytes) { return Bytes(bytes.size() + 40, 7); });
  const MemorySource source(file, "in.mkv");
  try {
    qlnmedia::mkv::Carrier carrier(source);
    Change change;
    change.tracks.push_back({.trackId = 1, .samples = &editor});
    carrier.Prepare(change);
  } catch (const qlnmedia::Error& error) {
    return error.what();
  }
  return "taken";
}

Bytes Simple(const std::vector<Part>& segment, uint64_t maxSizeLength = 8) {
  std::vector<Part> parts{Info(), Master(0x1654AE6B, {Track(1), Track(2)})};
  parts.insert(parts.end(), segment.begin(), segment.end());
  return Build({Head(maxSizeLength), Master(0x18538067, parts)});
}

Part Encoded(uint64_t algorithm, const Bytes& settings = {}, uint64_t scope = 1) {
  Part compression = Master(0x5034, {Number(0x4254, algorithm)});
  if (!settings.empty()) compression.parts.push_back(Leaf(0x4255, settings));
  return Master(0x6D80, {Master(0x6240, {Number(0x5032, scope), compression})});
}

Bytes Zlib(const Bytes& bytes) {
  Bytes out(bytes.size() + 100);
  uLongf size = out.size();
  compress(out.data(), &size, bytes.data(), bytes.size());
  out.resize(size);
  return out;
}

Bytes WithTrack(const Part& track, const std::vector<Part>& blocks) {
  return Build(
      {Head(), Master(0x18538067, {Info(), Master(0x1654AE6B, {track}), Master(0x1F43B675, blocks)})});
}

TEST(MkvCarrier, FilesOfEveryShapeKeepAllButTheFrames) {
  for (uint32_t seed = 0; seed < 300; ++seed) {
    SCOPED_TRACE(seed);
    const Bytes file = RandomFile(seed).bytes;
    const Listing was = List(file, {1});
    ASSERT_EQ(was.error, "");
    ExpectCarried(file, [](const Sample&, const Bytes&) { return std::nullopt; });
    FunctionEditor same([](const Sample&, const Bytes& bytes) { return bytes; });
    ASSERT_EQ(CarryFrames(file, same), file);
    std::mt19937 random(seed);
    // Few, all, or long frames change, and come back late.
    const size_t most = seed % 3 == 0 ? 20000 : 60;
    ExpectCarried(
        file,
        [&](const Sample&, const Bytes& bytes) -> std::optional<Bytes> {
          if (seed % 4 != 0 && random() % 3 == 0) return std::nullopt;
          Bytes fresh = bytes;
          fresh.resize(std::max<size_t>(5, random() % most), static_cast<uint8_t>(random()));
          return fresh;
        },
        seed % 5);
    if (testing::Test::HasFailure()) return;
  }
}

TEST(MkvCarrier, PlacesGrowAndMoveWhatStandsBehindThem) {
  // The cluster stands at place 200 of the segment, and no more within what one byte can say.
  std::vector<Part> points;
  for (int i = 0; i < 40; ++i)
    points.push_back(Master(0xBB, {Number(0xB3, 1), Master(0xB7, {Number(0xF7, 1), Place(0xF1, 50 + i)})}));
  std::vector<Part> segment{Master(0x1C53BB6B, points)};
  for (int i = 0; i < 40; ++i) {
    Part cluster = Master(0x1F43B675, {Number(0xE7, 0), Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(3, 1)}))});
    cluster.label = 50 + i;
    segment.push_back(cluster);
  }
  const Bytes file = Simple(segment);
  for (const size_t size : {100u, 125u, 126u, 127u, 16379u, 16400u})
    ExpectCarried(file, [&](const Sample&, const Bytes&) { return Bytes(size, 1); });
}

TEST(MkvCarrier, ACodedChecksumThatIsWrongStaysWrong) {
  Part cluster = Master(0x1F43B675, {Number(0xE7, 0), Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(9, 1)}))});
  cluster.checksum = true;
  Bytes file = Simple({cluster});
  const auto grow = [](const Sample&, const Bytes& bytes) { return Bytes(bytes.size() + 3, 4); };
  ExpectCarried(file, grow);
  const Bytes head{0xBF, 0x84};
  const auto at = std::search(file.begin(), file.end(), head.begin(), head.end());
  ASSERT_NE(at, file.end());
  *(at + 2) ^= 1;
  ExpectCarried(file, grow);
}

TEST(MkvCarrier, FixedLacingBecomesToldWhereSizesDiffer) {
  const std::vector<Bytes> frames{Noise(10, 1), Noise(10, 2), Noise(10, 3)};
  const Bytes file =
      Simple({Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0x80, frames, Lacing::kFixed))})});
  FunctionEditor one([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number != 1) return std::nullopt;
    return Bytes(bytes.size() + 300, 9);
  });
  const Bytes told = CarryFrames(file, one);
  EXPECT_EQ(List(told, {1}).frames.at(1), one.result);
  // The flags of the only block, behind its track and time.
  const Bytes head{0x81, 0, 0, 0x86, 2};
  EXPECT_NE(std::search(told.begin(), told.end(), head.begin(), head.end()), told.end());
  FunctionEditor all([](const Sample&, const Bytes&) { return Bytes(12, 9); });
  const Bytes fixed = CarryFrames(file, all);
  const Bytes still{0x81, 0, 0, 0x84, 2};
  EXPECT_NE(std::search(fixed.begin(), fixed.end(), still.begin(), still.end()), fixed.end());
}

TEST(MkvCarrier, ZlibIsUndoneAndDoneAgain) {
  const Bytes first(500, 3);
  const Bytes second = Noise(80, 4);
  const Bytes file = WithTrack(Track(1, {Encoded(0)}),
                               {Leaf(0xA3, BlockBytes(1, 0, 0x80, {Zlib(first)})),
                                Leaf(0xA3, BlockBytes(1, 1, 0, {Zlib(second), Zlib(first)}, Lacing::kXiph))});
  ExpectCarried(file, [](const Sample&, const Bytes& bytes) {
    Bytes fresh = bytes;
    fresh.insert(fresh.begin() + 20, 50, 0xAB);
    return fresh;
  });
  FunctionEditor last([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number != 2) return std::nullopt;
    return Bytes(bytes.begin(), bytes.end() - 1);
  });
  const Bytes out = CarryFrames(file, last);
  EXPECT_EQ(last.seen.size(), 3u);
  EXPECT_EQ(List(out, {1}).frames.at(1), last.result);
}

TEST(MkvCarrier, WhatCannotBeUndoneIsRefusedByName) {
  const auto file = [](const Part& encoding, const Bytes& frame) {
    return WithTrack(Track(1, {encoding}), {Leaf(0xA3, BlockBytes(1, 0, 0x80, {frame}))});
  };
  EXPECT_THAT(Refusal(file(Encoded(1), Noise(9, 1))), HasSubstr("(bzlib), which is not undone here"));
  EXPECT_THAT(Refusal(file(Encoded(2), Noise(9, 1))), HasSubstr("(lzo1x), which is not undone here"));
  EXPECT_THAT(Refusal(file(Encoded(9), Noise(9, 1))), HasSubstr("(of an unknown kind)"));
  EXPECT_THAT(Refusal(file(Encoded(0), Noise(9, 1))), HasSubstr("no whole zlib stream"));
  Bytes cut = Zlib(Noise(300, 1));
  cut.resize(cut.size() - 5);
  EXPECT_THAT(Refusal(file(Encoded(0), cut)), HasSubstr("no whole zlib stream (at byte "));
  // The editor's frames begin with other bytes than the track takes off.
  EXPECT_THAT(Refusal(file(Encoded(3, {1, 2}), Noise(9, 1))),
              HasSubstr("would no longer begin with the bytes that its track strips"));
  // A bomb: some kilobytes that would become 70 megabytes.
  Bytes bomb;
  z_stream stream = {};
  deflateInit(&stream, 1);
  const Bytes zeros(1 << 20);
  bomb.resize(4 << 20);
  stream.next_out = bomb.data();
  stream.avail_out = static_cast<uInt>(bomb.size());
  for (int i = 0; i < 70; ++i) {
    stream.next_in = const_cast<Bytef*>(zeros.data());
    stream.avail_in = static_cast<uInt>(zeros.size());
    deflate(&stream, i == 69 ? Z_FINISH : Z_NO_FLUSH);
  }
  bomb.resize(bomb.size() - stream.avail_out);
  deflateEnd(&stream);
  EXPECT_THAT(Refusal(file(Encoded(0), bomb)), HasSubstr("no whole zlib stream"));
}

TEST(MkvCarrier, EncryptedFramesAreNotGiven) {
  const Bytes file =
      WithTrack(Track(1, {Master(0x6D80, {Master(0x6240, {Number(0x5033, 1), Master(0x5035, {})})})}),
                {Leaf(0xA3, BlockBytes(1, 0, 0x80, {Noise(30, 1)}))});
  FunctionEditor editor([](const Sample&, const Bytes&) { return Bytes(3, 3); });
  EXPECT_EQ(CarryFrames(file, editor), file);
  EXPECT_TRUE(editor.seen.empty());
}

TEST(MkvCarrier, PartsOfFramesChange) {
  class Parts final : public qlnmedia::mp4::SampleEditor {
   public:
    void Take(const Sample& sample, qlnmedia::mp4::ByteSpan bytes,
              qlnmedia::mp4::SampleReturns& returns) override {
      if (sample.number % 2 == 0) return returns.Keep(sample.number);
      std::vector<qlnmedia::mp4::SamplePart> parts(2);
      parts[0] = {1, {bytes[1]}, Bytes(7, 1)};
      parts[1] = {4, {bytes[4], bytes[5]}, {2}};
      returns.ReplaceParts(sample.number, parts);
      Bytes fresh(bytes.begin(), bytes.end());
      fresh.erase(fresh.begin() + 4, fresh.begin() + 6);
      fresh.insert(fresh.begin() + 4, 2);
      fresh.erase(fresh.begin() + 1);
      fresh.insert(fresh.begin() + 1, 7, 1);
      result.push_back(fresh);
    }
    std::vector<Bytes> result;
  };
  const std::vector<Bytes> frames{Noise(20, 1), Noise(30, 2), Noise(40, 3)};
  const Bytes file = Simple({Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0, frames, Lacing::kEbml)),
                                                 Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(15, 4)}))})});
  Parts editor;
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor});
  const Bytes out = Carry(file, change);
  const std::vector<Bytes> is = List(out, {1}).frames.at(1);
  EXPECT_EQ(Difference(List(file, {1}), List(out, {1})), "");
  EXPECT_EQ(is[0], frames[0]);
  EXPECT_EQ(is[2], frames[2]);
  EXPECT_EQ((std::vector<Bytes>{is[1], is[3]}), editor.result);
}

TEST(MkvCarrier, DocumentsOfShortSizesAreNotBroken) {
  const Part cluster = Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(70, 1)}))});
  const Bytes file = Simple({cluster}, 2);
  EXPECT_EQ(Refusal(file), "taken");
  Part large = Master(0x1F43B675, {Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(16120, 1)})),
                                   Leaf(0xA3, BlockBytes(1, 0, 0, {Noise(120, 1)}))});
  EXPECT_EQ(Refusal(Simple({large}, 3)), "taken");
  EXPECT_THAT(Refusal(Simple({large}, 2)), HasSubstr("would need 3 bytes, and this document allows 2"));
}

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
