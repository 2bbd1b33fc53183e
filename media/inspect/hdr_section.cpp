// Words HDR values.

#include "inspect/hdr_section.h"

#include <fmt/format.h>

namespace qlnmedia {

void AddHdr(Section& section, const StreamHdr& hdr) {
  if (hdr.mastering)
    section.Add("mastering_display", "Mastering display", MasteringDisplayText(*hdr.mastering));
  if (hdr.lightLevel)
    section.Add(
        "content_light_level", "Light level",
        Json{{"max", hdr.lightLevel->maxContent}, {"average", hdr.lightLevel->maxAverage}},
        fmt::format("{} cd/m2, average {} cd/m2", hdr.lightLevel->maxContent, hdr.lightLevel->maxAverage));
}

}  // namespace qlnmedia
