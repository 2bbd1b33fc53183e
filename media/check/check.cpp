// Reads a file once, for all its streams and their captions, and looks at its end.

#include "qlnmedia/check.h"

#include <optional>

#include "base/error.h"
#include "base/library_messages.h"
#include "base/progress.h"
#include "base/text_file.h"
#include "check/caption_file.h"
#include "check/caption_streams.h"
#include "check/file_checker.h"
#include "container/anc_file.h"
#include "container/caption_source.h"
#include "container/coded_stream.h"
#include "container/file_captions.h"
#include "container/media_file.h"

namespace qlnmedia {

namespace {

bool HasCodedVideo(const std::vector<MediaStream>& streams) {
  for (const MediaStream& stream : streams) {
    if (stream.coded.codec != VideoCodec::kOther) return true;
  }
  return false;
}

// The captions in the pictures of a stream.
class PictureCaptions {
 public:
  PictureCaptions(const MediaFile& file, unsigned stream)
      : stream_(stream), counter_(DescribeStream(file, stream)), order_(file, DescribeStream(file, stream)) {}

  void Take(const MediaPacket& packet, PacketUnits& apart) {
    if (packet.stream != stream_) return;
    counter_.Add(packet.view, apart);
    order_.Add(packet.view);
  }
  CaptionSurvey Finish() {
    CaptionSurvey survey = counter_.Finish();
    order_.Apply(survey);
    survey.stream = stream_;
    return survey;
  }

 private:
  unsigned stream_;
  CaptionCounter counter_;
  OwnOrder order_;
};

}  // namespace

std::vector<Finding> CheckFile(const std::string& path, const ProgressCallback& progress) {
  if (IsCaptionFile(path)) {
    FindingList findings;
    CheckCaptionFile(path, ReadTextFile(path), findings);
    return findings.Take();
  }
  if (IsAncFile(path)) {
    FindingList findings;
    CheckAncFile(ReadTextFile(path), findings);
    return findings.Take();
  }
  const MessageSink messages;  // findings say it better
  const MediaInput input(path);
  MediaFile file(input);
  file.RequireVideo();
  FileChecker checker(file);
  if (!HasCodedVideo(file.streams()) && !checker.checksCaptionStreams())
    throw NotApplicable(path, "has no H.264, HEVC or MPEG-2 stream");
  const std::optional<unsigned> captioned = checker.captioned();
  std::optional<PictureCaptions> captions;
  if (captioned) captions.emplace(file, *captioned);
  Progress meter(progress, "checking", file.sizeBytes());
  for (MediaPacket packet; file.Next(packet);) {
    meter.At(packet.view.position);
    PacketUnits apart(packet.view.data);
    checker.Take(packet, apart);
    if (captions) captions->Take(packet, apart);
  }
  meter.Done();
  if (!captions) return checker.Finish(nullptr);
  const CaptionSurvey survey = captions->Finish();
  return checker.Finish(&survey);
}

}  // namespace qlnmedia
