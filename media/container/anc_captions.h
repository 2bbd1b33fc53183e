// Captions, and what else there is, in the ancillary data streams of transport streams (SMPTE ST 2038) and
// MXF (SMPTE ST 436).
#ifndef MEDIA_CONTAINER_ANC_CAPTIONS_H
#define MEDIA_CONTAINER_ANC_CAPTIONS_H

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/progress.h"
#include "captions/anc_packets.h"
#include "captions/caption_track.h"
#include "container/caption_services.h"
#include "container/media_file.h"
#include "container/timed_triplets.h"

namespace qlnmedia {

// The ancillary data streams of a file, by index: those of a transport stream that are registered as such,
// and the data tracks of MXF with elements of SMPTE ST 436.
std::vector<unsigned> FindAncStreams(const MediaFile& file);

// Takes the packets of such streams apart.
class AncStreamReader {
 public:
  explicit AncStreamReader(const MediaFile& file);
  ~AncStreamReader();
  // The ancillary packets of one packet; `damage` takes a line for each that is left out.
  std::vector<captions::AncPacket> Take(const MediaPacket& packet, std::vector<std::string>* damage);

 private:
  bool mxf_;
  int height_ = 0;  // of the first video
  bool interlaced_ = false;
  std::unique_ptr<mp4::Source> source_;  // of MXF in a file
  std::set<unsigned> lines_;             // of MXF in a pipe: the streams whose elements are of lines
};

// Packets of one kind.
struct AncKind {
  uint64_t count = 0;
  std::set<int> lines;
  std::set<int> fields;  // 1 and 2, where they are told
};
struct AncKindName {
  uint8_t did = 0;
  uint8_t sdid = 0;  // the block number where `did` is 0x80 or more
  bool chroma = false;
  friend auto operator<=>(const AncKindName&, const AncKindName&) = default;
};

// All that such a stream holds.
struct AncContents {
  std::vector<TimedTriplets> captions;  // times from the first picture of the file's first video
  std::optional<captions::Rate> rate;   // as its caption packets, or the frames of MXF, have it
  std::map<AncKindName, AncKind> kinds;
  std::vector<AnnouncedService> services;  // as its caption packets announce them
  uint64_t packets = 0;                    // of the container
  std::vector<std::string> damage;  // a line for each kind, with the first place and how many there are
};

// Gathers the contents of one stream, packet by packet of its file.
class AncGathering {
 public:
  // `file` must outlive this.
  AncGathering(const MediaFile& file, unsigned stream);
  // Takes those of its stream, and the times of the first video's; passes over all others.
  void Take(const MediaPacket& packet);
  uint64_t packets() const { return contents_.packets; }
  // Of all that was taken; the object is used up.
  AncContents Finish();

 private:
  void Add(const std::vector<captions::AncPacket>& packets, const std::string& place,
           std::optional<double> seconds);
  void Count(const captions::AncPacket& packet);
  void Announced(const captions::AncPacket& packet);
  double SecondsOf(const MediaPacket& packet) const;

  const MediaFile& file_;
  unsigned stream_;
  std::optional<unsigned> video_;  // nothing for MXF, whose pictures begin with its first frame
  AncStreamReader reader_;
  std::optional<double> first_;  // time of the first picture
  AncContents contents_;
  DamagedPlaces damage_{"packets"};
};

// Reads a stream, or its first `most` packets. What is damaged is left out.
AncContents ReadAncContents(const MediaInput& input, unsigned stream, const ProgressCallback& progress = {},
                            uint64_t most = UINT64_MAX);

// The captions of what was read of a stream of the file `path`, by its times; those in front of the first
// picture have negative ones. The rate is `asked`, what its packets or frames say, or that of line 21.
// `damage` takes what AncContents has. Throws NotApplicable for a stream without captions.
captions::CaptionTrack TrackOfAnc(AncContents contents, const std::string& path, unsigned stream,
                                  std::optional<captions::Rate> asked, std::vector<std::string>* damage);

}  // namespace qlnmedia

#endif
