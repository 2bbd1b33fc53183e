// Compares mastering display and light level, container against stream and frame against frame.

#include "check/hdr.h"

#include <fmt/format.h>

#include "hdr/values.h"

namespace qlnmedia {

void HdrChecker::Take(Codec codec, const std::vector<Unit>& units, int64_t frame) {
  const StreamHdr hdr = HdrOf(codec, units);
  if (hdr.mastering) {
    if (last_.mastering && *last_.mastering != *hdr.mastering)
      Add("the mastering display changes within the stream", frame);
    if (container_.mastering && *container_.mastering != *hdr.mastering)
      Add(fmt::format("mastering display: the container says {}, the stream {}",
                      MasteringDisplayText(*container_.mastering), MasteringDisplayText(*hdr.mastering)),
          frame);
    last_.mastering = hdr.mastering;
  }
  if (hdr.lightLevel) {
    if (container_.lightLevel && *container_.lightLevel != *hdr.lightLevel)
      Add(fmt::format("content light level: the container says {},{}, the stream {},{}",
                      container_.lightLevel->maxContent, container_.lightLevel->maxAverage,
                      hdr.lightLevel->maxContent, hdr.lightLevel->maxAverage),
          frame);
    last_.lightLevel = hdr.lightLevel;
  }
}

void HdrChecker::Finish() {
  if (container_.mastering && !last_.mastering)
    Add("the container has a mastering display, the stream has none", -1);
  if (container_.lightLevel && !last_.lightLevel)
    Add("the container has a content light level, the stream has none", -1);
}

void HdrChecker::Add(std::string text, int64_t frame) {
  findings_.Add(stream_, FindingKind::kHdr, std::move(text), frame);
}

}  // namespace qlnmedia
