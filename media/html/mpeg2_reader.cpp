// Goes through the start codes of a packet.

#include "html/mpeg2_reader.h"

#include <algorithm>

#include "html/clocks.h"
#include "inspect/mpeg2_facts.h"
#include "units/mpeg2.h"

namespace qlnmedia::html {

namespace {

constexpr int kExtensionStart = 0xB5;
constexpr int kPictureCodingExtension = 8;
constexpr size_t kStartCodeBytes = 4;

// picture_coding_type of table 6-12.
unsigned KindOf(ByteSpan header) {
  static constexpr unsigned kKinds[] = {0, kSliceI, kSliceP, kSliceB};
  const unsigned type = header[5] >> 3 & 7u;
  return type < 4 ? kKinds[type] : 0;
}

}  // namespace

const ShownPicture& Mpeg2Reader::Take(const PacketView& packet) {
  picture_ = {};
  unsigned pictures = 0;
  int firstStructure = 0;
  for (const Mpeg2Unit& unit : Mpeg2Units(packet.data)) {
    const ByteSpan bytes = packet.data.subspan(unit.at, unit.size);
    if (unit.code == kMpeg2PictureStart && bytes.size() >= 6) {
      picture_.slices = static_cast<uint8_t>(picture_.slices | KindOf(bytes) << (pictures == 0 ? 0 : 4));
      ++pictures;
    }
    if (unit.code == kMpeg2GroupStart && bytes.size() >= 8) {
      picture_.entry = Entry::kGroup;
      picture_.clock = PackedClock(ReadGroupTime(bytes));
    }
    if (unit.code == kExtensionStart && bytes.size() >= 8 && bytes[4] >> 4 == kPictureCodingExtension &&
        firstStructure == 0) {
      firstStructure = bytes[6] & 3;
      picture_.structure = firstStructure == 1   ? Structure::kTopField
                           : firstStructure == 2 ? Structure::kBottomField
                                                 : Structure::kFrame;
    }
    // Slices stand behind each other by the dozen; one line stands for a run of them.
    const bool slice = IsMpeg2Slice(unit.code);
    if (slice && !picture_.units.empty() && IsMpeg2Slice(picture_.units.back().type)) {
      picture_.units.back().size += unit.size;
      continue;
    }
    const ByteSpan behind = bytes.subspan(std::min(bytes.size(), kStartCodeBytes));
    picture_.units.push_back(
        {unit.code,
         unit.at,
         unit.size,
         behind.first(std::min(behind.size(), slice ? UnitBlocks::kSliceBytes : UnitBlocks::kOtherBytes)),
         {}});
  }
  if (pictures == 0) picture_.flags |= kNoPicture;
  if (pictures == 2 && picture_.structure == Structure::kTopField)
    picture_.structure = Structure::kTopThenBottom;
  if (pictures == 2 && picture_.structure == Structure::kBottomField)
    picture_.structure = Structure::kBottomThenTop;
  return picture_;
}

}  // namespace qlnmedia::html
