// What was written is read back and held against the input: every planted fault is found.
#include "container/mp4/layout_check.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "mp4/carry.h"
#include "mp4/list_file.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;

TrackSpec Pictures() {
  TrackSpec track;
  for (uint32_t i = 0; i < 12; ++i) track.samples.push_back(Noise(30 + i, i));
  track.chunks = {3, 2};
  track.sync = {1, 5};
  track.timeOffsets = {0, 20, -20, 0, 20, -20, 0, 20, -20, 0, 20, -20};
  track.entryBoxes = Joined({Box("avcC", Noise(20, 1)), Box("abcd", Noise(9, 2))});
  track.trackBoxes = {
      Box("edts", {Full("elst", 0, 0, {Number(1, 4), Number(900, 4), Number(20, 4), Number(65536, 4)})})};
  return track;
}

Bytes MovieFile() {
  TrackSpec sound;
  sound.id = 2;
  sound.handler = "soun";
  sound.format = "mp4a";
  sound.samples = {Noise(40, 1), Noise(41, 2), Noise(42, 3), Noise(43, 4)};
  return BuildMovie({.tracks = {Pictures(), sound},
                     .moovBoxes = {Box("udta", {Box("name", Text("film"))}), Box("uuid", Noise(30, 3))},
                     .behindAll = Box("free", Noise(20, 4))});
}

FunctionEditor::Function Growing() {
  return [](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number % 3 == 1) return std::nullopt;
    return Joined({bytes, Noise(5 + sample.number, 7)});
  };
}

// Carries a file and gives what a check of the output says of it once `harm` was at it.
class Written {
 public:
  explicit Written(const Bytes& file)
      : file_(file), source_(file_, "in.mp4"), carrier_(source_), editor_(Growing()) {
    change_.tracks.push_back({.trackId = 1, .samples = &editor_});
    change_.tracks[0].facts.lightLevel = {1000, 400};
    carrier_.Prepare(change_);
    MemorySink sink;
    carrier_.Write(sink);
    output_ = sink.bytes();
  }
  const Bytes& output() const { return output_; }
  LayoutChecked Check(const Bytes& output) const {
    return CheckLayout(carrier_, MemorySource(output, "temporary"), "out.mp4");
  }
  std::string Said(const Bytes& output) const {
    return Refusal([&] { Check(output); });
  }

 private:
  Bytes file_;
  MemorySource source_;
  Carrier carrier_;
  FunctionEditor editor_;
  Change change_;
  Bytes output_;
};

TEST(LayoutCheck, WhatWasWrittenIsRight) {
  const Written written(MovieFile());
  const LayoutChecked checked = written.Check(written.output());
  EXPECT_EQ(checked.tracks, 2u);
  EXPECT_EQ(checked.samples, 16u);
  EXPECT_GT(checked.boxes, 30u);
}

// Each byte of the boxes, one after the other; versions and flags of the tables of places aside.
TEST(LayoutCheck, EveryHarmedByteOfTheBoxesIsFound) {
  const Written written(MovieFile());
  const Listing listing = ListFile(written.output());
  std::vector<bool> judged(written.output().size(), true);
  const auto spare = [&](size_t from, size_t to) {
    std::fill(judged.begin() + static_cast<std::ptrdiff_t>(from),
              judged.begin() + static_cast<std::ptrdiff_t>(to), false);
  };
  for (const Node& box : listing.boxes) {
    if (box.type == "mdat") spare(box.at + box.head, box.at + box.size);
    if (box.type == "stsz" || box.type == "stco") spare(box.at + box.head, box.at + box.head + 4);
    // Records and facts may be others; what they are is the change's affair.
    if (box.type == "avcC" || box.type == "clli") spare(box.at + box.head, box.at + box.size);
  }
  size_t harmed = 0;
  for (size_t at = 0; at < judged.size(); ++at) {
    if (!judged[at]) continue;
    Bytes output = written.output();
    output[at] ^= 0x41;
    EXPECT_NE(written.Said(output), "") << "byte " << at;
    ++harmed;
  }
  EXPECT_GT(harmed, 800u);
}

