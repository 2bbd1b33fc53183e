// Finds the start codes of MPEG-2 pictures.

#include "units/mpeg2.h"

namespace qlnmedia {

namespace {

std::vector<Mpeg2Unit> Scan(ByteSpan data, bool toFirstSlice) {
  std::vector<Mpeg2Unit> units;
  size_t begin = 0;
  int code = -1;
  const auto close = [&](size_t end) {
    if (end > begin) units.push_back({code, begin, end - begin});
    begin = end;
  };
  for (size_t i = 0; i + 3 < data.size(); ++i) {
    if (data[i] != 0 || data[i + 1] != 0 || data[i + 2] != 1) continue;
    close(i);
    code = data[i + 3];
    if (toFirstSlice && IsMpeg2Slice(code)) break;
    i += 3;
  }
  close(data.size());
  return units;
}

}  // namespace

std::vector<Mpeg2Unit> Mpeg2Head(ByteSpan data) { return Scan(data, true); }

std::vector<Mpeg2Unit> Mpeg2Units(ByteSpan data) { return Scan(data, false); }

Mpeg2Picture ReadMpeg2Picture(ByteSpan data) {
  Mpeg2Picture picture;
  for (const Mpeg2Unit& unit : Mpeg2Head(data)) {
    if (unit.code == kMpeg2GroupStart) picture.beginsGroup = true;
    if (unit.code == kMpeg2PictureStart && unit.size >= 6) {
      picture.found = true;
      picture.temporalReference = data[unit.at + 4] << 2 | data[unit.at + 5] >> 6;
      break;
    }
  }
  return picture;
}

}  // namespace qlnmedia
