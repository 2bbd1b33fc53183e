// Finds each caption's place among the pairs of field 1.

#include "captions/pop_on_schedule.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "base/text.h"
#include "captions/sequencer.h"

namespace qlnmedia::captions {

namespace {

constexpr int64_t kSecond = 1000;
constexpr size_t kShownText = 40;  // characters of a caption in a message

// The pairs of field 1 against the clock. Fields of both kinds follow each other in turn, as Sequencer sends
// them.
class Slots {
 public:
  explicit Slots(Rate rate) : rate_(rate) {}
  // The first pair on or behind the picture that is nearest to a time.
  int64_t At(int64_t ms) const {
    const RateInfo& info = InfoOf(rate_);
    const int64_t perPicture = kSecond * info.denominator;
    const int64_t picture = (2 * ms * info.numerator + perPicture) / (2 * perPicture);
    return (Sequencer::FieldsBefore(picture, rate_) + 1) / 2;
  }
  // Milliseconds that a number of pairs takes.
  int64_t Duration(int64_t slots) const {
    const RateInfo& info = InfoOf(rate_);
    // As many as nominal pictures, at the real rate.
    const int64_t numerator = slots * 2 * info.nominal * info.denominator * kSecond;
    const int64_t denominator = int64_t{Sequencer::kFieldsPerSecond} * info.numerator;
    return (2 * numerator + denominator) / (2 * denominator);
  }

 private:
  Rate rate_;
};

class Scheduler {
 public:
  Scheduler(Rate rate, bool fit, std::vector<CueProblem>* problems)
      : slots_(rate), fit_(fit), problems_(problems) {}

  void Add(const LoadedCaption& caption) {
    const int64_t asked = slots_.At(caption.begin);
    if (line_ != 0 && asked < end_ && caption.begin < endTime_)
      Tell(caption, fmt::format("begins before the caption of line {} ends", line_));
    int64_t start = asked;
    std::vector<std::pair<int64_t, Pair>> places;
    for (int64_t lowest = Place(caption, start, &places); lowest < free_;
         lowest = Place(caption, start, &places))
      start += free_ - lowest;
    if (start != asked)
      Tell(caption,
           fmt::format("cannot be sent in time: it would be {} ms late", slots_.Duration(start - asked)));
    for (const auto& [slot, pair] : places) Put(slot, pair);
    if (ErasesBefore(start)) Twice(end_, erase_[0]);
    Twice(start, kEndOfCaption);
    free_ = start + 2;
    end_ = std::max(slots_.At(caption.end) + start - asked, free_);
    endTime_ = caption.end;
    line_ = caption.line;
  }

  std::vector<Pair> Result() {
    if (line_ != 0) Twice(end_, erase_[0]);
    return std::move(pairs_);
  }

 private:
  static constexpr Pair kEndOfCaption = 0x942F;

  void Tell(const LoadedCaption& caption, const std::string& what) {
    std::string text = caption.text;
    if (text.size() > kShownText) {
      size_t end = kShownText;
      while (end > 0 && (static_cast<uint8_t>(text[end]) & 0xC0) == 0x80) --end;
      text = text.substr(0, end) + "...";
    }
    problems_->push_back({caption.line, fmt::format("\"{}\" {}", Printable(text), what), fit_});
  }

  // Whether the caption before one that is shown at `start` is erased: it ends early enough for the codes.
  bool ErasesBefore(int64_t start) const { return line_ != 0 && end_ + 2 <= start; }

  // Places the load in front of `start`, as late as it can be; the lowest place that it takes.
  int64_t Place(const LoadedCaption& caption, int64_t start,
                std::vector<std::pair<int64_t, Pair>>* places) const {
    places->clear();
    int64_t at = start;
    bool erase = ErasesBefore(start);
    for (auto unit = caption.load.rbegin(); unit != caption.load.rend(); ++unit) {
      const int64_t size = unit->twice ? 2 : 1;
      // Both codes of a kind stay together, on one side of those that erase.
      if (erase && at - size < end_ + 2) {
        at = end_;
        erase = false;
      }
      for (int64_t i = 0; i < size; ++i) places->emplace_back(--at, unit->pair);
    }
    // What erases the screen does not come in front of the caption that it takes down.
    return at;
  }

