// What a stream's slice headers and picture parameter sets say of the order of pictures.
#ifndef MEDIA_PICTURES_SLICE_HEAD_H
#define MEDIA_PICTURES_SLICE_HEAD_H

#include <array>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>

#include "sets/sps_facts.h"
#include "units/units.h"

namespace qlnmedia {

// The elements of a slice header (ITU-T H.264 clause 7.3.3, H.265 clause 7.3.6.1) that tell its picture from
// others and give its place.
struct SliceHead {
  std::shared_ptr<const SpsFacts> sps;
  int unitType = 0;
  uint32_t ppsId = 0;
  uint32_t pocLsb = 0;

  // H.264 only.
  uint32_t refIdc = 0;
  uint32_t frameNum = 0;
  bool field = false;
  bool bottom = false;
  uint32_t idrPicId = 0;
  int32_t deltaPocBottom = 0;
  std::array<int32_t, 2> deltaPoc{};
  bool resetsOrder = false;  // memory_management_control_operation 5

  // HEVC only.
  bool firstSegment = false;  // first_slice_segment_in_pic_flag
  uint32_t temporalId = 0;
};

// Reads slice headers by the parameter sets that it was shown.
class SliceHeadReader {
 public:
  explicit SliceHeadReader(Codec codec) : codec_(codec) {}
  // Any unit; those that are no SPS or PPS, or break off, are passed over.
  void TakeSet(ByteSpan unit);
  // The head of a slice of the base layer and view. Nothing for other units, where the header breaks off, and
  // where it names sets that were not there.
  std::optional<SliceHead> Read(ByteSpan unit) const;
  // slice_type of the first slice of a picture, 0 to 9 for H.264, 0 to 2 for HEVC; nothing where the header
  // breaks off, or says anything else. H.264 needs no set for it, HEVC the PPS.
  std::optional<uint32_t> ReadType(ByteSpan unit) const;

 private:
  std::optional<SliceHead> ReadH264(ByteSpan unit) const;
  std::optional<SliceHead> ReadHevc(ByteSpan unit) const;
  // The PPS of that number whose SPS is there too; null if there is none.
  const PpsFacts* Find(uint32_t id) const;

  Codec codec_;
  std::map<uint32_t, std::shared_ptr<const SpsFacts>> sps_;
  std::map<uint32_t, PpsFacts> pps_;
};

}  // namespace qlnmedia

#endif
