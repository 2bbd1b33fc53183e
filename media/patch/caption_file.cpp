// Reads a caption file and says what became of it.

#include "patch/caption_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <utility>

#include "base/error.h"
#include "base/numbers.h"
#include "base/read_error.h"
#include "base/text_file.h"
#include "container/caption_source.h"

namespace qlnmedia {

namespace {

// Media begin with bytes that no text has.
bool IsMedia(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::array<char, 4096> head{};
  file.read(head.data(), head.size());
  if (file.bad()) throw ReadError(path, "cannot be read");
  return std::find(head.begin(), head.begin() + file.gcount(), '\0') != head.begin() + file.gcount();
}

}  // namespace

CaptionFile::CaptionFile(const CaptionOptions& options) : options_(options) {
  if (!IsCaptionFile(options.file) && IsMedia(options.file)) {
    track_ = TrackOf(*OpenCaptionSource(options.file, {}, options.source, {}), options.file, {});
    SetOffset();
    return;
  }
  if (!options.source.stream.empty())
    throw Error(options.file, "is a caption file, which has no streams", "leave --captions-from out");
  std::string text = ReadTextFile(options.file);
  if (IsCueFile(options.file)) {
    // What can be refused without the stream is refused first.
    MakeTrackOfCues(options.file, text, captions::Rate::k29_97, options.source, &done_);
    cues_ = std::move(text);
    return;
  }
  std::string reason;
  std::optional<captions::CaptionTrack> track = captions::ReadCaptionTrack(text, &reason);
  if (!track) throw Error(options.file, reason);
  track_ = std::move(*track);
  SetOffset();
}

void CaptionFile::SetOffset() {
  offset_ = track_.FirstHour();
  if (options_.offset.empty()) return;
  const std::optional<int64_t> frame = track_.FrameOf(options_.offset);
  if (!frame)
    throw Error("--captions-offset",
                fmt::format("\"{}\" is no timecode at the caption file's rate", options_.offset),
                "write HH:MM:SS:FF");
  offset_ = *frame;
}

void CaptionFile::SpreadOver(const CaptionSurvey& survey, const std::string& path, unsigned index,
                             const std::string& rate) {
  index_ = index;
  pace_ = AskedPace(survey.pace, survey.order, rate);
  if (survey.captioned() != 0 && !options_.replace)
    throw Error(path, fmt::format("stream {} has captions on {} pictures", index, survey.captioned()),
                "--replace-captions takes them out first");
  // Whoever says a rate wants its triplets.
  if (rate.empty()) {
    fields_ = survey.fields;
    fieldRate_ = survey.fieldRate;
  }
  if (!pace_.rate && !fieldRate_)
    throw Error(path,
                fmt::format("stream {} has {} pictures a second, a rate without captions", index,
                            PlainNumber(pace_.picturesPerSecond)),
                AdviceForPace(pace_));
  const captions::Rate spread = fieldRate_ ? *fieldRate_ : *pace_.rate;
  if (!cues_.empty()) {
    track_ = MakeTrackOfCues(options_.file, cues_, spread, options_.source, &done_);
    SetOffset();
  }
  clock_.emplace(survey.order, pace_);
  source_.emplace(track_, spread, offset_);
}

CaptionProvider CaptionFile::provider() {
  if (fieldRate_) return [this](uint32_t) { return OfFields(); };
  return [this](uint32_t) {
    std::vector<captions::Triplet> triplets = source_->Next(clock_->number());
    clock_->Next();
    return triplets;
  };
}

// Of all fields that a picture is shown for.
std::vector<captions::Triplet> CaptionFile::OfFields() {
  std::vector<captions::Triplet> all;
  const int fields = picture_ < fields_.size() ? fields_[picture_++] : 0;
  for (int i = 0; i < fields; ++i) {
    const std::vector<captions::Triplet> ofField = source_->Next(field_++);
    all.insert(all.end(), ofField.begin(), ofField.end());
  }
  return all;
}

std::vector<std::string> CaptionFile::Summary(const EditCounts& counts) const {
  const captions::RateInfo& info = captions::InfoOf(fieldRate_ ? *fieldRate_ : *pace_.rate);
  std::vector<std::string> lines = {fmt::format("stream {}: captions put into {} pictures, {} triplets {}",
                                                index_, counts.captions, info.triplets,
                                                fieldRate_ ? "for each field that they are shown" : "each")};
  if (counts.captionsRemoved != 0)
    lines.front() += fmt::format(", {} earlier ones taken out", counts.captionsRemoved);
  for (std::string& line : Warnings()) lines.push_back(std::move(line));
  return lines;
}

std::vector<std::string> CaptionFile::Warnings() const {
  const captions::RateInfo& info = captions::InfoOf(fieldRate_ ? *fieldRate_ : *pace_.rate);
  std::vector<std::string> lines;
  const auto warn = [&lines](std::string text) { lines.push_back("warning: " + std::move(text)); };
  if (!pace_.steady && !fieldRate_)
    warn(fmt::format("pictures are missing or of uneven length: captions go by time, {} pictures a second",
                     info.name));
  for (const std::string& line : done_) warn(options_.file + ": " + line);
  const bool ofItsFrames = fieldRate_ && 2 * captions::InfoOf(track_.rate).nominal == info.nominal;
  if (source_->converted() && !ofItsFrames)
    warn(fmt::format("{} is made for {} pictures a second, the stream has {}: times are converted",
                     options_.file, captions::InfoOf(track_.rate).name, info.name));
  if (source_->early() != 0)
    warn(fmt::format("{} frames of captions stand in front of the first picture and are lost",
                     source_->early()));
  if (source_->left() != 0)
    warn(fmt::format("{} frames of captions stand behind the last picture and are lost", source_->left()));
  return lines;
}

}  // namespace qlnmedia
