// What names places and sizes in a changed file: partition packs, the random index pack, index table
// segments.
#ifndef MEDIA_CONTAINER_MXF_PLACE_EDIT_H
#define MEDIA_CONTAINER_MXF_PLACE_EDIT_H

#include <map>
#include <optional>
#include <set>
#include <vector>

#include "container/mxf/carrier.h"

namespace qlnmedia::mxf {

// Works on a carrier whose shape is settled; changes numbers, and no sizes.
class PlaceEdit {
 public:
  explicit PlaceEdit(Carrier& carrier);
  void Run();

 private:
  void EditPack(const Partition& partition);
  void EditRandomIndex(const Klv& klv);
  void EditSegment(const IndexSegment& segment);
  void EditEntries(const IndexSegment& segment, uint32_t bodySid,
                   std::vector<std::optional<int64_t>>& deltas);
  void EditEntry(const IndexSegment& segment, uint32_t bodySid, uint64_t at, std::span<uint8_t> entry,
                 std::vector<std::optional<int64_t>>& deltas);
  void FollowDeltas(const IndexSegment& segment, uint64_t at, const std::vector<uint64_t>& slices,
                    std::vector<std::optional<int64_t>>& deltas);
  void EditDeltas(const IndexSegment& segment, const std::vector<std::optional<int64_t>>& deltas);
  void EditLastUnit(const IndexSegment& segment, uint32_t bodySid);
  void RequireUnitsKept(const IndexSegment& segment, uint32_t bodySid) const;
  uint64_t Moved(uint64_t offset) const;
  uint64_t Grown(std::optional<uint64_t> begin, uint64_t bytes, const Partition& partition) const;
  // By how much a place of an essence container moves in it.
  int64_t StreamShift(uint64_t place) const;
  bool BeginsTriplet(uint64_t place);
  // Puts bytes in place of as many, with the fill item that comes in behind them where there is one.
  void Put(const Klv& klv, uint64_t at, ByteSpan was, Bytes is);

  Carrier& carrier_;
  const Source& source_;
  const Layout& layout_;
  const mp4::Splices& shape_;
  Reader keys_;
  std::map<const Partition*, int64_t> before_;  // growth of an essence container in front of a partition
  std::map<uint32_t, int64_t> grown_;           // of all of it, by bodySid
  std::set<uint32_t> moving_;                   // essence containers in which anything moves
};

}  // namespace qlnmedia::mxf

#endif
