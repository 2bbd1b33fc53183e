// Reads a file once, for all its streams and their captions, and looks at its end.

#include "qlnmedia/check.h"

#include <algorithm>
#include <memory>

#include "base/error.h"
#include "base/library_messages.h"
#include "base/progress.h"
#include "base/text_file.h"
#include "check/caption_file.h"
#include "check/captions.h"
#include "check/stream_checker.h"
#include "container/caption_source.h"
#include "container/coded_stream.h"
#include "container/media_file.h"
#include "container/raw_end.h"

namespace qlnmedia {

namespace {

using StreamCheckers = std::vector<std::unique_ptr<StreamChecker>>;

// A checker for each stream of H.264 or HEVC; null for all others.
StreamCheckers MakeCheckers(const std::vector<MediaStream>& streams, FindingList& findings) {
  StreamCheckers checkers;
  for (const MediaStream& stream : streams) {
    const VideoCodec codec = stream.coded.codec;
    const bool checked = codec == VideoCodec::kH264 || codec == VideoCodec::kHevc;
    checkers.push_back(checked ? std::make_unique<StreamChecker>(stream, findings) : nullptr);
  }
  return checkers;
}

bool HasCodedVideo(const std::vector<MediaStream>& streams) {
  for (const MediaStream& stream : streams) {
    if (stream.coded.codec != VideoCodec::kOther) return true;
  }
  return false;
}

// The first stream that may have captions, in a file that has one.
unsigned FirstCaptioned(const std::vector<MediaStream>& streams) {
  return std::find_if(streams.begin(), streams.end(),
                      [](const MediaStream& stream) { return MayHaveCaptions(stream.coded.codec); })
      ->index;
}

}  // namespace

std::vector<Finding> CheckFile(const std::string& path, const ProgressCallback& progress) {
  if (IsCaptionFile(path)) {
    FindingList findings;
    CheckCaptionFile(path, ReadTextFile(path), findings);
    return findings.Take();
  }
  const MessageSink messages;  // findings say it better
  const MediaInput input(path);
  MediaFile file(input);
  file.RequireVideo();
  if (!HasCodedVideo(file.streams())) throw NotApplicable(path, "has no H.264, HEVC or MPEG-2 stream");
  FindingList findings;
  // Streams that show later are not looked at: their checkers would have missed packets.
  const std::vector<MediaStream> streams = file.streams();
  const StreamCheckers checkers = MakeCheckers(streams, findings);
  // Captions stand in samples.
  const bool encrypted = std::any_of(streams.begin(), streams.end(), [](const MediaStream& stream) {
    return stream.coded.codec != VideoCodec::kOther && stream.encrypted;
  });
  const unsigned captioned = FirstCaptioned(streams);
  CaptionCounter counter(DescribeStream(file, captioned));
  Progress meter(progress, "checking", file.sizeBytes());
  for (MediaPacket packet; file.Next(packet);) {
    meter.At(packet.view.position);
    if (packet.stream < checkers.size() && checkers[packet.stream] != nullptr)
      checkers[packet.stream]->Take(packet.view);
    if (packet.stream == captioned && !encrypted) counter.Add(packet.view);
  }
  meter.Done();
  for (const auto& checker : checkers) {
    if (checker != nullptr) checker->Finish();
  }
  if (!encrypted) {
    CaptionSurvey survey = counter.Finish();
    survey.stream = captioned;
    CheckCaptions(survey, findings);
  }
  const std::string note = EndNote(file);
  if (!note.empty()) findings.Add(0, FindingKind::kDamage, note, -1);
  return findings.Take();
}

}  // namespace qlnmedia
