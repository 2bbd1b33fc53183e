// Reads a pipe once.

#include "container/pipe_captions.h"

#include <algorithm>

#include "base/error.h"
#include "container/file_captions.h"

namespace qlnmedia {

bool HasAncStreams(const MediaInput& input) { return !FindAncStreams(MediaFile(input)).empty(); }

PipeCaptions ReadPipeCaptions(const MediaInput& input, const ProgressCallback& progress) {
  MediaFile file(input);
  const std::vector<MediaStream>& streams = file.streams();
  const auto pictures = std::find_if(streams.begin(), streams.end(), [](const MediaStream& stream) {
    return MayHaveCaptions(stream.coded.codec);
  });
  std::optional<CaptionCounter> counter;
  std::optional<OwnOrder> order;
  unsigned pictureStream = 0;
  if (pictures != streams.end()) {
    pictureStream = pictures->index;
    counter.emplace(pictures->coded, true);
    order.emplace(file, pictures->coded);
  }
  std::map<unsigned, AncGathering> ancillary;
  for (const unsigned stream : FindAncStreams(file)) ancillary.try_emplace(stream, file, stream);
  Progress meter(progress, "reading", file.sizeBytes());
  for (MediaPacket packet; file.Next(packet);) {
    meter.At(packet.view.position);
    if (counter && packet.stream == pictureStream) {
      counter->Add(packet.view);
      order->Add(packet.view);
    }
    for (auto& [stream, gathering] : ancillary) gathering.Take(packet);
  }
  meter.Done();
  PipeCaptions captions;
  if (counter) {
    captions.pictures = counter->Finish();
    order->Apply(*captions.pictures);
    captions.pictures->elsewhere = LineOfRaster(file);
    captions.pictures->path = input.path();
    captions.pictures->stream = pictureStream;
  }
  for (auto& [stream, gathering] : ancillary) captions.ancillary[stream] = gathering.Finish();
  return captions;
}

}  // namespace qlnmedia
