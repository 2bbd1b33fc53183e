// Runs changes over Matroska files in memory, and makes small ones.
#ifndef TESTS_MKV_CARRY_H
#define TESTS_MKV_CARRY_H

#include <gtest/gtest.h>
#include <zlib.h>

#include <set>
#include <string>
#include <vector>

#include "container/mkv/carrier.h"
#include "container/mkv/kept_elements.h"
#include "mkv/list_elements.h"
#include "mkv/random_file.h"
#include "mp4/carry.h"
#include "qlnmedia/error.h"

namespace qln::test::mkv {

using qlnmedia::mp4::Change;
using qlnmedia::mp4::MemorySink;
using qlnmedia::mp4::MemorySource;
using qlnmedia::mp4::Sample;
using test::mp4::FunctionEditor;

inline Bytes Carry(const Bytes& file, const Change& change) {
  const MemorySource source(file, "in.mkv");
  qlnmedia::mkv::Carrier carrier(source);
  carrier.Prepare(change);
  MemorySink sink;
  carrier.Write(sink);
  const MemorySource written(sink.bytes(), "out.mkv");
  std::set<uint64_t> changed;
  for (const auto& track : change.tracks) changed.insert(track.trackId);
  const auto kept = [](uint64_t, const Sample&, qlnmedia::mkv::ByteSpan, qlnmedia::mkv::ByteSpan) {
    return true;
  };
  EXPECT_NO_THROW(qlnmedia::mkv::RequireElementsKept(source, written, changed, "out.mkv", {}));
  EXPECT_NO_THROW(qlnmedia::mkv::RequireElementsKept(source, written, changed, "out.mkv", kept));
  return sink.bytes();
}

inline Bytes CarryFrames(const Bytes& file, FunctionEditor& editor, uint32_t track = 1) {
  Change change;
  change.tracks.push_back({.trackId = track, .samples = &editor});
  return Carry(file, change);
}

// All frames of track 1 become others; the listing is the input's.
inline void ExpectCarried(const Bytes& file, const FunctionEditor::Function& function, size_t delay = 0) {
  FunctionEditor editor(function, delay);
  const Bytes out = CarryFrames(file, editor);
  const Listing was = List(file, {1});
  const Listing is = List(out, {1});
  EXPECT_EQ(Difference(was, is), "");
  const auto frames = is.frames.find(1);
  EXPECT_EQ(frames == is.frames.end() ? std::vector<Bytes>{} : frames->second, editor.result);
}

inline std::string Refusal(const Bytes& file) {
  FunctionEditor editor([](const Sample&, const Bytes& bytes) { return Bytes(bytes.size() + 40, 7); });
  const MemorySource source(file, "in.mkv");
  try {
    qlnmedia::mkv::Carrier carrier(source);
    Change change;
    change.tracks.push_back({.trackId = 1, .samples = &editor});
    carrier.Prepare(change);
  } catch (const qlnmedia::Error& error) {
    return error.what();
  }
  return "taken";
}

inline Bytes Simple(const std::vector<Part>& segment, uint64_t maxSizeLength = 8) {
  std::vector<Part> parts{Info(), Master(0x1654AE6B, {Track(1), Track(2)})};
  parts.insert(parts.end(), segment.begin(), segment.end());
  return Build({Head(maxSizeLength), Master(0x18538067, parts)});
}

inline Part Encoded(uint64_t algorithm, const Bytes& settings = {}, uint64_t scope = 1) {
  Part compression = Master(0x5034, {Number(0x4254, algorithm)});
  if (!settings.empty()) compression.parts.push_back(Leaf(0x4255, settings));
  return Master(0x6D80, {Master(0x6240, {Number(0x5032, scope), compression})});
}

inline Bytes Zlib(const Bytes& bytes) {
  Bytes out(bytes.size() + 100);
  uLongf size = out.size();
  compress(out.data(), &size, bytes.data(), bytes.size());
  out.resize(size);
  return out;
}

inline Bytes WithTrack(const Part& track, const std::vector<Part>& blocks) {
  return Build(
      {Head(), Master(0x18538067, {Info(), Master(0x1654AE6B, {track}), Master(0x1F43B675, blocks)})});
}

}  // namespace qln::test::mkv

#endif
