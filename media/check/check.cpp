// Reads a file once, for all its streams and their captions, and looks at its end.

#include "qlnmedia/check.h"

#include <optional>

#include "base/error.h"
#include "base/library_messages.h"
#include "base/progress.h"
#include "base/text_file.h"
#include "check/caption_file.h"
#include "check/file_checker.h"
#include "container/caption_source.h"
#include "container/coded_stream.h"
#include "container/media_file.h"

namespace qlnmedia {

namespace {

bool HasCodedVideo(const std::vector<MediaStream>& streams) {
  for (const MediaStream& stream : streams) {
    if (stream.coded.codec != VideoCodec::kOther) return true;
  }
  return false;
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
  FileChecker checker(file);
  const std::optional<unsigned> captioned = checker.captioned();
  std::optional<CaptionCounter> counter;
  if (captioned) counter.emplace(DescribeStream(file, *captioned));
  Progress meter(progress, "checking", file.sizeBytes());
  for (MediaPacket packet; file.Next(packet);) {
    meter.At(packet.view.position);
    checker.Take(packet);
    if (packet.stream == captioned) counter->Add(packet.view);
  }
  meter.Done();
  if (!counter) return checker.Finish(file, nullptr);
  CaptionSurvey survey = counter->Finish();
  survey.stream = *captioned;
  return checker.Finish(file, &survey);
}

}  // namespace qlnmedia
