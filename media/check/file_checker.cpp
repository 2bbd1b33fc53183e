// One checker for each stream of H.264 or HEVC, and what is looked at once a file.

#include "check/file_checker.h"

#include <algorithm>
#include <utility>

#include "check/captions.h"
#include "container/raw_end.h"

namespace qlnmedia {

namespace {

bool IsDamagedPacket(const std::string& note, const MediaFile& file) {
  return std::any_of(file.streams().begin(), file.streams().end(), [&note](const MediaStream& stream) {
    return note == MediaFile::DamagedPacketNote(stream.index);
  });
}

}  // namespace

std::optional<double> TimeOf(const MediaPacket& packet, const MediaFile& file) {
  const StreamDescription& stream = file.streams()[packet.stream].coded;
  if (stream.raw || packet.view.pts == kNoTime) return {};
  return static_cast<double>(packet.view.pts) * stream.timeBase.value();
}

FileChecker::FileChecker(const MediaFile& file, FoundCallback found)
    : file_(file), streams_(file.streams()), findings_(std::move(found)), beside_(file, findings_) {
  for (const MediaStream& stream : streams_) {
    const VideoCodec codec = stream.coded.codec;
    const bool checked = codec == VideoCodec::kH264 || codec == VideoCodec::kHevc;
    checkers_.push_back(checked ? std::make_unique<StreamChecker>(stream, findings_) : nullptr);
  }
}

std::optional<unsigned> FileChecker::captioned() const {
  // Captions stand in samples.
  if (std::any_of(streams_.begin(), streams_.end(), [](const MediaStream& stream) {
        return stream.coded.codec != VideoCodec::kOther && stream.encrypted;
      }))
    return {};
  for (const MediaStream& stream : streams_) {
    if (MayHaveCaptions(stream.coded.codec)) return stream.index;
  }
  return {};
}

int64_t FileChecker::frames(unsigned stream) const {
  return stream < checkers_.size() && checkers_[stream] != nullptr ? checkers_[stream]->frames() : 0;
}

// Of the last packet of all the end of the file may tell more.
void FileChecker::TakeDamage(const MediaPacket& packet) {
  if (damaged_) findings_.Add(*std::exchange(damaged_, std::nullopt));
  if (packet.damaged)
    damaged_ = {packet.stream,   FindingKind::kDamage, MediaFile::DamagedPacketNote(packet.stream), -1, 1,
                Severity::kError};
}

void FileChecker::Take(const MediaPacket& packet, PacketUnits& apart) {
  TakeDamage(packet);
  findings_.At(TimeOf(packet, file_));
  if (packet.stream < checkers_.size() && checkers_[packet.stream] != nullptr)
    checkers_[packet.stream]->Take(packet.view, apart);
  beside_.Take(packet);
}

std::vector<Finding> FileChecker::Finish(const CaptionSurvey* captions) {
  findings_.At({});
  for (const auto& checker : checkers_) {
    if (checker != nullptr) checker->Finish();
  }
  if (captions != nullptr) CheckCaptions(*captions, findings_);
  beside_.Finish();
  findings_.At({});
  const std::string note = EndNote(file_);
  // Where nothing else is wrong with the end, the note is of the last packet that is damaged.
  if (damaged_ && note == damaged_->text) {
    findings_.Add(*damaged_);
  } else if (!note.empty() && !IsDamagedPacket(note, file_)) {
    findings_.Add(0, FindingKind::kDamage, note, -1);
  }
  return findings_.Take();
}

}  // namespace qlnmedia
