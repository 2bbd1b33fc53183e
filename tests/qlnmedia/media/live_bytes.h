// Streams that are patched as they come, as bytes: what goes in, what comes out, and what was said.
#ifndef TESTS_QLNMEDIA_MEDIA_LIVE_BYTES_H
#define TESTS_QLNMEDIA_MEDIA_LIVE_BYTES_H

#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "qlnmedia/media/caption_media.h"

namespace qln::test {

struct LiveResult {
  Bytes out;
  std::string said;
};

// `file` below the tests' folder, of two seconds at 25 pictures a second with a group of pictures each.
inline std::string LiveClip(const std::string& file, const std::string& options = "-map 0:v") {
  return MediaFile(file,
                   "ffmpeg -v error -y -f lavfi -i testsrc2=s=160x112:r=25:d=2 -f lavfi -i sine=d=2 "
                   "-c:v libx264 -preset ultrafast -bf 2 -b_strategy 0 -g 25 " +
                       options + " -threads 1 -pix_fmt yuv420p {out}");
}

// `reader` stands between the bytes and the pipe, as "cat".
inline LiveResult PatchedLive(const Bytes& in, const std::string& options,
                              const std::string& reader = "cat") {
  const std::string from = MediaPath("live_bytes_in"), to = MediaPath("live_bytes_out");
  WriteFile(from, in);
  const CommandResult result = Run(
      reader + " < '" + from + "' | '" + QLNMEDIA_PROGRAM + "' patch - - " + options + " > '" + to + "'", 60);
  EXPECT_EQ(result.exitCode, 0) << result.output;
  return {ReadFile(to), result.output};
}

inline void Append(Bytes& to, const Bytes& more) { to.insert(to.end(), more.begin(), more.end()); }

// The units behind start codes, without zeros behind them.
inline std::vector<Bytes> UnitsIn(const Bytes& stream) {
  std::vector<Bytes> units;
  size_t begin = 0;
  for (size_t i = 0; i + 3 <= stream.size() + 3; ++i) {
    const bool code = i + 3 <= stream.size() && stream[i] == 0 && stream[i + 1] == 0 && stream[i + 2] == 1;
    if (!code && i != stream.size()) continue;
    if (begin != 0) {
      Bytes unit(stream.begin() + static_cast<std::ptrdiff_t>(begin),
                 stream.begin() + static_cast<std::ptrdiff_t>(i));
      while (!unit.empty() && unit.back() == 0) unit.pop_back();
      units.push_back(unit);
    }
    begin = i + 3;
  }
  return units;
}

// Those of H.264 that hold slices.
inline std::vector<Bytes> SlicesIn(const Bytes& stream) {
  std::vector<Bytes> slices;
  for (const Bytes& unit : UnitsIn(stream)) {
    const int type = unit.empty() ? 0 : unit[0] & 0x1F;
    if (type == 1 || type == 5) slices.push_back(unit);
  }
  return slices;
}

// What a transport stream holds of the elementary streams of these identifiers (ISO/IEC 13818-1
// clauses 2.4.3.2 and 2.4.3.6).
inline Bytes ElementaryBytes(const Bytes& stream, const std::set<int>& identifiers) {
  Bytes all;
  for (size_t at = 0; at + 188 <= stream.size(); at += 188) {
    const uint8_t* const packet = stream.data() + at;
    if (packet[0] != 0x47 || (packet[3] & 0x10) == 0) continue;
    if (identifiers.count((packet[1] & 0x1F) << 8 | packet[2]) == 0) continue;
    size_t begin = (packet[3] & 0x20) != 0 ? size_t{5} + packet[4] : 4;
    if ((packet[1] & 0x40) != 0) begin += size_t{9} + packet[begin + 8];
    all.insert(all.end(), packet + begin, packet + 188);
  }
  return all;
}

}  // namespace qln::test

#endif
