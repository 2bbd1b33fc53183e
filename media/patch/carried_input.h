// An MP4 or MOV file as a patch reads it: described by libavformat or by its boxes, its samples out of the
// boxes.
#ifndef MEDIA_PATCH_CARRIED_INPUT_H
#define MEDIA_PATCH_CARRIED_INPUT_H

#include <map>
#include <string>
#include <vector>

#include "container/mp4/carrier.h"
#include "patch/track_input.h"

namespace qlnmedia {

class CarriedInput final : public TrackInput {
 public:
  // `path` is what failures name. `streams` are the file's, or those of the initialization segment of
  // `carrier`'s segment; both must outlive this.
  CarriedInput(const std::vector<MediaStream>& streams, std::string path, const mp4::Carrier& carrier);

  const std::vector<MediaStream>& streams() const override { return streams_; }
  const std::string& path() const override { return path_; }
  StreamDescription Describe(unsigned stream) const override;
  void Read(const std::set<unsigned>& streams, const ProgressCallback& progress,
            const Take& take) const override;
  std::vector<std::vector<uint8_t>> OtherPrivateData(unsigned stream) const override;

  uint32_t TrackId(unsigned stream) const override;
  SampleUnits UnitsOf(unsigned stream) const override;
  std::vector<uint32_t> RecordBoxes(unsigned stream) const override;

 private:
  struct Private {
    uint32_t box = 0;
    Bytes data;
  };
  std::vector<Private> PrivateOf(unsigned stream) const;
  const mp4::Track& TrackOf(unsigned stream) const;
  void FillInRate(const mp4::Track& track, StreamDescription& stream) const;

  const std::vector<MediaStream>& streams_;
  std::string path_;
  const mp4::Carrier& carrier_;
};

}  // namespace qlnmedia

#endif