TEST(LayoutCheck, SaysWhatIsWrong) {
  const Written written(MovieFile());
  const Listing listing = ListFile(written.output());
  const auto harmed = [&](const std::string& type, size_t offset, uint8_t value) {
    Bytes output = written.output();
    for (const Node& box : listing.boxes) {
      if (box.type != type) continue;
      output[box.at + offset] = value;
      return written.Said(output);
    }
    return std::string("no such box");
  };
  EXPECT_THAT(harmed("stsz", 27, 9), HasSubstr("out.mp4: sample 2 of track 1 is named with another size"));
  EXPECT_THAT(harmed("stco", 23, 9), HasSubstr("out.mp4: sample 4 of track 1 is named at another place"));
  EXPECT_THAT(harmed("edts", 28, 9), HasSubstr("out.mp4: box 'edts'"));
  EXPECT_THAT(harmed("uuid", 20, 9), HasSubstr("box 'uuid', at byte"));
  Bytes shorter = written.output();
  shorter.pop_back();
  EXPECT_THAT(written.Said(shorter), HasSubstr("bytes, and should be of"));
}

TEST(LayoutCheck, FragmentsAreReadBackToo) {
  TrackSpec track = Pictures();
  Bytes file = BuildInit({.tracks = {track}});
  for (uint32_t i = 0; i < 3; ++i) {
    TrafSpec traf;
    traf.runs = {{Noise(30 + i, i), Noise(31, i)}, {Noise(50, i)}};
    traf.durations = true;
    traf.timeOffsets = true;
    traf.decodeTime = 300 * i;
    const Bytes fragment = BuildFragment({traf}, file.size());
    file.insert(file.end(), fragment.begin(), fragment.end());
  }
  const Written written(file);
  EXPECT_EQ(written.Check(written.output()).samples, 9u);
  const Listing listing = ListFile(written.output());
  size_t found = 0;
  for (const Node& box : listing.boxes) {
    if (box.type != "trun" && box.type != "tfdt") continue;
    // The last byte: a time of a sample, or of a fragment.
    Bytes output = written.output();
    output[box.at + box.size - 1] ^= 1;
    EXPECT_NE(written.Said(output), "") << box.path;
    ++found;
  }
  EXPECT_EQ(found, 9u);
}

// What is to be written in place is looked at before the first byte is: nothing but the movie and free space
// moves.
TEST(LayoutCheck, WhatWillStandInPlaceIsRight) {
  TrackSpec sound;
  sound.id = 2;
  sound.handler = "soun";
  sound.format = "mp4a";
  sound.samples = {Noise(40, 1), Noise(41, 2)};
  const Bytes file = BuildMovie({.tracks = {Pictures(), sound},
                                 .moovFirst = false,
                                 .moovBoxes = {Box("uuid", Noise(30, 3))},
                                 .behindAll = Box("free", Bytes(90))});
  const MemorySource source(file, "in.mp4");
  Carrier carrier(source);
  Change change;
  change.tracks.push_back({.trackId = 1});
  change.tracks[0].facts.lightLevel = {1000, 400};
  carrier.Prepare(change, true);
  MemorySink sink;
  carrier.Write(sink);
  const Bytes& grown = sink.bytes();
  // The free box gives the movie its room.
  const size_t more = grown.size() - file.size();
  const Bytes planned = Joined({Bytes(grown.begin(), grown.end() - 98), Box("free", Bytes(90 - more))});
  ASSERT_EQ(planned.size(), file.size());
  const auto said = [&](const Bytes& output) {
    return Refusal([&] { CheckLayoutInPlace(carrier, MemorySource(output, "temporary"), "out.mp4"); });
  };
  EXPECT_EQ(said(planned), "");
  const auto harmed = [&](const std::string& type, size_t offset, uint8_t value) {
    Bytes output = planned;
    for (const Node& box : ListFile(planned).boxes) {
      if (box.type != type) continue;
      output[box.at + offset] = value;
      return said(output);
    }
    return std::string("no such box");
  };
  EXPECT_THAT(harmed("stsz", 27, 9), HasSubstr("sample 2 of track 1 is named with another size"));
  EXPECT_THAT(harmed("stco", 23, 9), HasSubstr("sample 4 of track 1 is named at another place"));
  EXPECT_THAT(harmed("uuid", 20, 9), HasSubstr("box 'uuid', at byte"));
  EXPECT_THAT(harmed("moov", 5, 'q'), HasSubstr("box 'mqov' came in at byte"));
  EXPECT_THAT(harmed("mdat", 4, 'n'), HasSubstr("box 'mdat', at byte"));
  EXPECT_THAT(said(Joined({planned, Box("abcd", Bytes{})})), HasSubstr("box 'abcd' came in at byte"));
  EXPECT_THAT(said(Joined({Box("free", Bytes{}), planned})), HasSubstr("does not stand where it was"));
}

