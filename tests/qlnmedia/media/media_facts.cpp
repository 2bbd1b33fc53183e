// Asks ffmpeg and ffprobe.

#include "qlnmedia/media/media_facts.h"

#include <gtest/gtest.h>

#include "support/media.h"

namespace qln::test {

std::string Text(const std::string& command) {
  const CommandResult result = Run(command);
  EXPECT_EQ(result.exitCode, 0) << command << "\n" << result.output;
  return result.output;
}

std::string Decoded(const std::string& file) {
  return Text("ffmpeg -v fatal -i '" + file +
              "' -map 0:v -f framemd5 - | grep -v '^#' | awk -F, '{print $NF}'");
}

// The bytes of every coded slice unit.
std::string Slices(const std::string& file, const std::string& codec) {
  return Text("ffmpeg -v error -i '" + file + "' -map 0:v -c copy -bsf:v " + codec + "_mp4toannexb" +
              ",filter_units=pass_types=" + (codec == "h264" ? "1-5" : "0-31") + " -f md5 -");
}

// Times of every packet, stream by stream.
std::string Times(const std::string& file) {
  return Text("ffprobe -v error -show_entries packet=stream_index,pts_time,dts_time,flags -of csv=p=0 '" +
              file + "' | sed 's/side_data.*//; s/,$//' | grep . | sort -s -t, -k1,1n");
}

std::string OtherStreams(const std::string& file) {
  return Text("ffmpeg -v error -i '" + file + "' -map 0 -map -0:v -c copy -f streamhash - | sort");
}

// A stream of a program is listed twice.
std::string Stream(const std::string& file, const std::string& entries) {
  return Text("ffprobe -v error -select_streams v:0 -show_entries stream=" + entries + " -of default=nw=1 '" +
              file + "' | awk '!seen[$0]++'");
}

std::string Timecodes(const std::string& file) {
  return Text("ffprobe -v error -select_streams v:0 -show_frames '" + file +
              "' | grep -aE '^(TAG:)?timecode=' | sed 's/.*timecode=//' | awk '!seen[$0]++'");
}

}  // namespace qln::test
