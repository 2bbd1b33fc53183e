// Streams of small coded fields and frames for the stream editor: each packet a picture or both fields of a
// frame, in any framing, with slices cut off behind their headers, so that the lengths of units fit in one
// byte.
#ifndef TESTS_ENGINE_EDIT_STREAM_BUILDER_H
#define TESTS_ENGINE_EDIT_STREAM_BUILDER_H

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qlnmedia/stream_editor.h"
#include "support/field_stream.h"
#include "units/access_unit.h"
#include "units/coded_stream.h"

namespace qlnmedia::test {

using qln::test::CodedFrame;
using qln::test::FieldStreamOptions;

struct Stream {
  StreamDescription description;
  std::vector<AccessUnit> packets;
};

// Bytes of units in a framing.
inline Bytes Framed(std::vector<Unit> units, int lengthBytes) {
  UnitRun run;
  run.units = std::move(units);
  return PutTogether(run, Framing{lengthBytes});
}

inline std::vector<Unit> UnitsOf(const Bytes& data, int lengthBytes) {
  return TakeApart(data, Framing{lengthBytes}).units;
}

// The body of an avcC box with the sets among `units`.
inline Bytes MakeAvcc(const std::vector<Unit>& units, int lengthBytes) {
  Bytes body = {1, 77, 0, 30, static_cast<uint8_t>(0xFC | (lengthBytes - 1))};
  for (const int type : {7, 8}) {
    const auto isIt = [type](const Unit& unit) { return UnitType(Codec::kH264, unit.bytes) == type; };
    const auto count = std::count_if(units.begin(), units.end(), isIt);
    body.push_back(static_cast<uint8_t>((type == 7 ? 0xE0 : 0) | count));
    for (const Unit& unit : units) {
      if (!isIt(unit)) continue;
      body.push_back(static_cast<uint8_t>(unit.bytes.size() >> 8));
      body.push_back(static_cast<uint8_t>(unit.bytes.size()));
      body.insert(body.end(), unit.bytes.begin(), unit.bytes.end());
    }
  }
  return body;
}

// H.264 at 25 frames a second. `lengthBytes` 0 is start codes, with the sets in the packets; else they stand
// in an avcC, and in the packets as well.
inline Stream MakeStream(const std::vector<CodedFrame>& frames, int lengthBytes,
                         const FieldStreamOptions& options = {}, bool bothInOnePacket = true) {
  constexpr size_t kSliceBytes = 60;
  constexpr int64_t kFrame = 3600;
  Stream stream;
  stream.description.codec = VideoCodec::kH264;
  stream.description.timeBase = {1, 90000};
  stream.description.averageRate = stream.description.baseRate = {25, 1};
  const std::vector<qln::test::Bytes> pictures = MakeFieldPictures(frames, options);
  size_t next = 0;
  int64_t decoding = 0;
  int64_t begin = 0;  // of the last IDR picture's group
  int64_t last = -1;
  for (const CodedFrame& frame : frames) {
    if (frame.idr) begin = last + 1;
    last = std::max<int64_t>(last, begin + frame.place);
    std::vector<Bytes> packets = {pictures[next++]};
    if (frame.fields) packets.push_back(pictures[next++]);
    if (bothInOnePacket && packets.size() == 2) {
      packets[0].insert(packets[0].end(), packets[1].begin(), packets[1].end());
      packets.pop_back();
    }
    for (const Bytes& packet : packets) {
      std::vector<Unit> units = UnitsOf(packet, 0);
      for (Unit& unit : units) {
        if (IsSlice(Codec::kH264, UnitType(Codec::kH264, unit.bytes)) && unit.bytes.size() > kSliceBytes)
          unit.bytes.resize(kSliceBytes);
      }
      if (lengthBytes != 0 && stream.description.privateData.empty())
        stream.description.privateData = MakeAvcc(units, lengthBytes);
      const int64_t field = &packet == &packets.front() ? 0 : kFrame / 2;
      stream.packets.push_back({Framed(std::move(units), lengthBytes), (begin + frame.place) * kFrame + field,
                                decoding++ * kFrame / 2, frame.idr && &packet == &packets.front()});
    }
  }
  return stream;
}

// A survey of the stream as it is.
inline std::unique_ptr<StreamSurvey> SurveyOf(const Stream& stream) {
  auto survey = std::make_unique<StreamSurvey>(stream.description);
  for (const AccessUnit& packet : stream.packets)
    survey->Add({packet.data, packet.pts, packet.dts, packet.key, -1});
  survey->Finish();
  return survey;
}

// A stream that was pushed through an editor, and what the editor says of it.
struct EditedStream : Stream {
  std::vector<bool> changed;
  EditCounts counts;
};

inline EditedStream Edit(const Stream& stream, const StreamChanges& changes,
                         const StreamSurvey* survey = nullptr) {
  StreamEditor editor(stream.description, changes, survey, "clip");
  EditedStream edited;
  edited.description = stream.description;
  edited.description.privateData = editor.privateData();
  const auto pull = [&] {
    while (std::optional<EditedUnit> unit = editor.Pull()) {
      edited.packets.push_back(unit->unit);
      edited.changed.push_back(unit->changed);
    }
  };
  for (const AccessUnit& packet : stream.packets) {
    editor.Push(packet);
    pull();
  }
  editor.Finish();
  pull();
  edited.counts = editor.counts();
  return edited;
}

}  // namespace qlnmedia::test

#endif
