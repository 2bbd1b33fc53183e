// What a command brings into its process: libav comes with the first media file that is opened.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "qlnmedia/program.h"
#include "support/media.h"
#include "support/test_support.h"

namespace qln::test {
namespace {

// Everything that the dynamic linker told about the libraries of a run.
std::string LinkerTold(const std::string& arguments) {
  const std::string folder = MediaPath("loading");
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  Run("XDG_CONFIG_HOME='" + folder + "' LD_DEBUG=files LD_DEBUG_OUTPUT='" + folder +
      "/told' '" QLNMEDIA_PROGRAM "' " + arguments);
  std::string told;
  for (const auto& file : std::filesystem::directory_iterator(folder)) {
    if (file.path().filename().string().rfind("told", 0) != 0) continue;
    const Bytes bytes = ReadFile(file.path().string());
    told.append(bytes.begin(), bytes.end());
  }
  return told;
}

TEST(Loading, CommandsWithoutMediaDoWithoutLibav) {
  for (const char* arguments : {"--help", "--version", "format 1920 1080 25", "format 0x2380B21D --json",
                                "transport --in 0 --out 10 --speed 1 --steps 2", "command stop",
                                "metadata list", "inspect --help", "patch --help"}) {
    const std::string told = LinkerTold(arguments);
    EXPECT_NE(told.find("libqlnmedia.so"), std::string::npos) << arguments;
    EXPECT_EQ(told.find("libav"), std::string::npos) << arguments;
  }
}

// Loading it would take longer than the change.
TEST(Loading, AChangeInPlaceDoesWithoutLibav) {
  const std::string clip =
      MediaFile("loading_clip.mp4",
                "ffmpeg -v error -y -f lavfi -i color=s=64x64:r=25:d=0.2 -f lavfi -i sine=d=0.2 "
                "-c:v libx264 -preset ultrafast -pix_fmt yuv420p -c:a aac {out}");
  const std::string own = MediaPath("loading_own.mp4");
  std::filesystem::copy_file(clip, own, std::filesystem::copy_options::overwrite_existing);
  for (const char* change :
       {"--colour bt2020-pq", "--hdr p3 --dry-run", "--level 4.1", "--colour bt709 --sar 4:3"}) {
    const std::string told = LinkerTold("patch --in-place '" + own + "' " + change);
    EXPECT_NE(told.find("libqlnmedia.so"), std::string::npos) << change;
    EXPECT_EQ(told.find("libav"), std::string::npos) << change;
  }
  EXPECT_NE(ReadFile(own), ReadFile(clip));
  std::filesystem::remove(own);
}

TEST(Loading, AMediaFileBringsLibav) {
  const std::string path = MediaPath("loading_none.mp4");
  WriteFile(path, {0, 0, 0, 16, 'f', 't', 'y', 'p', 'i', 's', 'o', 'm', 0, 0, 0, 0});
  EXPECT_NE(LinkerTold("inspect '" + path + "'").find("libavformat"), std::string::npos);
}

// What libav has to say of a file that does not open is not printed beside the one line that tells the
// failure.
TEST(Loading, LibavKeepsSilent) {
  const std::string path = MediaPath("loading_none.mp4");
  WriteFile(path, {0, 0, 0, 16, 'f', 't', 'y', 'p', 'i', 's', 'o', 'm', 0, 0, 0, 0});
  const CommandResult result = Qlnmedia("inspect '" + path + "'");
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_EQ(result.output,
            "qlnmedia: " + path +
                ": does not open because it is cut off: its index (moov) is missing; copy or record "
                "it again\n");
}

}  // namespace
}  // namespace qln::test
