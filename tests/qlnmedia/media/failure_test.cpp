// patch where it cannot do its work: one clear line, a status for scripts, nothing half-written.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <thread>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/program.h"

namespace qln::test {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

std::string Clip(const std::string& ending) {
  return MediaFile("failure." + ending,
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=1 -f lavfi -i sine=d=1 -c:a aac "
                   "-c:v libx264 -threads 1 -pix_fmt yuv420p -g 10 {out}");
}

// A folder of the test's own, empty.
std::string Folder(const std::string& name) {
  const std::string folder = MediaPath("failure_" + name);
  fs::remove_all(folder);
  fs::create_directories(folder);
  return folder;
}

size_t FilesIn(const std::string& folder) {
  return static_cast<size_t>(std::distance(fs::directory_iterator(folder), fs::directory_iterator()));
}

void ExpectOneLine(const CommandResult& result, int exitCode, const std::string& text) {
  EXPECT_EQ(result.exitCode, exitCode) << result.output;
  EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
  EXPECT_THAT(result.output, HasSubstr(text));
}

CommandResult Patch(const std::string& in, const std::string& out,
                    const std::string& options = "--colour bt709") {
  return Qlnmedia("patch '" + in + "' '" + out + "' " + options);
}

class FullDisk : public testing::TestWithParam<const char*> {};

// A limit on the size of a file fails a write where a full disk would; the signal that would end the process
// is ignored by whoever starts it, or by the program itself.
TEST_P(FullDisk, LeavesNothingBehind) {
  const std::string ending = GetParam();
  const std::string in = Clip(ending);
  const std::string folder = Folder("disk_" + ending);
  const std::string old = folder + "/old." + ending;
  WriteFile(old, {1, 2, 3});
  // From the first block on: the header, the packets, the trailer meet the limit.
  const auto blocks = static_cast<int>(fs::file_size(in) / 512 + 1);
  for (int limit = 0; limit < blocks - 1; limit += std::max(1, blocks / 8)) {
    for (const std::string& name : {std::string("new"), std::string("old")}) {
      const CommandResult result =
          test::Run((limit % 2 == 0 ? "trap '' XFSZ; ulimit -f " : "ulimit -f ") + std::to_string(limit) +
                    "; '" QLNMEDIA_PROGRAM "' patch --force '" + in + "' '" + folder + "/" + name + "." +
                    ending + "' --colour bt709");
      ExpectOneLine(result, 1, name + "." + ending + ": ");
      EXPECT_THAT(result.output, HasSubstr("File too large")) << limit;
    }
    EXPECT_EQ(FilesIn(folder), 1u) << limit;
    EXPECT_EQ(ReadFile(old), (Bytes{1, 2, 3}));
  }
}

INSTANTIATE_TEST_SUITE_P(All, FullDisk, testing::Values("mp4", "mov", "mkv", "ts", "h264"),
                         [](const auto& test) { return std::string(test.param); });

// Starts a patch of a long stream, waits until it writes, sends a signal.
class Interrupted : public testing::TestWithParam<int> {};

TEST_P(Interrupted, LeavesNothingHalfWritten) {
  const int signal = GetParam();
  const std::string clip = Clip("h264");
  const std::string folder = Folder("signal_" + std::to_string(signal));
  // So much to do that it is interrupted in the middle.
  const std::string in = folder + "/in.h264";
  const Bytes once = ReadFile(clip);
  Bytes many;
  for (int i = 0; i < 400; ++i) many.insert(many.end(), once.begin(), once.end());
  WriteFile(in, many);
  const std::string out = folder + "/out.h264";
  WriteFile(out, {7, 7, 7});
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::signal(signal, SIG_DFL);  // whoever started the tests may ignore it
    execl(QLNMEDIA_PROGRAM, "qlnmedia", "patch", "--force", in.c_str(), out.c_str(), "--colour", "bt709",
          nullptr);
    _exit(127);
  }
  const auto parts = [&folder] { return FilesIn(folder) > 2; };
  for (int i = 0; i < 2000 && !parts(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_TRUE(parts());
  kill(child, signal);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == signal) << status;
  EXPECT_EQ(FilesIn(folder), 2u);
  EXPECT_EQ(ReadFile(out), (Bytes{7, 7, 7}));
  EXPECT_EQ(fs::file_size(in), many.size());
  fs::remove_all(folder);
}

INSTANTIATE_TEST_SUITE_P(All, Interrupted, testing::Values(SIGINT, SIGTERM, SIGHUP),
                         [](const auto& test) { return "signal" + std::to_string(test.param); });

TEST(Failure, TheInputByAnyNameIsNoOutput) {
  const std::string folder = Folder("same");
  const std::string in = folder + "/in.mp4";
  fs::copy_file(Clip("mp4"), in);
  const Bytes before = ReadFile(in);
  fs::create_hard_link(in, folder + "/hard.mp4");
  fs::create_symlink("in.mp4", folder + "/soft.mp4");
  for (const std::string& out : {in, folder + "/hard.mp4", folder + "/soft.mp4", folder + "/./in.mp4"})
    ExpectOneLine(Patch(in, out), 1, "is the input itself");
  ExpectOneLine(Patch(folder + "/soft.mp4", in), 1, "is the input itself");
  EXPECT_EQ(ReadFile(in), before);
  EXPECT_EQ(FilesIn(folder), 3u);
}

TEST(Failure, OutputsThatCannotBe) {
  const std::string in = Clip("mp4");
  const std::string folder = Folder("places");
  ExpectOneLine(Patch(in, folder + "/none/x.mp4"), 1, "x.mp4: cannot be written: No such file or directory");
  ExpectOneLine(Patch(in, folder), 1, "is no ordinary file");
  ExpectOneLine(Patch(in, "/dev/null"), 1, "is no ordinary file");
  ExpectOneLine(Patch(in, folder + "/" + std::string(300, 'x') + ".mp4"), 1,
                "cannot be written: File name too long");
  EXPECT_EQ(Patch(in, folder + "/" + std::string(250, 'y') + ".mp4").exitCode, 0);
  fs::remove(folder + "/" + std::string(250, 'y') + ".mp4");
  WriteFile(folder + "/file", {1});
  ExpectOneLine(Patch(in, folder + "/file/x.mp4"), 1, "cannot be written: Not a directory");
  if (geteuid() != 0) {
    fs::permissions(folder, fs::perms::owner_read | fs::perms::owner_exec);
    ExpectOneLine(Patch(in, folder + "/x.mp4"), 1, "cannot be written: Permission denied");
    fs::permissions(folder, fs::perms::owner_all);
  }
  EXPECT_EQ(FilesIn(folder), 1u);
}

TEST(Failure, OutputsNamedAsAnotherKindOfContainer) {
  const std::string folder = Folder("kinds");
  struct Case {
    const char* in;
    const char* out;
    const char* text;
  };
  for (const Case& test :
       {Case{"mp4", "x.mkv", "is named as MKV, but the output is MP4 as the input is; name it .mp4"},
        Case{"mp4", "x.MOV", "is named as MOV, but the output is MP4"},
        Case{"mov", "x.mp4", "is named as MP4, but the output is MOV"},
        Case{"mkv", "x.ts", "is named as TS, but the output is MKV"},
        Case{"ts", "x.h264", "is named as raw H.264, but the output is TS"},
        Case{"h264", "x.hevc", "is named as raw HEVC, but the output is raw H.264"}}) {
    ExpectOneLine(Patch(Clip(test.in), folder + "/" + test.out), 1, test.text);
  }
  EXPECT_EQ(FilesIn(folder), 0u);
  // Names that say nothing, and other endings of the same kind.
  for (const char* out : {"plain", "x.bin", "x.m4v", ".mkv"})
    EXPECT_EQ(Patch(Clip("mp4"), folder + "/" + out).exitCode, 0) << out;
  // An input named wrongly is its own excuse.
  fs::copy_file(Clip("mp4"), folder + "/wrong.mov");
  EXPECT_EQ(Patch(folder + "/wrong.mov", folder + "/also.mov").exitCode, 0);
}

TEST(Failure, InputsThatCannotBe) {
  const std::string folder = Folder("inputs");
  const std::string out = folder + "/out.mp4";
  ExpectOneLine(Patch(folder + "/none.mp4", out), 1, "none.mp4: No such file or directory; check the path");
  ExpectOneLine(Patch(folder, out), 1, "is a directory");
  WriteFile(folder + "/empty.mp4", {});
  ExpectOneLine(Patch(folder + "/empty.mp4", out), 1, "is empty");
  WriteFile(folder + "/text.mp4", Bytes(4000, 'x'));
  ExpectOneLine(Patch(folder + "/text.mp4", out), 1, "is no media that can be read");
  const std::string sound =
      MediaFile("failure_sound.m4a", "ffmpeg -v error -y -f lavfi -i sine=d=0.2 -c:a aac {out}");
  ExpectOneLine(Patch(sound, folder + "/out.m4a"), 1, "has no video stream");
  const Bytes whole = ReadFile(Clip("mp4"));
  WriteFile(folder + "/cut.mp4", Bytes(whole.begin(), whole.begin() + 6000));
  ExpectOneLine(Patch(folder + "/cut.mp4", out), 1, "its index (moov) is missing");
  const Bytes stream = ReadFile(Clip("mkv"));
  WriteFile(folder + "/cut.mkv",
            Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(stream.size() / 2)));
  const CommandResult cut = Patch(folder + "/cut.mkv", folder + "/out.mkv");
  EXPECT_EQ(FilesIn(folder), cut.exitCode == 0 ? 5u : 4u) << cut.output;
}

