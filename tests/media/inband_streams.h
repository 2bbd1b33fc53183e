// Tiny all-intra streams, picture by picture in either form, for tests that put metadata into them.
#ifndef TESTS_MEDIA_INBAND_STREAMS_H
#define TESTS_MEDIA_INBAND_STREAMS_H

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "inband/test_frame.h"
#include "qlnutil/qlnh264.h"
#include "support/media.h"

namespace qln::test {

inline constexpr uint32_t kHevc = 0x68766331;
inline constexpr uint32_t kAvc = 0x61766331;

inline const std::string kTinySource =
    "ffmpeg -v error -y -f lavfi -i testsrc=s=128x96:r=25 -frames:v 4 -pix_fmt ";

// All intra, delimiters and parameter sets in every picture, without SEI. parameters: more of the encoder's,
// with a colon in front.
inline std::string AvcStream(const std::string& name = "inband.264", const std::string& format = "yuv420p",
                             const std::string& parameters = "") {
  return MediaFile(name, kTinySource + format +
                             " -c:v libx264 -threads 1 -x264-params "
                             "pic-struct=1:keyint=1:bframes=0:aud=1" +
                             parameters +
                             " -bsf:v filter_units=remove_types=6 "
                             "-f h264 {out}");
}

inline std::string HevcStream(const std::string& name, const std::string& format,
                              const std::string& parameters) {
  return MediaFile(name, kTinySource + format +
                             " -c:v libx265 -x265-params 'log-level=none:pools=1:frame-threads=1:"
                             "repeat-headers=1:aud=1:info=0:keyint=1:" +
                             parameters + "' -f hevc {out}");
}

// The pictures of a stream with delimiters, each as its units.
inline std::vector<std::vector<Bytes>> Pictures(const std::string& path, bool hevc) {
  std::vector<std::vector<Bytes>> pictures;
  for (const Bytes& unit : SplitByteStream(ReadFile(path))) {
    const bool delimiter = hevc ? unit[0] == 0x46 : unit[0] == 0x09;
    if (delimiter || pictures.empty()) pictures.emplace_back();
    pictures.back().push_back(unit);
  }
  EXPECT_EQ(pictures.size(), 4u);
  return pictures;
}

inline Bytes InForm(const std::vector<Bytes>& units, bool lengths) {
  Bytes bytes;
  for (const Bytes& unit : units) bytes = Join({bytes, lengths ? WithLength(unit) : WithStartCode(unit)});
  return bytes;
}

// Runs `edit` on every picture of a stream, in either form, and writes the stream that comes out, with start
// codes.
inline std::string Edit(const std::string& path, bool hevc, bool lengths, const std::string& name,
                        const std::function<void(DFrame*, uint32_t)>& edit) {
  Bytes out;
  uint32_t index = 0;
  for (const std::vector<Bytes>& units : Pictures(path, hevc)) {
    const Bytes bytes = InForm(units, lengths);
    TestFrame frame(bytes, bytes.size() + 1000);
    edit(frame.get(), index++);
    if (lengths) {
      EXPECT_EQ(qlnUtilh264SizeToMarker(frame->frameData, frame->frameSize), frame->frameSize);
    }
    out = Join({out, frame.bytes()});
  }
  const std::string written = MediaPath(name);
  WriteFile(written, out);
  return written;
}

inline std::string Probe(const std::string& path, const std::string& what) {
  return Run("ffprobe -v error " + what + " -of default=nw=1 '" + path + "'").output;
}

inline size_t Count(const std::string& text, const std::string& piece) {
  size_t count = 0;
  for (size_t at = 0; (at = text.find(piece, at)) != std::string::npos; at += piece.size()) ++count;
  return count;
}

inline std::string FrameHashes(const std::string& path) {
  const CommandResult result = Run("ffmpeg -v error -i '" + path + "' -f framemd5 - | grep -v '^#'");
  EXPECT_EQ(result.exitCode, 0);
  return result.output;
}

}  // namespace qln::test

#endif
