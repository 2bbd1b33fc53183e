// Streams for the sections of a report, and those sections as JSON.
#ifndef TESTS_ENGINE_INSPECT_CODED_STREAMS_H
#define TESTS_ENGINE_INSPECT_CODED_STREAMS_H

#include <vector>

#include "engine/small_streams.h"
#include "inspect/coded_frames.h"
#include "support/field_stream.h"

namespace qlnmedia::test {

// HEVC with start codes: private data, and packets a second apart.
inline CodedStream HevcStream(const std::vector<Bytes>& sets,
                              const std::vector<std::vector<Bytes>>& packets) {
  CodedStream stream;
  stream.codec = Codec::kHevc;
  stream.privateData = sets.empty() ? Bytes() : PacketOf(sets);
  stream.config = ReadConfigRecord(Codec::kHevc, stream.privateData);
  for (size_t i = 0; i < packets.size(); ++i) {
    const auto time = static_cast<int64_t>(i);
    stream.packets.push_back({PacketOf(packets[i]), time, time, i == 0});
  }
  return stream;
}

// H.264 with start codes: a packet for each coded frame or field.
inline CodedStream FieldStream(const std::vector<qln::test::CodedFrame>& frames,
                               const qln::test::FieldStreamOptions& options = {}) {
  CodedStream stream;
  stream.codec = Codec::kH264;
  for (const Bytes& picture : MakeFieldPictures(frames, options)) {
    const auto time = static_cast<int64_t>(stream.packets.size());
    stream.packets.push_back({picture, time, time, time == 0});
  }
  return stream;
}

}  // namespace qlnmedia::test

#endif
