// What sets and messages of a stream say of the coded picture buffer (ITU-T H.264 clauses D.1.2, D.1.3 and
// E.1.2, H.265 clauses D.2.2, D.2.3 and E.2.2).
#ifndef MEDIA_HTML_HRD_H
#define MEDIA_HTML_HRD_H

#include <optional>
#include <vector>

#include "html/cpb_model.h"
#include "sets/set_elements.h"
#include "sets/sps_facts.h"

namespace qlnmedia::html {

// The HRD of an SPS: the first schedule of the NAL parameters, or, where there are none, of the VCL ones.
struct Hrd {
  CpbSchedule schedule;
  bool nal = true;         // the buffer takes whole units of all kinds; false for the VCL parameters
  uint32_t schedules = 1;  // of those parameters
  uint32_t nalSchedules = 0;
  uint32_t vclSchedules = 0;
  uint32_t initialDelayLength = 24;  // bits of the elements of buffering period messages
  uint32_t removalDelayLength = 24;  // and of those of picture timing
  uint32_t outputDelayLength = 24;
  bool subPictures = false;     // HEVC: sub_pic_hrd_params_present_flag
  bool frameFieldInfo = false;  // HEVC: picture timing begins with pic_struct
};

// Nothing for a set without HRD or without the tick that its delays count by.
std::optional<Hrd> HrdOf(Codec codec, ByteSpan sps);

// The buffering period message of a picture; nothing where its payload breaks off.
std::optional<BufferingPeriod> ReadBufferingPeriod(Codec codec, ByteSpan payload, const Hrd& hrd);

// The removal delay that picture timing has, in ticks: of H.264 cpb_removal_delay, of HEVC
// au_cpb_removal_delay_minus1 + 1 as coded. Nothing where the payload breaks off.
std::optional<uint32_t> ReadRemovalDelay(Codec codec, ByteSpan payload, const Hrd& hrd);

// AuCpbRemovalDelayVal of H.265 clause D.3.3, which goes on where the coded delays begin at 0 again.
class RemovalDelays {
 public:
  // `coded` as ReadRemovalDelay; `period`: a buffering period begins with the picture.
  uint64_t Next(uint32_t coded, uint32_t bits, bool period);

 private:
  uint32_t last_ = 0;
  uint64_t high_ = 0;
};

}  // namespace qlnmedia::html

#endif
