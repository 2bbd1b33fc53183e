// Holds the captions of a stream against what its rate asks for, and says what they are.

#include "check/captions.h"

#include <fmt/format.h>

#include <algorithm>

namespace qlnmedia {

namespace {

// Gathers findings about one stream; equal texts count up.
class CaptionFindings {
 public:
  CaptionFindings(const CaptionSurvey& survey, FindingList& findings)
      : survey_(survey),
        counts_(survey.counts),
        findings_(findings),
        wanted_(TripletsOf(survey.fieldRate ? survey.fieldRate : survey.pace.rate)) {}

  void Check() {
    for (size_t i = 0; i < counts_.size();) {
      if (counts_[i] != CaptionSurvey::kNone) {
        CheckCount(i++);
        continue;
      }
      const size_t begin = i;
      while (i < counts_.size() && counts_[i] == CaptionSurvey::kNone) ++i;
      CheckGap(begin, i);
    }
  }

 private:
  static size_t TripletsOf(std::optional<captions::Rate> rate) {
    return rate ? static_cast<size_t>(captions::InfoOf(*rate).triplets) : 0;
  }
  // Of picture `i`: with pulldown those of each field that it is shown for.
  size_t Wanted(size_t i) const { return survey_.fieldRate ? wanted_ * survey_.fields[i] : wanted_; }
  // Pictures whose triplets stand on picture `i`, itself included.
  size_t Served(size_t i) const {
    return Wanted(i) == 0 || counts_[i] == CaptionSurvey::kNone ? 1
                                                                : (counts_[i] + Wanted(i) - 1) / Wanted(i);
  }
  // True for a picture with more than its own, and pictures without any in front of it or behind it.
  bool IsBurst(size_t i) const {
    if (Served(i) < 2) return false;
    return (i > 0 && counts_[i - 1] == CaptionSurvey::kNone) ||
           (i + 1 < counts_.size() && counts_[i + 1] == CaptionSurvey::kNone);
  }

  void CheckCount(size_t i) {
    const size_t count = counts_[i];
    const size_t wanted = Wanted(i);
    if (wanted == 0 || count == wanted) return;
    if (IsBurst(i))
      return Add(
          fmt::format("a burst of {} caption triplets on one picture between pictures without any; its "
                      "rate asks for {} on each",
                      count, wanted),
          i);
    Add(fmt::format("a picture with {} caption triplets, {} than the {} of its rate", count,
                    count > wanted ? "more" : "fewer", wanted),
        i);
  }

  // Pictures from `begin` to before `end` have no captions. Those whose triplets stand in a burst beside them
  // are told with it.
  void CheckGap(size_t begin, size_t end) {
    const size_t served = std::max(begin > 0 ? Served(begin - 1) : 1, end < counts_.size() ? Served(end) : 1);
    if (end - begin < served) return;
    const double seconds = survey_.pace.picturesPerSecond > 0
                               ? static_cast<double>(end - begin) / survey_.pace.picturesPerSecond
                               : 0;
    Add(end - begin == 1
            ? std::string("a picture without captions in a stream that has some")
            : fmt::format("a gap of {} pictures ({:.2f} s) without captions in a stream that has some",
                          end - begin, seconds),
        begin);
  }

  void Add(std::string text, size_t picture) {
    findings_.Add(survey_.stream, FindingKind::kCaptions, std::move(text), static_cast<int64_t>(picture));
  }

  const CaptionSurvey& survey_;
  const std::vector<uint8_t>& counts_;
  FindingList& findings_;
  size_t wanted_;
};

}  // namespace

void CheckCaptions(const CaptionSurvey& survey, FindingList& findings) {
  if (survey.captioned() != 0) CaptionFindings(survey, findings).Check();
}

}  // namespace qlnmedia
