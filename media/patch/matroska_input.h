// An MKV or WebM file as a patch reads it: described by libavformat, its frames out of the blocks.
#ifndef MEDIA_PATCH_MATROSKA_INPUT_H
#define MEDIA_PATCH_MATROSKA_INPUT_H

#include <string>
#include <vector>

#include "container/media_file.h"
#include "container/mkv/carrier.h"
#include "patch/track_input.h"

namespace qlnmedia {

class MatroskaInput final : public TrackInput {
 public:
  // Both must outlive this. Throws Error where libavformat has other streams than the file's tracks.
  MatroskaInput(const MediaFile& in, const mkv::Carrier& carrier);

  const std::vector<MediaStream>& streams() const override { return streams_; }
  const std::string& path() const override { return in_.path(); }
  StreamDescription Describe(unsigned stream) const override;
  void Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
            const Take& take) const override;
  std::vector<std::vector<uint8_t>> OtherPrivateData(unsigned stream) const override;

  uint32_t TrackId(unsigned stream) const override;
  SampleUnits UnitsOf(unsigned stream) const override;
  std::vector<uint32_t> RecordBoxes(unsigned stream) const override;

 private:
  const std::vector<mkv::Entry>& EntriesOf(unsigned stream) const;
  // One entry for each description.
  std::vector<const mkv::Entry*> DescriptionsOf(unsigned stream) const;
  std::vector<Bytes> PrivateOf(unsigned stream) const;

  const MediaFile& in_;
  const mkv::Carrier& carrier_;
  std::vector<MediaStream> streams_;
  std::vector<uint64_t> numbers_;  // of the tracks of the first streams
};

}  // namespace qlnmedia

#endif
