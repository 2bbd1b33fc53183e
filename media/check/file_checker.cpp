// One checker for each stream of H.264 or HEVC, and what is looked at once a file.

#include "check/file_checker.h"

#include <algorithm>

#include "check/captions.h"
#include "container/raw_end.h"

namespace qlnmedia {

FileChecker::FileChecker(const MediaFile& file)
    : file_(file), streams_(file.streams()), beside_(file, findings_) {
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

void FileChecker::Take(const MediaPacket& packet, PacketUnits& apart) {
  if (packet.stream < checkers_.size() && checkers_[packet.stream] != nullptr)
    checkers_[packet.stream]->Take(packet.view, apart);
  beside_.Take(packet);
}

std::vector<Finding> FileChecker::Finish(const CaptionSurvey* captions) {
  for (const auto& checker : checkers_) {
    if (checker != nullptr) checker->Finish();
  }
  if (captions != nullptr) CheckCaptions(*captions, findings_);
  beside_.Finish();
  const std::string note = EndNote(file_);
  if (!note.empty()) findings_.Add(0, FindingKind::kDamage, note, -1);
  return findings_.Take();
}

}  // namespace qlnmedia
