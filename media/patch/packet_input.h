// A file as a patch reads it whose packets come from libavformat.
#ifndef MEDIA_PATCH_PACKET_INPUT_H
#define MEDIA_PATCH_PACKET_INPUT_H

#include "container/media_file.h"
#include "patch/patch_input.h"

namespace qlnmedia {

class PacketInput final : public PatchInput {
 public:
  // `in` must outlive this. `carried`: its bytes are carried over but for what changes.
  PacketInput(const MediaFile& in, bool carried) : in_(in), carried_(carried) {}

  const std::vector<MediaStream>& streams() const override { return in_.streams(); }
  bool describesPictures() const override { return !in_.isRawStream() && !in_.isTransportStream(); }
  const std::string& path() const override { return in_.path(); }
  bool carried() const override { return carried_; }
  StreamDescription Describe(unsigned stream) const override;
  void Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
            const Take& take) const override;

 private:
  const MediaFile& in_;
  bool carried_;
};

}  // namespace qlnmedia

#endif
