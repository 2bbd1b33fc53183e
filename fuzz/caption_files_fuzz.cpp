// Caption files as texts: what a reader takes is written, read again and the same, and can be played out.

#include <string>
#include <string_view>

#include "captions/mcc_file.h"
#include "captions/pop_on_schedule.h"
#include "captions/scc_file.h"
#include "fuzz_input.h"
#include "mutators/formats.h"

namespace {

using namespace qlnmedia::captions;

void Expect(bool holds) {
  if (!holds) __builtin_trap();
}

void TakeScc(std::string_view text) {
  std::string reason;
  const std::optional<SccFile> file = ReadScc(text, &reason);
  if (!file) return Expect(!reason.empty());
  FirstFrame(*file);
  const std::optional<SccFile> again = ReadScc(WriteScc(*file), &reason);
  Expect(again && *again == *file);
}

void TakeMcc(std::string_view text) {
  std::string reason;
  const std::optional<MccFile> file = ReadMcc(text, &reason);
  if (!file) return Expect(!reason.empty());
  const std::optional<MccFile> again = ReadMcc(WriteMcc(*file), &reason);
  Expect(again && again->lines == file->lines && again->nominal == file->nominal &&
         again->dropFrame == file->dropFrame);
}

// Timed text: what is laid out stays on the screen, and what is sent keeps its parity, whatever the options.
void TakeCues(std::string_view text, unsigned options) {
  std::string reason;
  const std::optional<std::vector<Cue>> cues = ReadCues(text, &reason);
  if (!cues) return Expect(!reason.empty());
  int64_t last = 0;
  for (const Cue& cue : *cues) {
    Expect(cue.begin >= last && cue.end > cue.begin && !cue.lines.empty());
    last = cue.begin;
  }
  std::vector<CueProblem> problems;
  const MakingOptions making{(options & 1) != 0, (options & 2) != 0};
  const auto rate = static_cast<Rate>(options / 4 % kRateCount);
  const std::optional<CaptionTrack> track = MakeCaptionTrack(text, rate, making, &problems, &reason);
  if (!track) return Expect(!reason.empty());
  for (const CueProblem& problem : problems) {
    Expect(problem.line > 0 && !problem.what.empty());
    if (making.fit && making.transliterate) Expect(problem.solved);
  }
  for (const CaptionEvent& event : track->events) {
    Expect(event.triplets.size() == static_cast<size_t>(InfoOf(rate).triplets));
    for (const Triplet& t : event.triplets)
      Expect(!t.valid || (WithOddParity(t.first) == t.first && WithOddParity(t.second) == t.second));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  qln::fuzz::Block block(data, size, size);
  const std::string_view text(reinterpret_cast<const char*>(block.data()), size);
  TakeScc(text);
  TakeMcc(text);
  if (size != 0) TakeCues(text.substr(1), data[0]);
  const std::optional<Bytes> anc = ExpandAnc(text);
  if (anc) {
    const std::optional<Bytes> again = ExpandAnc(ShortenAnc(*anc));
    Expect(again && *again == *anc);
  }
  return 0;
}

QLN_FUZZ_BY_PIECES(qln::fuzz::Lines(), 1)
