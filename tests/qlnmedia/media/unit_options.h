// What the tests of options for units and for scan share: the trace by packets, and soundness of an output.
#ifndef TESTS_QLNMEDIA_MEDIA_UNIT_OPTIONS_H
#define TESTS_QLNMEDIA_MEDIA_UNIT_OPTIONS_H

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "qlnmedia/media/media_facts.h"
#include "qlnmedia/patch_kinds.h"

namespace qln::test {

using patching::Kind;

inline const auto kCaseName = [](const auto& test) {
  return std::string(std::get<0>(test.param).name) + "_" + std::get<1>(test.param);
};

// What an independent reader has to say against a file.
inline std::string Complaints(const std::string& file) {
  return Text(
      "ffmpeg -v warning -i '" + file +
      "' -map 0:v -c copy -bsf:v trace_headers -f null - 2>&1 | grep -iE 'invalid|failed|error' || true");
}

// Everything but what was asked for is as it was, `check` finds nothing new, and a second run changes
// nothing.
inline void ExpectSound(const std::string& in, const std::string& out, const std::string& options,
                        const Kind& kind, const std::string& container) {
  EXPECT_EQ(Decoded(out), Decoded(in));
  EXPECT_EQ(Slices(out, kind.codec), Slices(in, kind.codec));
  if (container != "raw") {
    EXPECT_EQ(OtherStreams(out), OtherStreams(in));
  }
  EXPECT_EQ(Complaints(out), "");
  const CommandResult check = Qlnmedia("check '" + out + "'");
  if (check.exitCode != 0) {
    EXPECT_EQ(check.output, Qlnmedia("check '" + in + "'").output);
  }
  const std::string again = patching::Patched("again_" + std::filesystem::path(out).filename().string());
  ASSERT_EQ(Qlnmedia("patch '" + out + "' '" + again + "'" + options).exitCode, 0);
  EXPECT_EQ(ReadFile(again), ReadFile(out));
}

// Headings and elements of each access unit, as an independent reader sees them.
inline std::vector<std::vector<TracedUnit>> Packets(const std::string& file) {
  std::vector<std::vector<TracedUnit>> packets;
  // A status line would swallow a line of the trace.
  for (TracedUnit& unit : TraceHeaders(file, "-nostats")) {
    if (unit.heading.rfind("nal_unit_type:", 0) == 0) continue;  // said of every unit ahead of all others
    if (unit.heading.rfind("Packet:", 0) == 0) packets.emplace_back();
    if (!packets.empty()) packets.back().push_back(std::move(unit));
  }
  return packets;
}

inline bool IsSlice(const TracedUnit& unit) { return unit.heading.rfind("Slice", 0) == 0; }

}  // namespace qln::test

#endif