// Streams without an index are patched as far as they go, and it is said that they end early.
TEST(Failure, StreamsThatEndEarlyArePatchedWithAWarning) {
  const std::string folder = Folder("early");
  for (const std::string ending : {"h264", "ts", "mkv"}) {
    const std::string in = Clip(ending);
    const std::string cut = folder + "/cut." + ending;
    const std::string out = folder + "/out." + ending;
    EXPECT_THAT(Patch(in, out).output, testing::Not(HasSubstr("warning")));
    Bytes bytes = ReadFile(in);
    bytes.resize(bytes.size() - 300);
    WriteFile(cut, bytes);
    const CommandResult result = Patch(cut, out, "--verify --colour bt709");
    EXPECT_EQ(result.exitCode, 0) << result.output;
    EXPECT_THAT(result.output, HasSubstr("warning: the file ends early"));
    EXPECT_THAT(result.output, HasSubstr("verified"));
  }
  // Between two elements: the last one of an MKV by ffmpeg is its index.
  Bytes bytes = ReadFile(Clip("mkv"));
  const Bytes cues{0x1C, 0x53, 0xBB, 0x6B};
  bytes.erase(std::find_end(bytes.begin(), bytes.end(), cues.begin(), cues.end()), bytes.end());
  WriteFile(folder + "/no_index.mkv", bytes);
  const CommandResult result =
      Patch(folder + "/no_index.mkv", folder + "/out.mkv", "--force --verify --colour bt709");
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_THAT(result.output, HasSubstr("warning: the file ends early: its segment counts "));
}

TEST(Failure, CommandLinesThatCannotBe) {
  const std::string in = Clip("mp4");
  const std::string folder = Folder("usage");
  ExpectOneLine(Patch(in, folder + "/x.mp4", "--colour bt709 --no-such-option"), 2, "--no-such-option");
  ExpectOneLine(Patch(in, folder + "/x.mp4", "--colour"), 2, "--colour");
  ExpectOneLine(Qlnmedia("patch '" + in + "' --colour bt709"), 2, "OUT");
  ExpectOneLine(Patch(in, folder + "/x.mp4", ""), 1, "nothing to do");
  EXPECT_EQ(FilesIn(folder), 0u);
}

}  // namespace
}  // namespace qln::test
