// An MP4 or MOV file with a change in it: whatever the change does not touch stays byte for byte, in its
// place and order.
//
//   FileSource in("in.mp4");
//   Carrier carrier(in);
//   ... carrier.layout() names tracks and their sample descriptions; a caller makes a Change from them ...
//   carrier.Prepare(change);           // the editors run; nothing is written
//   CarryToFile(carrier, "out.mp4");   // output_file.h; or carrier.Write into another sink
//
// A media segment is opened with its initialization segment beside it. Memory: 16 bytes a changed sample, 8 a
// fragment, and bounded windows; the bytes that are new wait in a spool. Everything throws Error, with
// the file, the box or sample, and the place. Not for several threads at once; several carriers are.
#ifndef MEDIA_CONTAINER_MP4_CARRIER_H
#define MEDIA_CONTAINER_MP4_CARRIER_H

#include <cstdint>
#include <memory>
#include <string>

#include "container/mp4/change.h"
#include "container/mp4/edit.h"
#include "container/mp4/sample_pass.h"

namespace qlnmedia::mp4 {

struct CarrierOptions {
  // Of the initialization segment that a media segment belongs to; null for a file with a `moov`. Kept by the
  // caller as long as the carrier.
  const Source* initialization = nullptr;
  // Where new bytes wait that are too many for memory; the folder of the output is a good one.
  std::string scratchFolder = "/tmp";
};

class Carrier {
 public:
  // Reads the layout. `source` is kept by the caller as long as this.
  explicit Carrier(const Source& source, const CarrierOptions& options = {});

  const Source& source() const { return source_; }
  const Layout& layout() const { return layout_; }
  // The track as the file's first movie, or else the initialization segment's, describes it; null where none
  // does.
  const Track* FindTrack(uint32_t trackId) const;
  // Its sample descriptions' boxes can be read with ReadDescriptionBoxes(described(), description).
  const Source& described() const;

  // Runs the editors and works out every byte that changes. Called once. `change` is kept by the caller until
  // Write is done, for its progress. With `keepPlaces` a `moov` that grows moves nothing behind it, and gets
  // its place from whoever writes.
  struct Counts {
    uint64_t samples = 0;  // that editors were given
    uint64_t changedSamples = 0;
    uint64_t descriptions = 0;  // sample descriptions that change
  };
  Counts Prepare(const Change& change, bool keepPlaces = false);

  // Behind Prepare: what is changed, the size that comes out, and whether that is another file at all.
  const Splices& splices() const { return edit_->samples; }
  uint64_t outputSize() const { return source_.size() + static_cast<uint64_t>(splices().growth()); }
  // True where the sizes of pictures may be others afterwards.
  bool resizesPictures() const;
  bool changesNothing() const { return splices().empty(); }
  // Gives the whole output to a sink.
  void Write(Sink& sink) const;

 private:
  void RequireTracks() const;
  void PrepareSamples(Counts& counts);
  void PrepareDescriptions(Counts& counts);
  void PrepareShape(bool keepPlaces);
  void WriteBoxes();
  void Report(double part) const;

  const Source& source_;
  const Source* initialization_;
  Layout layout_;
  Spool spool_;
  std::unique_ptr<Edit> edit_;
  const Change* change_ = nullptr;
};

}  // namespace qlnmedia::mp4

#endif
