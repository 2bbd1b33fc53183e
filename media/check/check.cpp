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
#include "check/following_captions.h"
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

// The captions in the pictures of a stream, judged in one go.
class PictureCaptions {
 public:
  PictureCaptions(const MediaFile& file, unsigned stream)
      : stream_(stream), counter_(DescribeStream(file, stream)), order_(file, DescribeStream(file, stream)) {}

  void Take(const PacketView& packet, PacketUnits& apart) {
    counter_.Add(packet, apart);
    order_.Add(packet);
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

// Reads a file and lets all look at it.
class FileCheck {
 public:
  // `live`: nothing waits for the end.
  FileCheck(const MediaFile& file, const FoundCallback& found, bool live)
      : file_(file), checker_(file, found), captioned_(checker_.captioned()) {
    if (!HasCodedVideo(file.streams()) && !checker_.checksCaptionStreams())
      throw NotApplicable(file.path(), "has no H.264, HEVC or MPEG-2 stream");
    if (!captioned_) return;
    const StreamDescription stream = DescribeStream(file, *captioned_);
    if (live && !OwnOrder(file, stream).doesAnything()) {
      following_.emplace(*captioned_, stream, checker_.findings());
    } else {
      captions_.emplace(file, *captioned_);
    }
  }

  void Take(const MediaPacket& packet) {
    PacketUnits apart(packet.view.data);
    checker_.Take(packet, apart);
    if (packet.stream != captioned_) return;
    if (following_) following_->Take(packet.view, apart, TimeOf(packet, file_));
    if (captions_) captions_->Take(packet.view, apart);
  }

  std::vector<Finding> Finish() {
    if (following_) following_->Finish();
    if (!captions_) return checker_.Finish(nullptr);
    const CaptionSurvey survey = captions_->Finish();
    return checker_.Finish(&survey);
  }

 private:
  const MediaFile& file_;
  FileChecker checker_;
  std::optional<unsigned> captioned_;
  std::optional<PictureCaptions> captions_;
  std::optional<FollowingCaptions> following_;
};

std::vector<Finding> Check(const std::string& path, const LiveCheckOptions& options, bool live) {
  FindingList ofText(options.found);
  if (IsCaptionFile(path)) {
    CheckCaptionFile(path, ReadTextFile(path), ofText);
    return ofText.Take();
  }
  if (IsAncFile(path)) {
    CheckAncFile(ReadTextFile(path), ofText);
    return ofText.Take();
  }
  const MessageSink messages;  // findings say it better
  const MediaInput input(path);
  MediaFile file(input);
  file.RequireVideo();
  FileCheck check(file, options.found, live);
  Progress meter(options.progress, "checking", file.sizeBytes());
  for (MediaPacket packet; file.Next(packet);) {
    meter.At(packet.view.position);
    check.Take(packet);
  }
  meter.Done();
  return check.Finish();
}

}  // namespace

std::vector<Finding> CheckFile(const std::string& path, const ProgressCallback& progress) {
  return Check(path, {progress, {}}, false);
}

std::vector<Finding> CheckLive(const std::string& path, const LiveCheckOptions& options) {
  return Check(path, options, true);
}

}  // namespace qlnmedia
