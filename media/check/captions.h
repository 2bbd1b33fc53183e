// Checks of the captions that a stream carries.
#ifndef MEDIA_CHECK_CAPTIONS_H
#define MEDIA_CHECK_CAPTIONS_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "captions/reader.h"
#include "check/finding_list.h"

namespace qlnmedia {

// What captions of a stream are held against.
struct CaptionPace {
  unsigned stream = 0;
  double picturesPerSecond = 0;             // 0 where that is not known
  std::optional<captions::Rate> rate;       // of pictures; nothing for one that captions do not have
  std::optional<captions::Rate> fieldRate;  // with pulldown, of the fields that are shown
};

// Goes through the pictures of a stream in presentation order, and adds findings for pictures without
// captions in a stream that has some, for pictures whose number of triplets is not the constant one of their
// rate, and for bursts, where one picture has the triplets of those around it. Each is found when the picture
// behind it comes, a gap at its end.
class CaptionRun {
 public:
  struct Picture {
    uint8_t count = CaptionSurvey::kNone;  // triplets, as CaptionSurvey counts them
    uint8_t fields = 0;                    // that it is shown for; of no meaning without pulldown
    std::optional<double> seconds;         // presentation time, which goes with what is found
  };
  // `findings` must outlive this.
  CaptionRun(const CaptionPace& pace, FindingList& findings);

  void Take(const Picture& picture);
  void Finish();

 private:
  size_t Wanted(const Picture& picture) const;
  size_t Served(const Picture& picture) const;
  void Judge(const Picture* behind);
  void CheckCount(bool burst);
  void CheckGap(size_t servedBehind);
  void Add(std::string text, int64_t picture, std::optional<double> seconds);

  CaptionPace pace_;
  FindingList& findings_;
  size_t wanted_;  // triplets at the rate
  int64_t index_ = -1;
  std::optional<Picture> last_;  // that is not judged yet; of number `index_`
  std::optional<int64_t> gap_;   // where pictures without captions began
  std::optional<double> gapSeconds_;
  size_t servedInFront_ = 1;  // of the gap: the pictures that the one in front of it serves
  bool any_ = false;          // some picture had captions
};

// The same of a whole survey; frames are counted in presentation order.
void CheckCaptions(const CaptionSurvey& survey, FindingList& findings);

}  // namespace qlnmedia

#endif
