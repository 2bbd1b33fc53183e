// Changes in place that are cut off: by a kill, a call that fails, or the power.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <random>

#include "mp4/in_place_kinds.h"
#include "support/sanitizers.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;

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

TEST(CutOff, AKillAtAnyMomentLeavesTheOneFileOrTheOther) {
  const char* const wanted = std::getenv("QLN_MP4_KILLS");
#ifdef QLN_ADDRESS_SANITIZER
  constexpr int kKills = 80;  // a process of that size is slow to fork
#else
  constexpr int kKills = 320;
#endif
  const int kills = wanted == nullptr ? kKills : std::atoi(wanted);
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

TEST(CutOff, EachCallThatFailsLeavesTheOneFileOrTheOther) {
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

TEST(CutOff, APowerCutAtAnyMomentLeavesTheOneFileOrTheOther) {
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
