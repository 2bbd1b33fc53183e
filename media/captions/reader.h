// The captions that a video stream carries, in presentation order: a first pass finds the order and counts, a
// second one reads.
#ifndef MEDIA_CAPTIONS_READER_H
#define MEDIA_CAPTIONS_READER_H

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "captions/shown_fields.h"
#include "captions/user_data.h"
#include "timing/picture_clock.h"
#include "timing/timecode.h"
#include "units/coded_stream.h"
#include "units/packet_units.h"

namespace qlnmedia {

using Triplets = std::vector<qlnmedia::captions::Triplet>;

// True for H.264, HEVC and MPEG-2 pictures.
inline bool MayHaveCaptions(VideoCodec codec) { return codec != VideoCodec::kOther; }

// The caption triplets of one packet, all its messages after each other; nothing if it has none. `framing` is
// not used for MPEG-2.
std::optional<Triplets> CaptionsOf(VideoCodec codec, ByteSpan packet, Framing framing);
// The same with the packet's units, which others look at as well.
std::optional<Triplets> CaptionsOf(VideoCodec codec, PacketUnits& packet, Framing framing);

// How many triplets a packet has as a survey counts them, and those of the two fields of a frame together.
uint8_t CaptionCount(const std::optional<Triplets>& triplets);
uint8_t SumOfCounts(uint8_t a, uint8_t b);

// What the first pass finds: some bytes for each picture.
struct CaptionSurvey {
  static constexpr uint8_t kNone = 255;  // a picture without captions

  std::string path;     // of the file, where there is one
  unsigned stream = 0;  // its index there
  PicturePlaces order;
  Pace pace;
  std::optional<bool> dropFrame;  // whether its timecode leaves numbers out, where it has some
  std::vector<uint8_t> counts;    // triplets of each picture in presentation order, 254 for more, or kNone
  // The triplets of each packet in coding order, where they were kept; else empty.
  std::vector<Triplets> kept;
  // With pulldown, the fields that each picture is shown for, in presentation order, and how many there are
  // in a second; else empty. Each field has as many triplets as pictures of that rate.
  std::vector<uint8_t> fields;
  std::optional<captions::Rate> fieldRate;
  // Where a stream without captions may have them, and nobody looks; empty for most.
  std::string elsewhere;
  size_t captioned() const;
};

// Makes a survey of one stream out of its packets in coding order.
class CaptionCounter {
 public:
  // A stream that may have captions. Its triplets are kept, for a second pass without the stream, unless they
  // take more than `keepBytes` of memory.
  explicit CaptionCounter(StreamDescription stream, size_t keepBytes = 0);
  void Add(const PacketView& packet);
  // The same with the packet's units, which others look at as well.
  void Add(const PacketView& packet, PacketUnits& apart);
  // Packets that were added.
  size_t packets() const { return coded_.size(); }
  // The survey of all that was added; the object is used up.
  CaptionSurvey Finish();

 private:
  void Keep(Triplets triplets);

  StreamDescription stream_;
  Framing framing_;
  OrderSurvey order_;
  DropFrameFinder dropFrame_;
  ShownFields shown_;
  size_t keepBytes_;  // 0 where none are kept, or no more
  size_t keptBytes_ = 0;
  std::vector<uint8_t> coded_;   // counts of each packet
  std::vector<uint8_t> fields_;  // of each packet
  std::vector<Triplets> kept_;
};

// One picture of the second pass.
struct CaptionedPicture {
  double seconds = 0;  // from the first picture
  int64_t number = 0;  // frames of the stream's pace from the first picture
  Triplets triplets;   // none for a picture without captions
};

// The second pass over the packets that were surveyed: hands over each picture in presentation order, as soon
// as those in front of it are whole.
class CaptionSorter {
 public:
  // `survey` must outlive this.
  CaptionSorter(const CaptionSurvey& survey, const StreamDescription& stream,
                std::function<void(const CaptionedPicture&)> take);
  // The same over triplets that were kept.
  CaptionSorter(const CaptionSurvey& survey, std::function<void(const CaptionedPicture&)> take)
      : CaptionSorter(survey, StreamDescription{}, std::move(take)) {}
  // Whether packets are missing of those that were surveyed; no more may be added.
  bool missing() const { return packets_ < survey_.order.places.size(); }
  void Add(const PacketView& packet);
  void Add(const Triplets& ofPacket);
  void Finish() { Send(kNoPlace); }

 private:
  void Send(uint32_t unfinished);

  const CaptionSurvey& survey_;
  VideoCodec codec_;
  Framing framing_;
  std::function<void(const CaptionedPicture&)> take_;
  PictureClock clock_;
  std::map<uint32_t, Triplets> waiting_;  // pictures that come earlier in coding order
  size_t packets_ = 0;
  uint32_t place_ = kNoPlace;  // of the last packet's picture
  uint32_t next_ = 0;          // place that is handed over next
};

}  // namespace qlnmedia

#endif
