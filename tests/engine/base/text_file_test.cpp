// Text files that are whole or not there.

#include "base/text_file.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "base/error.h"

namespace qlnmedia {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class TextFile : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = testing::TempDir() + "textXXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    folder_ = name;
  }
  void TearDown() override { fs::remove_all(folder_); }
  std::string Path(const std::string& name) const { return folder_ / name; }
  size_t Files() const {
    return static_cast<size_t>(std::distance(fs::directory_iterator(folder_), fs::directory_iterator()));
  }
  template <typename Work>
  static std::string Refusal(const Work& work) {
    try {
      work();
    } catch (const Error& error) {
      return error.what();
    }
    return "none";
  }
  fs::path folder_;
};

TEST_F(TextFile, ComesBackAsItWasWritten) {
  const std::string text("first\r\n\0second\xFF", 15);
  WriteTextFile(Path("a.scc"), text);
  EXPECT_EQ(ReadTextFile(Path("a.scc")), text);
  WriteTextFile(Path("a.scc"), "");
  EXPECT_EQ(ReadTextFile(Path("a.scc")), "");
  EXPECT_EQ(Files(), 1u);
}

TEST_F(TextFile, WhatWasThereStaysUntilTheNewOneIsWhole) {
  WriteTextFile(Path("a"), "old");
  {
    TextFileWriter writer(Path("a"));
    writer.Write("half");
    EXPECT_EQ(ReadTextFile(Path("a")), "old");
    EXPECT_EQ(Files(), 2u);
  }
  EXPECT_EQ(ReadTextFile(Path("a")), "old");
  EXPECT_EQ(Files(), 1u);
  TextFileWriter writer(Path("a"));
  writer.Write("ne");
  writer.Write("w");
  writer.Finish();
  EXPECT_EQ(ReadTextFile(Path("a")), "new");
  EXPECT_EQ(Files(), 1u);
}

TEST_F(TextFile, WhatCannotBeReadIsNamed) {
  EXPECT_THAT(Refusal([&] { ReadTextFile(Path("none")); }), HasSubstr("none: No such file"));
  EXPECT_THAT(Refusal([&] { ReadTextFile(folder_); }), HasSubstr("is a directory"));
  // Longer than any caption file; sparse, so that nothing is stored.
  WriteTextFile(Path("long"), "");
  fs::resize_file(Path("long"), (uint64_t{256} << 20) + 1);
  EXPECT_THAT(Refusal([&] { ReadTextFile(Path("long")); }), HasSubstr("too large"));
}

TEST_F(TextFile, WhatCannotBeWrittenIsNamedAndLeavesNothing) {
  EXPECT_THAT(Refusal([&] { WriteTextFile(Path("no/where"), "x"); }),
              HasSubstr("cannot be written: No such"));
  EXPECT_THAT(Refusal([&] { WriteTextFile(folder_, "x"); }), HasSubstr("is no ordinary file"));
  ASSERT_EQ(mkfifo(Path("pipe").c_str(), 0600), 0);
  EXPECT_THAT(Refusal([&] { WriteTextFile(Path("pipe"), "x"); }), HasSubstr("is no ordinary file"));
  EXPECT_EQ(Files(), 1u);
}

// The last bytes reach the disk at the close, which is looked at.
TEST_F(TextFile, AFullDiskIsNoSuccess) {
  if (access("/dev/full", W_OK) != 0) GTEST_SKIP() << "no full device here";
  const std::string place = Path("a");
  const std::string beside = place + "." + std::to_string(getpid()) + ".part";
  TextFileWriter writer(place);
  writer.Write("few");
  // In the place of the file under the writer's hands, so that its descriptor meets a full disk.
  for (int descriptor = 3; descriptor < 64; ++descriptor) {
    std::error_code error;
    if (fs::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error) != beside) continue;
    const int full = open("/dev/full", O_WRONLY);
    ASSERT_GE(dup2(full, descriptor), 0);
    close(full);
  }
  EXPECT_THAT(Refusal([&] { writer.Finish(); }), HasSubstr("No space left"));
  EXPECT_EQ(Files(), 0u);
}

}  // namespace
}  // namespace qlnmedia
