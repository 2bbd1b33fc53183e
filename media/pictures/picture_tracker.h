// The coded pictures of a stream, as its packets bring them: where each begins and ends (ITU-T H.264 clauses
// 7.4.1.2.3 and 7.4.1.2.4, H.265 clause 7.4.2.4.4), what it is, and its place in output order.
#ifndef MEDIA_PICTURES_PICTURE_TRACKER_H
#define MEDIA_PICTURES_PICTURE_TRACKER_H

#include <optional>
#include <vector>

#include "pictures/order_count.h"

namespace qlnmedia {

// One coded picture: a frame, or a single field. Indices of units: [begin, end) is the access unit, `slice`
// the first slice. Units in front of the first access unit of a packet belong to none.
struct CodedPicture {
  size_t begin = 0;
  size_t slice = 0;
  size_t end = 0;
  // Of its first slice whose header can be read by the sets that came before it; nothing if there is none,
  // and what follows then says nothing.
  std::optional<SliceHead> head;
  OrderCount order;
  bool secondField = false;  // H.264: completes the frame of the field in front of it
};

// Kinds of slices, as bits.
enum SliceKinds : unsigned { kSliceI = 1, kSliceP = 2, kSliceB = 4, kSliceSwitching = 8 };

class PictureTracker {
 public:
  explicit PictureTracker(Codec codec) : codec_(codec), slices_(codec), counter_(codec) {}

  Codec codec() const { return codec_; }
  // A parameter set from outside the packets. Any other unit is passed over.
  void TakeSet(ByteSpan unit);
  // The pictures of the next packet in coding order, none where it has no slice of the base layer. A packet
  // holds a picture, or the two fields of a frame.
  std::vector<CodedPicture> Take(const std::vector<Unit>& units);

  // The kinds that the slices of a picture of the last packet have, SliceKinds combined; of an HEVC picture
  // of several slice segments all that it may have. 0 where a header breaks off.
  unsigned SlicesOf(const std::vector<Unit>& units, const CodedPicture& picture) const;

 private:
  bool BeginsPicture(const std::optional<SliceHead>& last, const std::optional<SliceHead>& head,
                     ByteSpan slice) const;
  bool CompletesFrame(const SliceHead& head) const;
  void Place(CodedPicture& picture, const SliceHead& head);
  unsigned KindOf(ByteSpan slice) const;

  Codec codec_;
  SliceHeadReader slices_;
  OrderCounter counter_;
  bool anyOrder_ = false;                // H.264 Baseline and Extended profile: slices come in any order
  std::optional<SliceHead> firstField_;  // that waits for its second one
};

// The first picture whose place is known; null if there is none.
const CodedPicture* FirstPlaced(const std::vector<CodedPicture>& pictures);

// The temporal identifier plus 1 of a picture, as the header of an HEVC slice has it.
uint8_t TemporalPlus1(ByteSpan slice);

}  // namespace qlnmedia

#endif
