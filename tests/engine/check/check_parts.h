// Streams and parameter sets made by hand, for tests of single checks.
#ifndef TESTS_ENGINE_CHECK_CHECK_PARTS_H
#define TESTS_ENGINE_CHECK_CHECK_PARTS_H

#include <string>
#include <vector>

#include "check/finding_list.h"
#include "container/media_stream.h"
#include "support/test_support.h"
#include "units/units.h"

namespace qlnmedia::test {

// An H.264 SPS of Main profile, level 3.1, 128 x 96 frames, with a VUI of video signal type and timing.
struct SpsParts {
  int profile = 77;
  int level = 31;
  bool frameMbsOnly = true;
  int primaries = 1;
  int transfer = 1;
  int matrix = 1;
  bool fullRange = false;
  uint32_t numUnitsInTick = 1;
  uint32_t timeScale = 50;
  bool fixedRate = true;
  int aspect = 1;  // aspect_ratio_idc
  bool gapsAllowed = false;
};

inline Bytes MakeSps(const SpsParts& parts = {}) {
  const auto code = [](int value) { return static_cast<uint64_t>(value); };
  qln::test::BitBuilder bits;
  bits.u(8, 0x67).u(8, code(parts.profile)).u(8, 0).u(8, code(parts.level)).ue(0);
  bits.ue(0).ue(0).ue(2).ue(1).u(1, parts.gapsAllowed);  // frame_num of 4 bits, POC type 0, lsb of 6 bits
  bits.ue(7).ue(parts.frameMbsOnly ? 5 : 2).u(1, parts.frameMbsOnly);
  if (!parts.frameMbsOnly) bits.u(1, 0);
  bits.u(1, 1).u(1, 0);                   // direct_8x8_inference_flag, no cropping
  bits.u(1, 1);                           // VUI
  bits.u(1, 1).u(8, code(parts.aspect));  // aspect_ratio_idc
  bits.u(1, 0);                           // overscan
  bits.u(1, 1).u(3, 5).u(1, parts.fullRange).u(1, 1);
  bits.u(8, code(parts.primaries)).u(8, code(parts.transfer)).u(8, code(parts.matrix));
  bits.u(1, 0);  // chroma location
  bits.u(1, 1).u(32, parts.numUnitsInTick).u(32, parts.timeScale).u(1, parts.fixedRate);
  bits.u(2, 0).u(1, 0).u(1, 0);  // no HRD, no pic_struct, no restrictions
  return Escape(bits.trailing().bytes());
}

// The body of an avcC box with one SPS and one PPS, and 4-byte lengths.
inline Bytes MakeAvcc(const Bytes& sps, int profile = 77, int level = 31) {
  Bytes body = {1, static_cast<uint8_t>(profile), 0, static_cast<uint8_t>(level), 0xFF, 0xE1};
  body.push_back(static_cast<uint8_t>(sps.size() >> 8));
  body.push_back(static_cast<uint8_t>(sps.size()));
  body.insert(body.end(), sps.begin(), sps.end());
  const Bytes pps = {0x68, 0xCE, 0x38, 0x80};
  body.push_back(1);
  body.push_back(0);
  body.push_back(static_cast<uint8_t>(pps.size()));
  body.insert(body.end(), pps.begin(), pps.end());
  return body;
}

// An H.264 stream in a container that says of it what MakeSps does.
inline MediaStream MakeStream(const Bytes& privateData) {
  MediaStream stream;
  stream.index = 3;
  stream.kind = StreamKind::kVideo;
  stream.movingPictures = true;
  stream.codecName = "h264";
  stream.coded.codec = VideoCodec::kH264;
  stream.coded.privateData = privateData;
  stream.coded.timeBase = {1, 12800};
  stream.coded.averageRate = stream.coded.baseRate = {25, 1};
  stream.hasColourDescription = true;
  stream.container = {1, 1, 1, kLimitedRange, 128, 96, kProgressive, {1, 1}};
  stream.width = 128;
  stream.height = 96;
  stream.sampleAspect = {1, 1};
  return stream;
}

// "damage@0x2: text" for each finding: kind, frame, count, text.
inline std::vector<std::string> Lines(const std::vector<Finding>& findings) {
  std::vector<std::string> lines;
  for (const Finding& finding : findings) {
    std::string line = FindingWord(finding.kind);
    if (finding.frame >= 0) line += "@" + std::to_string(finding.frame);
    if (finding.count != 1) line += "x" + std::to_string(finding.count);
    lines.push_back(line + ": " + finding.text);
  }
  return lines;
}

}  // namespace qlnmedia::test

#endif
