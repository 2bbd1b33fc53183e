// How much memory patch takes: none for the length of a file, and little for each sample of an MP4.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <vector>

#include "qlnmedia/program.h"

namespace qln::test {
namespace {

// KiB: buffers grow to the largest packets, which come in any order, and of a transport stream the packets of
// all pictures wait whose places are not known yet.
constexpr long kSlack = 10 * 1024;

// Peak resident memory of a patch, in KiB.
long PeakOf(const std::string& in, const std::vector<std::string>& options) {
  std::vector<std::string> words = {QLNMEDIA_PROGRAM, "patch", in};
  words.insert(words.end(), options.begin(), options.end());
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  arguments.push_back(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/null", O_WRONLY), 1);
    execv(arguments[0], arguments.data());
    _exit(127);
  }
  int status = 0;
  rusage usage{};
  wait4(child, &status, 0, &usage);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << in;
  return usage.ru_maxrss;
}

long PeakOfPatch(const std::string& in, const std::string& out, std::vector<std::string> options) {
  options.insert(options.begin(), {out, "--force"});
  const long peak = PeakOf(in, options);
  std::filesystem::remove(out);
  return peak;
}

// A clip whose pictures are large, played over and over, with sound all along.
std::string Looped(const std::string& ending, int loops) {
  const std::string clip =
      MediaFile("memory_noise.mp4",
                "ffmpeg -v error -y -f lavfi -i \"nullsrc=s=640x480:r=25:d=0.6,geq=random(1)*255:128:128\" "
                "-c:v libx264 -preset ultrafast -qp 8 -g 5 -pix_fmt yuv420p {out}");
  const std::string sound = ending == "h264" ? "" : "-f lavfi -i sine -c:a aac -shortest ";
  return MediaFile("memory_" + std::to_string(loops) + "." + ending,
                   "ffmpeg -v error -y -stream_loop " + std::to_string(loops) + " -i '" + clip + "' " +
                       sound + "-c:v copy {out}");
}

class Memory : public testing::TestWithParam<const char*> {};

TEST_P(Memory, DoesNotGrowWithTheFile) {
  const std::string ending = GetParam();
  const std::string small = Looped(ending, 4);
  const std::string large = Looped(ending, 40);
  ASSERT_GT(std::filesystem::file_size(large), 8 * std::filesystem::file_size(small));
  ASSERT_GT(std::filesystem::file_size(large), 80u << 20);
  std::vector<std::string> options = {"--colour", "bt2020-pq", "--hdr", "p3"};
  if (ending != "h264") options.insert(options.end(), {"--timecode", "00:00:00:00"});
  const std::string out = MediaPath("memory_out." + ending);
  EXPECT_LT(PeakOfPatch(large, out, options), PeakOfPatch(small, out, options) + kSlack);
  std::filesystem::remove(large);
}

INSTANTIATE_TEST_SUITE_P(All, Memory, testing::Values("ts", "h264"),
                         [](const auto& test) { return std::string(test.param); });

constexpr int kSamplesOfClip = 1000;
constexpr int kFew = 4;
constexpr int kMany = 104;

// A clip of small pictures, played over and over.
std::string Tiny(int loops) {
  const std::string clip = MediaFile(
      "memory_tiny.mp4",
      "ffmpeg -v error -y -f lavfi -i color=gray:s=64x64:r=100:d=10 -c:v libx264 -preset ultrafast -bf 0 "
      "-pix_fmt yuv420p {out}");
  return MediaFile(
      "memory_tiny_" + std::to_string(loops) + ".mp4",
      "ffmpeg -v error -y -stream_loop " + std::to_string(loops - 1) + " -i '" + clip + "' -c copy {out}");
}

double BytesPerSample(long few, long many) {
  return static_cast<double>(many - few) * 1024 / ((kMany - kFew) * kSamplesOfClip);
}

TEST(Memory, GrowsLittleWithTheSamplesOfAnMp4) {
  const std::string out = MediaPath("memory_out.mp4");
  const std::vector<std::string> options = {"--colour", "bt2020-pq"};
  EXPECT_LT(BytesPerSample(PeakOfPatch(Tiny(kFew), out, options), PeakOfPatch(Tiny(kMany), out, options)),
            300);
}

// Of a change in place nothing is held for a sample that stays, and one place for one that changes.
TEST(Memory, GrowsHardlyWithTheSamplesOfAChangeInPlace) {
  const auto timed = [](int loops) {
    const std::string file = MediaPath("memory_timed_" + std::to_string(loops) + ".mp4");
    PeakOf(Tiny(loops), {file, "--force", "--timecode", "11:10:10:10", "--timecode-type", "60"});
    return file;
  };
  const std::string few = timed(kFew);
  const std::string many = timed(kMany);
  const std::vector<std::string> colour = {"--in-place", "--colour", "bt2020-pq"};
  EXPECT_LT(BytesPerSample(PeakOf(few, colour), PeakOf(many, colour)), 4);
  const std::vector<std::string> timecode = {"--in-place", "--timecode", "13:10:10:10", "--timecode-type",
                                             "60"};
  EXPECT_LT(BytesPerSample(PeakOf(few, timecode), PeakOf(many, timecode)), 40);
  std::filesystem::remove(few);
  std::filesystem::remove(many);
}

}  // namespace
}  // namespace qln::test
