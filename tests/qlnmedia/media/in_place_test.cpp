// patch --in-place and recover, with the built program.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <random>
#include <thread>

#include "container/mp4/in_place.h"
#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

constexpr const char* kColour = "--colour bt2020-pq --full-range";

std::string Clip(const std::string& name, const std::string& options) {
  return MediaFile(
      "in_place_" + name,
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=1.2 -f lavfi -i sine=d=1.2 -c:a aac "
      "-c:v libx264 -threads 1 -pix_fmt yuv420p -g 10 " +
          options + " {out}");
}

// A copy that a test may change.
std::string Own(const std::string& file) {
  const std::string copy = MediaPath("own_" + fs::path(file).filename().string());
  fs::copy_file(file, copy, fs::copy_options::overwrite_existing);
  fs::remove(qlnmedia::mp4::JournalPath(copy));
  return copy;
}

CommandResult InPlace(const std::string& file, const std::string& options) {
  return Qlnmedia("patch --in-place '" + file + "' " + options);
}

bool HasJournal(const std::string& file) { return fs::exists(file + ".qlnmedia-journal"); }

TEST(InPlaceCommand, GivesWhatAPatchIntoAnotherFileGives) {
  const std::pair<std::string, const char*> kinds[] = {
      {Clip("behind.mp4", ""), "stands behind"},
      {Clip("front.mp4", "-movflags +faststart"), "the index (moov) stands at the end now"},
      {Clip("room.mp4", "-moov_size 20000"), "free space behind it"},
      {Clip("behind.mov", ""), ""},
  };
  for (const auto& [in, where] : kinds) {
    SCOPED_TRACE(in);
    const std::string file = Own(in);
    const CommandResult result = InPlace(file, std::string("--verify ") + kColour);
    ASSERT_EQ(result.exitCode, 0) << result.output;
    EXPECT_THAT(result.output, HasSubstr("in place: "));
    EXPECT_THAT(result.output, HasSubstr("verified: "));
    if (std::string(where) != "stands behind") {
      EXPECT_THAT(result.output, HasSubstr(where));
    }
    EXPECT_FALSE(HasJournal(file));
    EXPECT_EQ(Times(file), Times(in));
    EXPECT_EQ(Decoded(file), Decoded(in));
    EXPECT_EQ(OtherStreams(file), OtherStreams(in));
    EXPECT_EQ(Stream(file, "color_range,color_transfer"), "color_range=pc\ncolor_transfer=smpte2084\n");
    const Bytes once = ReadFile(file);
    EXPECT_THAT(InPlace(file, kColour).output, HasSubstr("in place: nothing to write"));
    EXPECT_EQ(ReadFile(file), once);
    // Where nothing grows, both ways give the same bytes.
    const std::string other = MediaPath("in_place_other_" + fs::path(in).filename().string());
    ASSERT_EQ(Qlnmedia("patch '" + file + "' '" + other + "' --colour bt2020-hlg").exitCode, 0);
    const CommandResult equal = InPlace(file, "--colour bt2020-hlg");
    ASSERT_EQ(equal.exitCode, 0) << equal.output;
    EXPECT_EQ(ReadFile(file), ReadFile(other));
  }
}

TEST(InPlaceCommand, WhatDoesNotFitIsRefusedWithTheMissingBytes) {
  const std::string in = Clip("behind.mp4", "");
  const std::string file = Own(in);
  // 6 bytes a delimiter in each of 30 pictures.
  const CommandResult result = InPlace(file, "--delimiters");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_THAT(result.output,
              HasSubstr("own_in_place_behind.mp4: the change does not fit in place: 180 bytes are "
                        "missing; write it to another file"));
  EXPECT_EQ(InPlace(file, "--timecode 01:00:00:00").exitCode, 1);
  EXPECT_EQ(ReadFile(file), ReadFile(in));
  EXPECT_FALSE(HasJournal(file));
  // Messages of equal size fit: those of a file that has them.
  const std::string timed = MediaPath("in_place_timed.mp4");
  ASSERT_EQ(Qlnmedia("patch '" + in + "' '" + timed + "' --timecode 10:20:30:00").exitCode, 0);
  const CommandResult again = InPlace(timed, "--verify --timecode 12:34:50:00");
  EXPECT_EQ(again.exitCode, 0) << again.output;
  EXPECT_EQ(Timecodes(timed).substr(0, 12), "12:34:50:00\n");
  EXPECT_EQ(Decoded(timed), Decoded(in));
}

TEST(InPlaceCommand, SaysWhatItTakes) {
  const std::string in = Clip("behind.mp4", "");
  const std::string file = Own(in);
  EXPECT_EQ(Qlnmedia("patch '" + file + "' '" + MediaPath("none.mp4") + "' --in-place --delimiters").exitCode,
            2);
  EXPECT_THAT(Qlnmedia("patch '" + file + "' --delimiters").output, HasSubstr("OUT is required"));
  const CommandResult dry = InPlace(file, std::string("--dry-run ") + kColour);
  EXPECT_EQ(dry.exitCode, 0);
  EXPECT_THAT(dry.output, HasSubstr("would: in place: "));
  EXPECT_EQ(InPlace(file, "--dry-run --delimiters").exitCode, 1);
  EXPECT_EQ(ReadFile(file), ReadFile(in));
  const std::string mkv = MediaFile("in_place.mkv", "ffmpeg -v error -y -i '" + in + "' -c copy {out}");
  const Bytes before = ReadFile(mkv);
  EXPECT_THAT(InPlace(mkv, kColour).output, HasSubstr("in_place.mkv: not an MP4 or MOV file"));
  EXPECT_EQ(ReadFile(mkv), before);
  EXPECT_THAT(InPlace("/no/such/file.mp4", kColour).output, HasSubstr("file.mp4: No such file or directory"));
  EXPECT_THAT(Qlnmedia("recover /no/such/file.mp4").output, HasSubstr("file.mp4: No such file or directory"));
  EXPECT_EQ(Qlnmedia("recover '" + file + "'").output, "nothing to recover\n");
}