// A file that can be carried is one whose layout can be checked, whatever its boxes say.
TEST(LayoutCheck, FindsNothingInWhatWasCarriedOutOfHarmedFiles) {
  Bytes fragments = BuildInit({.tracks = {Pictures()}});
  for (uint32_t i = 0; i < 2; ++i) {
    TrafSpec traf;
    traf.runs = {{Noise(30 + i, i), Noise(31, i)}, {Noise(50, i)}};
    traf.durations = true;
    const Bytes fragment = BuildFragment({traf}, fragments.size());
    fragments.insert(fragments.end(), fragment.begin(), fragment.end());
  }
  uint32_t draw = 7;
  size_t carried = 0;
  for (const Bytes& whole : {MovieFile(), fragments}) {
    for (int i = 0; i < 3000; ++i) {
      Bytes file = whole;
      for (int harm = 0; harm < 1 + i % 3; ++harm) {
        draw = draw * 1664525 + 1013904223;
        file[(draw >> 8) % file.size()] = static_cast<uint8_t>(draw >> 3);
      }
      std::unique_ptr<Written> written;
      try {
        written = std::make_unique<Written>(file);
      } catch (const qlnmedia::Error&) {
        continue;
      }
      ++carried;
      EXPECT_EQ(written->Said(written->output()), "") << i;
    }
  }
  EXPECT_GT(carried, 2000u);
}

TEST(Wants, SamplesThatNobodyWantsAreNotRead) {
  class Choosy final : public SampleEditor {
   public:
    bool Wants(const Source&, const Sample& sample) override { return sample.number % 4 == 2; }
    void Take(const Sample& sample, ByteSpan bytes, SampleReturns& returns) override {
      taken.push_back(sample.number);
      Bytes fresh(bytes.begin(), bytes.end());
      fresh.push_back(0x77);
      returns.Replace(sample.number, fresh);
    }
    std::vector<uint64_t> taken;
  };
  const Bytes file = MovieFile();
  Choosy editor;
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor});
  const Carried carried = CarryBytes(file, change);
  EXPECT_EQ(editor.taken, (std::vector<uint64_t>{2, 6, 10}));
  EXPECT_EQ(carried.counts.changedSamples, 3u);
  std::vector<Bytes> fresh = Pictures().samples;
  for (const size_t i : {2u, 6u, 10u}) fresh[i].push_back(0x77);
  EXPECT_EQ(Compare(file, carried.output, 1, fresh), "");
}

// The heads that an editor looks at are announced ahead of the look, each once, and no more than there is.
TEST(Wants, HeadsAreAnnouncedAhead) {
  class Announced final : public Source {
   public:
    explicit Announced(ByteSpan bytes) : bytes_(bytes, "in.mp4") {}
    const std::string& name() const override { return bytes_.name(); }
    uint64_t size() const override { return bytes_.size(); }
    void Read(uint64_t at, std::span<uint8_t> to) const override { bytes_.Read(at, to); }
    void Announce(uint64_t at, uint64_t bytes) const override { places.emplace_back(at, bytes); }
    mutable std::vector<std::pair<uint64_t, uint64_t>> places;

   private:
    MemorySource bytes_;
  };
  class Looker final : public SampleEditor {
   public:
    explicit Looker(uint64_t heads) : heads_(heads) {}
    bool Wants(const Source& source, const Sample& sample) override {
      const auto& places = dynamic_cast<const Announced&>(source).places;
      samples.emplace_back(sample.offset, std::min<uint64_t>(sample.size, heads_));
      EXPECT_EQ(std::count(places.begin(), places.end(), samples.back()), heads_ == 0 ? 0 : 1);
      return false;
    }
    uint64_t headBytes() const override { return heads_; }
    void Take(const Sample&, ByteSpan, SampleReturns&) override { FAIL(); }
    std::vector<std::pair<uint64_t, uint64_t>> samples;

   private:
    uint64_t heads_;
  };
  const Bytes file = MovieFile();
  for (const uint64_t heads : {uint64_t{0}, uint64_t{5}, uint64_t{100000}}) {
    const Announced source(file);
    Looker editor(heads);
    Change change;
    change.tracks.push_back({.trackId = 1, .samples = &editor});
    Carrier carrier(source);
    carrier.Prepare(change);
    EXPECT_EQ(editor.samples.size(), Pictures().samples.size());
    EXPECT_EQ(source.places, heads == 0 ? decltype(source.places){} : editor.samples);
  }
}

}  // namespace
}  // namespace qln::test::mp4
