// Changes in place: where they fit, and what is left when they are cut off.
#include "container/mp4/in_place.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <random>

#include "mp4/carry.h"
#include "mp4/list_file.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;
using Movie = InPlaceResult::Movie;

const Bytes kRecord = Box("avcC", Noise(30, 7));

TrackSpec SomeTrack(const Bytes& entryBoxes = kRecord) {
  TrackSpec track;
  for (uint32_t i = 0; i < 40; ++i) track.samples.push_back(Noise(100 + i, i));
  track.entryBoxes = entryBoxes;
  return track;
}

// Kinds of changes, each to the file that it fits.
struct Kind {
  std::string name;
  Bytes file;
  bool samples = false;  // of equal size
  Bytes record;          // another one, where it is not empty
  Movie movie = Movie::kStays;
};

std::vector<Kind> Kinds() {
  const auto free = [](size_t bytes) { return Box("free", Noise(bytes, 1)); };
  return {
      {"equal samples", BuildMovie({.tracks = {SomeTrack()}}), true, {}, Movie::kStays},
      {"equal record and samples", BuildMovie({.tracks = {SomeTrack()}}), true, Noise(30, 8), Movie::kStays},
      {"into all of the free space", BuildMovie({.tracks = {SomeTrack()}, .behindMoov = free(12)}), false,
       Noise(50, 8), Movie::kGrowsIntoFreeSpace},
      {"into some of two free boxes",
       BuildMovie({.tracks = {SomeTrack()}, .behindMoov = Joined({free(2), free(100)})}), true, Noise(50, 8),
       Movie::kGrowsIntoFreeSpace},
      {"shrinks, and leaves a free box", BuildMovie({.tracks = {SomeTrack()}}), true, Noise(10, 8),
       Movie::kGrowsIntoFreeSpace},
      {"grows at the end", BuildMovie({.tracks = {SomeTrack()}, .moovFirst = false}), true, Noise(77, 8),
       Movie::kGrowsAtTheEnd},
      {"shrinks at the end", BuildMovie({.tracks = {SomeTrack()}, .moovFirst = false}), true, Noise(3, 8),
       Movie::kGrowsAtTheEnd},
      {"moves to the end", BuildMovie({.tracks = {SomeTrack()}}), true, Noise(31, 8), Movie::kMovesToTheEnd},
  };
}

class Wish {
 public:
  explicit Wish(const Kind& kind)
      : editor([](const Sample& sample, const Bytes& bytes) -> std::optional<Bytes> {
          if (sample.number % 5 != 2) return std::nullopt;
          return Noise(bytes.size(), 999);
        }) {
    change.tracks.push_back(
        {.trackId = 1, .samples = kind.samples ? &editor : nullptr, .privateData = {}, .facts = {}});
    if (!kind.record.empty()) change.tracks[0].privateData.push_back({1, FourCc("avcC"), kind.record});
  }
  FunctionEditor editor;
  Change change;
};

std::string PathOf(const std::string& name) {
  return MediaPath("mp4-in-place-" + std::to_string(getpid()) + "-" + name);
}

bool JournalIsThere(const std::string& path) { return std::filesystem::exists(JournalPath(path)); }

// The samples are those wished for, and the movie holds the record.
void ExpectChanged(const Kind& kind, const Bytes& output) {
  const Listing listing = ListFile(output);
  const Listing in = ListFile(kind.file);
  size_t i = 0;
  for (const ListedSample& sample : in.samples.at(1)) {
    const bool changes = kind.samples && i % 5 == 2;
    EXPECT_EQ(listing.samples.at(1).at(i).data, changes ? Noise(sample.data.size(), 999) : sample.data);
    EXPECT_EQ(listing.samples.at(1).at(i).at, sample.at);
    ++i;
  }
  const Bytes record = Box("avcC", kind.record);
  if (!kind.record.empty()) {
    EXPECT_NE(std::search(output.begin(), output.end(), record.begin(), record.end()), output.end());
  }
}

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

