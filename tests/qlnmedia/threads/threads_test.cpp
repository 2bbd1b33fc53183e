// Eight threads that inspect, check, patch and extract at once get what one alone gets.

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "qlnmedia/captions.h"
#include "qlnmedia/check.h"
#include "qlnmedia/inspect.h"
#include "qlnmedia/patch.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

struct Outcome {
  std::string report;
  size_t findings = 0;
  std::vector<std::string> lines;
  Bytes patched;
  std::string refusal;
  friend bool operator==(const Outcome&, const Outcome&) = default;
};

Outcome WorkOn(const std::string& clip, const std::string& out) {
  Outcome outcome;
  outcome.report = qlnmedia::InspectFile(clip).ToJson();
  outcome.findings = qlnmedia::CheckFile(clip).size();
  qlnmedia::PatchOptions patch;
  patch.in = clip;
  patch.out = out;
  patch.timecode = "10:00:00:00";
  patch.colour = qlnmedia::ColourCodes{9, 16, 9};
  patch.verify = true;
  outcome.lines = qlnmedia::PatchFile(patch).lines;
  outcome.patched = ReadFile(out);
  try {
    qlnmedia::ReadFileCaptions(clip);
  } catch (const qlnmedia::Error& error) {
    outcome.refusal = error.what();
  }
  return outcome;
}

TEST(Threads, RunsDoNotMeet) {
  const std::string pictures =
      "ffmpeg -v error -y -f lavfi -i testsrc2=s=128x96:r=25:d=0.4 -pix_fmt yuv420p ";
  const std::vector<std::string> clips = {
      MediaFile("threads_avc.mp4", pictures + "-c:v libx264 -threads 1 {out}"),
      MediaFile("threads_hevc.mkv", pictures + "-c:v libx265 -x265-params pools=1:log-level=none {out}"),
      MediaFile("threads_raw.h264", pictures + "-c:v libx264 -threads 1 {out}"),
      MediaFile("threads_avc.ts", pictures + "-c:v libx264 -threads 1 {out}"),
  };
  const auto outOf = [&](size_t i) {
    const std::string& clip = clips[i % clips.size()];
    return MediaPath("threads_" + std::to_string(i) + clip.substr(clip.rfind('.')));
  };
  constexpr size_t kThreads = 8;
  std::vector<Outcome> alone(kThreads), together(kThreads);
  for (size_t i = 0; i < kThreads; ++i) alone[i] = WorkOn(clips[i % clips.size()], outOf(i));
  std::vector<std::thread> threads;
  for (size_t i = 0; i < kThreads; ++i) {
    threads.emplace_back([&, i] {
      for (int round = 0; round < 3; ++round) together[i] = WorkOn(clips[i % clips.size()], outOf(i));
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (size_t i = 0; i < kThreads; ++i) {
    EXPECT_EQ(together[i].report, alone[i].report) << i;
    EXPECT_TRUE(together[i] == alone[i]) << i;
  }
}

}  // namespace
}  // namespace qln::test
