// Checks all coded streams of a file in one pass that somebody else makes over its packets.
#ifndef MEDIA_CHECK_FILE_CHECKER_H
#define MEDIA_CHECK_FILE_CHECKER_H

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include "captions/reader.h"
#include "check/caption_streams.h"
#include "check/stream_checker.h"
#include "container/media_file.h"

namespace qlnmedia {

// The presentation time of a packet, in seconds; nothing where its container tells none.
std::optional<double> TimeOf(const MediaPacket& packet, const MediaFile& file);

class FileChecker {
 public:
  // Looks at the streams that the file has so far: checkers of later ones would have missed packets. `file`
  // is kept by the caller as long as this. `found` hears of each finding when it is new; empty for nobody.
  explicit FileChecker(const MediaFile& file, FoundCallback found = {});
  FileChecker(const FileChecker&) = delete;
  FileChecker& operator=(const FileChecker&) = delete;

  // The streams that are checked, by their index.
  const std::vector<MediaStream>& streams() const { return streams_; }
  // For others that look at the same packets.
  FindingList& findings() { return findings_; }
  // The stream whose captions are to be surveyed; nothing where there is none, or samples cannot be read.
  std::optional<unsigned> captioned() const;
  // Whether there are captions beside the pictures: caption tracks, ancillary data.
  bool checksCaptionStreams() const { return beside_.any(); }
  // Coded frames of a stream that were taken; 0 for one that is not H.264 or HEVC.
  int64_t frames(unsigned stream) const;

  // Takes the next packet of any stream.
  void Take(const MediaPacket& packet) {
    PacketUnits apart(packet.view.data);
    Take(packet, apart);
  }
  // The same with the packet's units, which others look at as well.
  void Take(const MediaPacket& packet, PacketUnits& apart);
  // All that was found in the packets, in the captions of `captioned` (null where nobody surveyed them), and
  // at the end of the file.
  std::vector<Finding> Finish(const CaptionSurvey* captions);

 private:
  void TakeDamage(const MediaPacket& packet);

  const MediaFile& file_;
  std::vector<MediaStream> streams_;
  std::optional<Finding> damaged_;  // the last packet that is
  FindingList findings_;
  CaptionStreamCheck beside_;
  std::vector<std::unique_ptr<StreamChecker>> checkers_;  // null for what is not H.264 or HEVC
};

}  // namespace qlnmedia

#endif
