// Parts and joins the units of a packet.

#include "edit/picture_units.h"

#include <algorithm>
#include <iterator>

#include "units/access_unit.h"

namespace qlnmedia {

size_t PictureUnits::begin() const {
  const auto found = std::find_if(units.begin(), units.end(), [this](const Unit& unit) {
    const int type = UnitType(codec, unit.bytes);
    return IsSlice(codec, type) || BeginsAccessUnit(codec, type);
  });
  return static_cast<size_t>(found - units.begin());
}

size_t PictureUnits::slice() const {
  const auto found = std::find_if(units.begin(), units.end(), [this](const Unit& unit) {
    return IsSlice(codec, UnitType(codec, unit.bytes));
  });
  return static_cast<size_t>(found - units.begin());
}

std::vector<PictureUnits> PartUnits(Codec codec, PictureTracker& tracker, std::vector<Unit> units) {
  std::vector<CodedPicture> pictures = tracker.Take(units);
  std::vector<PictureUnits> parts(std::max<size_t>(pictures.size(), 1));
  for (size_t i = 0; i < pictures.size(); ++i) parts[i].kinds = tracker.SlicesOf(units, pictures[i]);
  size_t from = 0;
  for (size_t i = 0; i < parts.size(); ++i) {
    const size_t to = i < pictures.size() ? pictures[i].end : units.size();
    parts[i].codec = codec;
    parts[i].units.assign(std::make_move_iterator(units.begin() + static_cast<std::ptrdiff_t>(from)),
                          std::make_move_iterator(units.begin() + static_cast<std::ptrdiff_t>(to)));
    if (i < pictures.size()) parts[i].picture = std::move(pictures[i]);
    from = to;
  }
  return parts;
}

std::vector<Unit> JoinUnits(std::vector<PictureUnits> parts) {
  std::vector<Unit> units = std::move(parts.front().units);
  for (size_t i = 1; i < parts.size(); ++i)
    units.insert(units.end(), std::make_move_iterator(parts[i].units.begin()),
                 std::make_move_iterator(parts[i].units.end()));
  return units;
}

size_t CountPictures(const std::vector<PictureUnits>& parts) {
  return static_cast<size_t>(std::count_if(
      parts.begin(), parts.end(), [](const PictureUnits& part) { return part.picture.has_value(); }));
}

}  // namespace qlnmedia
