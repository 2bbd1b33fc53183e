// Random changes of samples, held against the tests' own reader.
#ifndef TESTS_MP4_CARRY_RANDOM_H
#define TESTS_MP4_CARRY_RANDOM_H

#include <gtest/gtest.h>

#include "mp4/carry.h"
#include "mp4/list_file.h"

namespace qln::test::mp4 {

inline TrackSpec SampleTrack(size_t samples, uint32_t id = 1) {
  TrackSpec track;
  track.id = id;
  for (size_t i = 0; i < samples; ++i)
    track.samples.push_back(Noise(3 + i * 5 % 11, static_cast<uint32_t>(i + 100 * id)));
  return track;
}

// Changes samples at random, and holds the output against the test's reader; and once more back again.
inline void ExpectCarried(const Bytes& file, uint32_t track = 1, const Bytes& init = {}) {
  for (uint32_t seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    FunctionEditor editor(RandomChange(seed), seed % 4);
    const Carried carried = CarrySamples(file, track, editor, init);
    ASSERT_EQ(Compare(file, carried.output, track, editor.result, init), "");
    // The same samples once more change nothing.
    size_t next = 0;
    const auto fresh = editor.result;
    FunctionEditor again([&](const qlnmedia::mp4::Sample&, const Bytes&) { return fresh.at(next++); });
    const Carried twice = CarrySamples(carried.output, track, again, init);
    EXPECT_EQ(twice.output, carried.output);
    EXPECT_EQ(twice.counts.changedSamples, 0u);
  }
  FunctionEditor keep([](const qlnmedia::mp4::Sample&, const Bytes&) { return std::nullopt; });
  EXPECT_EQ(CarrySamples(file, track, keep, init).output, file);
  EXPECT_EQ(CarryBytes(file, {}, init).output, file);
}

}  // namespace qln::test::mp4

#endif