// Ends the process behind a number of writes to the file itself.
class EndingDisk final : public qlnmedia::mp4::Disk {
 public:
  explicit EndingDisk(int writes) : left_(writes) {}
  ssize_t Write(int descriptor, qlnmedia::mp4::ByteSpan bytes, uint64_t at) override {
    if (left_-- == 0) raise(SIGKILL);
    return Disk::Write(descriptor, bytes.first(std::min<size_t>(bytes.size(), 400)), at);
  }

 private:
  int left_;
};

// Another box is added, so that the index grows, and the change is cut off behind `writes` writes.
void CutOff(const std::string& file, int writes) {
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    EndingDisk disk(writes);
    qlnmedia::mp4::Change change;
    change.tracks.push_back({.trackId = 1});
    change.tracks[0].facts.lightLevel = {1000, 400};
    qlnmedia::mp4::ChangeInPlace(file, change, {}, disk);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
}

TEST(InPlaceCommand, ALeftoverJournalIsSeenByEveryCommandThatWrites) {
  const std::string in = Clip("behind.mp4", "");
  const Bytes before = ReadFile(in);
  const std::string once = Own(in);
  ASSERT_EQ(InPlace(once, kColour).exitCode, 0);
  const Bytes clean = ReadFile(once);
  bool overwritten = false;
  bool untouched = false;
  for (int writes = 1; writes < 30; writes += 3) {
    const std::string file = Own(in);
    CutOff(file, writes);
    if (!HasJournal(file)) continue;
    const bool changed = ReadFile(file) != before;
    overwritten = overwritten || changed;
    untouched = untouched || !changed;
    const Bytes cut = ReadFile(file);
    const std::string out = MediaPath("in_place_none.mp4");
    const CommandResult copy = Qlnmedia("patch '" + file + "' '" + out + "' --delimiters");
    EXPECT_EQ(copy.exitCode, 1);
    EXPECT_FALSE(fs::exists(out));
    const CommandResult dry = InPlace(file, std::string("--dry-run ") + kColour);
    EXPECT_EQ(dry.exitCode, 1);
    EXPECT_THAT(dry.output, HasSubstr("a change of it was cut off; qlnmedia recover puts it back as it was"));
    EXPECT_EQ(ReadFile(file), cut);
    if (writes % 2 == 0) {
      const CommandResult recovered = Qlnmedia("recover '" + file + "'");
      EXPECT_EQ(recovered.exitCode, 0);
      EXPECT_THAT(recovered.output,
                  HasSubstr(changed ? "the file is as it was before the change\n" : "change"));
      EXPECT_EQ(ReadFile(file), before);
      EXPECT_EQ(Qlnmedia("recover '" + file + "'").output, "nothing to recover\n");
    } else {
      // The next run recovers by itself.
      const CommandResult next = InPlace(file, std::string("--verify ") + kColour);
      EXPECT_EQ(next.exitCode, 0) << next.output;
      EXPECT_EQ(Decoded(file), Decoded(in));
      EXPECT_EQ(ReadFile(file), clean);
    }
    EXPECT_FALSE(HasJournal(file));
  }
  EXPECT_TRUE(overwritten);
  EXPECT_TRUE(untouched);
}

TEST(InPlaceCommand, AKillDuringItLeavesTheOneFileOrTheOther) {
  const std::string in = Clip("front.mp4", "-movflags +faststart");
  const Bytes before = ReadFile(in);
  const std::string done = Own(in);
  ASSERT_EQ(InPlace(done, kColour).exitCode, 0);
  const Bytes after = ReadFile(done);
  std::mt19937 random(11);
  for (int run = 0; run < 40; ++run) {
    const std::string file = Own(in);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      fclose(stdout);
      execl(QLNMEDIA_PROGRAM, "qlnmedia", "patch", "--in-place", file.c_str(), "--colour", "bt2020-pq",
            "--full-range", nullptr);
      _exit(127);
    }
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 60000));
    kill(child, run % 2 == 0 ? SIGKILL : SIGTERM);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_EQ(Qlnmedia("recover '" + file + "'").exitCode, 0);
    const Bytes now = ReadFile(file);
    EXPECT_TRUE(now == before || now == after) << run;
    EXPECT_FALSE(HasJournal(file));
  }
}

// A limit on the size of files fails a write where a full disk would.
TEST(InPlaceCommand, AFullDiskLeavesTheFileAsItWas) {
  const std::string in = Clip("front.mp4", "-movflags +faststart");
  const Bytes before = ReadFile(in);
  const auto blocks = static_cast<int>(fs::file_size(in) / 512);
  for (const int limit : {0, 1, 4, blocks - 1, blocks + 1}) {
    const std::string file = Own(in);
    const CommandResult result =
        test::Run("ulimit -f " + std::to_string(limit) + "; '" QLNMEDIA_PROGRAM "' patch --in-place '" +
                  file + "' " + kColour);
    EXPECT_EQ(result.exitCode, 1) << limit << result.output;
    EXPECT_THAT(result.output, HasSubstr("File too large"));
    EXPECT_EQ(ReadFile(file), before) << limit;
    EXPECT_FALSE(HasJournal(file)) << limit;
  }
}

}  // namespace
}  // namespace qln::test
