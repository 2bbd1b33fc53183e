// A Matroska or WebM file with a change in it: whatever the change does not touch stays byte for byte, in its
// place and order.
//
//   FileSource in("in.mkv");
//   Carrier carrier(in);
//   ... carrier.layout() names tracks; a caller makes a Change from them, tracks by their numbers ...
//   carrier.Prepare(change);   // the editors run; nothing is written
//   carrier.Write(sink);
//
// Private data of a change belongs to the track's entries of its description; a type of it is not looked at.
// Memory: 16 bytes a changed frame or size, 40 a cluster, and bounded windows; the bytes that are new wait in
// a spool. Everything throws Error, with the file and the place. Not for several threads at once; several
// carriers are.
#ifndef MEDIA_CONTAINER_MKV_CARRIER_H
#define MEDIA_CONTAINER_MKV_CARRIER_H

#include <string>

#include "container/mkv/frame_pass.h"
#include "container/mkv/layout.h"
#include "container/mp4/change.h"
#include "container/mp4/splices.h"

namespace qlnmedia::mkv {

class Carrier {
 public:
  // Reads the layout. `source` is kept by the caller as long as this. `scratchFolder` is where new bytes wait
  // that are too many for memory.
  explicit Carrier(const Source& source, const std::string& scratchFolder = "/tmp");
  Carrier(const Carrier&) = delete;
  Carrier& operator=(const Carrier&) = delete;

  const Source& source() const { return source_; }
  const Layout& layout() const { return layout_; }

  // Runs the editors and works out every byte that changes. Called once. `change` is kept by the caller until
  // Write is done, for its progress.
  FrameCounts Prepare(const mp4::Change& change);

  // Behind Prepare.
  const mp4::Splices& splices() const { return contents_; }
  // Gives the whole output to a sink.
  void Write(mp4::Sink& sink) const;

 private:
  void ChangeEntries(const mp4::TrackChange& change);
  void Report(double part) const;

  const Source& source_;
  Layout layout_;
  mp4::Spool spool_;
  mp4::Splices contents_;
  const mp4::Change* change_ = nullptr;
};

}  // namespace qlnmedia::mkv

#endif
