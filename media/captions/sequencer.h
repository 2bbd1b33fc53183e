// Caption data spread over pictures: as many line 21 pairs and service triplets as each rate has room for.
#ifndef CAPTIONS_SEQUENCER_H
#define CAPTIONS_SEQUENCER_H

#include <cstdint>
#include <deque>
#include <vector>

#include "captions/cdp.h"
#include "captions/line21.h"

namespace qlnmedia::captions {

// Queues caption data and gives the triplets of one picture after the other.
//
// Every picture has cc_count triplets. Line 21 runs at 60 (59.94) fields a second, the two fields in turn,
// whatever the pictures' rate: 2 pairs a picture at 30, 1 at 60, 2 or 3 at 24 and 25, 1 or 2 at 50; a field
// without data sends null pairs. Behind them come service triplets, and padding that is not valid.
class Sequencer {
 public:
  explicit Sequencer(Rate rate) : rate_(rate) {}

  // Line 21 pairs, sent one for each frame of that field (1 or 2).
  void AddPairs(int field, const std::vector<Pair>& pairs);
  // The triplets of a caption channel packet.
  void AddService(const std::vector<Triplet>& triplets);

  // Line 21 fields, of both kinds in turn, that have begun when `picture` pictures are over.
  static int64_t FieldsBefore(int64_t picture, Rate rate);
  static constexpr int kFieldsPerSecond = 60;

  // True when nothing is queued.
  bool empty() const { return pairs_[0].empty() && pairs_[1].empty() && service_.empty(); }

  // The triplets of the next picture.
  std::vector<Triplet> NextPicture();

  // The same as a caption packet; the counter goes up by one each time.
  CaptionPacket NextPacket();

 private:
  Rate rate_;
  int64_t picture_ = 0;
  uint16_t counter_ = 0;
  std::deque<Pair> pairs_[2];
  std::deque<Triplet> service_;
};

}  // namespace qlnmedia::captions

#endif