// Cuts off after a number of calls, in the middle of a write where it is one.
class KillingDisk final : public Disk {
 public:
  explicit KillingDisk(int calls) : left_(calls) {}
  ssize_t Write(int descriptor, ByteSpan bytes, uint64_t at) override {
    // Small writes, so that there is much to be cut off in between.
    bytes = bytes.first(std::min<size_t>(bytes.size(), 100));
    if (--left_ < 0) {
      Disk::Write(descriptor, bytes.first(bytes.size() / 2), at);
      raise(SIGKILL);
    }
    return Disk::Write(descriptor, bytes, at);
  }
  int Flush(int) override {
    Call();
    return 0;
  }
  int Truncate(int descriptor, uint64_t size) override {
    Call();
    return Disk::Truncate(descriptor, size);
  }
  int Remove(const std::string& path) override {
    Call();
    return Disk::Remove(path);
  }

 private:
  void Call() {
    if (--left_ < 0) raise(SIGKILL);
  }
  int left_;
};

TEST(InPlace, AKillAtAnyMomentLeavesTheOneFileOrTheOther) {
  const char* const wanted = std::getenv("QLN_MP4_KILLS");
  const int kills = wanted == nullptr ? 320 : std::atoi(wanted);
  const auto kinds = Kinds();
  std::vector<Bytes> changed;
  const std::string path = PathOf("killed");
  for (const Kind& kind : kinds) {
    WriteFile(path, kind.file);
    Wish wish(kind);
    ChangeInPlace(path, wish.change);
    changed.push_back(ReadFile(path));
  }
  std::mt19937 random(24);
  int killed = 0;
  int put = 0;
  for (int tries = 0; killed < kills && tries < kills * 4; ++tries) {
    const size_t k = random() % kinds.size();
    WriteFile(path, kinds[k].file);
    const int calls = static_cast<int>(random() % 60);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      try {
        KillingDisk disk(calls);
        Wish wish(kinds[k]);
        ChangeInPlace(path, wish.change, {}, disk);
      } catch (...) {
        _exit(7);
      }
      _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
    if (WIFSIGNALED(status)) ++killed;
    // Every second time the run that puts it back is killed as well.
    if (tries % 2 == 0) {
      const pid_t second = fork();
      if (second == 0) {
        KillingDisk disk(static_cast<int>(random() % 20));
        try {
          Recover(path, disk);
        } catch (...) {
        }
        _exit(0);
      }
      waitpid(second, &status, 0);
    }
    if (Recover(path) == Recovered::kPutBack) ++put;
    const Bytes now = ReadFile(path);
    ASSERT_TRUE(now == kinds[k].file || now == changed[k]) << kinds[k].name << " " << calls;
    ASSERT_FALSE(JournalIsThere(path));
    if (tries % 8 == 0) {
      Wish wish(kinds[k]);
      ChangeInPlace(path, wish.change);
      ASSERT_EQ(ReadFile(path), changed[k]);
    }
  }
  EXPECT_EQ(killed, kills);
  EXPECT_GT(put, kills / 10);
  std::filesystem::remove(path);
}

// Each call fails once, in turn.
class FailingDisk final : public Disk {
 public:
  explicit FailingDisk(int call) : left_(call) {}
  ssize_t Write(int descriptor, ByteSpan bytes, uint64_t at) override {
    bytes = bytes.first(std::min<size_t>(bytes.size(), 500));
    return Fails() ? -1 : Disk::Write(descriptor, bytes, at);
  }
  int Flush(int) override { return Fails() ? -1 : 0; }
  int Truncate(int descriptor, uint64_t size) override {
    return Fails() ? -1 : Disk::Truncate(descriptor, size);
  }
  int Remove(const std::string& path) override { return Fails() ? -1 : Disk::Remove(path); }
  bool failed() const { return left_ < 0; }

 private:
  bool Fails() {
    if (left_-- != 0) return false;
    errno = EIO;
    return true;
  }
  int left_;
};

TEST(InPlace, EachCallThatFailsLeavesTheOneFileOrTheOther) {
  const std::string path = PathOf("failing");
  for (const Kind& kind : Kinds()) {
    SCOPED_TRACE(kind.name);
    WriteFile(path, kind.file);
    Wish once(kind);
    ChangeInPlace(path, once.change);
    const Bytes changed = ReadFile(path);
    for (int call = 0;; ++call) {
      WriteFile(path, kind.file);
      FailingDisk disk(call);
      Wish wish(kind);
      const std::string said = Refusal([&] { ChangeInPlace(path, wish.change, {}, disk); });
      if (!disk.failed()) break;
      EXPECT_THAT(said, HasSubstr("Input/output error"));
      Recover(path);
      // Behind the last flush of the file the change is done, whatever becomes of the journal's name.
      const Bytes now = ReadFile(path);
      ASSERT_TRUE(now == kind.file || (now == changed && said.find(": cannot flush") != std::string::npos))
          << call;
      ASSERT_FALSE(JournalIsThere(path));
      ASSERT_LT(call, 1000);
    }
  }
  std::filesystem::remove(path);
}

