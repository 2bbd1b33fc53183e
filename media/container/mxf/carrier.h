// An MXF file with other bytes in some of its elements of essence and in the descriptors of its pictures: all
// other triplets stay as they are, in their order; what names sizes and places follows.
//
//   Carrier carrier(source, options);
//   PictureReader pictures(source, carrier.layout(), carrier.tracks());
//   while (pictures.Next(picture)) carrier.Replace(picture, Edited(picture), codec);
//   carrier.Prepare(facts);
//   carrier.Write(sink);
//
// Where triplets stand at multiples of the partition's alignment, fill items in front of them grow or shrink
// so that they do so still; what header metadata grows by comes out of the fill behind it first. Edit units
// that the index knows by one size keep it. Memory: 32 bytes for a change, beside the layout.
#ifndef MEDIA_CONTAINER_MXF_CARRIER_H
#define MEDIA_CONTAINER_MXF_CARRIER_H

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "container/mp4/splices.h"
#include "container/mxf/descriptor_edit.h"
#include "container/mxf/layout.h"
#include "container/mxf/pictures.h"
#include "units/units.h"

namespace qlnmedia::mxf {

// Bytes of a picture that become others. All but the last end with the same byte as before.
struct PicturePart {
  uint64_t at = 0;  // in the picture
  ByteSpan was;
  ByteSpan is;
};

class Carrier {
 public:
  // `source` is kept by the caller. `scratch` is a folder for new bytes that do not fit in memory. Throws
  // Error where the file is no MXF, or its essence is encrypted.
  explicit Carrier(const Source& source, const std::string& scratch = "/tmp");
  Carrier(const Carrier&) = delete;
  Carrier& operator=(const Carrier&) = delete;

  const Source& source() const { return source_; }
  const Layout& layout() const { return layout_; }
  // Those of the layout, which pictures name by their places.
  const std::vector<PictureTrack>& tracks() const { return tracks_; }
  // True where all pictures of a track have to be of one size.
  bool isConstant(size_t track) const { return constant_[track]; }

  // Gives a picture other bytes, in the order in which they are stored. One of constant size is brought to it
  // by its filler; Error names the bytes that are missing. `codec`: nothing for MPEG-2.
  void Replace(const Picture& picture, ByteSpan is, std::optional<Codec> codec);
  // The same part by part, in their order, of which none is empty before and the last one reaches the
  // picture's end. Not for pictures of constant size.
  void ReplaceParts(const Klv& klv, std::span<const PicturePart> parts);
  // Once, behind all pictures: settles the header metadata, lengths, fill items, partitions and indices.
  void Prepare(const FactsByTrack& facts);
  // What was prepared. `wrote` is called with the number of bytes of the source that are done.
  void Write(mp4::Sink& sink, const std::function<void(uint64_t)>& wrote = {}) const;

  // True where anything is another than in the source.
  bool changes() const { return !final_.empty(); }

 private:
  friend class Shaper;
  friend class PlaceEdit;

  bool IsConstant(const PictureTrack& track) const;
  void PutChange(uint64_t at, ByteSpan was, ByteSpan is);
  void WriteInsertions();
  void WriteTails();

  const Source& source_;
  Layout layout_;
  std::vector<PictureTrack> tracks_;
  std::vector<bool> constant_;
  mp4::Spool spool_;
  mp4::Splices values_;  // changes inside of values
  mp4::Splices tails_;   // changes that reach a value's last byte
  mp4::Splices shape_;   // growth alone, of all that is done
  mp4::Splices final_;
  std::map<uint64_t, Bytes> insertions_;  // fill items, by the place that they come in front of
  std::map<uint64_t, int64_t> owed_;      // constant pictures with bytes more: by begin of the fill behind
};

}  // namespace qlnmedia::mxf

#endif
