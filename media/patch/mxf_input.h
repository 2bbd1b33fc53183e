// An MXF file as a patch reads it: described by libavformat, its pictures out of its elements of essence.
#ifndef MEDIA_PATCH_MXF_INPUT_H
#define MEDIA_PATCH_MXF_INPUT_H

#include <map>
#include <vector>

#include "container/media_file.h"
#include "container/mxf/carrier.h"
#include "patch/patch_input.h"

namespace qlnmedia {

class MxfInput final : public PatchInput {
 public:
  // Both must outlive this.
  MxfInput(const MediaFile& in, const mxf::Carrier& carrier);

  const std::vector<MediaStream>& streams() const override { return in_.streams(); }
  bool describesPictures() const override { return true; }
  const std::string& path() const override { return in_.path(); }
  bool carried() const override { return true; }
  // Throws Error for a stream whose pictures do not each stand in an element of their own.
  StreamDescription Describe(unsigned stream) const override;
  void Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
            const Take& take) const override;

  // The place of a stream's track in the carrier's list. Throws Error where it has none.
  size_t TrackOf(unsigned stream) const;
  // A picture as an editor is told of it.
  PacketView ViewOf(const mxf::Picture& picture) const;
  // False where the index does not tell when each picture is shown: they are then ordered by what they say
  // themselves.
  bool isTimed(size_t track) const { return timed_[track]; }

 private:
  void RequireFrames(unsigned stream, size_t track) const;

  const MediaFile& in_;
  const mxf::Carrier& carrier_;
  std::map<unsigned, size_t> trackOf_;  // by stream
  std::vector<mxf::UnitTimes> times_;   // by track
  std::vector<bool> timed_;
  bool ordered_;  // the index tells in which order pictures are shown
};

}  // namespace qlnmedia

#endif