struct PowerCut {};

// What is not flushed is not on disk: when the power goes, any part of it may be, in any order.
class PoweredDisk final : public Disk {
 public:
  PoweredDisk(int calls, uint32_t seed, std::string path)
      : left_(calls), random_(seed), path_(std::move(path)) {}

  ssize_t Write(int descriptor, ByteSpan bytes, uint64_t at) override {
    Call();
    bytes = bytes.first(std::min<size_t>(bytes.size(), 512));
    pending_.push_back({NameOf(descriptor), Bytes(bytes.begin(), bytes.end()), at, false});
    return static_cast<ssize_t>(bytes.size());
  }
  int Truncate(int descriptor, uint64_t size) override {
    Call();
    pending_.push_back({NameOf(descriptor), {}, size, true});
    return 0;
  }
  int Flush(int descriptor) override {
    Call();
    const std::string name = NameOf(descriptor);
    struct stat status = {};
    fstat(descriptor, &status);
    if (S_ISDIR(status.st_mode)) {
      journalNamed_ = true;
      if (removed_) Disk::Remove(JournalPath(path_));
      removed_ = false;
    }
    for (const Pending& one : pending_) {
      if (one.file == name) Apply(one);
    }
    std::erase_if(pending_, [&](const Pending& one) { return one.file == name; });
    return 0;
  }
  int Remove(const std::string&) override {
    Call();
    removed_ = true;
    return 0;
  }

 private:
  struct Pending {
    std::string file;
    Bytes bytes;
    uint64_t at;
    bool truncates;
  };

  static std::string NameOf(int descriptor) {
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor)).string();
  }
  static void Apply(const Pending& one) {
    const int file = open(one.file.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0) return;
    if (one.truncates) {
      EXPECT_EQ(ftruncate(file, static_cast<off_t>(one.at)), 0);
    } else {
      EXPECT_EQ(pwrite(file, one.bytes.data(), one.bytes.size(), static_cast<off_t>(one.at)),
                static_cast<ssize_t>(one.bytes.size()));
    }
    close(file);
  }
  void Call() {
    if (left_-- != 0) return;
    std::shuffle(pending_.begin(), pending_.end(), random_);
    for (Pending& one : pending_) {
      const auto fate = random_() % 3;
      if (fate == 0) continue;
      if (fate == 1) one.bytes.resize(one.bytes.size() / 2);
      Apply(one);
    }
    if (removed_ && random_() % 2 == 0) Disk::Remove(JournalPath(path_));
    if (!journalNamed_ && random_() % 2 == 0) Disk::Remove(JournalPath(path_));
    throw PowerCut{};
  }

  int left_;
  std::mt19937 random_;
  std::string path_;
  std::vector<Pending> pending_;
  bool journalNamed_ = false;
  bool removed_ = false;
};

TEST(InPlace, APowerCutAtAnyMomentLeavesTheOneFileOrTheOther) {
  const std::string path = PathOf("powerless");
  int cuts = 0;
  for (const Kind& kind : Kinds()) {
    SCOPED_TRACE(kind.name);
    WriteFile(path, kind.file);
    Wish once(kind);
    ChangeInPlace(path, once.change);
    const Bytes changed = ReadFile(path);
    for (uint32_t seed = 0; seed < 5; ++seed) {
      bool cut = true;
      for (int call = 0; cut; ++call) {
        WriteFile(path, kind.file);
        std::filesystem::remove(JournalPath(path));
        cut = false;
        try {
          PoweredDisk disk(call, seed, path);
          Wish wish(kind);
          ChangeInPlace(path, wish.change, {}, disk);
        } catch (const PowerCut&) {
          cut = true;
          ++cuts;
        }
        Recover(path);
        const Bytes now = ReadFile(path);
        ASSERT_TRUE(now == kind.file || now == changed) << call << " " << seed;
      }
    }
  }
  EXPECT_GT(cuts, 300);
  std::filesystem::remove(path);
}

}  // namespace
}  // namespace qln::test::mp4
