// Changes in place: where they fit, and which journal is used.
#include "container/mp4/in_place.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mp4/in_place_kinds.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;
using Movie = InPlaceResult::Movie;

TEST(InPlace, EachKindGoesWhereItFits) {
  for (const Kind& kind : Kinds()) {
    SCOPED_TRACE(kind.name);
    const std::string path = PathOf("kinds");
    WriteFile(path, kind.file);
    Wish wish(kind);
    const InPlaceResult result = ChangeInPlace(path, wish.change);
    EXPECT_EQ(result.movie, kind.movie);
    EXPECT_GT(result.bytesWritten, 0u);
    const Bytes output = ReadFile(path);
    ExpectChanged(kind, output);
    EXPECT_FALSE(JournalIsThere(path));
    if (kind.movie == Movie::kGrowsIntoFreeSpace || kind.movie == Movie::kStays) {
      EXPECT_EQ(output.size(), kind.file.size());
    }
    if (kind.movie == Movie::kMovesToTheEnd) {
      EXPECT_EQ(ListFile(output).boxes[1].type, "free");
    }
    // Once more changes nothing.
    Wish again(kind);
    EXPECT_EQ(ChangeInPlace(path, again.change).bytesWritten, 0u);
    EXPECT_EQ(ReadFile(path), output);
    std::filesystem::remove(path);
  }
}

TEST(InPlace, WhatDoesNotFitSaysHowManyBytesAreMissing) {
  const std::string path = PathOf("refused");
  const auto refusal = [&](const Bytes& file, const Change& change) {
    WriteFile(path, file);
    const std::string said = Refusal([&] { ChangeInPlace(path, change); });
    EXPECT_EQ(ReadFile(path), file);
    EXPECT_FALSE(JournalIsThere(path));
    return said;
  };
  FunctionEditor grows([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number > 2) return std::nullopt;
    return Joined({bytes, Text("four")});
  });
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &grows, .privateData = {}, .facts = {}});
  EXPECT_THAT(refusal(BuildMovie({.tracks = {SomeTrack()}}), change),
              HasSubstr("does not fit in place: 12 bytes are missing"));
  FunctionEditor shrinks([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
    if (sample.number > 2) return std::nullopt;
    return Bytes(bytes.begin() + 1, bytes.end());
  });
  change.tracks[0].samples = &shrinks;
  EXPECT_THAT(refusal(BuildMovie({.tracks = {SomeTrack()}}), change),
              HasSubstr("does not fit in place: samples would change their sizes, by 3 bytes less in all"));
  // The movie of fragments cannot go behind them.
  Change record;
  record.tracks.push_back(
      {.trackId = 1, .samples = nullptr, .privateData = {{1, FourCc("avcC"), Noise(50, 8)}}, .facts = {}});
  const Bytes init = BuildInit({.tracks = {SomeTrack()}});
  TrafSpec traf;
  traf.runs = {{Noise(20, 1)}};
  EXPECT_THAT(refusal(Joined({init, Box("free", Bytes(4)), BuildFragment({traf}, init.size() + 12)}), record),
              HasSubstr("8 bytes are missing"));
  // Nor can it go behind media data that is open at its end.
  EXPECT_THAT(refusal(BuildMovie({.tracks = {SomeTrack()}, .mdatToEnd = true}), record),
              HasSubstr("20 bytes are missing"));
  std::filesystem::remove(path);
}

// Free space is what a file says that it is; a track that has its data there says otherwise.
TEST(InPlace, SpaceThatATrackUsesIsNotTaken) {
  Kind kind = Kinds()[2];
  Bytes file = kind.file;
  const Listing listing = ListFile(file);
  size_t space = 0;
  size_t table = 0;
  for (const Node& node : listing.boxes) {
    if (node.type == "free") space = node.at;
    if (node.type == "stco") table = node.at;
  }
  const Bytes number = Number(space + 9, 4);
  std::copy(number.begin(), number.end(), file.begin() + static_cast<std::ptrdiff_t>(table + 16));
  const std::string path = PathOf("used");
  WriteFile(path, file);
  Wish wish(kind);
  EXPECT_THAT(Refusal([&] { ChangeInPlace(path, wish.change); }),
              HasSubstr("data of track 1 stands where the change would go"));
  EXPECT_EQ(ReadFile(path), file);
  EXPECT_FALSE(JournalIsThere(path));
  std::filesystem::remove(path);
}

TEST(InPlace, AnotherRunIsNotDisturbed) {
  const Kind kind = Kinds()[0];
  const std::string path = PathOf("locked");
  WriteFile(path, kind.file);
  Wish wish(kind);
  std::string said;
  wish.change.progress = [&](double) {
    if (said.empty()) {
      Wish other(kind);
      said = Refusal([&] { ChangeInPlace(path, other.change); });
    }
    return true;
  };
  ChangeInPlace(path, wish.change);
  EXPECT_THAT(said, HasSubstr("another run is changing it"));
  std::filesystem::remove(path);
}

TEST(InPlace, AJournalOfAnotherFileIsNotUsed) {
  const Kind kind = Kinds()[0];
  const std::string path = PathOf("other");
  WriteFile(path, kind.file);
  class Stops final : public Disk {
   public:
    ssize_t Write(int descriptor, ByteSpan bytes, uint64_t at) override {
      if (at > 0 && journalDone) throw std::string("cut");
      return Disk::Write(descriptor, bytes, at);
    }
    int Flush(int descriptor) override {
      journalDone = true;
      return Disk::Flush(descriptor);
    }
    bool journalDone = false;
  };
  Stops disk;
  Wish wish(kind);
  EXPECT_THROW(ChangeInPlace(path, wish.change, {}, disk), std::string);
  ASSERT_TRUE(JournalIsThere(path));
  const Bytes journal = ReadFile(JournalPath(path));
  WriteFile(path, Noise(kind.file.size(), 3));
  EXPECT_THAT(Refusal([&] { Recover(path); }), HasSubstr("not the journal of"));
  EXPECT_EQ(ReadFile(path), Noise(kind.file.size(), 3));
  // A journal that was cut off says that nothing had been written.
  for (const size_t bytes : {size_t{0}, size_t{20}, journal.size() / 2, journal.size() - 1}) {
    WriteFile(path, kind.file);
    WriteFile(JournalPath(path),
              Bytes(journal.begin(), journal.begin() + static_cast<std::ptrdiff_t>(bytes)));
    EXPECT_EQ(Recover(path), Recovered::kUntouched);
    EXPECT_EQ(ReadFile(path), kind.file);
    EXPECT_EQ(Recover(path), Recovered::kNothing);
  }
  WriteFile(path, kind.file);
  WriteFile(JournalPath(path), journal);
  EXPECT_EQ(Recover(path), Recovered::kPutBack);
  EXPECT_EQ(ReadFile(path), kind.file);
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace qln::test::mp4
