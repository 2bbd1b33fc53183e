// Packets taken apart for those who look at them without changing them.
#ifndef MEDIA_UNITS_PACKET_UNITS_H
#define MEDIA_UNITS_PACKET_UNITS_H

#include <cstddef>
#include <optional>

#include "units/units.h"

namespace qlnmedia {

// As much of a slice as anyone reads who does not decode it: reference lists and weights of 32 pictures stand
// in front of the last element that matters.
inline constexpr size_t kSliceHeadBytes = 1024;
// Takes a packet apart as TakeApart does, but that of a longer slice the units hold its first
// kSliceHeadBytes.
UnitRun TakeApartHeads(Codec codec, ByteSpan data, Framing framing);

// The units of one packet for several who look at them: it is taken apart when one first asks.
class PacketUnits {
 public:
  // `data` is looked at during the calls, and must stay.
  explicit PacketUnits(ByteSpan data) : data_(data) {}
  ByteSpan data() const { return data_; }
  // As TakeApartHeads; valid until somebody asks for another codec or framing.
  const UnitRun& In(Codec codec, Framing framing);

 private:
  ByteSpan data_;
  Codec codec_ = Codec::kH264;
  Framing framing_;
  std::optional<UnitRun> run_;
};

}  // namespace qlnmedia

#endif
