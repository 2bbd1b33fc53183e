// The packets of a stream as the tables of its file place them, without the bulk of their slices: for those
// who look at many pictures, and of each at what stands in front of its coded samples.
#ifndef MEDIA_CONTAINER_PICTURE_HEADS_H
#define MEDIA_CONTAINER_PICTURE_HEADS_H

#include <functional>
#include <memory>
#include <optional>

#include "container/media_file.h"
#include "units/packet_units.h"

namespace qlnmedia {

// Where a packet lies, and its times in units of its stream's time base.
struct PacketPlace {
  uint64_t at = 0;
  uint64_t size = 0;
  int64_t pts = kNoTime;
  int64_t dts = kNoTime;
};

// Reads packets of units with lengths in front, each longer slice cut to its first kSliceHeadBytes, with its
// length changed to that.
class HeadReader {
 public:
  // `source` must outlive this.
  HeadReader(const mp4::Source& source, Codec codec, Framing framing)
      : source_(source), codec_(codec), lengthBytes_(static_cast<size_t>(framing.lengthBytes)) {}
  // The bytes are valid until the next call. Throws Error where the source does not hold them all.
  ByteSpan Read(uint64_t at, uint64_t size);

 private:
  // `bytes` of the packet from `from` on.
  ByteSpan Window(uint64_t from, size_t bytes);
  // Takes over what the length at `from` covers; returns where it ends.
  uint64_t TakeUnit(uint64_t from, size_t length);
  void Append(uint64_t from, size_t bytes);

  const mp4::Source& source_;
  Codec codec_;
  size_t lengthBytes_;
  uint64_t at_ = 0;
  uint64_t size_ = 0;
  Bytes window_;
  uint64_t windowFrom_ = 0;
  Bytes packet_;
};

// Where the packets of a stream lie, in their order; nothing behind the last one.
using PacketPlaces = std::function<std::optional<PacketPlace>()>;

// The packets of H.264 or HEVC in MP4, MOV and Matroska files whose own tables say where they lie. Nothing
// for files in fragments, for pipes, and where the tables are not enough. Times may lie beside the demuxer's
// by a constant, and `dts` may be missing. `bytes` is in how many of the file the packets lie that are
// wanted; more are looked at when more are asked for. Both throw Error where what the tables say is not
// there.
PacketPlaces PlacesOfStream(const MediaFile& file, unsigned stream, uint64_t bytes);

}  // namespace qlnmedia

#endif
