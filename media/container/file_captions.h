// The captions of a file's first video stream that may have some.
#ifndef MEDIA_CONTAINER_FILE_CAPTIONS_H
#define MEDIA_CONTAINER_FILE_CAPTIONS_H

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "base/progress.h"
#include "captions/reader.h"
#include "captions/text.h"
#include "container/media_file.h"
#include "container/media_input.h"

struct AVStream;

namespace qlnmedia {

// What a packet that was read is held against.
struct KnownPacket {
  size_t size = 0;  // bytes
  int64_t pts = kNoTime;
  int64_t dts = kNoTime;
};

// True for H.264, HEVC and MPEG-2 pictures.
bool MayHaveCaptions(const AVStream& stream);

// Words for whoever looks for captions in SD pictures, which may have line 21 among their pixels; empty for
// files whose first video is another one.
std::string LineOfRaster(const MediaFile& file);

// The order of pictures where the container gives each a frame, but not its place among them: MXF whose index
// does not say in which order they are shown, or cannot be reached. Readers of MXF then take them as they are
// stored; what counts is what the pictures themselves say.
class OwnOrder {
 public:
  OwnOrder() = default;  // does nothing
  // Does nothing for a file that tells the order.
  OwnOrder(const MediaFile& file, const StreamDescription& stream);
  bool doesAnything() const { return order_.has_value(); }
  void Add(const PacketView& packet);
  // Puts the pictures of the same packets in order, if each says its place. Their times stay.
  void Apply(CaptionSurvey& survey);

 private:
  std::optional<OrderSurvey> order_;
};

// Looks at the first stream that may have captions, at its first `packets` packets. Throws NotApplicable for
// a file without such a stream.
CaptionSurvey SurveyCaptions(const MediaInput& input, size_t packets = SIZE_MAX,
                             const ProgressCallback& progress = {});

// The survey of the first `packets` packets of an open file's stream, of which `first` are known already, and
// are the first ones, without their dts where that is not known. Reads the heads of packets where the file's
// tables place them, and leaves the file where it stands; nothing where tables and packets do not say the
// same.
std::optional<CaptionSurvey> SurveyHeads(const MediaFile& file, unsigned stream, size_t packets,
                                         const std::vector<KnownPacket>& first);

// Reads what was surveyed once more, unless its captions were kept, and hands over each picture in
// presentation order. Throws Error where the file has changed meanwhile.
void ReadCaptions(const CaptionSurvey& survey, const std::function<void(const CaptionedPicture&)>& take,
                  const ProgressCallback& progress = {});

// All services of what was surveyed.
std::vector<CaptionService> DecodeCaptions(const CaptionSurvey& survey,
                                           const ProgressCallback& progress = {});

}  // namespace qlnmedia

#endif
