// A stream of frames and fields for tests of the stream editor, and what it holds.
#ifndef TESTS_ENGINE_EDIT_EDITED_PICTURES_H
#define TESTS_ENGINE_EDIT_EDITED_PICTURES_H

#include <cstdint>
#include <string>
#include <vector>

#include "captions/reader.h"
#include "hdr/stream_hdr.h"
#include "pictures/picture_tracker.h"
#include "qlnmedia/stream_editor.h"
#include "stream_builder.h"
#include "support/test_support.h"
#include "timing/timecode.h"

namespace qlnmedia::test {

using captions::CcType;
using captions::Triplet;

inline constexpr Codec kH264 = Codec::kH264;

inline const MasteringDisplay kDisplay{{34000, 16000}, {13250, 34500}, {7500, 3000},
                                       {15635, 16450}, 10000000,       1};
inline const LightLevel kLevel{1000, 400};

// I P B B, twice, of frames and of fields.
inline std::vector<CodedFrame> Frames() {
  return {{.place = 0, .idr = true},
          {.place = 3},
          {.place = 1, .reference = false},
          {.place = 2, .fields = false, .reference = false},
          {.place = 0, .idr = true},
          {.place = 2, .bottomFirst = true},
          {.place = 1, .fields = false, .reference = false}};
}
inline const std::vector<uint32_t> kPlaces = {0, 3, 1, 2, 4, 6, 5};

// One triplet that names the place.
inline std::vector<Triplet> CaptionAt(uint32_t place) {
  return {{true, CcType::kServiceData, static_cast<uint8_t>(place + 32), 0x41}};
}

inline std::vector<Bytes> SlicesOf(const Stream& stream, int lengthBytes) {
  std::vector<Bytes> slices;
  for (const AccessUnit& packet : stream.packets) {
    for (const Unit& unit : UnitsOf(packet.data, lengthBytes)) {
      if (IsSlice(kH264, UnitType(kH264, unit.bytes))) slices.push_back(unit.bytes);
    }
  }
  return slices;
}

// The timecodes of each packet's pictures, and nothing where one has none.
inline std::vector<std::vector<std::string>> TimecodesOf(const Stream& stream) {
  const ConfigRecord config = ConfigOf(stream.description);
  PictureTracker tracker(kH264);
  for (const Bytes& unit : config.units()) tracker.TakeSet(unit);
  std::vector<std::vector<std::string>> all;
  for (const AccessUnit& packet : stream.packets) {
    const std::vector<Unit> units = TakeApart(packet.data, config.framing).units;
    all.emplace_back();
    for (const CodedPicture& picture : tracker.Take(units)) {
      for (size_t i = picture.begin; i < picture.slice; ++i) {
        if (!IsSei(kH264, UnitType(kH264, units[i].bytes))) continue;
        for (const SeiMessage& message : ReadSeiMessages(kH264, units[i].bytes)) {
          if (message.type != 1) continue;
          const auto timing = ReadPictureTiming(message.payload, *picture.head.value().sps);
          all.back().push_back(timing && timing->times[0].whole ? timing->times[0].Text() : "none");
        }
      }
    }
  }
  return all;
}

}  // namespace qlnmedia::test

#endif
