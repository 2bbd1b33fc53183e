// Checks of captions beside the pictures: caption tracks, ancillary data, and files of its elements.
#ifndef MEDIA_CHECK_CAPTION_STREAMS_H
#define MEDIA_CHECK_CAPTION_STREAMS_H

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "check/caption_packets.h"
#include "check/finding_list.h"
#include "container/anc_captions.h"
#include "container/caption_tracks.h"
#include "container/media_file.h"

namespace qlnmedia {

// The packets of one stream of ancillary data. `file` and `findings` must outlive this.
class AncCheck {
 public:
  AncCheck(unsigned stream, FindingList& findings);

  // What one packet of the stream, or one element of a file, holds, and what was left out of it.
  void Take(const std::vector<captions::AncPacket>& packets, const std::vector<std::string>& damage);
  void Finish() { packets_.Finish(); }

 private:
  unsigned stream_;
  FindingList& findings_;
  int64_t number_ = 0;
  CaptionPacketCheck packets_;
};

// Those of a file, by their packets and by their boxes. Damage, gaps in the counter of caption packets,
// numbers of triplets that are not those of the rate, and pairs that CTA-608 does not have are found; frames
// count the stream's packets, or the track's samples.
class CaptionStreamCheck {
 public:
  // `file` and `findings` must outlive this.
  CaptionStreamCheck(const MediaFile& file, FindingList& findings);

  bool any() const { return !ancillary_.empty() || !tracks_.empty(); }
  void Take(const MediaPacket& packet);
  void Finish();

 private:
  void CheckTrack(const CaptionTrackPlace& place);

  const MediaFile& file_;
  FindingList& findings_;
  AncStreamReader reader_;
  std::map<unsigned, AncCheck> ancillary_;
  std::vector<CaptionTrackPlace> tracks_;
};

// The elements of an elementary ancillary file, each of which counts as a frame.
void CheckAncFile(std::string_view file, FindingList& findings);

}  // namespace qlnmedia

#endif