  void Put(int64_t slot, Pair pair) {
    const auto place = static_cast<size_t>(slot);
    if (place >= pairs_.size()) pairs_.resize(place + 1, kNullPair);
    pairs_[place] = pair;
  }
  void Twice(int64_t slot, Pair pair) {
    Put(slot, pair);
    Put(slot + 1, pair);
  }

  Slots slots_;
  bool fit_;
  std::vector<CueProblem>* problems_;
  const std::vector<Pair> erase_ = EraseCaption();
  std::vector<Pair> pairs_;
  int64_t free_ = 0;  // first place behind the last caption's codes
  // Of the last caption: where it ends, and its line in the file.
  int64_t end_ = 0;
  int64_t endTime_ = 0;
  int line_ = 0;
};

// The picture in which a field of line 21 begins.
int64_t PictureOfField(int64_t field, Rate rate) {
  return ((field + 1) * InfoOf(rate).nominal - 1) / Sequencer::kFieldsPerSecond;
}

// A picture's triplets, as Sequencer sends them.
std::vector<Triplet> TripletsOf(int64_t picture, const std::vector<Pair>& pairs, Rate rate) {
  std::vector<Triplet> triplets;
  const int64_t end = Sequencer::FieldsBefore(picture + 1, rate);
  for (int64_t field = Sequencer::FieldsBefore(picture, rate); field < end; ++field) {
    const auto slot = static_cast<size_t>(field / 2);
    const bool first = field % 2 == 0;
    const Pair pair = first && slot < pairs.size() ? pairs[slot] : kNullPair;
    triplets.push_back({true, first ? CcType::kField1 : CcType::kField2, static_cast<uint8_t>(pair >> 8),
                        static_cast<uint8_t>(pair)});
  }
  triplets.resize(static_cast<size_t>(InfoOf(rate).triplets), Triplet{});
  return triplets;
}

}  // namespace

std::vector<Pair> Schedule(const std::vector<LoadedCaption>& captions, Rate rate, bool fit,
                           std::vector<CueProblem>* problems) {
  Scheduler scheduler(rate, fit, problems);
  for (const LoadedCaption& caption : captions) scheduler.Add(caption);
  return scheduler.Result();
}

std::optional<CaptionTrack> MakeCaptionTrack(std::string_view text, Rate rate, const MakingOptions& options,
                                             std::vector<CueProblem>* problems, std::string* reason) {
  const std::optional<std::vector<Cue>> cues = ReadCues(text, reason);
  if (!cues) return {};
  const std::vector<LoadedCaption> captions = LayOut(*cues, options, problems);
  if (captions.empty()) {
    *reason = "holds no captions";
    return {};
  }
  const std::vector<Pair> pairs = Schedule(captions, rate, options.fit, problems);
  std::stable_sort(problems->begin(), problems->end(),
                   [](const CueProblem& a, const CueProblem& b) { return a.line < b.line; });
  CaptionTrack track;
  track.rate = rate;
  track.nominal = InfoOf(rate).nominal;
  track.fromZero = true;
  for (size_t slot = 0; slot < pairs.size(); ++slot) {
    if (pairs[slot] == kNullPair) continue;
    const int64_t picture = PictureOfField(2 * static_cast<int64_t>(slot), rate);
    if (track.events.empty() || track.events.back().at != picture)
      track.events.push_back({picture, TripletsOf(picture, pairs, rate)});
  }
  return track;
}

std::vector<std::string> LinesOf(const std::vector<CueProblem>& problems, bool solved) {
  std::vector<std::string> lines;
  for (const CueProblem& problem : problems) {
    if (problem.solved == solved) lines.push_back(fmt::format("line {}: {}", problem.line, problem.what));
  }
  return lines;
}

}  // namespace qlnmedia::captions
