// What the tests of captions in real streams share: a caption file, sources of every kind, and an independent
// reader's view of the result.
#ifndef TESTS_QLNMEDIA_MEDIA_CAPTION_MEDIA_H
#define TESTS_QLNMEDIA_MEDIA_CAPTION_MEDIA_H

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>

#include "qlnmedia/program.h"

namespace qln::test {

// The pairs show "GOOD MORNING": the first one that does (94 2f) is number 12 from frame 3 on, and frame 30
// takes it down.
inline const char* const kScc =
    "Scenarist_SCC V1.0\n\n01:00:00:03\t94ae 94ae 9420 9420 9470 9470 c74f 4fc4 20cd 4f52 ce49 cec7 942f 942f"
    "\n\n01:00:01:00\t942c 942c\n";

struct Kind {
  const char* name;
  const char* raw;  // name of the raw form
  const char* rate;
  const char* options;
};

inline std::string Text(const std::string& command) {
  const CommandResult result = Run(command);
  EXPECT_EQ(result.exitCode, 0) << command << "\n" << result.output;
  return result.output;
}

inline std::string Write(const std::string& name, const std::string& text) {
  const std::string path = MediaPath(name);
  WriteFile(path, Bytes(text.begin(), text.end()));
  return path;
}

inline std::string Source(const Kind& kind, const std::string& extension) {
  const bool raw = extension == kind.raw;
  return MediaFile(std::string("captions_") + kind.name + "." + extension,
                   std::string("ffmpeg -v error -y -f lavfi -i testsrc2=s=96x64:d=1.5:r=") + kind.rate + " " +
                       (raw ? "" : "-f lavfi -i sine=d=1.5 -c:a aac -b:a 32k ") + kind.options + " {out}");
}

inline std::string Decoded(const std::string& file) {
  return Text("ffmpeg -v error -i '" + file +
              "' -map 0:v -f framemd5 - | grep -v '^#' | awk -F, '{print $NF}'");
}

inline std::string Times(const std::string& file) {
  return Text("ffprobe -v error -show_entries packet=stream_index,pts_time,dts_time,flags -of csv=p=0 '" +
              file + "' | sed 's/side_data.*//; s/,$//' | grep . | sort -s -t, -k1,1n");
}

// Pictures, and pictures with captions, as ffprobe counts them.
inline std::pair<int, int> Counted(const std::string& file) {
  const std::string text = Text("ffprobe -v error -select_streams v -show_frames '" + file + "'");
  const auto count = [&text](const std::string& what) {
    int n = 0;
    for (size_t at = 0; (at = text.find(what, at)) != std::string::npos; ++at) ++n;
    return n;
  };
  return {count("[/FRAME]"), count("ATSC A53 Part 4 Closed Captions")};
}

// The caption triplets that a player gets, in presentation order.
inline std::string Triplets(const std::string& file) {
  return Text("ffmpeg -v error -f lavfi -i 'movie=" + file + "[out+subcc]' -map 0:s -c copy -f md5 -");
}

inline std::string Shown(const std::string& file) {
  return Text("ffmpeg -v error -f lavfi -i 'movie=" + file + "[out+subcc]' -map 0:s -f srt -");
}

inline std::string PatchedName(const Kind& kind, const std::string& extension) {
  return MediaPath(std::string("captions_out_") + kind.name + "." + extension);
}

inline std::string FileText(const std::string& path) {
  const Bytes bytes = ReadFile(path);
  return std::string(bytes.begin(), bytes.end());
}

// The triplets that a player gets, in presentation order, as they stand in its packets.
inline Bytes TripletBytes(const std::string& file) {
  const std::string out = MediaPath("captions_triplets_" + std::to_string(getpid()) + ".bin");
  Text("ffmpeg -v error -y -f lavfi -i 'movie=" + file + "[out+subcc]' -map 0:s -c copy -f data '" + out +
       "'");
  return ReadFile(out);
}

}  // namespace qln::test

#endif
