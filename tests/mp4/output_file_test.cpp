// Outputs appear whole or not at all.
#include "container/mp4/output_file.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "mp4/carry.h"
#include "mp4/list_file.h"
#include "qlnmedia/progress.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qln::test::mp4 {
namespace {

using testing::HasSubstr;
using namespace qlnmedia::mp4;

// Two tracks, one with chunks that are long enough to be copied by the system.
Bytes LongFile() {
  TrackSpec one;
  for (uint32_t i = 0; i < 12; ++i) one.samples.push_back(Noise(3000 + i, i));
  TrackSpec two;
  two.id = 2;
  two.samples = {Noise(400000, 1), Noise(300000, 2), Noise(5, 3), Noise(1200000, 4)};
  return BuildMovie({.tracks = {one, two}});
}

std::string Folder() {
  const std::string folder = MediaPath("mp4-output-" + std::to_string(getpid()));
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  return folder;
}

size_t FilesIn(const std::string& folder) {
  size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
  return count;
}

// Copies nothing inside the system, or fails one call.
class TestDisk final : public Disk {
 public:
  bool copies = true;
  int failing = -1;  // the call that fails
  int calls = 0;
  ssize_t Write(int descriptor, ByteSpan bytes, uint64_t at) override {
    return Fails() ? -1 : Disk::Write(descriptor, bytes, at);
  }
  ssize_t CopyRange(int from, uint64_t at, int to, uint64_t toAt, size_t bytes) override {
    if (!copies) {
      errno = EXDEV;
      return -1;
    }
    // Short counts are usual.
    return Fails() ? -1 : Disk::CopyRange(from, at, to, toAt, std::min<size_t>(bytes, 100000));
  }
  int Flush(int descriptor) override { return Fails() ? -1 : Disk::Flush(descriptor); }
  int Rename(const std::string& from, const std::string& to) override {
    return Fails() ? -1 : Disk::Rename(from, to);
  }

 private:
  bool Fails() {
    errno = EIO;
    return calls++ == failing;
  }
};

TEST(OutputFile, IsTheSameHoweverItIsCopied) {
  const std::string folder = Folder();
  const Bytes input = LongFile();
  WriteFile(folder + "/in.mp4", input);
  for (const bool copies : {true, false}) {
    const FileSource source(folder + "/in.mp4");
    CarrierOptions options;
    options.scratchFolder = folder;
    Carrier carrier(source, options);
    FunctionEditor editor(RandomChange(4));
    Change change;
    change.tracks.push_back({.trackId = 1, .samples = &editor});
    carrier.Prepare(change);
    TestDisk disk;
    disk.copies = copies;
    CarryToFile(carrier, folder + "/out.mp4", disk);
    EXPECT_EQ(Compare(input, ReadFile(folder + "/out.mp4"), 1, editor.result), "");
    EXPECT_EQ(FilesIn(folder), 2u);
  }
  std::filesystem::remove_all(folder);
}

TEST(OutputFile, NothingIsLeftBehindWhereItFails) {
  const std::string folder = Folder();
  WriteFile(folder + "/in.mp4", LongFile());
  WriteFile(folder + "/out.mp4", Text("old"));
  for (int call = 0;; ++call) {
    const FileSource source(folder + "/in.mp4");
    Carrier carrier(source);
    FunctionEditor editor(RandomChange(4));
    Change change;
    change.tracks.push_back({.trackId = 1, .samples = &editor});
    carrier.Prepare(change);
    TestDisk disk;
    disk.failing = call;
    const std::string said = Refusal([&] { CarryToFile(carrier, folder + "/out.mp4", disk); });
    EXPECT_EQ(FilesIn(folder), 2u);
    if (said.empty()) break;
    EXPECT_THAT(said, HasSubstr("Input/output error"));
    // The last call flushes the folder, when the file has its name already.
    if (ReadFile(folder + "/out.mp4").size() != 3) continue;
    EXPECT_EQ(ReadFile(folder + "/out.mp4"), Text("old"));
    ASSERT_LT(call, 200);
  }
  EXPECT_GT(ReadFile(folder + "/out.mp4").size(), 3u);
  std::filesystem::remove_all(folder);
}

TEST(OutputFile, NothingIsLeftBehindWhereItIsCancelled) {
  const std::string folder = Folder();
  const Bytes input = LongFile();
  WriteFile(folder + "/in.mp4", input);
  const FileSource source(folder + "/in.mp4");
  Carrier carrier(source);
  FunctionEditor editor(RandomChange(4));
  Change change;
  change.tracks.push_back({.trackId = 1, .samples = &editor});
  change.progress = [](double part) { return part < 0.8; };
  carrier.Prepare(change);
  EXPECT_THROW(CarryToFile(carrier, folder + "/out.mp4"), qlnmedia::Cancelled);
  EXPECT_EQ(FilesIn(folder), 1u);
  change.progress = nullptr;
  // The input may be replaced by its own output.
  CarryToFile(carrier, folder + "/in.mp4");
  EXPECT_EQ(Compare(input, ReadFile(folder + "/in.mp4"), 1, editor.result), "");
  EXPECT_EQ(FilesIn(folder), 1u);
  std::filesystem::remove_all(folder);
}

TEST(OutputFile, FilesThatAreNoneAreNamed) {
  EXPECT_THAT(Refusal([] { FileSource source("/nowhere/at/all.mp4"); }),
              HasSubstr("/nowhere/at/all.mp4: No such file"));
  EXPECT_THAT(Refusal([] { FileSource source("/dev/null"); }), HasSubstr("/dev/null: not a regular file"));
  EXPECT_THAT(Refusal([] { OutputFile out("/nowhere/out.mp4"); }),
              HasSubstr("/nowhere/out.mp4: cannot be written"));
}

}  // namespace
}  // namespace qln::test::mp4
